// Inner loops over samples. Each has a plain form in `reference`, which is the definition, and a vector
// form, which is what callers use; both give the same bits.
#pragma once

#include <span>

#include "base/bytes.h"

namespace kv {

/// A float sample as a signed integer of `bits` bits: rounded half up, limited to the range. NaN gives 0.
/// v = trunc((x + 1) h + 0.5) - h with h = 2^(bits-1), in double arithmetic.
constexpr i32 quantise(f32 x, int bits) {
    const f64 half = static_cast<f64>(u64{1} << (bits - 1));
    if (x != x) return 0;
    const f64 v = (static_cast<f64>(x) + 1) * half + 0.5;
    if (v <= 0) return static_cast<i32>(-half);
    if (v >= 2 * half) return static_cast<i32>(half - 1);
    return static_cast<i32>(static_cast<i64>(v) - static_cast<i64>(half));
}

/// Sizes of all pairs of spans agree; spans don't overlap unless it says so.
namespace reference {
void int16ToFloat(std::span<const i16> from, std::span<f32> to);
void floatToInt16(std::span<const f32> from, std::span<i16> to);
void packed24ToFloat(ByteSpan from, std::span<f32> to);
void floatToPacked24(std::span<const f32> from, std::span<std::byte> to);
void int16ToPacked24(std::span<const i16> from, std::span<std::byte> to);
} // namespace reference

/// i16 / 32768.
void int16ToFloat(std::span<const i16> from, std::span<f32> to);
/// `quantise` to 16 bits.
void floatToInt16(std::span<const f32> from, std::span<i16> to);
/// Three bytes a sample, least significant first, as v / 2^23.
void packed24ToFloat(ByteSpan from, std::span<f32> to);
/// `quantise` to 24 bits, three bytes a sample, least significant first.
void floatToPacked24(std::span<const f32> from, std::span<std::byte> to);
/// The same as by way of float, without the way.
void int16ToPacked24(std::span<const i16> from, std::span<std::byte> to);

void int32ToFloat(std::span<const i32> from, std::span<f32> to);
/// `quantise` to 32 bits.
void floatToInt32(std::span<const f32> from, std::span<i32> to);

/// 8 bits to 16: signed s * 257 + 128, unsigned s * 257 - 32768. So full scale is reached on both sides.
void bytesToInt16(ByteSpan from, bool isUnsigned, std::span<i16> to);
/// The high byte, its top bit inverted for unsigned.
void int16ToBytes(std::span<const i16> from, bool isUnsigned, std::span<std::byte> to);

/// Turns the order of the bytes of each sample around; 2, 3, 4 or 8 bytes a sample.
void ByteSwap(std::span<std::byte> samples, std::size_t bytesPerSample);
/// Turns the order of the bits of each byte around.
void ReverseBits(std::span<std::byte> bytes);

void monoToStereo(std::span<const i16> from, std::span<i16> to);
void monoToStereo(std::span<const f32> from, std::span<f32> to);
/// (left + right) / 2, truncated for integers.
void stereoToMono(std::span<const i16> from, std::span<i16> to);
void stereoToMono(std::span<const f32> from, std::span<f32> to);

// ITU-T G.711. The encoders depart from the standard: see the .cpp.
void muLawToInt16(ByteSpan from, std::span<i16> to);
void aLawToInt16(ByteSpan from, std::span<i16> to);
void int16ToMuLaw(std::span<const i16> from, std::span<std::byte> to);
void int16ToALaw(std::span<const i16> from, std::span<std::byte> to);

} // namespace kv
