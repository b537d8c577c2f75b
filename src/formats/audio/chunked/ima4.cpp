#include "formats/audio/chunked/ima4.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace kv {
namespace {

void decodePacket(ByteSpan packet, std::span<i16> to, u32 channels, ImaState& state) {
    const u16 head = loadInteger<u16>(packet.first<2>(), std::endian::big);
    const i32 index = head & 0x7F;
    const i32 predictor = static_cast<i16>(head & 0xFF80);
    const bool goesOn = index == state.index && std::abs(predictor - state.predictor) < 0x80;
    if (!goesOn) state = {predictor, index};
    ima_Decode(to, packet.subspan(2), kIma4PacketFrames, 4, channels - 1, false, state.predictor,
               state.index);
}

} // namespace

CodedForm ima4Form(u32 channels) {
    if (channels == 0) return {};
    const u32 kept = std::min(channels, 2U);
    const std::size_t unitBytes = kIma4PacketBytes * channels;
    return {kept,
            unitBytes,
            kIma4PacketFrames,
            [=, states = std::array<ImaState, 2>()](ByteSpan from, std::span<i16> to) mutable {
                const std::size_t units =
                    std::min(from.size() / unitBytes, to.size() / (kIma4PacketFrames * kept));
                for (std::size_t unit = 0; unit < units; ++unit) {
                    for (u32 channel = 0; channel < kept; ++channel) {
                        decodePacket(
                            from.subspan(unit * unitBytes + channel * kIma4PacketBytes, kIma4PacketBytes),
                            to.subspan(unit * kIma4PacketFrames * kept + channel), kept, states[channel]);
                    }
                }
                return units * kIma4PacketFrames;
            },
            {}};
}

} // namespace kv
