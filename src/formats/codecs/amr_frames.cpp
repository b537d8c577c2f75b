#include "formats/codecs/amr_frames.h"

#include <array>

namespace kv {
namespace {

/// Speech bits of a frame by its type: the eight rates, comfort noise, and 15 for no data.
constexpr std::array<u32, 16> kBits{95, 103, 118, 134, 148, 159, 204, 244, 39};
constexpr unsigned kNoData = 15;

// Interface format 2 has the type in the lower half of the first byte, and the bits follow from the lowest
// one of each byte upwards. In a file they go the other way, behind a byte of their own for the type.
constexpr std::size_t kTypeBits = 4;

bool isType(unsigned type) {
    return type == kNoData || (type < kBits.size() && kBits[type] != 0);
}

constexpr std::size_t bytesOf(std::size_t bits) {
    return (bits + 7) / 8;
}

} // namespace

Bytes amrFileOfIf2(ByteSpan frames) {
    ByteWriter out;
    out.text(kAmrMark);
    for (std::size_t at = 0; at < frames.size();) {
        const unsigned type = std::to_integer<unsigned>(frames[at]) & 0xF;
        if (!isType(type)) break;
        const std::size_t size = bytesOf(kTypeBits + kBits[type]);
        if (size > frames.size() - at) break;
        std::array<u8, 31> bits{};
        for (std::size_t bit = 0; bit < kBits[type]; ++bit) {
            const auto byte = std::to_integer<unsigned>(frames[at + (bit + kTypeBits) / 8]);
            if ((byte >> (bit + kTypeBits) % 8 & 1) != 0) bits[bit / 8] |= static_cast<u8>(0x80 >> bit % 8);
        }
        constexpr unsigned kGoodFrame = 4;
        out.u8le(static_cast<u8>(type << 3 | kGoodFrame));
        out.bytes(std::as_bytes(std::span(bits)).first(bytesOf(kBits[type])));
        at += size;
    }
    return out.size() > kAmrMark.size() ? out.take() : Bytes();
}

Bytes if2OfAmrFrame(ByteSpan frame) {
    if (frame.empty()) return {};
    const unsigned type = std::to_integer<unsigned>(frame[0]) >> 3 & 0xF;
    if (!isType(type) || frame.size() < 1 + bytesOf(kBits[type])) return {};
    Bytes out(bytesOf(kTypeBits + kBits[type]));
    out[0] = static_cast<std::byte>(type);
    for (std::size_t bit = 0; bit < kBits[type]; ++bit) {
        if ((frame[1 + bit / 8] & std::byte(0x80 >> bit % 8)) != std::byte{0})
            out[(bit + kTypeBits) / 8] |= std::byte(1 << (bit + kTypeBits) % 8);
    }
    return out;
}

} // namespace kv
