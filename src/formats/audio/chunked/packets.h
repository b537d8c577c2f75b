// Waves whose samples stand in packets: what AIFF-C, AU and CAF have in common.
#pragma once

#include "base/file_context.h"
#include "formats/framework/sample_file.h"

namespace kv {

class Wave;

enum class PacketCoding : u8 {
    None, ///< plain samples
    Ima4,
    Gsm,  ///< frames of 33 bytes
    G722, ///< 64 kbit/s
    G726, ///< and its forerunners G.721 and G.723
};

/// Where packets stand in a file, and how they are coded.
struct PacketLayout {
    PacketCoding coding = PacketCoding::None;
    u32 bits = 4; ///< of a G.726 code; the first one stands in the low bits of a byte
    u32 channels = 1;
    u32 rate = 0; ///< Hz
    u64 offset = 0;
    u64 bytes = 0;              ///< what lies beyond the file's end is cut off
    u64 frames = 0;             ///< as the file states; 0: as many as the packets hold, and never more
    bool countsPackets = false; ///< a small `frames` counts packets, by rules that writers don't agree on
};

/// Makes a wave of packets. Null with the error pair set, under `context`, for what can't be read.
Wave* importPackets(FileContext& file, const PacketLayout& layout, std::string_view context);

/// Makes a wave of plain samples, to be saved in the format that it has, and says what is missing of it.
Wave* importWhole(FileContext& file, const SampleLayout& layout, std::string_view context);

/// A sampling rate in whole Hz; 0 for one that no wave can have.
u32 wholeRate(f64 rate);

} // namespace kv
