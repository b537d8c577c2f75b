#include "shell/toml_text.h"

#include <algorithm>

namespace kv {
namespace {

/// Bytes of the string that `text` begins with, with its quotes; up to the end of the line, or of the
/// text, for one that is never closed.
std::size_t stringBytes(std::string_view text) {
    const char quote = text[0];
    const bool manyLines = text.size() >= 3 && text[1] == quote && text[2] == quote;
    const std::string_view closing = text.substr(0, manyLines ? 3 : 1);
    for (std::size_t at = closing.size(); at < text.size(); ++at) {
        if (text[at] == '\n' && !manyLines) return at;
        if (text[at] == '\\' && quote == '"') {
            ++at;
        } else if (text.substr(at).starts_with(closing)) {
            at += closing.size();
            // Up to two quotes may stand right before the closing three.
            for (int extra = 0; manyLines && extra < 2 && at < text.size() && text[at] == quote; ++extra)
                ++at;
            return at;
        }
    }
    return text.size();
}

} // namespace

std::size_t lineOfStrayCharacter(std::string_view text) {
    constexpr std::string_view kBeforeString = " \t\r\n=,[{";
    std::size_t line = 1;
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        const bool quote = c == '"' || c == '\'';
        if (static_cast<unsigned char>(c) >= 0x80) return line;
        if (quote && at > 0 && kBeforeString.find(text[at - 1]) == std::string_view::npos) return line;
        std::size_t end = at + 1;
        if (c == '#') end = std::min(text.find('\n', at), text.size());
        if (quote) end = at + stringBytes(text.substr(at));
        line += static_cast<std::size_t>(std::count(text.begin() + static_cast<std::ptrdiff_t>(at),
                                                    text.begin() + static_cast<std::ptrdiff_t>(end), '\n'));
        at = end;
    }
    return 0;
}

} // namespace kv
