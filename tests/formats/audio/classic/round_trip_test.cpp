// What files keep of a wave besides its samples, and what they say to have lost.
#include "formats/audio/classic/classic_test.h"
#include "formats/audio/classic/mac_forks.h"

namespace kv {
namespace {

class RoundTrip : public test::ClassicTest {
protected:
    /// A wave with one of everything.
    Wave* described(u32 channels, u32 rate = 22050) {
        Wave* wave = signal(1000, channels, rate);
        wave->SetName("F\xC3\xB6n");
        wave->artist = "An artist";
        wave->copyright = "1990";
        wave->comments = "odd";
        wave->params.override = true;
        wave->params.rootKey = 48;
        wave->params.loopFlags = kLooped;
        wave->params.loopStart = 100;
        wave->params.loopEnd = 901;
        wave->cuePoints = {{10, 0, "3", ""}, {1000, 0, "end", ""}};
        space.diagnostics = {};
        return wave;
    }
    bool lost(std::string_view field) {
        for (const auto& entry : space.diagnostics.entries()) {
            if (entry.field == field) return true;
        }
        return false;
    }
};

TEST_F(RoundTrip, KeepsWhatTheFormatHolds) {
    enum Keeps : u32 { kName = 1, kTexts = 2, kComments = 4, kKey = 8, kCues = 16, kLoop = 32, kLabels = 64 };
    struct Case {
        const char* row;
        const char* file;
        u32 code, channels, rate, keeps;
    };
    const Case cases[] = {
        {"Interchange file format", "a.iff", kPcm8, 1, 22050, kName | kTexts | kComments | kKey | kLoop},
        {"Interchange file format", "a.iff", kPcm8, 2, 44100, kName | kTexts | kComments | kKey | kLoop},
        {"SoundBlaster voice", "a.voc", kPcm16, 2, 44100, kComments | kCues | kLoop},
        {"SoundBlaster voice", "a.voc", kPcm8, 1, 44100, kComments | kCues | kLoop},
        {"SoundBlaster voice - Old Style", "a.voc", kPcm8, 1, 20000, kComments | kCues | kLoop},
        {"DiamondWare digitized", "a.dwd", kPcm16, 2, 22050, 0},
        {"DiamondWare digitized", "a.dwd", kPcm8, 1, 22050, 0},
        {"Sound Designer I", "a.sd", kPcm16, 1, 44100, kName | kComments | kCues | kLoop | kLabels},
        {"Sound Designer II data", "a.sd2", kPcm24, 1, 96000, 0}, // with its other fork beside it
        {"Sound Designer II flat", "a.sd2", kPcm24, 2, 96000, 0},
        {"Sound Designer II flat", "a.sd2", kPcm8, 1, 22050, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(fmt::format("{} {} {}", c.row, c.channels, c.rate));
        Wave* wave = described(c.channels, c.rate);
        const std::vector<i16> before = samplesOf(*wave);
        wave = rewritten(c.row, wave, c.file, c.code | kBoth);
        ASSERT_TRUE(wave);
        EXPECT_EQ(wave->sampleRate, c.rate);
        EXPECT_EQ(wave->channels, c.channels);
        EXPECT_EQ(wave->preferredFormat, c.code);
        const std::vector<i16> after = samplesOf(*wave);
        ASSERT_EQ(after.size(), before.size());
        const int shift = c.code == kPcm8 ? 8 : 0;
        for (std::size_t i = 0; i < after.size(); ++i) ASSERT_EQ(after[i] >> shift, before[i] >> shift) << i;

        EXPECT_EQ(wave->name() == "F\xC3\xB6n", (c.keeps & kName) != 0);
        EXPECT_EQ(wave->artist == "An artist" && wave->copyright == "1990", (c.keeps & kTexts) != 0);
        EXPECT_EQ(wave->comments == "odd", (c.keeps & kComments) != 0);
        EXPECT_EQ(wave->params.rootKey, (c.keeps & kKey) != 0 ? 48 : 60);
        ASSERT_EQ(wave->cuePoints.size(), (c.keeps & kCues) != 0 ? 2U : 0U);
        if ((c.keeps & kCues) != 0) {
            EXPECT_EQ(wave->cuePoints[0], (CuePoint{10, 0, "3", ""}));
            EXPECT_EQ(wave->cuePoints[1], (CuePoint{1000, 0, (c.keeps & kLabels) != 0 ? "end" : "2", ""}));
        }
        EXPECT_EQ(wave->params.looped(), (c.keeps & kLoop) != 0);
        if (wave->params.looped()) {
            EXPECT_EQ(wave->params.loopStart, 100);
            EXPECT_EQ(wave->params.loopEnd, 901);
        }
        EXPECT_EQ(lost("loop"), (c.keeps & kLoop) == 0);
        EXPECT_EQ(lost("cuePoints"), (c.keeps & kCues) == 0);
        EXPECT_FALSE(lost("sampleRate"));
    }
}

TEST_F(RoundTrip, Tx16wWavesHaveThreeRatesAndEndWithTheirLoop) {
    struct Case {
        u32 rate, written;
    };
    for (const auto& [rate, written] : {Case{33333, 33333},
                                        {50000, 50000},
                                        {16667, 16667},
                                        {22050, 33333},
                                        {96000, 50000},
                                        {8000, 16667}}) {
        Wave* wave = described(1, rate);
        wave = rewritten("Yamaha TX16W wave", wave, "a.w01");
        ASSERT_TRUE(wave);
        EXPECT_EQ(wave->sampleRate, written);
        EXPECT_TRUE(wave->params.looped());
        EXPECT_EQ(wave->params.loopEnd, wave->frames);
        const f64 ratio = f64{1} * written / rate;
        EXPECT_NEAR(wave->params.loopStart, 100 * ratio, 1);
        EXPECT_NEAR(wave->frames, 901 * ratio, 1);
        EXPECT_EQ(lost("sampleRate"), rate != written);
        EXPECT_EQ(std::filesystem::file_size(folder / "a.w01") % 256, 0U);
    }
    for (const u32 frames : {1U, 2U, 127U, 200'001U}) {
        Wave* wave = rewritten("Yamaha TX16W wave", signal(frames, 1, 50000), "b.w01");
        ASSERT_TRUE(wave);
        EXPECT_EQ(wave->frames, frames);
        EXPECT_FALSE(wave->params.looped());
    }
    EXPECT_FALSE(Export(rowOf("Yamaha TX16W wave"), folder / "c.w01", signal(262'143, 1, 50000), kAnyFormat,
                        0, false));
    EXPECT_EQ(failure(), "tx16w_Exp: Too long for the file format");
}

TEST_F(RoundTrip, WhatDoesNotFitIsRefused) {
    Wave* wave = signal(100, 1, 65536);
    for (const char* row : {"Interchange file format", "DiamondWare digitized"}) {
        EXPECT_FALSE(Export(rowOf(row), folder / "o", wave, kAnyFormat, 0, false)) << row;
        EXPECT_NE(failure().find("The file format can't hold sample rates above 65535 Hz"),
                  std::string::npos);
    }
}

TEST_F(RoundTrip, OldStyleHoldsNoRateExactly) {
    Wave* wave = described(1, 44100);
    wave = rewritten("SoundBlaster voice - Old Style", wave, "a.voc");
    EXPECT_EQ(wave->sampleRate, 43478U); // a whole number of microseconds
    EXPECT_TRUE(lost("sampleRate"));
    const Bytes file = test::readFile(folder / "a.voc");
    EXPECT_EQ(textOf(file).substr(22, 4), "\x0A\x01\x29\x11");
}

TEST_F(RoundTrip, SoundsLongerThanABlock) {
    Wave* wave = signal(9'000'000, 2);
    const std::vector<i16> before = samplesOf(*wave);
    wave = rewritten("SoundBlaster voice", wave, "long.voc", kPcm16 | kBoth);
    EXPECT_EQ(wave->frames, 9'000'000U);
    EXPECT_TRUE(samplesOf(*wave) == before);
}

TEST_F(RoundTrip, ADataForkAloneIsTakenAsTheSettingsSay) {
    Wave* wave = signal(600, 1, 32000);
    const std::vector<i16> before = samplesOf(*wave);
    space.settings.fmt.sd2 = {32000, 1, 16};
    wave = rewritten("Sound Designer II data", wave, "data.sd2", kPcm16 | kBoth);
    EXPECT_EQ(std::filesystem::file_size(folder / "data.sd2"), 1200U);
    EXPECT_TRUE(samplesOf(*wave) == before);
    std::filesystem::remove(folder / "._data.sd2");
    space.settings.fmt.sd2 = {44100, 2, 24};
    ASSERT_TRUE(Import(folder / "data.sd2", false));
    wave = store().First<Wave>();
    EXPECT_EQ(wave->frames, 200U);
    EXPECT_EQ(wave->sampleRate, 44100U);

    // The resource fork of the flat file says more than the settings, wherever it stands.
    const StringResource strings[] = {{1002, "channels", "1"},
                                      {1000, "sample-size", "2"},
                                      {1001, "sample-rate", "11025.0000"},
                                      {128, "", "other"}};
    const Bytes fork = stringsFork(strings);
    ByteWriter doubled;
    doubled.u32be(0x00051607).u32be(0x20000).fill(16).u16be(2).u32be(9).u32be(50).u32be(32);
    doubled.u32be(2).u32be(82).u32be(static_cast<u32>(fork.size())).fill(32).bytes(fork);
    std::filesystem::create_directory(folder / ".AppleDouble");
    for (const auto& [name, bytes] : {std::pair<const char*, ByteSpan>{"data.sd2.rsrc", fork},
                                      {"._data.sd2", doubled.view()},
                                      {".AppleDouble/data.sd2", doubled.view()}}) {
        test::writeFile(folder / name, bytes);
        ASSERT_TRUE(Import(folder / "data.sd2", false)) << failure();
        wave = store().First<Wave>();
        EXPECT_EQ(wave->sampleRate, 11025U) << name;
        EXPECT_TRUE(samplesOf(*wave) == before) << name;
        std::filesystem::remove(folder / name);
    }
}

TEST_F(RoundTrip, MacBinaryHeadersAreAsOthersWriteThem) {
    rewritten("Sound Designer II flat", signal(100, 1), "a.sd2", kPcm16 | kBoth);
    const Bytes file = test::readFile(folder / "a.sd2");
    EXPECT_EQ(file.size() % 128, 0U);
    EXPECT_EQ(textOf(file).substr(65, 8), "Sd2fSd2a");
    if (!has("file")) GTEST_SKIP() << "file(1) knows MacBinary";
    EXPECT_TRUE(run("file a.sd2 | grep -q 'MacBinary II'"));
}

} // namespace
} // namespace kv
