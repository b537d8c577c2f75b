#include "dsp/time_stretch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "dsp/phase_vocoder.h"
#include "dsp/signals.h"

namespace kv {
namespace {

using test::fitSine;
using test::sine;

constexpr u32 kRate = 48000;

std::vector<f32> interleaved(const std::vector<f32>& a, const std::vector<f32>& b) {
    std::vector<f32> both;
    for (std::size_t i = 0; i < a.size(); ++i) both.insert(both.end(), {a[i], b[i]});
    return both;
}

std::vector<f32> channel(const std::vector<f32>& frames, std::size_t channels, std::size_t which) {
    std::vector<f32> plane;
    for (std::size_t i = which; i < frames.size(); i += channels) plane.push_back(frames[i]);
    return plane;
}

TEST(TimeStretch, LengthsAreExact) {
    std::vector<f32> out;
    for (const f64 factor : {0.1, 0.33, 0.999, 1.0, 1.5, 2.0, 7.7, 10.0}) {
        for (const std::size_t frames : {0U, 1U, 5U, 2047U, 30001U}) {
            for (const std::size_t channels : {1U, 2U, 3U}) {
                SCOPED_TRACE(testing::Message() << factor << ' ' << frames << ' ' << channels);
                const std::vector<f32> in(frames * channels, 0.5F);
                const auto length =
                    static_cast<std::size_t>(static_cast<f64>(frames) * factor + 0.5) * channels;
                ASSERT_TRUE(stretchByGrains(in, channels, factor, out));
                EXPECT_EQ(out.size(), length);
                ASSERT_TRUE(stretchBySpectrum(in, channels, kRate, factor, out));
                EXPECT_EQ(out.size(), length);
                ASSERT_TRUE(scalePitch(in, channels, kRate, factor, out));
                EXPECT_EQ(out.size(), in.size());
            }
        }
    }
}

TEST(TimeStretch, RefusesNonsense) {
    std::vector<f32> out;
    for (const f64 factor : {0.0, -1.0, std::nan(""), std::numeric_limits<f64>::infinity(), 1e12}) {
        EXPECT_FALSE(stretchByGrains(std::vector<f32>(16), 1, factor, out)) << factor;
        EXPECT_FALSE(stretchBySpectrum(std::vector<f32>(16), 1, kRate, factor, out)) << factor;
        EXPECT_FALSE(scalePitch(std::vector<f32>(16), 1, kRate, factor, out)) << factor;
    }
    EXPECT_FALSE(stretchByGrains(std::vector<f32>(3), 2, 2, out));
    EXPECT_FALSE(stretchBySpectrum(std::vector<f32>(3), 0, kRate, 2, out));
    EXPECT_TRUE(stretchBySpectrum(std::vector<f32>(99, std::nanf("")), 1, 0, 2, out));
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](f32 x) { return x == 0; }));
}

TEST(Grains, RampsAddToOneAndGrainsKeepTheirSource) {
    std::vector<f32> out;
    ASSERT_TRUE(stretchByGrains(std::vector<f32>(40000, 0.5F), 1, 1.7, out));
    // From 668 to 1921 the second grain is wanted from ahead of the source.
    for (std::size_t i = 1922; i < 60000; ++i) ASSERT_NEAR(out[i], 0.5F, 1e-6F) << i;
    EXPECT_NEAR(out[1900], 0.5F * (4000 - 1900) / 3333, 1e-6F);

    std::vector<f32> ramp(40000);
    for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<f32>(i);
    ASSERT_TRUE(stretchByGrains(ramp, 1, 2, out));
    EXPECT_EQ(out[667], 667);               // the flat part of the first grain
    EXPECT_EQ(out[4667 + 100], 2334 + 100); // of the second, 4667 / 2 on in the source, rounded
    EXPECT_NEAR(out[3000], (1000.0 * 3000 + 2333.0 * (2334 - 1667)) / 3333, 0.01);
}

TEST(Spectrum, KeepsTheFrequencyOfASine) {
    std::vector<f32> out;
    for (const f64 factor : {0.1, 0.5, 0.9, 1.1, 1.7, 3.0, 10.0}) {
        for (const f64 hertz : {110.0, 441.0, 3001.0, 15000.0}) {
            SCOPED_TRACE(testing::Message() << factor << ' ' << hertz);
            const auto in = sine(96000, hertz / kRate, 0.5);
            ASSERT_TRUE(stretchBySpectrum(in, 1, kRate, factor, out));
            const auto fit = fitSine(out.data() + out.size() / 4, out.size() / 2, hertz / kRate);
            EXPECT_NEAR(fit.amplitude, 0.5, 0.01);
            EXPECT_GT(fit.ratioDb(), 40);
        }
    }
}

TEST(Spectrum, ScalesThePitchOfASine) {
    std::vector<f32> out;
    for (const f64 factor : {0.25, 0.5, 0.97, 1.2, 2.0, 4.0}) {
        const auto in = sine(96000, 441.0 / kRate, 0.5);
        ASSERT_TRUE(scalePitch(in, 1, kRate, factor, out));
        const auto fit = fitSine(out.data() + 24000, 48000, 441.0 * factor / kRate);
        EXPECT_NEAR(fit.amplitude, 0.5, 0.01) << factor;
        EXPECT_GT(fit.ratioDb(), 40) << factor;
    }
}

TEST(Spectrum, KeepsTheChannelsTogether) {
    const auto left = sine(96000, 441.0 / kRate, 0.5), right = sine(96000, 441.0 / kRate, 0.25, 1);
    std::vector<f32> out;
    ASSERT_TRUE(stretchBySpectrum(interleaved(left, right), 2, kRate, 1.6, out));
    const auto outLeft = channel(out, 2, 0), outRight = channel(out, 2, 1);
    std::vector<f32> turned(outLeft.size());
    // The right channel less its share in phase is what lies a quarter ahead: by the sum's amplitude.
    for (std::size_t i = 0; i < turned.size(); ++i)
        turned[i] = outRight[i] - 0.5F * std::cos(1.0F) * outLeft[i];
    const auto fit = fitSine(turned.data() + 40000, 60000, 441.0 / kRate);
    EXPECT_NEAR(fit.amplitude, 0.25 * std::sin(1.0), 0.005);

    // A channel alone in its pair, and one channel silent.
    std::vector<f32> three;
    for (std::size_t i = 0; i < left.size(); ++i) three.insert(three.end(), {left[i], 0.0F, right[i]});
    ASSERT_TRUE(stretchBySpectrum(three, 3, kRate, 1.6, out));
    EXPECT_NEAR(fitSine(channel(out, 3, 2).data() + 40000, 60000, 441.0 / kRate).amplitude, 0.25, 0.005);
    for (const f32 x : channel(out, 3, 1)) ASSERT_NEAR(x, 0, 1e-4F);
}

TEST(Spectrum, KeepsClicksSharpAndInPlace) {
    std::vector<f32> in = sine(96000, 220.0 / kRate, 0.05);
    for (const std::size_t at : {20000U, 50000U, 77777U}) in[at] += 0.9F;
    std::vector<f32> out;
    for (const f64 factor : {0.5, 0.8, 1.5, 2.0, 4.0}) {
        ASSERT_TRUE(stretchBySpectrum(in, 1, kRate, factor, out));
        for (const std::size_t at : {20000U, 50000U, 77777U}) {
            SCOPED_TRACE(testing::Message() << factor << ' ' << at);
            const auto place = static_cast<std::size_t>(std::lround(static_cast<f64>(at) * factor));
            EXPECT_GT(out[place], 0.8F);
            for (std::size_t i = place - 3000; i < place + 3000; ++i) {
                ASSERT_LT(std::abs(out[i]), i == place ? 1 : 0.15F) << i;
            }
        }
    }
}

TEST(Spectrum, RoadsGoForward) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::vector<i64> attacks;
        for (i64 at = random() % 3000; at < 60000; at += 1 + random() % 6000) attacks.push_back(at);
        const f64 factor = 0.1 * std::pow(100.0, static_cast<f64>(random() % 1000) / 1000);
        const auto road = stretchRoad(attacks, 60000, factor, 2048);
        for (std::size_t i = 0; i + 1 < road.size(); ++i) {
            EXPECT_LT(road[i].out, road[i + 1].out);
            EXPECT_GE(road[i].slope, 0);
            const f64 reached = static_cast<f64>(road[i].in) +
                                static_cast<f64>(road[i + 1].out - road[i].out) * road[i].slope;
            EXPECT_NEAR(reached, static_cast<f64>(road[i + 1].in), 1e-6); // no jumps
        }
    }
}

} // namespace
} // namespace kv
