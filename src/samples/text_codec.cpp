#include "samples/text_codec.h"

#include <algorithm>
#include <array>
#include <bit>

namespace kv {
namespace {

/// Windows-1252 from 0x80 to 0x9F; what it leaves open keeps its value.
constexpr std::array<char16_t, 32> kAnsiHigh{0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                             0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                             0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                             0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

/// What stands for the characters from 0x100 on.
constexpr std::u16string_view kBestFit =
    u"ÄäAaAaCcCcCcCcDdÐdEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIiJjJjKkKLlLlLlLlLlNnNnNnnNnÖöOoÕõAaRrRrRrSsSsSsSsTtTtT"
    u"t"
    u"UuUuUuUuUuUuWwYyYZzZzZz";
static_assert(kBestFit.size() == 127);

struct Substitute {
    char32_t first, last;
    char to;
};
constexpr Substitute kSubstitutes[] = {
    {0x2C6, 0x2C6, '^'},   {0x2018, 0x201A, '\''}, {0x201C, 0x201E, '"'}, {0x2022, 0x2022, '*'},
    {0x2026, 0x2026, '.'}, {0x2039, 0x2039, '<'},  {0x203A, 0x203A, '>'}, {0x20AC, 0x20AC, 'E'},
};

char bestFit(char32_t c) {
    if (c <= 0xFF) return static_cast<char>(c);
    if (c >= 0x100 && c < 0x100 + kBestFit.size()) return static_cast<char>(kBestFit[c - 0x100]);
    for (const Substitute& row : kSubstitutes) {
        if (c >= row.first && c <= row.last) return row.to;
    }
    return '?';
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

void appendWide(std::u16string& out, char32_t c) {
    if (c < 0x10000) {
        out += static_cast<char16_t>(c);
        return;
    }
    out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
}

/// Continuation bytes that a lead byte asks for; -1 for no lead byte.
int continuations(u8 lead) {
    if (lead < 0x80) return 0;
    if ((lead & 0xE0) == 0xC0) return 1;
    if ((lead & 0xF0) == 0xE0) return 2;
    return (lead & 0xF8) == 0xF0 ? 3 : -1;
}

/// The character at the start of `text`, which moves behind it; a malformed byte keeps its value.
char32_t takeUtf8(std::string_view& text) {
    const auto lead = static_cast<u8>(text[0]);
    const int more = continuations(lead);
    bool valid = more >= 0 && text.size() > static_cast<std::size_t>(more);
    char32_t c = more == 3 ? lead & 0x07 : more == 2 ? lead & 0x0F : more == 1 ? lead & 0x1F : lead;
    for (std::size_t i = 1; valid && i <= static_cast<std::size_t>(more); ++i) {
        const auto next = static_cast<u8>(text[i]);
        valid = (next & 0xC0) == 0x80;
        c = c << 6 | (next & 0x3F);
    }
    if (!valid || c > 0x10FFFF) {
        text.remove_prefix(1);
        return lead;
    }
    text.remove_prefix(static_cast<std::size_t>(more) + 1);
    return c;
}

/// The character at the start of `text`; 0 ends the text at a lone surrogate.
char32_t takeWide(std::u16string_view& text) {
    const char16_t unit = text[0];
    text.remove_prefix(1);
    if (unit < 0xD800 || unit > 0xDBFF) return unit;
    if (text.empty()) return 0;
    const char32_t c = 0x10000 + ((unit - 0xD800U) << 10) + ((text[0] - 0xDC00U) & 0x3FF);
    text.remove_prefix(1);
    return c;
}

char32_t ansiCharacter(char c) {
    const auto value = static_cast<u8>(c);
    return value >= 0x80 && value < 0xA0 ? kAnsiHigh[value - 0x80U] : value;
}

template <class Visit>
void eachWide(std::u16string_view text, Visit visit) {
    while (!text.empty()) {
        const char32_t c = takeWide(text);
        if (c == 0) return;
        visit(c);
    }
}

} // namespace

std::u16string AnsiToWide(std::string_view text) {
    std::u16string out;
    for (const char c : text) appendWide(out, ansiCharacter(c));
    return out;
}

std::string AnsiToUtf8(std::string_view text) {
    std::string out;
    for (const char c : text) appendUtf8(out, ansiCharacter(c));
    return out;
}

std::string WideToAnsi(std::u16string_view text) {
    std::string out;
    eachWide(text, [&](char32_t c) { out += bestFit(c); });
    return out;
}

std::string Utf8ToAnsi(std::string_view text) {
    std::string out;
    while (!text.empty()) out += bestFit(takeUtf8(text));
    return out;
}

std::u16string Utf8ToWide(std::string_view text) {
    std::u16string out;
    while (!text.empty()) appendWide(out, takeUtf8(text));
    return out;
}

std::string WideToUtf8(std::u16string_view text) {
    std::string out;
    eachWide(text, [&](char32_t c) { appendUtf8(out, c); });
    return out;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const int more = continuations(static_cast<u8>(text[0]));
        if (more < 0 || text.size() <= static_cast<std::size_t>(more)) return false;
        for (std::size_t i = 1; i <= static_cast<std::size_t>(more); ++i) {
            if ((static_cast<u8>(text[i]) & 0xC0) != 0x80) return false;
        }
        text.remove_prefix(static_cast<std::size_t>(more) + 1);
    }
    return true;
}

std::string textFromBytes(ByteSpan bytes) {
    const std::string_view all = textOf(bytes);
    const bool little = all.starts_with("\xFF\xFE"), big = all.starts_with("\xFE\xFF");
    if (little || big) {
        ByteCursor in(bytes.subspan(2));
        std::u16string wide;
        while (in.left() >= 2) {
            const u16 unit = in.integer<u16>(little ? std::endian::little : std::endian::big);
            if (unit == 0) break;
            wide += static_cast<char16_t>(unit);
        }
        return WideToUtf8(wide);
    }
    const std::string_view text = all.substr(0, all.find('\0'));
    return isUtf8(text) ? std::string(text) : AnsiToUtf8(text);
}

std::string_view FileNamePart(std::string_view path) {
    const std::size_t mark = path.find_last_of("/\\:");
    return mark == std::string_view::npos ? path : path.substr(mark + 1);
}

std::size_t FileExtension(std::string_view path) {
    const std::string_view name = FileNamePart(path);
    const std::size_t point = name.rfind('.');
    if (point == std::string_view::npos) return path.size();
    if (point + 1 == name.size() && point > 0 && name[point - 1] == '.') return path.size();
    return path.size() - name.size() + point;
}

i32 WideToInt(std::string_view text, i32 fallback) {
    bool negative = false;
    std::size_t at = 0;
    for (; at < text.size() && (text[at] < '0' || text[at] > '9'); ++at) {
        if (text[at] == '-' || text[at] == '+') negative = text[at] == '-';
    }
    if (at == text.size()) return fallback;
    i64 value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && value <= INT32_MAX; ++at) {
        value = value * 10 + (text[at] - '0');
    }
    return static_cast<i32>(std::min<i64>(value, INT32_MAX)) * (negative ? -1 : 1);
}

} // namespace kv
