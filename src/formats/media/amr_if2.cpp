#include "formats/media/amr_if2.h"

#include <array>

namespace kv {
namespace {

/// Speech bits of a frame by its type: the eight rates, comfort noise, and 15 for no data.
constexpr std::array<u32, 16> kBits{95, 103, 118, 134, 148, 159, 204, 244, 39};
constexpr unsigned kNoData = 15;

bool isType(unsigned type) {
    return type == kNoData || (type < kBits.size() && kBits[type] != 0);
}

} // namespace

Bytes amrFileOfIf2(ByteSpan frames) {
    ByteWriter out;
    out.text("#!AMR\n");
    const std::size_t head = out.size();
    for (std::size_t at = 0; at < frames.size();) {
        const auto first = std::to_integer<unsigned>(frames[at]);
        const unsigned type = first & 0xF;
        if (!isType(type)) break;
        // The type takes the lower half of the first byte. The bits follow from the lowest one of each byte
        // upwards; in a file they go the other way, behind a byte of their own for the type.
        const std::size_t size = (4 + kBits[type] + 7) / 8;
        if (size > frames.size() - at) break;
        std::array<u8, 31> bits{};
        for (std::size_t bit = 0; bit < kBits[type]; ++bit) {
            const auto byte = std::to_integer<unsigned>(frames[at + (bit + 4) / 8]);
            if ((byte >> (bit + 4) % 8 & 1) != 0) bits[bit / 8] |= static_cast<u8>(0x80 >> bit % 8);
        }
        constexpr unsigned kGoodFrame = 4;
        out.u8le(static_cast<u8>(type << 3 | kGoodFrame));
        out.bytes(std::as_bytes(std::span(bits)).first((kBits[type] + 7) / 8));
        at += size;
    }
    return out.size() > head ? out.take() : Bytes();
}

} // namespace kv
