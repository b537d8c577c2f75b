// What Creative Voice Files consist of. Document: "The .VOC file format" (Creative Labs, Sound Blaster
// developer kit, 1991; version 1.20 of 1992 with the new block for samples of any width).
#pragma once

#include "base/bytes.h"
#include "samples/data_format.h"

namespace kv {

inline constexpr std::string_view kVocTitle = "Creative Voice File\x1A";
inline constexpr std::size_t kVocHeaderBytes = 26;
inline constexpr u32 kVocMostBlockBytes = 0xFFFFFF;
inline constexpr u16 kVocForever = 0xFFFF; ///< repeats

enum class VocBlock : u8 {
    End = 0,
    Sound = 1,
    More = 2, ///< continues the sound ahead of it
    Silence = 3,
    Marker = 4,
    Text = 5,
    Repeat = 6,
    EndRepeat = 7,
    Extended = 8, ///< overrides the rate and the codec of the next sound, which may be stereo by it
    NewSound = 9,
};

/// A codec as blocks name it.
struct VocCodec {
    u16 number;
    u16 bits;
    u32 word;             ///< data format word
    bool coded = false;   ///< behind a first sample as it stands, and always mono
    bool coded16 = false; ///< of 16-bit samples
};
inline constexpr VocCodec kVocCodecs[] = {
    {0, 8, kPcm8 | kUnsigned}, {1, 4, kAdpcm4, true}, {2, 3, kAdpcm3, true}, {3, 2, kAdpcm2, true},
    {4, 16, kPcm16},           {6, 8, kALaw},         {7, 8, kMuLaw},        {0x200, 4, kAdpcm4, false, true},
};

/// Rates of the blocks of the first cards, in Hz, from a divisor of 8 or of 16 bits.
constexpr u32 vocRate(u8 divisor) {
    const u32 period = 256U - divisor;
    return (1'000'000 + period / 2) / period;
}
constexpr u32 vocExtendedRate(u16 divisor, u32 channels) {
    const u32 period = (65536U - divisor) * channels;
    return (256'000'000 + period / 2) / period;
}

} // namespace kv
