#include "samples/kernels.h"

#include <algorithm>
#include <array>

namespace kv {

namespace reference {

void int16ToFloat(std::span<const i16> from, std::span<f32> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<f32>(from[i]) * (1.0F / 32768);
}

void floatToInt16(std::span<const f32> from, std::span<i16> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<i16>(quantise(from[i], 16));
}

void packed24ToFloat(ByteSpan from, std::span<f32> to) {
    for (std::size_t i = 0; i < to.size(); ++i) {
        const auto byte = [&](std::size_t k) { return std::to_integer<u32>(from[3 * i + k]); };
        const auto v = static_cast<i32>(byte(0) << 8 | byte(1) << 16 | byte(2) << 24);
        to[i] = static_cast<f32>(v) * 0x1p-31F;
    }
}

namespace {
void storePacked24(i32 v, std::byte* to) {
    to[0] = static_cast<std::byte>(v);
    to[1] = static_cast<std::byte>(v >> 8);
    to[2] = static_cast<std::byte>(v >> 16);
}
} // namespace

void floatToPacked24(std::span<const f32> from, std::span<std::byte> to) {
    for (std::size_t i = 0; i < from.size(); ++i) storePacked24(quantise(from[i], 24), &to[3 * i]);
}

void int16ToPacked24(std::span<const i16> from, std::span<std::byte> to) {
    for (std::size_t i = 0; i < from.size(); ++i) {
        storePacked24(quantise(static_cast<f32>(from[i]) * (1.0F / 32768), 24), &to[3 * i]);
    }
}

} // namespace reference

void int32ToFloat(std::span<const i32> from, std::span<f32> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<f32>(from[i]) * 0x1p-31F;
}

void floatToInt32(std::span<const f32> from, std::span<i32> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = quantise(from[i], 32);
}

void bytesToInt16(ByteSpan from, bool isUnsigned, std::span<i16> to) {
    if (isUnsigned) {
        for (std::size_t i = 0; i < to.size(); ++i) {
            to[i] = static_cast<i16>(std::to_integer<int>(from[i]) * 257 - 32768);
        }
    } else {
        for (std::size_t i = 0; i < to.size(); ++i) {
            to[i] = static_cast<i16>(static_cast<i8>(from[i]) * 257 + 128);
        }
    }
}

void int16ToBytes(std::span<const i16> from, bool isUnsigned, std::span<std::byte> to) {
    const u8 flip = isUnsigned ? 0x80 : 0;
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = static_cast<std::byte>((from[i] >> 8) ^ flip);
}

void ByteSwap(std::span<std::byte> samples, std::size_t bytesPerSample) {
    std::byte* at = samples.data();
    const std::size_t count = samples.size() / bytesPerSample;
    switch (bytesPerSample) {
        case 2:
            for (std::size_t i = 0; i < count; ++i, at += 2) std::swap(at[0], at[1]);
            break;
        case 3:
            for (std::size_t i = 0; i < count; ++i, at += 3) std::swap(at[0], at[2]);
            break;
        case 4:
            for (std::size_t i = 0; i < count; ++i, at += 4) {
                std::swap(at[0], at[3]);
                std::swap(at[1], at[2]);
            }
            break;
        default:
            for (std::size_t i = 0; i < count; ++i, at += bytesPerSample)
                std::reverse(at, at + bytesPerSample);
    }
}

namespace {

template <class Make>
constexpr auto makeTable(Make make) {
    std::array<decltype(make(u8{0})), 256> table{};
    for (int i = 0; i < 256; ++i) table[static_cast<std::size_t>(i)] = make(static_cast<u8>(i));
    return table;
}

constexpr auto kReversed = makeTable([](u8 b) {
    int r = 0;
    for (int i = 0; i < 8; ++i) r |= (b >> i & 1) << (7 - i);
    return static_cast<std::byte>(r);
});

constexpr auto kMuLawTable = makeTable([](u8 code) {
    const int c = ~code & 0xFF;
    const int magnitude = ((((c & 15) << 3) + 132) << (c >> 4 & 7)) - 132;
    return static_cast<i16>((c & 0x80) != 0 ? -magnitude : magnitude);
});

constexpr auto kALawTable = makeTable([](u8 code) {
    const int c = code ^ 0x55;
    const int segment = c >> 4 & 7;
    int magnitude = ((c & 15) << 4) + 8;
    if (segment > 0) magnitude = (magnitude + 256) << (segment - 1);
    return static_cast<i16>((c & 0x80) != 0 ? magnitude : -magnitude);
});

/// First segment whose limit is not below x; 8 above all.
constexpr int g711Segment(int x) {
    int segment = 0;
    while (segment < 8 && x > (0x100 << segment) - 1) ++segment;
    return segment;
}

// Unlike the standard's encoder, the mu-law one adds no bias to x.
constexpr std::byte toMuLaw(i16 sample) {
    const int x = sample < 0 ? ~sample : sample;
    const int segment = g711Segment(x);
    const int code = segment >= 8 ? 0x7F : segment << 4 | (x >> (segment + 3) & 15);
    return static_cast<std::byte>(code ^ (sample < 0 ? 0x7F : 0xFF));
}

constexpr std::byte toALaw(i16 sample) {
    const int x = sample < 0 ? -8 - sample : sample;
    const int segment = g711Segment(x);
    const int mantissa = segment < 2 ? x >> 4 & 15 : x >> (segment + 3) & 15;
    const int code = segment >= 8 ? 0x7F : segment << 4 | mantissa;
    return static_cast<std::byte>(code ^ (sample < 0 ? 0x55 : 0xD5));
}

template <class T>
void repeatSamples(std::span<const T> from, std::span<T> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[2 * i] = to[2 * i + 1] = from[i];
}

} // namespace

void ReverseBits(std::span<std::byte> bytes) {
    for (std::byte& b : bytes) b = kReversed[std::to_integer<std::size_t>(b)];
}

void monoToStereo(std::span<const i16> from, std::span<i16> to) {
    repeatSamples(from, to);
}
void monoToStereo(std::span<const f32> from, std::span<f32> to) {
    repeatSamples(from, to);
}

void stereoToMono(std::span<const i16> from, std::span<i16> to) {
    for (std::size_t i = 0; i < to.size(); ++i) to[i] = static_cast<i16>((from[2 * i] + from[2 * i + 1]) / 2);
}

void stereoToMono(std::span<const f32> from, std::span<f32> to) {
    for (std::size_t i = 0; i < to.size(); ++i) to[i] = (from[2 * i] + from[2 * i + 1]) * 0.5F;
}

void muLawToInt16(ByteSpan from, std::span<i16> to) {
    for (std::size_t i = 0; i < to.size(); ++i) to[i] = kMuLawTable[std::to_integer<std::size_t>(from[i])];
}

void aLawToInt16(ByteSpan from, std::span<i16> to) {
    for (std::size_t i = 0; i < to.size(); ++i) to[i] = kALawTable[std::to_integer<std::size_t>(from[i])];
}

void int16ToMuLaw(std::span<const i16> from, std::span<std::byte> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = toMuLaw(from[i]);
}

void int16ToALaw(std::span<const i16> from, std::span<std::byte> to) {
    for (std::size_t i = 0; i < from.size(); ++i) to[i] = toALaw(from[i]);
}

} // namespace kv
