#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "model/instrument.h"
#include "model/wave_data.h"
#include "wizards/algorithm_table.h"
#include "wizards/audio_fixture.h"
#include "wizards/wave_channels.h"
#include "wizards/wave_edit.h"
#include "wizards/wave_insert.h"
#include "wizards/wave_names.h"
#include "wizards/wave_statistics.h"

namespace kv {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using AudioAlgorithms = test::AudioFixture;

TEST_F(AudioAlgorithms, ChangeSamples) {
    struct Case {
        const char* algorithm;
        std::vector<i16> before;
        u32 channels, from, to;
        std::vector<int> after;
    };
    const Case cases[] = {
        {"adjust-volume:by=6.0205999", {1000, -2000, 20000, -20000}, 1, 0, 0, {2000, -4000, 32767, -32768}},
        {"adjust-volume:by=6.0205999", {1000, 1000, 1000, 1000}, 1, 1, 3, {1000, 2000, 2000, 1000}},
        {"maximize-amplitude", {0, 8192, -16384}, 1, 0, 0, {0, 16384, -32768}},
        {"maximize-amplitude:mode=full-range", {0, 8192, -8192}, 1, 0, 0, {0, 32767, -32768}},
        {"maximize-amplitude:mode=mean-zero", {8192, 16384, 24576}, 1, 0, 0, {-32768, 0, 32767}},
        {"maximize-amplitude", {0, 0}, 1, 0, 0, {0, 0}},
        {"remove-dc-offset", {110, 90, 130, 70}, 2, 0, 0, {10, -10, 30, -30}},
        {"remove-dc-offset", {1, 0, 1, 0}, 1, 0, 0, {1, 0, 1, 0}},
        {"fade-in-out-selection:curve=linear-in", {1000, 1000, 1000, 1000}, 1, 0, 0, {250, 500, 750, 1000}},
        {"fade-in-out-selection:curve=linear-out", {1000, 1000, 1000, 1000}, 2, 0, 0, {1000, 1000, 500, 500}},
        {"fade-in-out-selection", {1000, 1000}, 1, 0, 0, {0, 260}},
        {"fade-in-out-selection:curve=logarithmic-out", {1000, 1000}, 1, 0, 0, {260, 0}},
        {"smooth-within-the-selection", {0, 400, 0, 0, 800}, 1, 0, 0, {0, 200, 100, 200, 800}},
        {"smooth-within-the-selection:filter=two-towers",
         {0, 400, 0, 0, 800},
         1,
         0,
         0,
         {0, 0, 200, 400, 800}},
        {"smooth-within-the-selection:filter=right", {0, 400, 0, 800}, 1, 0, 2, {200, 200, 0, 800}},
        {"smooth-within-the-selection:filter=left", {0, 400, 0, 800}, 1, 2, 4, {0, 400, 200, 400}},
        {"invert-sign-throughout-selection", {5, -32768, 7}, 1, 0, 2, {-5, 32767, 7}},
        {"reverse-audio-within-selection", {1, 2, 3, 4, 5, 6}, 2, 0, 0, {5, 6, 3, 4, 1, 2}},
        {"reverse-audio-within-selection", {1, 2, 3, 4}, 1, 1, 3, {1, 3, 2, 4}},
        {"swap-left-and-right-channels", {1, 2, 3, 4}, 2, 0, 0, {2, 1, 4, 3}},
        {"cut-away-selection", {1, 2, 3, 4}, 1, 1, 3, {1, 4}},
        {"trim-waveform-to-selection", {1, 2, 3, 4}, 1, 1, 3, {2, 3}},
        {"insert-silence:count=2,where=selection-start", {1, 2, 3}, 1, 1, 2, {1, 0, 0, 2, 3}},
        {"insert-silence:count=1,where=end", {1, 2}, 2, 0, 0, {1, 2, 0, 0}},
        {"convert-to-mono", {10, 20, -3, -4}, 2, 0, 0, {15, -3}},
        {"convert-to-mono:mode=right", {10, 20, -3, -4}, 2, 0, 0, {20, -4}},
        {"convert-to-mono:mode=if-identical", {10, 20, -3, -4}, 2, 0, 0, {10, 20, -3, -4}},
        {"convert-to-mono:mode=if-identical", {10, 10, -3, -3}, 2, 0, 0, {10, -3}},
        {"convert-to-mono:fix-phase", {10, -11, -4, 3}, 2, 0, 0, {10, -4}},
        {"convert-to-stereo", {1, 2}, 1, 0, 0, {1, 1, 2, 2}},
        {"remove-silent-sections:smooth=0",
         {0, 9, 900, 800, 0, 900, 900, 9},
         1,
         0,
         0,
         {900, 800, 0, 900, 900}},
        {"remove-silent-sections:smooth=0,start=0",
         {0, 900, 800, 0, 900, 900, 9},
         1,
         0,
         0,
         {0, 900, 800, 0, 900, 900}},
        {"remove-silent-sections:smooth=0", {0, 900, 900, 0}, 1, 0, 0, {0, 900, 900, 0}},
        {"remove-silent-sections:smooth=0,anywhere,minimum=0.002",
         {900, 900, 0, 0, 900, 0, 900, 0, 0, 900, 0, 0, 800, 800},
         1,
         0,
         0,
         {900, 900, 900, 0, 900, 800, 800}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.algorithm);
        Wave* wave = addWaveWith(c.before, c.channels);
        wave->sampleRate = 1000;
        ASSERT_TRUE(run(c.algorithm, {wave}, c.from, c.to)) << space.error.message;
        EXPECT_THAT(samplesOf(*wave), ElementsAreArray(c.after));
        EXPECT_EQ(wave->frames * wave->channels, c.after.size());
        store().Delete(wave);
    }
}

TEST_F(AudioAlgorithms, WhatChangesNothingLeavesAWaveReloadable) {
    for (const char* text : {"adjust-volume:by=0", "maximize-amplitude", "remove-dc-offset"}) {
        Wave* wave = addWaveWith({0, 0, 0});
        wave->reloadable = true;
        ASSERT_TRUE(run(text, {wave}));
        EXPECT_TRUE(wave->reloadable) << text;
        EXPECT_FALSE(wave->samplesFloat) << text;
        ASSERT_TRUE(run("invert-sign-throughout-selection", {wave}));
        EXPECT_FALSE(wave->reloadable);
    }
}

TEST_F(AudioAlgorithms, LoopsSelectionsAndCuesFollow) {
    struct Case {
        const char* algorithm;
        u32 from, to;
        f64 start, end;
        bool looped;
        u32 cue;
    };
    const Case cases[] = {
        {"cut-away-selection", 0, 2, 2, 8, true, 3},
        {"cut-away-selection", 5, 7, 4, 8, true, 5},
        {"cut-away-selection", 8, 12, 4, 8, true, 5},
        {"cut-away-selection", 3, 11, 3, 3, false, 3},
        {"insert-silence:count=3,where=selection-start", 4, 5, 7, 13, true, 8},
        {"insert-silence:count=3,where=selection-start", 10, 11, 4, 10, true, 5},
        {"trim-waveform-to-selection", 2, 10, 2, 8, true, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.algorithm << ' ' << c.from << ".." << c.to);
        Wave* wave = looped(std::vector<i16>(20, 1), 4, 10);
        wave->cuePoints.emplace_back().position = 5;
        Region* region = store().Create<Region>(kNextFreeNumber, numberOf(wave->id()));
        region->params = wave->params;
        ASSERT_TRUE(run(c.algorithm, {wave}, c.from, c.to)) << space.error.message;
        for (const SampleParams* params : {&std::as_const(wave->params), &std::as_const(region->params)}) {
            EXPECT_EQ(params->looped(), c.looped);
            if (!c.looped) continue;
            EXPECT_EQ(params->loopStart, c.start);
            EXPECT_EQ(params->loopEnd, c.end);
        }
        EXPECT_EQ(wave->cuePoints[0].position, c.cue);
        store().Delete(region);
        store().Delete(wave);
    }
}

TEST_F(AudioAlgorithms, Loops) {
    Wave* wave = looped({1, 2, 3, 4, 5}, 1, 3);
    ASSERT_TRUE(run("double-the-loop-section-length", {wave}));
    EXPECT_THAT(samplesOf(*wave), ElementsAre(1, 2, 3, 2, 3, 4, 5));
    EXPECT_EQ(wave->params.loopStart, 1);
    EXPECT_EQ(wave->params.loopEnd, 5);
    EXPECT_EQ(store().count(kWaveClass), 1U);
    ASSERT_TRUE(run("set-selection-to-loop-points", {wave}));
    EXPECT_EQ(wave->selEnd, 5);
    ASSERT_TRUE(run("enable-disable-loops", {wave}));
    EXPECT_FALSE(wave->params.looped());
    EXPECT_FALSE(run("double-the-loop-section-length", {wave})) << "offered for loops only";
    ASSERT_TRUE(run("enable-disable-loops:mode=enable", {wave}));
    EXPECT_EQ(wave->params.loopEnd, 7);
    ASSERT_TRUE(run("set-loop-points-to-selection", {wave}, 2, 6));
    EXPECT_EQ(wave->params.loopStart, 2);
    EXPECT_EQ(wave->params.loopEnd, 6);
}

TEST_F(AudioAlgorithms, SplittingAndJoining) {
    Wave* wave = addWaveWith({1, 2, 3, 4}, 2);
    wave->SetName("Piano S");
    ASSERT_TRUE(run("convert-to-mono:mode=split", {wave}));
    EXPECT_EQ(wave->name(), "Piano L");
    Wave* right = store().Next(*wave);
    ASSERT_TRUE(right);
    EXPECT_EQ(right->name(), "Piano R");
    EXPECT_THAT(samplesOf(*wave), ElementsAre(1, 3));
    EXPECT_THAT(samplesOf(*right), ElementsAre(2, 4));
    ASSERT_TRUE(run("convert-to-stereo:mode=left,other=Piano R", {wave}));
    EXPECT_THAT(samplesOf(*wave), ElementsAre(1, 2, 3, 4));
    EXPECT_FALSE(ConvertToStereo(*right, wave));
    EXPECT_EQ(space.error.message, "2nd waveform is not mono");

    ASSERT_TRUE(run("append-combine-waveforms:wave1=wave:2", {wave}));
    EXPECT_THAT(samplesOf(*wave), ElementsAre(1, 2, 3, 4, 2, 2, 4, 4));
    ASSERT_TRUE(run("mix-out-a-wave1-b-wave2-c:a=0.5,b=-1,w2=wave:2", {right}));
    EXPECT_THAT(samplesOf(*right), ElementsAre(-1, -2));
    right->sampleRate = wave->sampleRate / 3; // as long as three frames
    ASSERT_TRUE(run("append-combine-waveforms:wave1=wave:2", {wave}));
    EXPECT_EQ(wave->frames, 10U);
    right->sampleRate = 0;
    EXPECT_FALSE(run("append-combine-waveforms:wave1=wave:2", {wave}));
    EXPECT_EQ(wave->frames, 10U);
    EXPECT_FALSE(MixWaves(*wave, 1, wave, 1, nullptr, 0));
    EXPECT_EQ(space.error.message, "A null wave was supplied");
}

TEST_F(AudioAlgorithms, SplitAtSilence) {
    std::vector<i16> samples(1000, 0);
    for (std::size_t i = 100; i < 300; ++i) samples[i] = 9000;
    for (std::size_t i = 310; i < 320; ++i) samples[i] = 9000; // too near to be a part of its own
    for (std::size_t i = 600; i < 900; ++i) samples[i] = -9000;
    samples[950] = 9000; // too short
    Wave* wave = addWaveWith(samples);
    wave->sampleRate = 1000;
    ASSERT_TRUE(run("split-waveform-at-silent-sections:silence=0.05,smooth=0", {wave}));
    EXPECT_EQ(wave->frames, 220U);
    EXPECT_EQ(store().count(kWaveClass), 2U);
    EXPECT_EQ(store().Next(*wave)->frames, 300U);
    EXPECT_EQ(samplesOf(*store().Next(*wave))[299], -9000);
}

TEST_F(AudioAlgorithms, Names) {
    struct Case {
        const char* name;
        int key; ///< -1: none
    };
    const Case cases[] = {{"Piano C3", 48},    {"A#2 soft", 46}, {"Bb1", 34},    {"flute-g4 C5", 72},
                          {"kick 36", 36},     {"tom 128", -1},  {"take 7", -1}, {"abc3", -1},
                          {"2005 string", -1}, {"E2.60", 60},    {"", -1},       {"C", -1}};
    for (const Case& c : cases) {
        const std::optional<u8> key = keyInName(c.name);
        EXPECT_EQ(key ? *key : -1, c.key) << c.name;
    }
    Wave* wave = addWaveWith({1});
    wave->SetName("string C3");
    ASSERT_TRUE(run("parse-root-key-from-waveform-name", {wave}));
    EXPECT_EQ(wave->params.rootKey, 48);
    EXPECT_EQ(ui.statuses.back(), "Done: 1 root keys parsed");
    ASSERT_TRUE(run("search-and-replace-text-in-names:search=s,replace=ss", {wave}));
    EXPECT_EQ(wave->name(), "sstring C3");
    EXPECT_EQ(ui.statuses.back(), "Done: 1 bit of text were replaced.");
    ASSERT_TRUE(run("search-and-replace-text-in-names:search=Q", {wave}));
    EXPECT_EQ(ui.statuses.back(), "Done: Nothing were replaced.");
    ASSERT_TRUE(run("set-waveform-names-from-root-keys:mode=replace,text=\"key <root>, <root>\"", {wave}));
    EXPECT_EQ(wave->name(), "key " + std::string("C3, C3"));
    ASSERT_TRUE(run("set-copyright-text", {wave}));
    EXPECT_EQ(wave->copyright, "Copyright 2019");
}

TEST_F(AudioAlgorithms, Statistics) {
    Wave* wave = addWaveWith({16384, -16384, 16384, -32768});
    wave->sampleRate = 4;
    ASSERT_TRUE(run("statistics", {wave}));
    EXPECT_EQ(said, wave->name().str() +
                        "\nWavesamples: 4 / 1.00 s\nMean value: -0.125\nRMS: 0.661 / -3.59 dB\n"
                        "Min..Max value: -1.000..0.500 / -32768..16384\nMax level: 1.000 / 0.00 dB / 32768\n"
                        "Maximum delta: 1.500 / 49152\nZero crossings: 3\n"
                        "Loudness: Sample rates from 3400 to 2822400 Hz can be measured, but not 4");
    // Loud for four seconds, then silent.
    std::vector<i16> samples(200000);
    for (std::size_t i = 0; i < 96000; ++i) samples[i] = i % 24 < 12 ? 3000 : -3000;
    Wave* sound = addWaveWith(samples);
    sound->sampleRate = 24000;
    const auto loudnessOf = [&](u32 from, u32 to) {
        said.clear();
        EXPECT_TRUE(run("statistics", {sound}, from, to));
        return said.substr(said.find("Integrated"));
    };
    EXPECT_EQ(loudnessOf(100000, 200000),
              "Integrated loudness: -inf LUFS\nLoudness range: 0.0 LU\nTrue peak: -inf dBTP");
    EXPECT_EQ(loudnessOf(100000, 100002),
              "Integrated loudness: too short\nLoudness range: too short\nTrue peak: -inf dBTP");
    EXPECT_EQ(loudnessOf(48000, 60000).substr(0, 25), "Integrated loudness: -19.");
}

TEST_F(AudioAlgorithms, OddWavesStayInOnePiece) {
    const f32 odd[] = {std::numeric_limits<f32>::quiet_NaN(), std::numeric_limits<f32>::infinity(), -2, 0.5F};
    for (const Algorithm& algorithm : algorithms()) {
        if (algorithm.kind != AlgorithmKind::Audio) continue;
        SCOPED_TRACE(algorithm.name);
        for (const u32 frames : {0U, 1U, 4U}) {
            for (const u32 channels : {1U, 2U}) {
                Wave* wave = addWave("odd", frames, channels);
                ASSERT_TRUE(wave->samplesFloat.allocate(std::size_t{frames} * channels));
                for (std::size_t i = 0; i < wave->samplesFloat.size(); ++i)
                    wave->samplesFloat.data()[i] = odd[i % 4];
                wave->reloadable = false;
                wave->params.loopFlags = kLooped;
                wave->params.loopStart = -5;
                wave->params.loopEnd = 1e12;
                run(slugOf(algorithm), {wave}, 0, 3);
                for (Wave& left : store().all<Wave>())
                    EXPECT_EQ(left.samplesFloat.size(), left.sampleCount());
                while (Wave* any = store().First<Wave>()) store().Delete(any);
            }
        }
    }
}

} // namespace
} // namespace kv
