#include "base/text.h"

#include <algorithm>

namespace kv {
namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
}

/// Bytes of the character that starts `text`: 1 for what is no valid UTF-8 sequence.
std::size_t characterBytes(std::string_view text) {
    const auto lead = static_cast<u8>(text[0]);
    const std::size_t length = lead >= 0xF0 && lead < 0xF8 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    if (lead >= 0xF8 || length > text.size()) return 1;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<u8>(text[i]) & 0xC0) != 0x80) return 1;
    }
    return length;
}

} // namespace

std::string_view cutToCharacters(std::string_view text, std::size_t characters) {
    if (text.size() <= characters) return text;
    std::size_t at = 0;
    for (; at < text.size() && characters > 0; --characters) at += characterBytes(text.substr(at));
    return text.substr(0, at);
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

int compareIgnoringCase(std::string_view a, std::string_view b) {
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        const int difference = static_cast<u8>(lower(a[i])) - static_cast<u8>(lower(b[i]));
        if (difference != 0) return difference;
    }
    return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

std::string toLower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

std::string toUpper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), upper);
    return result;
}

} // namespace kv
