#include <gtest/gtest.h>

#include <limits>

#include "base/run_context.h"
#include "dsp/dominant_frequency.h"
#include "dsp/loudness.h"
#include "dsp/signals.h"

namespace kv {
namespace {

using test::sine;

std::vector<f32> sum(std::vector<f32> a, const std::vector<f32>& b) {
    for (std::size_t i = 0; i < a.size(); ++i) a[i] += b[i];
    return a;
}

f64 dominant(const std::vector<f32>& wave, u32 rate, std::size_t stride = 1) {
    return DominantFrequency(wave, wave.size() / stride, stride, rate, false);
}

TEST(DominantFrequency, IsTheStrongestBin) {
    constexpr u32 kRate = 44100;
    for (const f64 hertz : {30.0, 110.0, 440.0, 997.0, 12000.0}) {
        for (const std::size_t frames : {44100U, 20000U, 9000U}) {
            const f64 bin = kRate / std::exp2(std::floor(std::log2(static_cast<f64>(frames))));
            EXPECT_NEAR(dominant(sine(frames, hertz / kRate), kRate), hertz, bin * 0.51)
                << hertz << ' ' << frames;
        }
    }
    // 15 Hz is too low to count, its neighbour isn't.
    EXPECT_NEAR(dominant(sum(sine(44100, 15.0 / kRate), sine(44100, 300.0 / kRate, 0.01)), kRate), 300, 1);
    // The strongest peak, though others are its fundamental or louder in sum.
    const auto chord = sum(sine(44100, 200.0 / kRate, 0.4), sine(44100, 400.0 / kRate, 0.5));
    EXPECT_NEAR(dominant(chord, kRate), 400, 1);
    // Beyond full scale the levels are positive and the fundamental of a harmonic is found.
    auto loud = chord;
    for (f32& x : loud) x *= 400;
    EXPECT_NEAR(dominant(loud, kRate), 200, 1.4);
}

TEST(DominantFrequency, LooksAtTheFirstChannelTwoThirdsIn) {
    std::vector<f32> stereo(2 * 88200);
    for (std::size_t i = 0; i < 88200; ++i) {
        stereo[2 * i] =
            sine(1, 0, 1, 2 * std::numbers::pi * (i < 36000 ? 0.05 : 0.01) * static_cast<f64>(i))[0];
        stereo[2 * i + 1] = sine(1, 0, 1, 0.7 * static_cast<f64>(i))[0];
    }
    EXPECT_NEAR(dominant(stereo, 44100, 2), 441, 1); // frames 36954 to 69722 are analysed
}

TEST(DominantFrequency, EdgeCases) {
    EXPECT_EQ(dominant(std::vector<f32>(44100), 44100), 0);
    EXPECT_EQ(dominant(std::vector<f32>(44100, 1), 44100), 0); // only a constant
    for (const std::size_t frames : {0U, 1U, 2U, 3U, 5U})
        EXPECT_EQ(dominant(std::vector<f32>(frames, 1), 44100), 0);
    EXPECT_EQ(dominant(sine(100, 0.1), 0), 0);
    EXPECT_EQ(DominantFrequency(std::vector<f32>(99), 50, 2, 44100, false), 0);
    EXPECT_EQ(DominantFrequency(std::vector<f32>(98), 50, 2, 44100, false), 0); // a frame too few
    // 7300 frames: N is 4096, below a fifth of the rate, and the wave is 1.78 times as long: all of it is
    // taken.
    auto late = sine(7300, 1000.0 / 44100);
    std::fill(late.begin(), late.begin() + 6300, 0.0F);
    EXPECT_NEAR(dominant(late, 44100), 1000, 44100.0 / 8192 * 3);
    late.resize(7100); // 1.73 times: 4096 frames from 2002 on, which end ahead of the tone
    EXPECT_EQ(dominant(late, 44100), 0);
    auto bad = sine(44100, 0.01);
    bad[30000] = std::numeric_limits<f32>::quiet_NaN();
    EXPECT_NEAR(dominant(bad, 44100), 441, 1);
}

/// Declines whatever it is asked.
struct Refuser : UserInterface {
    int questions = 0;
    int showMessage(std::string_view, std::string_view, u32) override { return 1; }
    int ask(std::string_view, std::string_view, std::span<const std::string_view>, int) override {
        ++questions;
        return 1;
    }
};

TEST(DominantFrequency, AsksBeforeItTrustsAShortSound) {
    Refuser ui;
    RunContext context;
    context.ui = &ui;
    const RunContextScope scope(context);
    const auto hertz = [](std::size_t frames, bool warn) {
        return DominantFrequency(sine(frames, 0.1), frames, 1, 44100, warn);
    };
    EXPECT_GT(hertz(16384, true), 0); // N is not below 8820
    EXPECT_GT(hertz(8192, false), 0);
    EXPECT_EQ(ui.questions, 0);
    EXPECT_EQ(hertz(8192, true), 0);
    EXPECT_EQ(hertz(16000, true), 0); // taken as a whole, but N was below at first
    EXPECT_EQ(ui.questions, 2);
}

f64 loudness(const std::vector<f32>& wave, std::size_t channels = 1, u32 rate = 48000, bool ear = false) {
    LoudnessMeter meter(ear);
    meter.add(wave, channels, rate);
    return meter.result();
}

TEST(Loudness, OfSines) {
    for (const f64 level : {0.0, -6.0, -40.0}) {
        const auto wave = sine(96000, 1000.0 / 48000, std::pow(10, level / 20));
        EXPECT_NEAR(loudness(wave), -21.26 - (level - 3.01), 0.02) << level;
        EXPECT_NEAR(loudness(wave, 2), -21.26 - (level - 3.01), 0.02) << level;
        // The curve lies 10 dB above its lowest at 1 kHz, which the other constant makes up for.
        EXPECT_NEAR(loudness(wave, 1, 48000, true), loudness(wave), 0.5) << level;
    }
    for (const auto& [hertz, weight] : {std::pair{3700.0, 0.0}, {10000.0, -15.0}, {500.0, -6.0}}) {
        const auto wave = sine(96000, hertz / 48000);
        // 128 taps round the corners of the curve off.
        EXPECT_NEAR(loudness(wave, 1, 48000, true), -31.49 - (-3.01 + weight), 1.5) << hertz;
    }
}

TEST(Loudness, OfTheLoudestTwentieth) {
    constexpr std::size_t kBlock = 2400;
    std::vector<f32> wave(100 * kBlock, 0.01F);
    std::fill_n(wave.begin(), 5 * kBlock, 0.5F);
    EXPECT_NEAR(loudness(wave), -21.26 + 6.02, 0.02);
    std::fill_n(wave.begin() + 2 * kBlock, 3 * kBlock,
                0.01F); // two of five wanted: the next bin overshoots, by 95 : 3
    EXPECT_NEAR(loudness(wave), -21.26 + 40.0, 0.03);

    // Sounds taken as one count by their blocks.
    LoudnessMeter both(false);
    both.add(std::vector<f32>(95 * kBlock, 0.01F), 1, 48000);
    both.add(std::vector<f32>(5 * kBlock, 0.5F), 1, 48000);
    EXPECT_NEAR(both.result(), -21.26 + 6.02, 0.02);
}

TEST(Loudness, EdgeCases) {
    EXPECT_EQ(loudness({}), 0);
    EXPECT_EQ(loudness(std::vector<f32>(1200, 1)), 0); // half a block doesn't count
    EXPECT_NEAR(loudness(std::vector<f32>(1201, 1)), -21.26 + 3.0, 0.02);
    EXPECT_NEAR(loudness(std::vector<f32>(48000)), -21.26 + 119.98, 0.02);
    EXPECT_NEAR(loudness(std::vector<f32>(48000, 100)), -21.26, 0.02);
    EXPECT_EQ(loudness(std::vector<f32>(48000, 1), 0), 0);
    EXPECT_EQ(loudness(std::vector<f32>(48000, 1), 1, 0), 0);
    EXPECT_NEAR(loudness(std::vector<f32>(48000, std::nanf(""))), -21.26 + 119.98, 0.02);
    EXPECT_EQ(loudness(std::vector<f32>(48000, 1), 1, ~0U), 0); // shorter than half a block
}

} // namespace
} // namespace kv
