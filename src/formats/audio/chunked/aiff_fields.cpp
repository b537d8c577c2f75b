#include "formats/audio/chunked/aiff_fields.h"

#include <bit>
#include <cmath>

#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr int kExponentBias = 16383;

/// Mac OS Roman from 0x80 on.
constexpr char16_t kMacRoman[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

/// As much of a text as fits into `limit` bytes, cut behind a whole character of UTF-8.
std::string_view cutToBytes(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    while (limit > 0 && (static_cast<u8>(text[limit]) & 0xC0) == 0x80) --limit;
    return text.substr(0, limit);
}

} // namespace

f64 extendedNumber(std::span<const std::byte, kExtendedBytes> bytes) {
    const u16 head = loadInteger<u16>(bytes.first<2>(), std::endian::big);
    const u64 mantissa = loadInteger<u64>(bytes.last<8>(), std::endian::big);
    const int exponent = head & 0x7FFF;
    if (exponent == 0x7FFF) return 0;
    const f64 value = std::ldexp(static_cast<f64>(mantissa), exponent - kExponentBias - 63);
    return (head & 0x8000) != 0 ? -value : value;
}

void writeExtended(ByteWriter& out, u32 value) {
    if (value == 0) {
        out.fill(kExtendedBytes);
        return;
    }
    const int shift = std::countl_zero(u64{value});
    out.u16be(static_cast<u16>(kExponentBias + 63 - shift)).u64be(u64{value} << shift);
}

std::string macText(ByteSpan bytes) {
    std::string_view text = textOf(bytes);
    text = text.substr(0, text.find('\0'));
    if (isUtf8(text)) return std::string(text);
    std::u16string wide;
    for (const char c : text) {
        const auto byte = static_cast<u8>(c);
        wide += byte < 0x80 ? char16_t{byte} : kMacRoman[byte - 0x80];
    }
    return WideToUtf8(wide);
}

std::string readCountedText(ByteCursor& in) {
    const std::size_t size = in.u8le();
    std::string text = macText(in.bytes(size));
    if (size % 2 == 0 && in.left() > 0) in.skip(1);
    return text;
}

void writeCountedText(ByteWriter& out, std::string_view text) {
    text = cutToBytes(text, 255);
    out.u8le(static_cast<u8>(text.size())).text(text).fill(text.size() % 2 == 0 ? 1 : 0);
}

} // namespace kv
