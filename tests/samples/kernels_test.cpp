#include "samples/kernels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace kv {
namespace {

/// Floats that rounding gets wrong most easily: ties and their neighbours at 16 and 24 bits, limits, what
/// is no number, and random bit patterns.
std::vector<f32> hardFloats() {
    std::vector<f32> all{0.0F,
                         -0.0F,
                         1.0F,
                         -1.0F,
                         1e30F,
                         -1e30F,
                         std::numeric_limits<f32>::infinity(),
                         -std::numeric_limits<f32>::infinity(),
                         std::nanf(""),
                         1e-45F,
                         -1e-45F,
                         1e-38F};
    std::mt19937 random(5);
    for (int i = 0; i < 100'000; ++i) {
        for (const f32 scale : {0x1p-15F, 0x1p-23F}) {
            const auto k =
                static_cast<i32>(random() % static_cast<u32>(2 / scale)) - static_cast<i32>(1 / scale);
            const f32 tie = (static_cast<f32>(k) + 0.5F) * scale;
            all.insert(all.end(), {tie, std::nextafter(tie, 2.0F), std::nextafter(tie, -2.0F)});
        }
        all.push_back(std::bit_cast<f32>(static_cast<u32>(random())));
    }
    return all;
}

/// The definition, in integers of the widest sort.
i32 definition(f32 x, int bits) {
    if (std::isnan(x)) return 0;
    const long double half = std::ldexp(1.0L, bits - 1);
    long double v = std::floor((static_cast<long double>(x) + 1) * half + 0.5L);
    v = std::min(std::max(v, 0.0L), 2 * half - 1);
    return static_cast<i32>(v - half);
}

TEST(Quantiser, FollowsItsDefinition) {
    for (const f32 x : hardFloats()) {
        ASSERT_EQ(quantise(x, 16), definition(x, 16)) << x;
        ASSERT_EQ(quantise(x, 24), definition(x, 24)) << x;
    }
    EXPECT_EQ(quantise(1.0F, 32), std::numeric_limits<i32>::max());
    EXPECT_EQ(quantise(-1.0F, 32), std::numeric_limits<i32>::min());
    EXPECT_EQ(quantise(0.5F, 32), 1 << 30);
}

TEST(Kernels, FromFloatEqualTheReference) {
    const std::vector<f32> floats = hardFloats();
    std::vector<i16> a(floats.size()), b(floats.size());
    floatToInt16(floats, a);
    reference::floatToInt16(floats, b);
    EXPECT_EQ(a, b);
    Bytes c(floats.size() * 3), d(floats.size() * 3);
    floatToPacked24(floats, c);
    reference::floatToPacked24(floats, d);
    EXPECT_EQ(c, d);
}

TEST(Kernels, FromIntegersEqualTheReferenceForEveryValue) {
    std::vector<i16> samples(65536);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<i16>(i);
    std::vector<f32> a(samples.size()), b(samples.size());
    int16ToFloat(samples, a);
    reference::int16ToFloat(samples, b);
    EXPECT_EQ(a, b);
    std::vector<i16> back(samples.size());
    floatToInt16(a, back);
    EXPECT_EQ(back, samples);
    Bytes c(samples.size() * 3), d(samples.size() * 3);
    int16ToPacked24(samples, c);
    reference::int16ToPacked24(samples, d);
    EXPECT_EQ(c, d);

    constexpr std::size_t kAll = 1 << 24;
    Bytes packed(3 * kAll), again(3 * kAll);
    for (std::size_t i = 0; i < kAll; ++i) {
        for (std::size_t k = 0; k < 3; ++k) packed[3 * i + k] = static_cast<std::byte>(i >> (8 * k));
    }
    std::vector<f32> e(kAll), f(kAll);
    packed24ToFloat(packed, e);
    reference::packed24ToFloat(packed, f);
    EXPECT_TRUE(e == f);
    floatToPacked24(e, again);
    EXPECT_TRUE(packed == again);
}

TEST(Kernels, AnyLengthAndPlaceAndNothingBeyond) {
    std::vector<f32> floats(80);
    std::vector<i16> samples(80);
    for (std::size_t i = 0; i < 80; ++i) {
        samples[i] = static_cast<i16>(i * 777);
        floats[i] = static_cast<f32>(samples[i]) / 40000;
    }
    for (std::size_t start = 0; start < 4; ++start) {
        for (std::size_t n = 0; n + start <= 70; ++n) {
            // One byte or sample behind the end must stay as it is.
            Bytes packed(3 * n + 1, std::byte{0x5A}), wanted = packed;
            int16ToPacked24(std::span(samples).subspan(start, n), std::span(packed).first(3 * n));
            reference::int16ToPacked24(std::span(samples).subspan(start, n), std::span(wanted).first(3 * n));
            ASSERT_EQ(packed, wanted);
            floatToPacked24(std::span(floats).subspan(start, n), std::span(packed).first(3 * n));
            reference::floatToPacked24(std::span(floats).subspan(start, n), std::span(wanted).first(3 * n));
            ASSERT_EQ(packed, wanted);
            std::vector<f32> a(n + 1, 9.0F), b = a;
            packed24ToFloat(ByteSpan(packed).first(3 * n), std::span(a).first(n));
            reference::packed24ToFloat(ByteSpan(packed).first(3 * n), std::span(b).first(n));
            ASSERT_EQ(a, b);
            std::vector<i16> c(n + 1, 9), d = c;
            floatToInt16(std::span(floats).subspan(start, n), std::span(c).first(n));
            reference::floatToInt16(std::span(floats).subspan(start, n), std::span(d).first(n));
            ASSERT_EQ(c, d);
        }
    }
}

/// ITU-T G.711, from its decision values: the code's segment and interval give the middle of the interval.
int muLawValue(int code) {
    const int c = ~code & 0xFF, segment = c >> 4 & 7, interval = c & 15;
    const int magnitude = (2 * interval + 33) * (1 << segment) - 33;
    return ((c & 0x80) != 0 ? -magnitude : magnitude) * 4;
}
int aLawValue(int code) {
    const int c = code ^ 0x55, segment = c >> 4 & 7, interval = c & 15;
    const int magnitude = segment == 0 ? 2 * interval + 1 : (2 * interval + 33) * (1 << (segment - 1));
    return ((c & 0x80) != 0 ? magnitude : -magnitude) * 8;
}

TEST(G711, DecodesByTheStandard) {
    Bytes codes(256);
    for (std::size_t i = 0; i < 256; ++i) codes[i] = static_cast<std::byte>(i);
    std::vector<i16> mu(256), a(256);
    muLawToInt16(codes, mu);
    aLawToInt16(codes, a);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(mu[static_cast<std::size_t>(i)], muLawValue(i)) << i;
        EXPECT_EQ(a[static_cast<std::size_t>(i)], aLawValue(i)) << i;
    }
    // A-law settles at once: each code comes back.
    Bytes back(256);
    int16ToALaw(a, back);
    EXPECT_EQ(back, codes);
}

TEST(G711, TheMuLawEncoderAddsNoBias) {
    // By hand: within the first segment, wrapped in it, above all limits, and the negative mirror.
    const std::pair<i16, int> cases[] = {{0, 0xFF},   {-1, 0x7F},   {7, 0xFF},     {8, 0xFE},     {127, 0xF0},
                                         {128, 0xFF}, {-129, 0x7F}, {32767, 0x80}, {-32768, 0x00}};
    for (const auto& [sample, wanted] : cases) {
        Bytes code(1);
        int16ToMuLaw(std::span(&sample, 1), code);
        EXPECT_EQ(std::to_integer<int>(code[0]), wanted) << sample;
    }
    // s is the first segment whose limit is not below x; the code (s << 4 | x >> (s + 3) & 15) inverted.
    for (int x = 0; x <= 32767; x += 13) {
        int s = 0;
        while (x > (0x100 << s) - 1) ++s;
        Bytes code(1);
        const auto sample = static_cast<i16>(x);
        int16ToMuLaw(std::span(&sample, 1), code);
        EXPECT_EQ(std::to_integer<int>(code[0]), (s << 4 | (x >> (s + 3) & 15)) ^ 0xFF) << x;
    }
}

TEST(Kernels, SmallOnes) {
    Bytes eight(256);
    for (std::size_t i = 0; i < 256; ++i) eight[i] = static_cast<std::byte>(i);
    std::vector<i16> wide(256);
    bytesToInt16(eight, true, wide);
    EXPECT_EQ(wide[0], -32768);
    EXPECT_EQ(wide[128], 128);
    EXPECT_EQ(wide[255], 32767);
    bytesToInt16(eight, false, wide);
    EXPECT_EQ(wide[0], 128);
    EXPECT_EQ(wide[0x80], -32768);
    EXPECT_EQ(wide[0x7F], 32767);
    for (const bool isUnsigned : {false, true}) {
        Bytes back(256);
        bytesToInt16(eight, isUnsigned, wide);
        int16ToBytes(wide, isUnsigned, back);
        EXPECT_EQ(back, eight);
    }
    for (const std::size_t size : {2U, 3U, 4U, 8U}) {
        Bytes swapped(eight.begin(), eight.begin() + 24);
        ByteSwap(swapped, size);
        EXPECT_EQ(std::to_integer<std::size_t>(swapped[0]), size - 1);
        EXPECT_EQ(std::to_integer<std::size_t>(swapped[23]), 24 - size);
    }
    Bytes bits{std::byte{0x01}, std::byte{0xB4}};
    ReverseBits(bits);
    EXPECT_EQ(bits, (Bytes{std::byte{0x80}, std::byte{0x2D}}));
    std::vector<f32> mono(1);
    stereoToMono(std::vector<f32>{0.5F, -0.25F}, mono);
    EXPECT_EQ(mono[0], 0.125F);
}

} // namespace
} // namespace kv
