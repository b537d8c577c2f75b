// The synthetic cases of EBU Tech 3341 (loudness, true peak) and EBU Tech 3342 (range), and another program.
#include "dsp/ebu_loudness.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>

#include "base/run_context.h"
#include "dsp/signals.h"
#include "places.h"

namespace kv {
namespace {

constexpr u32 kRate = 48000;

struct Step {
    f64 dbfs, seconds;
};

/// A stereo sine of 1 kHz, both channels alike, at a level of its peak that changes.
std::vector<f32> steps(const std::vector<Step>& levels, int times = 1) {
    std::vector<f32> wave;
    for (int i = 0; i < times; ++i) {
        for (const auto& [dbfs, seconds] : levels) {
            const std::vector<f32> part = test::sine(static_cast<std::size_t>(std::lround(seconds * kRate)),
                                                     1000.0 / kRate, std::pow(10, dbfs / 20));
            for (const f32 x : part) wave.insert(wave.end(), 2, x);
        }
    }
    return wave;
}

EbuLoudness measure(std::span<const f32> wave, u32 channels = 2, u32 rate = kRate, std::size_t block = 9998) {
    const auto meter = EbuMeter::create(channels, rate);
    for (std::size_t i = 0; i < wave.size(); i += block)
        EXPECT_TRUE(meter->add(wave.subspan(i, std::min(block, wave.size() - i))));
    return meter->finish();
}

TEST(EbuLoudness, Tech3341) {
    const std::vector<Step> programmes[] = {
        {{-23, 20}},
        {{-36, 10}, {-23, 60}, {-36, 10}},
        {{-72, 10}, {-36, 10}, {-23, 60}, {-36, 10}, {-72, 10}},
        {{-26, 20}, {-20, 20.1}, {-26, 20}},
    };
    for (const auto& programme : programmes) EXPECT_NEAR(measure(steps(programme)).integrated, -23, 0.1);
    EXPECT_NEAR(measure(steps({{-33, 20}})).integrated, -33, 0.1);
    EXPECT_NEAR(measure(steps({{-20, 1.34}, {-30, 1.66}}, 5)).shortTerm, -23, 0.1);
    EXPECT_NEAR(measure(steps({{-20, 0.18}, {-30, 0.22}}, 25)).momentary, -23, 0.1);
}

TEST(EbuLoudness, Tech3342) {
    const std::pair<std::vector<Step>, f64> cases[] = {
        {{{-20, 20}, {-30, 20}}, 10},
        {{{-20, 20}, {-15, 20}}, 5},
        {{{-40, 20}, {-20, 20}}, 20},
        {{{-50, 20}, {-35, 20}, {-20, 20}, {-35, 20}, {-50, 20}}, 15},
    };
    for (const auto& [programme, range] : cases) EXPECT_NEAR(measure(steps(programme)).range, range, 1);
}

TEST(EbuLoudness, TruePeaksBetweenSamples) {
    struct Case {
        f64 cyclesPerFrame, amplitude, degrees, dbtp;
    };
    for (const Case& c : {Case{1.0 / 4, 0.5, 0, -6}, Case{1.0 / 4, 0.5, 45, -6}, Case{1.0 / 6, 0.5, 60, -6},
                          Case{1.0 / 8, 0.5, 67.5, -6}, Case{1.0 / 4, 1.41, 45, 3}}) {
        auto wave = test::sine(kRate, c.cyclesPerFrame, c.amplitude, c.degrees * std::numbers::pi / 180);
        for (std::size_t i = 0; i < 480; ++i) { // the transient of a start that is cut is a peak of its own
            wave[i] *= static_cast<f32>(i) / 480;
            wave[wave.size() - 1 - i] *= static_cast<f32>(i) / 480;
        }
        const f64 peak = measure(wave, 1).truePeak;
        EXPECT_GT(peak, c.dbtp - 0.4) << c.degrees;
        EXPECT_LT(peak, c.dbtp + 0.2) << c.degrees;
    }
}

TEST(EbuLoudness, EdgeCases) {
    const EbuLoudness silence = measure(std::vector<f32>(8 * kRate));
    for (const f64 level : {silence.integrated, silence.truePeak, silence.momentary, silence.shortTerm})
        EXPECT_EQ(level, -std::numeric_limits<f64>::infinity());
    EXPECT_EQ(silence.range, 0);

    const auto tone = steps({{-23, 4}});
    const std::span<const f32> all(tone);
    EXPECT_TRUE(std::isnan(measure(all.first(2 * 19199)).integrated));
    EXPECT_NEAR(measure(all.first(2 * 19200)).integrated, -23, 0.1);
    EXPECT_TRUE(std::isnan(measure(all.first(2 * 143999)).range));
    EXPECT_NEAR(measure(all.first(2 * 144000)).shortTerm, -23, 0.1);
    EXPECT_NEAR(measure(all.first(2 * 1000)).truePeak, -23, 0.1); // of the shortest, too
    EXPECT_EQ(measure({}).truePeak, -std::numeric_limits<f64>::infinity());
    // The size of blocks doesn't matter; one channel alone is 3 dB less than both.
    EXPECT_EQ(measure(all, 2, kRate, 2).integrated, measure(all, 2, kRate, 1 << 20).integrated);
    EXPECT_NEAR(measure(test::sine(4 * kRate, 1000.0 / kRate, 0.0708), 1).integrated, -26, 0.1);
    // The weighting stays stable at the lowest rate.
    const EbuLoudness low = measure(test::sine(20000, 0.1, 0.1), 1, kLeastEbuRate);
    EXPECT_GT(low.integrated, -60);
    EXPECT_LT(low.integrated, 0);

    auto odd = steps({{-23, 20}});
    odd[4000] = std::numeric_limits<f32>::quiet_NaN();
    odd[5001] = -std::numeric_limits<f32>::infinity();
    EXPECT_NEAR(measure(odd).integrated, -23, 0.1);
    EXPECT_TRUE(std::isfinite(measure(odd).truePeak));
    odd[4000] = std::numeric_limits<f32>::max();
    EXPECT_TRUE(std::isfinite(measure(odd).integrated));

    for (const auto& [channels, rate] :
         {std::pair{0U, 48000U}, {3U, 48000U}, {1U, 0U}, {2U, 3399U}, {2U, ~0U}})
        EXPECT_EQ(EbuMeter::create(channels, rate), nullptr) << channels << ' ' << rate;
    EXPECT_EQ(runContext().error.context, "Loudness");
}

std::string outputOf(const std::string& command) {
    std::string output;
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return output;
    char buffer[65536];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, count);
    ::pclose(pipe);
    return output;
}

// The range is left out: of sounds this short it depends on how often the window moves on.
TEST(EbuLoudness, AgreesWithAnotherProgram) {
    const std::string samples = KV_CORPUS_DIR "/sfz/sfizz/TestFiles/";
    for (const char* name : {"looped_flute.wav", "SpecificBugs/MeatBassPizz/Samples/pizz/a0_vl4_rr2.wav"}) {
        if (!std::filesystem::exists(samples + name)) GTEST_SKIP() << name;
        const std::string ffmpeg = "ffmpeg -nostdin -hide_banner -i '" + samples + name + "' ";
        const std::string told = outputOf(ffmpeg + "-af ebur128=peak=true -f null - 2>&1");
        const std::size_t summary = told.rfind("Summary:");
        if (summary == std::string::npos) GTEST_SKIP() << "ffmpeg is missing";
        const auto value = [&](const char* label) {
            const std::size_t at = told.find(label, summary);
            return at == std::string::npos ? 1e9 : std::stod(told.substr(at + std::string(label).size()));
        };
        const bool mono = told.find(" mono,") != std::string::npos;
        const std::string raw = outputOf(ffmpeg + "-f f32le - 2>/dev/null");
        std::vector<f32> wave(raw.size() / sizeof(f32));
        std::copy_n(raw.data(), wave.size() * sizeof(f32), reinterpret_cast<char*>(wave.data()));
        const EbuLoudness measured = measure(wave, mono ? 1 : 2, 44100);
        EXPECT_NEAR(measured.integrated, value(" I:"), 0.1) << name;
        EXPECT_NEAR(measured.truePeak, value("Peak:"), 0.1) << name;
    }
}

} // namespace
} // namespace kv
