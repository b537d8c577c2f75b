// Text with a limit in characters, and the small text operations that everything shares. All text inside
// the program is UTF-8.
#pragma once

#include <compare>
#include <string>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// The longest prefix of `text` with at most `characters` characters. A byte that is not part of valid
/// UTF-8 counts as one.
std::string_view cutToCharacters(std::string_view text, std::size_t characters);

/// Text of at most N characters. Assigning more cuts it behind a whole character; a zero byte ends it.
template <std::size_t N>
class Text {
public:
    Text() = default;
    Text(std::string_view text) { *this = text; }
    Text(const char* text) : Text(std::string_view(text)) {}
    Text& operator=(std::string_view text) {
        text_ = cutToCharacters(text.substr(0, text.find('\0')), N);
        return *this;
    }

    Text& operator=(const char* text) { return *this = std::string_view(text); }

    operator std::string_view() const { return text_; }
    std::string_view view() const { return text_; }
    const std::string& str() const { return text_; }
    const char* c_str() const { return text_.c_str(); }
    bool empty() const { return text_.empty(); }
    std::size_t size() const { return text_.size(); }
    void clear() { text_.clear(); }
    friend bool operator==(const Text&, const Text&) = default;
    friend bool operator==(const Text& a, std::string_view b) { return a.text_ == b; }
    friend bool operator==(const Text& a, const char* b) { return a.text_ == b; }

    static constexpr std::size_t kLimit = N;

private:
    std::string text_;
};

/// Comparison ignoring the case of the letters A to Z.
bool equalIgnoringCase(std::string_view a, std::string_view b);
/// Below, equal or above zero as a sorts before, with or behind b, ignoring the case of A to Z.
int compareIgnoringCase(std::string_view a, std::string_view b);
std::string toLower(std::string_view text);
std::string toUpper(std::string_view text);

/// "s" for any count but 1.
constexpr std::string_view plural(u64 count) {
    return count == 1 ? "" : "s";
}

} // namespace kv
