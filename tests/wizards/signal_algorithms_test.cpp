#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "wizards/audio_fixture.h"
#include "wizards/wave_auto_loop.h"
#include "wizards/wave_loop.h"
#include "wizards/wave_resample.h"
#include "wizards/wave_tuning.h"
#include "wizards/wave_volume.h"

namespace kv {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

class SignalAlgorithms : public test::AudioFixture {
protected:
    /// A sine of 16 bits at 44100 Hz.
    Wave* sine(f64 hertz, u32 frames, f64 level = 0.5, u32 channels = 1) {
        std::vector<i16> samples(std::size_t{frames} * channels);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const f64 turns = hertz * static_cast<f64>(i / channels) / 44100;
            samples[i] =
                static_cast<i16>(std::lround(level * 32767 * std::sin(2 * 3.14159265358979 * turns)));
        }
        Wave* wave = addWaveWith(std::move(samples), channels);
        wave->sampleRate = 44100;
        wave->bits = 16;
        return wave;
    }
    f64 hertzOf(Wave& wave) {
        Tuning tuning;
        EXPECT_TRUE(FindTuning(wave, tuning)) << space.error.message;
        return tuning.hertz;
    }
};

TEST_F(SignalAlgorithms, Resample) {
    struct Case {
        const char* parameters;
        u32 rate, frames; ///< of 1000 frames of 44100 Hz; 0: refused
    };
    const Case cases[] = {
        {"rate=22050", 22050, 500},
        {"rate=88200,quality=nearest", 88200, 2000},
        {"length=250,quality=fir-24", 11025, 250},
        {"length=1001", 44144, 1001},
        {"rate=22050,length=500", 22050, 500},
        {"rate=22050,length=501", 0, 0},
        {"rate=44100", 44100, 1000},
        {"rate=48000,only-downsample", 44100, 1000},
        {"rate=8000,only-downsample,quality=linear", 8000, 181},
        {"", 0, 0},
        {"rate=0,length=0", 0, 0},
        {"rate=1,quality=cubic", 0, 0},
        {"rate=4294967295,length=4294967295", 0, 0},
        {"rate=-1", 0, 0},
        {"rate=nan", 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.parameters);
        Wave* wave = looped(std::vector<i16>(1000, 100), 200, 600);
        wave->sampleRate = 44100;
        wave->selStart = 100;
        wave->selEnd = 900;
        wave->cuePoints.emplace_back().position = 300;
        Region* region = store().Create<Region>(kNextFreeNumber, numberOf(wave->id()));
        region->params = wave->params;
        EXPECT_EQ(run(std::string("resample-convert-sample-rate:") + c.parameters, {wave}), c.rate != 0);
        if (c.rate == 0) {
            EXPECT_EQ(space.error.message, "Invalid length or frequency specified");
        }
        const f64 factor = c.rate == 0 ? 1 : c.frames / 1000.0;
        EXPECT_EQ(wave->sampleRate, c.rate == 0 ? 44100 : c.rate);
        EXPECT_EQ(wave->frames, c.rate == 0 ? 1000 : c.frames);
        EXPECT_NEAR(wave->params.loopStart, 200 * factor, factor + 0.5);
        EXPECT_NEAR(region->params.loopEnd, 600 * factor, factor + 0.5);
        EXPECT_NEAR(static_cast<f64>(wave->selEnd), 900 * factor, factor + 1);
        EXPECT_NEAR(wave->cuePoints[0].position, 300 * factor, factor + 1);
        store().Delete(region);
        store().Delete(wave);
    }
    Wave* frame = sine(1000, 1);
    ASSERT_TRUE(run("resample-convert-sample-rate:rate=4294967295", {frame}));
    EXPECT_EQ(frame->frames, 97392U);
    EXPECT_FALSE(run("resample-convert-sample-rate:rate=4294967295,quality=linear", {sine(1000, 44100)}));
    EXPECT_EQ(space.error.message, "The result would be too long.");
    EXPECT_FALSE(ResampleWave(*frame, 0, 44100, 9));
}

TEST_F(SignalAlgorithms, PitchAndLengthChangeApart) {
    struct Case {
        const char* algorithm;
        f64 hertz;
        u32 frames;
    };
    const Case cases[] = {
        {"resample-convert-sample-rate:rate=96000", 1000, 96000},
        {"time-stretch:factor=1.5", 1000, 66150},
        {"time-stretch:factor=0.5,method=spectrum", 1000, 22050},
        {"pitch-scale:factor=2", 2000, 44100},
    };
    for (const Case& c : cases) {
        for (const u32 channels : {1U, 2U}) {
            SCOPED_TRACE(c.algorithm);
            Wave* wave = sine(1000, 44100, 0.5, channels);
            ASSERT_TRUE(run(c.algorithm, {wave})) << space.error.message;
            EXPECT_EQ(wave->frames, c.frames);
            EXPECT_NEAR(hertzOf(*wave), c.hertz, 4);
            EXPECT_FALSE(wave->reloadable);
        }
    }
    Wave* wave = sine(1000, 4);
    wave->reloadable = true;
    for (const char* nothing : {"time-stretch", "pitch-scale", "resample-convert-sample-rate:rate=44100"})
        ASSERT_TRUE(run(nothing, {wave}));
    EXPECT_TRUE(wave->reloadable);
    EXPECT_FALSE(wave->samplesFloat);
    EXPECT_FALSE(run("time-stretch:factor=0.1", {wave})) << "nothing would be left";
}

TEST_F(SignalAlgorithms, NormalizeVolume) {
    // Without the filter a sine of full scale has a level of -3.01 dB.
    Wave *loud = sine(1000, 44100, 1), *soft = sine(1000, 44100, 0.1);
    const std::string plain = "normalize-volume:filter=0,desired=";
    ASSERT_TRUE(run(plain + "83", {loud, soft}));
    EXPECT_NEAR(loud->params.gainDb, -21.26 + 3.01, 0.03);
    EXPECT_NEAR(soft->params.gainDb, -21.26 + 23.01, 0.03);
    EXPECT_FALSE(loud->samplesFloat) << "only looked at";
    ASSERT_TRUE(run(plain + "83,as-one", {soft, loud}));
    EXPECT_NEAR(soft->params.gainDb, -21.26 + 3.01, 0.03);
    EXPECT_EQ(soft->params.gainDb, loud->params.gainDb);
    ASSERT_TRUE(run(plain + "-5", {soft}));
    EXPECT_NEAR(soft->params.gainDb, -21.26 + 23.01 - 83, 0.03);
    ASSERT_TRUE(run(plain + "89,mode=audio", {soft}));
    EXPECT_EQ(soft->params.gainDb, 0);
    ASSERT_TRUE(run(plain + "89", {soft}));
    EXPECT_NEAR(soft->params.gainDb, 0, 0.03) << "is as loud as it should be";
    ASSERT_TRUE(run("normalize-volume:desired=92", {loud}));
    EXPECT_LT(loud->params.gainDb, -5);
}

TEST_F(SignalAlgorithms, FindVolume) {
    struct Case {
        const char* source;
        const char* name;
        f64 decibels;
    };
    const Case cases[] = {{"peak", " -6.0 dB", -6.02},
                          {"rms", " -10.8 dB", -10.79},
                          {"rms-peak", " -9.0 dB", -9.03},
                          {"replaygain", " dB", std::numeric_limits<f64>::quiet_NaN()}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.source);
        Wave* wave = sine(1000, 30000);
        std::fill_n(wave->samples16.data() + 20000, 10000, i16{0}); // a third is silent
        const std::string call = std::string("find-volume:source=") + c.source;
        ASSERT_TRUE(run(call, {wave}));
        EXPECT_THAT(wave->name().str(), EndsWith(c.name));
        ASSERT_TRUE(run(call + ",action=subtract", {wave}));
        if (!std::isnan(c.decibels)) {
            EXPECT_NEAR(wave->params.gainDb, -c.decibels, 0.02);
        }
        EXPECT_FALSE(wave->samplesFloat);
        const f32 gain = wave->params.gainDb;
        ASSERT_TRUE(run(call + ",action=normalize", {wave}));
        f64 volume = 0;
        bool silent = true;
        ASSERT_TRUE(volumeOf(*wave, VolumeSource::Peak, volume, silent));
        EXPECT_FALSE(silent);
        // What was taken off the gain brings the samples to the level, up to full scale.
        EXPECT_NEAR(volume, std::min(-6.02 + static_cast<f64>(gain), 0.0), 0.02);
    }
    Wave* silence = addWaveWith({0, 0});
    ASSERT_TRUE(run("find-volume:action=subtract", {silence}));
    EXPECT_EQ(silence->params.gainDb, 0);
}

TEST_F(SignalAlgorithms, Tuning) {
    struct Case {
        f64 hertz;
        int key, cents; ///< fine tune
    };
    const Case cases[] = {{440, 69, 0}, {452, 69, -46}, {430, 69, 40}, {9500, 0, 0}, {20, 0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.hertz);
        Tuning tuning;
        ASSERT_TRUE(FindTuning(*sine(c.hertz, 88200), tuning));
        EXPECT_NEAR(tuning.hertz, c.hertz, 1.4);
        EXPECT_LE(tuning.key, 108);
        EXPECT_LE(std::abs(tuning.cents), 50);
        if (c.cents != 0 || c.key != 0) {
            EXPECT_EQ(tuning.key, c.key);
            EXPECT_NEAR(tuning.cents, c.cents, 6);
        }
    }
    Wave* wave = sine(466.16, 88200); // one semitone above the key
    wave->params.override = true;
    wave->params.rootKey = 69;
    ASSERT_TRUE(run("calculate-tuning", {wave}));
    EXPECT_THAT(said, HasSubstr("Which corresponds to the tone:\n\n\tA#4 "));
    EXPECT_THAT(said, HasSubstr("root key is for the tone:\n\n\tA4 plus 0 cents"));
    ASSERT_TRUE(run("auto-tune:mode=rate", {wave}));
    EXPECT_THAT(said, HasSubstr(" sharp"));
    EXPECT_NEAR(wave->sampleRate, 44100 / std::exp2(1 / 12.0), 130);
    wave->sampleRate = 44100;
    ASSERT_TRUE(run("auto-tune:mode=fine", {wave}));
    EXPECT_EQ(wave->params.rootKey, 69);
    ASSERT_TRUE(run("auto-tune", {wave}));
    EXPECT_EQ(wave->params.rootKey, 70);
    ASSERT_TRUE(run("auto-tune", {wave}));
    EXPECT_THAT(said, EndsWith("Already perfectly tuned!"));
    EXPECT_FALSE(run("auto-tune", {addWaveWith(std::vector<i16>(20000, 0))}));
    EXPECT_EQ(space.error.message, "Auto-Tuning failed!");
}

TEST_F(SignalAlgorithms, CrossfadeLoop) {
    // From 0 up to the loop, high in it, low behind it.
    const std::vector<i16> samples = {0, 0, 0, 0, 8000, 8000, 8000, 8000, -8000, -8000};
    struct Case {
        const char* parameters;
        std::vector<int> after;
    };
    const Case cases[] = {
        {":reverse=0", {0, 0, 0, 0, 6000, 4000, 2000, 0, -8000, -8000}},
        {":reverse=0,length=2", {0, 0, 0, 0, 8000, 8000, 4000, 0, -8000, -8000}},
        {":length=4", {0, 0, 0, 0, 6000, 4000, 2000, 0, 0, -8000}},
        {":reverse=0,exponential,length=2", {0, 0, 0, 0, 8000, 8000, 5923, 0, -8000, -8000}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.parameters);
        Wave* wave = looped(samples, 4, 8);
        wave->params.loopFlags = kLooped | kLoopUntilRelease;
        ASSERT_TRUE(run(std::string("cross-fade-loop") + c.parameters, {wave})) << space.error.message;
        EXPECT_THAT(samplesOf(*wave), testing::ElementsAreArray(c.after));
        EXPECT_EQ(wave->params.loopFlags, kLooped);
    }
    EXPECT_FALSE(run("cross-fade-loop:length=5", {looped(samples, 4, 8)}));
    EXPECT_EQ(space.error.message,
              "The maximum crossfade length is 4 wavesamples (minimum of the loop length and the number of "
              "wavesamples before the loop start point");
    Wave* atStart = looped(samples, 0, 8);
    ASSERT_TRUE(run("cross-fade-loop", {atStart}));
    EXPECT_THAT(samplesOf(*atStart), testing::ElementsAreArray(samples));
}

TEST_F(SignalAlgorithms, MoveToZeroCrossing) {
    //                             0   1    2    3   4    5   6   7
    const std::vector<i16> mixed{100, 100, -50, -50, 90, 90, -9, -9};
    struct Case {
        f64 position;
        i64 low, high;
        int wanted, direction;
        f64 moved;
    };
    const Case cases[] = {
        {1, 0, 7, 0, -1, 1 + 2.0 / 3},
        {2.4, 0, 7, 0, -1, 1 + 2.0 / 3},
        {3, 0, 7, 0, 1, 3},
        {1, 0, 7, 1, 1, 3},
        {5, 0, 7, -1, -1, 5 + 10.0 / 11},
        {6, 0, 7, 1, 1, 3},
        {0, 0, 1, 0, 0, 0},
        {9, 0, 7, 0, 0, 9},
        {2, 3, 7, 0, 0, 2},
        {5, 4, 100, 1, 0, 5},
        {-1e300, 0, 7, 0, 0, -1e300},
    };
    for (const u32 channels : {1U, 2U}) {
        std::vector<i16> samples;
        for (const i16 x : mixed) samples.insert(samples.end(), channels, x);
        Wave* wave = addWaveWith(samples, channels);
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << c.position << " wanted " << c.wanted);
            f64 position = c.position;
            EXPECT_EQ(MoveToZeroCrossing(*wave, position, c.low, c.high, c.wanted), c.direction);
            EXPECT_DOUBLE_EQ(position, c.moved);
        }
    }
    f64 position = 2;
    EXPECT_EQ(MoveToZeroCrossing(*addWaveWith({5, 5, 5, 5}), position, 0, 3, 0), 0);
    EXPECT_EQ(position, 2);

    // Crossings are 50.08 frames apart; that at 3104.9, nearer to the end, goes the other way.
    Wave* wave = sine(440.3, 4000);
    wave->params.override = true;
    wave->params.loopFlags = kLooped;
    wave->params.loopStart = 130;
    wave->params.loopEnd = 3090;
    space.settings.pset.set(Switch::FractionalLoops, true);
    ASSERT_TRUE(run("move-loop-points-to-nearest-zero-crossing", {wave}));
    EXPECT_NEAR(wave->params.loopStart, 150.2, 1);
    EXPECT_NEAR(wave->params.loopEnd, 3054.8, 1);
}

TEST_F(SignalAlgorithms, TrimAfterLoop) {
    const auto make = [&](u32 frames) {
        std::vector<i16> samples(frames);
        for (u32 i = 0; i < frames; ++i) samples[i] = static_cast<i16>(i);
        Wave* wave = looped(std::move(samples), 10, 20);
        wave->params.loopFlags = kLooped | kLoopUntilRelease;
        return wave;
    };
    struct Case {
        const char* parameters;
        u32 before, after;
        u32 release; ///< frames of the wave that is kept; 0: none
        bool untilRelease;
    };
    const Case cases[] = {
        {"", 100, 20, 0, false},
        {":append", 100, 52, 0, false},
        {":append", 20, 52, 0, true},
        {":save-release", 52, 20, 0, false},
        {":save-release", 53, 20, 33, false},
        {":regions", 100, 60, 0, false},
        {":regions,append", 100, 92, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.parameters);
        Wave* wave = make(c.before);
        Region* region = store().Create<Region>(kNextFreeNumber, numberOf(wave->id()));
        region->params = wave->params;
        region->params.loopStart = 50;
        region->params.loopEnd = 60;
        ASSERT_TRUE(run(std::string("trim-data-after-loop-end-point") + c.parameters, {wave}));
        EXPECT_EQ(wave->frames, c.after);
        EXPECT_EQ((wave->params.loopFlags & kLoopUntilRelease) != 0, c.untilRelease);
        EXPECT_EQ(wave->params.loopEnd, 20);
        const std::vector<int> left = samplesOf(*wave);
        if (c.after == 52) {
            EXPECT_THAT(std::vector<int>(left.end() - 33, left.end() - 20),
                        ElementsAre(19, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 10, 11));
        }
        const Wave* release = store().Next(*wave);
        EXPECT_EQ(release != nullptr, c.release != 0);
        if (release) {
            EXPECT_THAT(release->name().str(), EndsWith(" Release"));
            EXPECT_EQ(release->frames, c.release);
            EXPECT_FALSE(release->params.looped());
            EXPECT_EQ(release->samples16.span()[0], 20);
        }
        store().Delete(region);
        while (Wave* any = store().First<Wave>()) store().Delete(any);
    }
}

TEST_F(SignalAlgorithms, AutoLoop) {
    Wave* wave = sine(441, 8000, 0.9, 2);
    ASSERT_TRUE(run("auto-loop-finder:kind=sustain", {wave}));
    EXPECT_EQ(wave->params.loopFlags, kLooped | kLoopUntilRelease);
    EXPECT_EQ(std::fmod(wave->params.loopEnd - wave->params.loopStart, 100), 0);
    EXPECT_EQ(ui.statuses.back(), "Done: Loop found and set!");
    EXPECT_EQ(store().count(kWaveClass), 1U);
    EXPECT_FALSE(wave->samplesFloat);
    const f64 start = wave->params.loopStart;
    ASSERT_TRUE(run("auto-loop-finder:skip-looped,search=100", {wave}));
    EXPECT_EQ(wave->params.loopStart, start);
    ASSERT_TRUE(run("auto-loop-finder:cut-rest,crossfade,search=50", {wave}));
    EXPECT_EQ(wave->params.loopFlags, kLooped);
    EXPECT_EQ(wave->frames, static_cast<u32>(wave->params.loopEnd) + 32);

    Wave* silence = addWaveWith(std::vector<i16>(500, 0));
    ASSERT_TRUE(run("auto-loop-finder", {silence}));
    EXPECT_FALSE(silence->params.looped());

    Wave* stopped = sine(441, 8000);
    ui.cancel = true;
    EXPECT_FALSE(run("auto-loop-finder", {stopped}));
    EXPECT_EQ(ui.statuses.back(), "Failed: Loop find cancelled");
    EXPECT_FALSE(stopped->params.looped());
    ui.cancel = false;

    Wave* lasting = sine(441, 256001);
    ui.questions.clear();
    ui.answers = {0, 2};
    EXPECT_FALSE(run("auto-loop-finder", {lasting}));
    EXPECT_FALSE(lasting->params.looped());
    EXPECT_TRUE(run("auto-loop-finder", {lasting}));
    EXPECT_TRUE(run("auto-loop-finder", {lasting}));
    EXPECT_EQ(ui.questions.size(), 2U) << "not after \"Don't ask again\"";
}

} // namespace
} // namespace kv
