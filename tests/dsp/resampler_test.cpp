#include "dsp/resampler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "base/run_context.h"
#include "dsp/signals.h"

namespace kv {
namespace {

using test::fitSine;
using test::sine;

std::vector<f32> resampled(const ResamplerSettings& settings, std::span<const f32> in) {
    std::vector<f32> out;
    EXPECT_TRUE(resample(settings, in, out)) << runContext().error.message;
    return out;
}

std::vector<f32> noise(std::size_t samples) {
    std::mt19937 random(3);
    std::vector<f32> wave(samples);
    for (f32& x : wave) x = static_cast<f32>(random()) / 2147483648.0F - 1;
    return wave;
}

// What a full-scale sine leaves beside itself, aliases and images included, must stay below what the names of
// the qualities promise (6.02 dB a bit and 1.76), and the last two stay flat to 0.9 of the lower rate's band
// and more.
TEST(Resampler, QualitiesKeepTheirPromise) {
    struct Row {
        int quality;
        f64 bits, flatTo;
    };
    constexpr u32 kRates[][2] = {
        {44100, 48000}, {48000, 44100}, {44100, 44103}, {96000, 44100}, {22050, 44100}};
    for (const auto& [quality, bits, flatTo] :
         {Row{3, 8, 0.5}, Row{4, 12, 0.7}, Row{5, 16, 0.9}, Row{6, 20, 0.93}, Row{7, 24, 0.91}}) {
        for (const auto& [in, out] : kRates) {
            for (const f64 part : {0.02, 0.3, 0.5, 0.7, 0.8, 0.9, 0.91, 0.95, 0.99}) {
                SCOPED_TRACE(testing::Message() << quality << ": " << in << " to " << out << ", " << part);
                const f64 frequency = part / 2 * std::min(in, out) / in;
                const auto wave = resampled({in, out, quality}, sine(40000, frequency));
                const auto fit =
                    fitSine(wave.data() + wave.size() / 4, wave.size() / 2, frequency * in / out);
                EXPECT_GT(20 * std::log10(std::sqrt(0.5) / fit.noise), 6.02 * bits + 1.76);
                if (part <= flatTo) {
                    EXPECT_NEAR(20 * std::log10(fit.amplitude), 0, 0.01);
                }
            }
        }
    }
}

// Above the lower rate's band nothing may come through when the rate falls.
TEST(Resampler, AliasesAreRejected) {
    for (const auto& [quality, level] :
         {std::pair{3, -55.0}, {4, -72.0}, {5, -98.0}, {6, -130.0}, {7, -146.0}}) {
        const auto wave = resampled({96000, 44100, quality}, sine(60000, 23000.0 / 96000));
        const auto middle = std::span(wave).subspan(wave.size() / 4, wave.size() / 2);
        EXPECT_LT(
            20 * std::log10(static_cast<f64>(std::abs(*std::max_element(middle.begin(), middle.end())))),
            level)
            << quality;
    }
}

// The classic filters are the same where the rate falls, and wider where it grows.
TEST(Resampler, ClassicFiltersGrowWithoutLossAtTheEdge) {
    ResamplerSettings settings{44100, 48000, 5};
    const auto wave = sine(40000, 0.5 * 0.95);
    const auto clean = resampled(settings, wave);
    settings.filters = FilterSet::Classic;
    const auto classic = resampled(settings, wave);
    const auto gain = [](const std::vector<f32>& w) {
        return fitSine(w.data() + 8000, 20000, 0.475 * 147 / 160).amplitude;
    };
    EXPECT_LT(gain(clean), 0.6);
    EXPECT_GT(gain(classic), 0.8);
}

TEST(Resampler, ShortInterpolators) {
    const std::vector<f32> cubic{0, 1, 8, 27, 64, 125, 216};
    const auto at = [&](int quality, std::size_t frame) { return resampled({4, 16, quality}, cubic)[frame]; };
    EXPECT_EQ(at(0, 5), 1);
    EXPECT_EQ(at(0, 6), 2 * 4);
    EXPECT_FLOAT_EQ(at(1, 9), 8 + 19 * 0.25F);
    EXPECT_FLOAT_EQ(at(2, 11), 2.75F * 2.75F * 2.75F); // four points carry a cubic exactly
}

TEST(Resampler, LengthsAreExact) {
    struct Row {
        u64 frames;
        u32 in, out;
        u64 length;
    };
    for (const auto& [frames, in, out, length] :
         {Row{0, 44100, 48000, 0}, Row{1, 2, 1, 1}, Row{1, 4, 1, 0}, Row{3, 2, 1, 2},
          Row{44100, 44100, 48000, 48000}, Row{1, 1, 100000, 100000},
          Row{u64{1} << 60, 44100, 44100, u64{1} << 60}, Row{u64{1} << 63, 1, 4, ~u64{0}}, Row{5, 0, 4, 0},
          Row{100, 4000000000, 3999999999, 100}}) {
        EXPECT_EQ(resampledLength(frames, in, out), length) << frames << ' ' << in << ' ' << out;
        if (length > 200000) continue;
        for (const int quality : {0, 1, 2, 3, 5, 7}) {
            if (in == 0) continue;
            EXPECT_EQ(resampled({in, out, quality}, std::vector<f32>(frames, 1)).size(), length) << quality;
        }
    }
}

// An impulse comes out at its place, symmetrical, in every engine; the integral is kept.
TEST(Resampler, ImpulseStaysInPlace) {
    std::vector<f32> in(4410);
    in[1470] = 1; // frame 1600 at 48 kHz
    for (int quality = 0; quality <= 8; ++quality) {
        for (const u32 rate : {48000U, 88200U, 22050U, 44101U}) {
            if (rate < 44100 && quality < 3) continue; // one frame of two is left out
            const auto out = resampled({44100, rate, quality}, in);
            const auto peak =
                static_cast<std::size_t>(std::max_element(out.begin(), out.end()) - out.begin());
            const f64 ratio = rate / 44100.0;
            EXPECT_NEAR(static_cast<f64>(peak), 1470 * ratio, quality == 0 ? 1 : 0.51)
                << quality << ' ' << rate;
            f64 sum = 0;
            for (const f32 x : out) sum += static_cast<f64>(x);
            EXPECT_NEAR(sum / ratio, 1, quality < 3 ? 0.1 : 0.005) << quality << ' ' << rate;
            if (rate == 48000) {
                for (std::size_t i = 1; i < 400; ++i)
                    EXPECT_NEAR(out[1600 + i], out[1600 - i], quality == 0 ? 1 : 1e-6);
            }
        }
    }
}

TEST(Resampler, StreamsInOddBlocksGiveTheSameBits) {
    for (const std::size_t channels : {1U, 2U, 3U}) {
        for (const auto& [quality, rate] : {std::pair{0, 44103U},
                                            {1, 48000U},
                                            {2, 44103U},
                                            {4, 44103U},
                                            {5, 48000U},
                                            {6, 11025U},
                                            {7, 48000U},
                                            {7, 44103U},
                                            {8, 44100U}}) {
            SCOPED_TRACE(testing::Message() << channels << " channels, quality " << quality << ", " << rate);
            const auto in = noise(30011 * channels);
            const ResamplerSettings settings{44100, rate, quality, channels};
            const auto whole = resampled(settings, in);

            Resampler stream;
            ASSERT_TRUE(stream.open(settings));
            std::vector<f32> out, block(channels * 777);
            const auto pull = [&](std::size_t frames) {
                while (const auto count = stream.pullInterleaved(std::span(block).first(channels * frames))) {
                    out.insert(out.end(), block.begin(),
                               block.begin() + static_cast<std::ptrdiff_t>(count * channels));
                }
            };
            for (std::size_t at = 0, part = 1; at < in.size();
                 at += part * channels, part = part * 3 % 1009) {
                part = std::min(part, (in.size() - at) / channels);
                stream.pushInterleaved(std::span(in).subspan(at, part * channels));
                pull(1 + part % 777);
            }
            stream.finish();
            pull(777);
            EXPECT_EQ(out, whole);
        }
    }
}

TEST(Resampler, EqualRatesPassThrough) {
    const auto in = noise(999);
    EXPECT_EQ(resampled({8000, 8000, 7, 3}, in), in);
}

TEST(Resampler, HostileSettingsAreRefusedOrWork) {
    constexpr u32 kMost = std::numeric_limits<u32>::max();
    std::vector<f32> out;
    for (const ResamplerSettings& bad :
         {ResamplerSettings{0, 1}, ResamplerSettings{1, 0}, ResamplerSettings{1, 2, 9},
          ResamplerSettings{1, 2, -1}, ResamplerSettings{1, 2, 5, 0}, ResamplerSettings{1, 2, 5, 257},
          ResamplerSettings{kMost, 1, 3}, ResamplerSettings{kMost, 1, 7},
          ResamplerSettings{44100, 48000, 5, 3}}) {
        EXPECT_FALSE(resample(bad, std::vector<f32>(16), out)) << bad.inRate << ' ' << bad.outRate;
    }
    EXPECT_FALSE(resample({1, kMost, 5}, std::vector<f32>(16), out)); // 2^36 frames
    for (const ResamplerSettings& good :
         {ResamplerSettings{kMost, 1, 0}, ResamplerSettings{1, 5003, 7}, ResamplerSettings{1000, 1, 7},
          ResamplerSettings{kMost, kMost - 1, 7}, ResamplerSettings{kMost - 1, kMost, 2},
          ResamplerSettings{44100, 48000, 5, 256}}) {
        EXPECT_TRUE(resample(good, std::vector<f32>(256), out)) << good.inRate << ' ' << good.outRate;
    }
}

TEST(Resampler, WhatIsNoNumberCountsAsSilence) {
    std::vector<f32> in(3000, 0.25F), clean = in;
    for (const f32 bad :
         {std::nanf(""), std::numeric_limits<f32>::infinity(), -std::numeric_limits<f32>::infinity()}) {
        for (const int quality : {0, 2, 5, 7}) {
            in[1000] = bad;
            clean[1000] = 0;
            EXPECT_EQ(resampled({44100, 48000, quality}, in), resampled({44100, 48000, quality}, clean))
                << quality;
        }
    }
}

} // namespace
} // namespace kv
