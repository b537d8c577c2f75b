#include "wizards/wave_names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "model/key_name.h"
#include "model/wave.h"

namespace kv {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::optional<u8> noteAt(std::string_view name) {
    constexpr std::string_view kLetters = "cdefgab";
    constexpr int kSemitones[] = {0, 2, 4, 5, 7, 9, 11};
    const std::size_t letter =
        kLetters.find(static_cast<char>(std::tolower(static_cast<unsigned char>(name[0]))));
    if (letter == std::string_view::npos || name.size() < 2) return {};
    int key = kSemitones[letter];
    std::size_t at = 1;
    if (name[1] == '#' || name[1] == 'b') {
        key += name[1] == '#' ? 1 : -1;
        at = 2;
    }
    if (at >= name.size() || !isDigit(name[at])) return {};
    key += (name[at] - '0' + 1) * 12;
    return key >= 0 && key <= 127 ? std::optional(static_cast<u8>(key)) : std::nullopt;
}

std::optional<u8> numberAt(std::string_view name) {
    std::size_t digits = 0;
    int value = 0;
    for (; digits < name.size() && isDigit(name[digits]) && digits < 4; ++digits)
        value = value * 10 + name[digits] - '0';
    if (digits < 2 || digits > 3 || value > 127) return {};
    return static_cast<u8>(value);
}

} // namespace

std::optional<u8> keyInName(std::string_view name) {
    for (std::size_t i = name.size(); i-- > 0;) {
        const bool inWord = i > 0 && std::isalpha(static_cast<unsigned char>(name[i - 1])) != 0;
        if (!inWord) {
            if (const std::optional<u8> key = noteAt(name.substr(i))) return key;
        }
        if (i == 0 || !isDigit(name[i - 1])) {
            if (const std::optional<u8> key = numberAt(name.substr(i))) return key;
        }
    }
    return {};
}

void setNameFromKey(Wave& wave, NamePlace place, std::string_view text) {
    constexpr std::string_view kRoot = "<root>";
    const std::string key = KeyName(wave.params.rootKey);
    if (place == NamePlace::Prepend) return wave.SetName(fmt::format("{} {}", key, wave.name().view()));
    if (place == NamePlace::Append) return wave.SetName(fmt::format("{} {}", wave.name().view(), key));
    std::string name(text);
    for (std::size_t at = name.find(kRoot); at != std::string::npos; at = name.find(kRoot, at + key.size()))
        name.replace(at, kRoot.size(), key);
    wave.SetName(name);
}

u32 replaceInName(Item& item, std::string_view from, std::string_view to) {
    if (from.empty()) return 0;
    std::string name = item.name().str();
    u32 count = 0;
    for (std::size_t at = name.find(from); at != std::string::npos; at = name.find(from, at + to.size())) {
        name.replace(at, from.size(), to);
        ++count;
    }
    if (count > 0) item.SetName(name);
    return count;
}

} // namespace kv
