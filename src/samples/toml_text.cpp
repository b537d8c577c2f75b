#include "samples/toml_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "base/integers.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// A string that a text begins with: its quotes, and its bytes with the quotes; up to the end of the line,
/// or of the text, for one that is never closed.
struct TomlString {
    std::string_view quotes;
    std::size_t bytes;
    bool closed;

    std::string_view content(std::string_view text) const {
        return text.substr(quotes.size(), bytes - quotes.size() * (closed ? 2 : 1));
    }
};

TomlString stringAt(std::string_view text) {
    const char quote = text[0];
    const bool manyLines = text.size() >= 3 && text[1] == quote && text[2] == quote;
    const std::string_view quotes = text.substr(0, manyLines ? 3 : 1);
    for (std::size_t at = quotes.size(); at < text.size(); ++at) {
        if (text[at] == '\n' && !manyLines) return {quotes, at, false};
        if (text[at] == '\\' && quote == '"') {
            ++at;
        } else if (text.substr(at).starts_with(quotes)) {
            at += quotes.size();
            // Up to two quotes may stand right before the closing three.
            for (int extra = 0; manyLines && extra < 2 && at < text.size() && text[at] == quote; ++extra)
                ++at;
            return {quotes, at, true};
        }
    }
    return {quotes, text.size(), false};
}

/// UTF-8 with escapes for what is not ASCII. A text that had no escapes gets them for what has a meaning
/// among them.
std::string escaped(std::string_view content, bool hadEscapes) {
    const std::u16string units = Utf8ToWide(content);
    std::string out;
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        const bool pair = (c & 0xFC00) == 0xD800 && i + 1 < units.size();
        if (pair) c = 0x10000 + ((c & 0x3FF) << 10) + (units[++i] & 0x3FFU);
        if (c >= 0x80) {
            fmt::format_to(std::back_inserter(out), "\\U{:08X}", static_cast<u32>(c));
            continue;
        }
        if (!hadEscapes && (c == U'\\' || c == U'"')) out += '\\';
        out += static_cast<char>(c);
    }
    return out;
}

/// The string in ASCII, in double quotes unless it was ASCII already.
std::string asciiString(std::string_view text, const TomlString& string) {
    if (isAscii(text.substr(0, string.bytes))) return std::string(text.substr(0, string.bytes));
    const std::string quotes(string.quotes.size(), '"');
    return quotes + escaped(string.content(text), string.quotes[0] == '"') + (string.closed ? quotes : "");
}

} // namespace

std::optional<std::string> asciiToml(std::string_view text, std::size_t& strayLine) {
    constexpr std::string_view kBeforeString = " \t\r\n=,[{";
    std::string out;
    out.reserve(text.size());
    strayLine = 1;
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        const bool quote = c == '"' || c == '\'';
        if (static_cast<unsigned char>(c) >= 0x80) return {};
        if (quote && at > 0 && kBeforeString.find(text[at - 1]) == std::string_view::npos) return {};
        std::string_view piece = text.substr(at, 1);
        if (quote) {
            const TomlString string = stringAt(text.substr(at));
            piece = text.substr(at, string.bytes);
            if (!isUtf8(piece)) return {};
            out += asciiString(text.substr(at), string);
        } else if (c == '#') {
            piece = text.substr(at, text.find('\n', at) - at);
            std::copy_if(piece.begin(), piece.end(), std::back_inserter(out),
                         [](char letter) { return static_cast<unsigned char>(letter) < 0x80; });
        } else {
            out += c;
        }
        strayLine += static_cast<std::size_t>(std::count(piece.begin(), piece.end(), '\n'));
        at += piece.size();
    }
    strayLine = 0;
    return out;
}

} // namespace kv
