// The data format word: how samples are stored. It travels with all sample data, is the mask of what a
// format can hold, and tells a writer what to write.
#pragma once

#include <span>
#include <string_view>

#include "base/integers.h"

namespace kv {

// Bits 0..25: the data format code, one bit set in a wave, any number in a mask.
inline constexpr u32 kPcm8 = 0x1;
inline constexpr u32 kPcm12 = 0x2;
inline constexpr u32 kPcm16 = 0x4;
inline constexpr u32 kPcm20 = 0x8;
inline constexpr u32 kPcm24 = 0x10;
inline constexpr u32 kPcm32 = 0x20;
inline constexpr u32 kFloat32 = 0x40;
inline constexpr u32 kFloat64 = 0x80;
inline constexpr u32 kMuLaw = 0x100;
inline constexpr u32 kALaw = 0x200;
inline constexpr u32 kGsm = 0x400;
inline constexpr u32 kAdpcm2 = 0x800;
inline constexpr u32 kAdpcm3 = 0x1000;
inline constexpr u32 kAdpcm4 = 0x2000;
inline constexpr u32 kAdpcm5 = 0x4000;
inline constexpr u32 kDeltaPcm8 = 0x8000;
inline constexpr u32 kDeltaPcm16 = 0x10000;
inline constexpr u32 kByteDeltaPcm16 = 0x20000;
inline constexpr u32 kRevMuLaw = 0x40000; ///< the bits of each byte in reverse order
inline constexpr u32 kRevALaw = 0x80000;
inline constexpr u32 kAsciiText = 0x100000;
inline constexpr u32 kCompressed = 0x1000000; ///< no fixed size: a bit rate stands beside it
inline constexpr u32 kMidiData = 0x2000000;
inline constexpr u32 kCodeMask = 0x3FFFFFF;

inline constexpr u32 kMonoBit = 1U << 26;    ///< in a mask: can hold mono; for a writer: write one channel
inline constexpr u32 kStereoBit = 1U << 27;  ///< likewise for two channels
inline constexpr u32 kSequential = 1U << 28; ///< all left samples, then all right ones
inline constexpr u32 kUnsigned = 1U << 29;   ///< the most significant bit of integers is inverted
inline constexpr u32 kByteswap = 1U << 30;   ///< most significant byte first
inline constexpr u32 kPaddedMsb = 1U << 31;  ///< 12, 20 and 24 bits stand in the next larger word

// The codes for which each choice of the raw source page means anything.
inline constexpr u32 kSignedCodes = 0x3803F;
inline constexpr u32 kByteswapCodes = 0x300FE;
inline constexpr u32 kPaddedCodes = 0x1A;

struct FormatCode {
    u32 code;
    std::string_view name;
    u32 bits; ///< per sample, 0 for none of its own
};
/// All codes, in the order of the "Data format:" list.
std::span<const FormatCode> formatCodes();
/// Name and bits of a code; either output may be null. False if there is no such code.
bool FormatCodeInfo(u32 code, std::string_view* name, u32* bits);
/// The code of a name, ignoring case; 0 if there is none.
u32 FormatCodeByName(std::string_view name);

/// Bit rates that "Compressed" is offered with, in kbit/s.
std::span<const u32> compressedRates();
/// The offered rate nearest to `kbps`: the first whose midpoint with the next is not below it.
u32 nearestCompressedRate(f32 kbps);

} // namespace kv
