// Texts, loops and markers around packed audio.
#include "formats/audio/packed/packed_test.h"
#include "formats/audio/tags/id3_tag.h"
#include "formats/audio/tags/tag_texts.h"
#include "model/store.h"

namespace kv {
namespace {

class PackedTags : public test::PackedTest {
protected:
    /// A wave with all that a wave can have.
    Wave* richWave() {
        Wave* wave = import(tones(1, 48000, 20'001), "rich.wav");
        wave->SetName("Caf\xC3\xA9");
        wave->artist = "J\xC3\xBCrgen";
        wave->album = "Album";
        wave->engineer = "Engineer";
        wave->copyright = "\xC2\xA9 1999";
        wave->comments = "two\nlines \xE2\x99\xAB";
        wave->params.rootKey = 45;
        wave->params.fineTune = 13;
        wave->params.loopStart = 1000;
        wave->params.loopEnd = 15'000;
        wave->params.loopFlags = kLooped;
        wave->cuePoints.push_back({500, 70, "label", "note"});
        return wave;
    }
    void expectTexts(const Wave& wave, const std::string& what) {
        EXPECT_EQ(wave.name().view(), "Caf\xC3\xA9") << what;
        EXPECT_EQ(wave.artist, "J\xC3\xBCrgen") << what;
        EXPECT_EQ(wave.album, "Album") << what;
        EXPECT_EQ(wave.engineer, "Engineer") << what;
        EXPECT_EQ(wave.copyright, "\xC2\xA9 1999") << what;
        EXPECT_EQ(wave.comments, "two\nlines \xE2\x99\xAB") << what;
    }
};

TEST_F(PackedTags, TextsComeBack) {
    const std::pair<const char*, const char*> rows[] = {{"Free lossless audio codec (default)", "a.flac"},
                                                        {"WavPack lossless", "a.wv"},
                                                        {"Ogg Vorbis", "a.ogg"},
                                                        {"Opus (Voice)", "a.opus"},
                                                        {"MPEG layer III - VBR", "a.mp3"},
                                                        {"MPEG layer II - CBR", "a.mp2"}};
    for (const auto& [row, name] : rows) {
        richWave();
        exportTo(row, name);
        const Wave* wave = importFile(name);
        ASSERT_TRUE(wave) << row << ": " << failure();
        expectTexts(*wave, row);
        EXPECT_EQ(wave->params.looped(), !std::string(row).starts_with("MPEG")) << row;
        if (!wave->params.looped()) continue;
        EXPECT_EQ(wave->params.loopStart, 1000) << row;
        EXPECT_EQ(wave->params.loopEnd, 15'000) << row;
    }
}

TEST_F(PackedTags, LosslessFormsKeepAllThatWavKeeps) {
    const struct {
        const char *row, *name, *program, *unpack;
    } rows[] = {{"Free lossless audio codec (default)", "a.flac", "flac",
                 "flac -d -s --keep-foreign-metadata a.flac -o c.wav"},
                {"WavPack lossless", "a.wv", "wvunpack", "wvunpack -q a.wv -o c.wav"}};
    for (const auto& row : rows) {
        for (const u32 code : {kPcm8, kPcm24}) { // an odd number of bytes, and not
            Wave* wave = richWave();
            exportTo("Microsoft wave", "wanted.wav", code);
            exportTo(row.row, row.name, code);
            wave = importFile(row.name);
            ASSERT_TRUE(wave);
            EXPECT_EQ(wave->params.rootKey, 45);
            EXPECT_EQ(wave->params.fineTune, 13);
            EXPECT_EQ(wave->params.loopFlags, kLooped);
            ASSERT_EQ(wave->cuePoints.size(), 1U);
            EXPECT_EQ(wave->cuePoints[0], (CuePoint{500, 70, "label", "note"}));
            exportTo("Microsoft wave", "again.wav", code);
            EXPECT_TRUE(test::readFile(folder / "again.wav") == test::readFile(folder / "wanted.wav"))
                << row.row;
            if (!test::has(row.program)) continue;
            run("rm -f c.wav");
            ASSERT_TRUE(run(row.unpack));
            // Of the form itself and of the padding programs have ideas of their own.
            const Bytes unpacked = test::readFile(folder / "c.wav"),
                        wanted = test::readFile(folder / "wanted.wav");
            const auto behindSamples = [](const Bytes& file) {
                return textOf(file).substr(textOf(file).find("LIST"));
            };
            EXPECT_TRUE(dataOf("c.wav") == dataOf("wanted.wav")) << row.row;
            EXPECT_TRUE(behindSamples(unpacked) == behindSamples(wanted)) << row.row;
        }
    }
}

TEST_F(PackedTags, CueSheet) {
    KV_NEEDS("metaflac");
    ASSERT_TRUE(import(noise(2, 16, 200'000), "a.wav"));
    exportTo("Free lossless audio codec (default)", "a.flac");
    const std::string sheet =
        "FILE \"a.flac\" FLAC\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
        "  TRACK 02 AUDIO\n    INDEX 00 00:01:00\n    INDEX 01 00:02:00\n";
    test::writeFile(folder / "a.cue", bytesOf(sheet));
    ASSERT_TRUE(run("metaflac --import-cuesheet-from=a.cue a.flac"));
    const Wave* wave = importFile("a.flac");
    ASSERT_TRUE(wave);
    ASSERT_EQ(wave->cuePoints.size(), 3U);
    EXPECT_EQ(wave->cuePoints[0], (CuePoint{0, 0, "Track 1", ""}));
    EXPECT_EQ(wave->cuePoints[1], (CuePoint{44'100, 0, "2.0", ""}));
    EXPECT_EQ(wave->cuePoints[2], (CuePoint{88'200, 0, "Track 2", ""}));
}

TEST_F(PackedTags, LoopFromComments) {
    const struct {
        std::vector<std::string_view> comments;
        bool looped;
        f64 start, end;
    } rows[] = {
        {{"LOOPSTART=10", "LOOPLENGTH=20"}, true, 10, 30},
        {{"LoopLength=20", "loopstart=10"}, true, 10, 30},
        {{"LOOPSTART=10", "LOOPEND=99"}, true, 10, 99},
        {{"LOOPSTART=10", "LOOPLENGTH=5000"}, true, 10, 1000},
        {{"LOOPSTART=10"}, false, 0, 0},
        {{"LOOPSTART=1000", "LOOPLENGTH=5"}, false, 0, 0},
        {{"LOOPSTART=-5", "LOOPLENGTH=99999999999999999999999"}, false, 0, 0},
    };
    for (const auto& row : rows) {
        Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr);
        wave->frames = 1000;
        TextTaker texts(*wave);
        for (const std::string_view comment : row.comments) texts.take(comment);
        texts.finish();
        EXPECT_EQ(wave->params.looped(), row.looped) << row.comments[0];
        EXPECT_EQ(wave->params.loopStart, row.start);
        EXPECT_EQ(wave->params.loopEnd, row.end);
    }
}

// ---- Tags by their bytes

std::string frame(std::string_view id, std::string_view contents, std::string_view flags = {"\0\0", 2}) {
    ByteWriter out;
    out.text(id).u32be(static_cast<u32>(contents.size())).text(flags).text(contents);
    return std::string(textOf(out.view()));
}
std::string shortFrame(std::string_view id, std::string_view contents) {
    ByteWriter out;
    out.text(id).u8le(0).u16be(static_cast<u16>(contents.size())).text(contents);
    return std::string(textOf(out.view()));
}
std::string id3(char version, char flags, std::string_view frames) {
    const auto size = static_cast<u32>(frames.size());
    ByteWriter out;
    out.text("ID3").u8le(static_cast<u8>(version)).u8le(0).u8le(static_cast<u8>(flags));
    for (const int shift : {21, 14, 7, 0}) out.u8le(static_cast<u8>(size >> shift & 0x7F));
    out.text(frames);
    return std::string(textOf(out.view()));
}
std::string id3v1() {
    std::string tag = "TAGold title";
    tag.resize(128, '\0');
    return tag;
}

using namespace std::string_literals;

TEST_F(PackedTags, AllFormsOfTags) {
    const struct {
        const char* what;
        std::string before, after;
        std::string_view title, artist, comments;
    } rows[] = {
        {"none", "", "", "", "", ""},
        {"2.2", id3(2, 0, shortFrame("TT2", "\0caf\xE9"s) + shortFrame("COM", "\0eng\0text"s)), "",
         "caf\xC3\xA9", "", "text"},
        {"2.3, both byte orders",
         id3(3, 0, frame("TIT2", "\1\xFF\xFE\xE9\0"s) + frame("TPE1", "\1\xFE\xFF\0\xE9"s)), "", "\xC3\xA9",
         "\xC3\xA9", ""},
        {"2.4", id3(4, 0, frame("TIT2", "\3\xC3\xA9\0more"s) + frame("TPE1", "\2\0\xE9"s)), "", "\xC3\xA9",
         "\xC3\xA9", ""},
        {"2.3, unsynchronised", id3(3, '\x80', frame("TIT2", "\1\xFF\xFE\xE9\0"s).insert(12, 1, '\0')), "",
         "\xC3\xA9", "", ""},
        {"2.4, a frame unsynchronised", id3(4, 0, frame("TIT2", "\1\xFF\0\xFE\xE9\0"s, "\0\2"s)), "",
         "\xC3\xA9", "", ""},
        {"2.4, with a length", id3(4, 0, frame("TIT2", "\0\0\0\4\3abc"s, "\0\1"s)), "", "abc", "", ""},
        {"2.3, packed frames are left out",
         id3(3, 0, frame("TIT2", "\0abc"s, "\0\x80"s) + frame("TPE1", "\0x"s)), "", "", "x", ""},
        {"2.3, extended header", id3(3, 0x40, "\0\0\0\6\0\0\0\0\0\0"s + frame("TIT2", "\0abc"s)), "", "abc",
         "", ""},
        {"a comment of a program is none",
         id3(3, 0, frame("COMM", "\0engiTunNORM\0 0001"s) + frame("COMM", "\0engtopic\0real"s)), "", "", "",
         "real"},
        {"a frame that lies about its size",
         id3(3, 0, frame("TIT2", "\0abc"s) + "TPE1\x7F\xFF\xFF\xFF\0\0\0x"s), "", "abc", "", ""},
        {"two tags", id3(3, 0, frame("TIT2", "\0abc"s)) + id3(4, 0, frame("TPE1", "\0def"s)), "", "abc",
         "def", ""},
        {"1", "", id3v1(), "old title", "", ""},
        {"the newer tag counts", id3(3, 0, frame("TIT2", "\0abc"s)), id3v1(), "abc", "", ""},
    };
    Wave* source = import(tones(1, 44100, 3000), "a.wav");
    source->SetName("");
    exportTo("MPEG layer III - CBR", "plain.mp3", kAnyFormat, 64);
    Bytes packed = test::readFile(folder / "plain.mp3");
    MemorySource written{ByteSpan(packed)};
    const PackedPlace place = betweenTags(written);
    const std::string stream(textOf(packed).substr(static_cast<std::size_t>(place.start)));
    for (const auto& row : rows) {
        const std::string bytes = row.before + stream + row.after;
        MemorySource file{bytesOf(bytes)};
        EXPECT_EQ(betweenTags(file).start, row.before.size()) << row.what;
        EXPECT_EQ(betweenTags(file).bytes, stream.size()) << row.what;
        const Wave* wave = import(bytesOf(bytes), "b.mp3");
        ASSERT_TRUE(wave) << row.what << ": " << failure();
        EXPECT_EQ(wave->frames, 3000U) << row.what;
        if (!row.title.empty()) {
            EXPECT_EQ(wave->name().view(), row.title) << row.what;
        }
        EXPECT_EQ(wave->artist, row.artist) << row.what;
        EXPECT_EQ(wave->comments, row.comments) << row.what;
    }
}

TEST_F(PackedTags, ApeTag) {
    Wave* wave = richWave();
    Bytes tag = apeTag(*wave);
    const std::string file = std::string(1000, 'x') + std::string(textOf(tag)) + id3v1();
    MemorySource source{bytesOf(file)};
    EXPECT_EQ(betweenTags(source).bytes, 1000U);
    Wave* back = store().Create<Wave>(kNextFreeNumber, nullptr);
    TextTaker texts(*back);
    takeTags(source, texts);
    EXPECT_EQ(back->comments, wave->comments);
    EXPECT_EQ(back->engineer, wave->engineer);
}

TEST_F(PackedTags, GainsCountOnlyWhenAskedFor) {
    struct Case {
        const char* name;
        const char* text;
        f32 gain;
    };
    for (const Case& c :
         {Case{"replaygain_track_gain", "-6.50 dB", -6.5F}, Case{"REPLAYGAIN_TRACK_GAIN", "+3", 3},
          Case{"R128_TRACK_GAIN", "-512", -2}, Case{"R128_TRACK_GAIN", "-2 dB", 0},
          Case{"REPLAYGAIN_TRACK_GAIN", "1e9", 0}, Case{"REPLAYGAIN_TRACK_GAIN", "loud", 0},
          Case{"REPLAYGAIN_TRACK_GAIN", "200 dB", 96}, Case{"REPLAYGAIN_TRACK_PEAK", "1.0", 0}}) {
        for (const bool asked : {false, true}) {
            settings().load.bTakeGain = asked;
            Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr);
            TextTaker(*wave).take(c.name, c.text);
            EXPECT_EQ(wave->params.gainDb, asked ? c.gain : 0) << c.text;
        }
    }
}

/// A picture of any size costs nothing.
TEST_F(PackedTags, LargeTagIsSteppedOver) {
    ASSERT_TRUE(import(tones(1, 44100, 3000), "a.wav"));
    exportTo("MPEG layer III - CBR", "a.mp3");
    const Bytes packed = test::readFile(folder / "a.mp3");
    constexpr u64 kTag = (u64{1} << 28) - 1 + 10;
    test::writeFile(folder / "big.mp3", bytesOf("ID3\3\0\0\x7F\x7F\x7F\x7F"s + frame("TIT2", "\0here"s)));
    std::filesystem::resize_file(folder / "big.mp3", kTag);
    std::ofstream(folder / "big.mp3", std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char*>(packed.data()), static_cast<std::streamsize>(packed.size()));
    const Wave* wave = importFile("big.mp3");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->frames, 3000U);
    EXPECT_EQ(wave->name().view(), "here");
}

TEST_F(PackedTags, OtherStreamsBehindATag) {
    const std::string tag = id3(3, 0, frame("TPE1", "\0someone"s));
    ASSERT_TRUE(import(noise(1, 16, 3000), "a.wav"));
    exportTo("Free lossless audio codec (default)", "a.flac");
    for (const char* name : {"b.flac", "b.mp3"}) {
        const Wave* wave =
            import(bytesOf(tag + std::string(textOf(test::readFile(folder / "a.flac")))), name);
        ASSERT_TRUE(wave) << name << failure();
        EXPECT_EQ(wave->artist, "someone");
        EXPECT_EQ(samplesOf(name).size(), 3000U);
    }
}

} // namespace
} // namespace kv
