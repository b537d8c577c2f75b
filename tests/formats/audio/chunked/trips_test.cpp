// What is known of a wave, on its way through the formats.
#include "formats/audio/chunked/chunked_test.h"

namespace kv {
namespace {

class Trips : public test::FormatTest {
protected:
    Trips() { space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false; }
    Wave* source() {
        std::vector<i16> samples(1001);
        for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<i16>(i * 31 - 15000);
        Wave* wave = import(wavWith(samples));
        wave->SetName("J\xC3\xBCrgen \xE2\x82\xAC");
        wave->artist = "artist";
        wave->copyright = "\xC2\xA9";
        wave->comments = "odd"; // with a pad byte
        SampleParams& params = wave->params;
        params.override = true;
        params.rootKey = 47;
        params.fineTune = -37;
        params.gainDb = -6;
        params.loopStart = 10;
        params.loopEnd = 900;
        params.loopFlags = kLooped;
        wave->cuePoints = {{5, 0, "five", {}}, {7, 90, "range", {}}, {500, 0, {}, {}}};
        return wave;
    }
    /// Writes the wave and reads it back.
    Wave* through(const std::string& name, u32 wanted = kAnyFormat) {
        exportAs(name, wanted);
        return Import(folder / name, false) ? store().First<Wave>() : nullptr;
    }
    std::vector<std::string> losses() {
        std::vector<std::string> fields;
        for (const Diagnostic& d : space.diagnostics.entries()) fields.push_back(d.field);
        space.diagnostics.clear();
        return fields;
    }
};

TEST_F(Trips, EverythingSurvivesAllFormatsThatHoldIt) {
    Wave* wave = source();
    const SampleParams params = wave->params;
    const std::vector<CuePoint> cues = wave->cuePoints;
    const Bytes before = test::readFile(exportAs("before.wav"));
    ASSERT_TRUE(Import(folder / "before.wav", false));
    for (const char* name : {"1.aif", "2.caf", "3.aiff", "4.caf", "5.wav"}) {
        wave = through(name);
        ASSERT_TRUE(wave) << name << failure();
        EXPECT_EQ(wave->params.loopStart, params.loopStart) << name;
        EXPECT_EQ(wave->params.loopEnd, params.loopEnd) << name;
        EXPECT_EQ(wave->params.loopFlags, params.loopFlags) << name;
        EXPECT_EQ(wave->params.rootKey, params.rootKey) << name;
        EXPECT_EQ(wave->params.fineTune, params.fineTune) << name;
        // What WAV files don't hold.
        if (std::string_view(name).ends_with("f")) wave->params.gainDb = -6;
        EXPECT_EQ(wave->name(), "J\xC3\xBCrgen \xE2\x82\xAC") << name;
        EXPECT_EQ(wave->artist, "artist") << name;
        EXPECT_EQ(wave->copyright, "\xC2\xA9") << name;
        EXPECT_EQ(wave->comments, "odd") << name;
        ASSERT_EQ(wave->cuePoints.size(), 3U) << name;
        for (const CuePoint& cue : cues)
            EXPECT_NE(std::find(wave->cuePoints.begin(), wave->cuePoints.end(), cue), wave->cuePoints.end())
                << name;
    }
    EXPECT_EQ(losses(), std::vector<std::string>{});
    // The points without a length stand ahead of the ranges by now, nothing else has changed.
    EXPECT_EQ(test::readFile(folder / "5.wav").size(), before.size());
}

TEST_F(Trips, ParametersInTheirWholeRange) {
    struct Case {
        u8 key;
        i32 cents;
        f32 gain;
    };
    for (const Case& c :
         {Case{60, 50, 0}, Case{60, -49, -96}, Case{0, 0, 96}, Case{127, 1, 1}, Case{1, -30, 0}}) {
        for (const char* name : {"a.aif", "a.caf"}) {
            Wave* wave = source();
            wave->params.rootKey = c.key;
            wave->params.fineTune = c.cents;
            wave->params.gainDb = c.gain;
            wave = through(name);
            ASSERT_TRUE(wave);
            const f64 pitch = wave->params.rootKey + wave->params.fineTune / 100.0;
            EXPECT_NEAR(pitch, c.key + c.cents / 100.0, 1e-9) << name << int{c.key};
            EXPECT_EQ(wave->params.gainDb, c.gain) << name;
        }
    }
}

TEST_F(Trips, LoopsOfEveryKind) {
    struct Case {
        u16 flags;
        u16 aif, caf; ///< what comes back
    };
    constexpr u16 kBoth = kLooped | kLoopBidirectional, kBack = kLooped | kLoopReverse;
    constexpr u16 kRelease = kLooped | kLoopUntilRelease;
    const Case cases[] = {{0, 0, 0},
                          {kLooped, kLooped, kLooped},
                          {kBoth, kBoth, kBoth},
                          {kBack, kLooped, kBack},
                          {kRelease, kLooped, kRelease}};
    for (const Case& c : cases) {
        for (const char* name : {"a.aif", "a.caf"}) {
            Wave* wave = source();
            losses();
            wave->params.loopFlags = c.flags;
            const u16 wanted = std::string_view(name) == "a.aif" ? c.aif : c.caf;
            wave = through(name);
            ASSERT_TRUE(wave);
            EXPECT_EQ(wave->params.loopFlags, wanted) << name << c.flags;
            EXPECT_EQ(losses().size(), wanted == c.flags ? 0U : 1U);
        }
    }
}

TEST_F(Trips, FractionsStayInCafAndAreRoundedInAiff) {
    for (const char* name : {"a.aif", "a.caf"}) {
        Wave* wave = source();
        wave->params.loopStart = 10.25;
        wave->params.loopEnd = 20.875; // 10.625 frames, 11 when rounded
        wave->params.gainDb = -6.5F;
        losses();
        wave = through(name);
        ASSERT_TRUE(wave);
        const bool whole = std::string_view(name) == "a.aif";
        EXPECT_EQ(wave->params.loopStart, whole ? 10 : 10.25) << name;
        EXPECT_EQ(wave->params.loopEnd, whole ? 21 : 20.875) << name;
        EXPECT_EQ(wave->params.gainDb, whole ? -7 : -6.5F) << name;
        EXPECT_EQ(losses(),
                  whole ? (std::vector<std::string>{"loop", "gainDb"}) : std::vector<std::string>{});
    }
}

TEST_F(Trips, TellsWhatGetsLost) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"a.aif", {"album, engineer"}},
        {"a.caf", {"cuePoints"}}, // their notes
        {"a.au", {"loop", "rootKey, fineTune, gainDb", "cuePoints", "artist, album, engineer, copyright"}},
    };
    for (const auto& [name, fields] : cases) {
        Wave* wave = source();
        wave->album = "album";
        wave->cuePoints[0].note = "note";
        losses();
        wave = through(name);
        ASSERT_TRUE(wave);
        EXPECT_EQ(losses(), fields) << name;
        EXPECT_EQ(wave->comments, "odd") << name;
        if (std::string_view(name) == "a.aif") {
            EXPECT_EQ(wave->cuePoints[0].note, "note");
        }
    }
}

TEST_F(Trips, LongSamplesKeepTheirLowBits) {
    ByteWriter chunks, data;
    for (u32 i = 0; i < 300'001; ++i) data.u32le(i * 2654435761U);
    test::addChunk(chunks, "fmt ", test::fmtContents(1, 1, 44100, 32));
    test::addChunk(chunks, "data", data.view());
    ASSERT_TRUE(import(test::riff(chunks.view())));
    for (const char* name : {"1.aif", "2.caf", "3.au", "4.wav"})
        ASSERT_TRUE(through(name)) << name << failure();
    const Bytes file = test::readFile(folder / "4.wav");
    EXPECT_NE(textOf(file).find(textOf(data.view())), std::string_view::npos);
}

} // namespace
} // namespace kv
