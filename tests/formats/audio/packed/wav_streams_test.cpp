// Packed streams within WAV files, and tags.
#include <gmock/gmock.h>

#include "formats/audio/packed/packed_test.h"
#include "formats/audio/tags/tag_texts.h"

namespace kv {
namespace {

using test::addChunk;
using test::fmtContents;
using test::riff;

class WavStreams : public test::PackedTest {
protected:
    /// A WAV file of 44.1 kHz in stereo with a stream in its data chunk.
    static Bytes wavAround(u16 tag, ByteSpan stream, ByteSpan more = {}) {
        ByteWriter fmt, chunks;
        fmt.u16le(tag).u16le(2).u32le(44100).u32le(16000).u16le(1).u16le(0).u16le(0);
        addChunk(chunks, "fmt ", fmt.view());
        chunks.bytes(more);
        addChunk(chunks, "data", stream);
        return riff(chunks.view());
    }
};

// Compressed: layer III that comes back as long as it was, and in its place; our loop with it.
TEST_F(WavStreams, CompressedIsLayerThree) {
    const struct {
        u32 rate, rateOut;
        u16 channels;
        f32 asked, kbps;
    } rows[] = {{44100, 44100, 2, 0, 128},
                {44100, 44100, 1, 320, 320},
                {8000, 8000, 1, 64, 64},
                {6000, 8000, 1, 24, 24},
                {96000, 48000, 2, 192, 192}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rate);
        Wave* wave = import(tones(row.channels, row.rate, 40'000), "a.wav");
        ASSERT_TRUE(wave) << failure();
        wave->params.override = true;
        wave->params.loopFlags = kLooped;
        wave->params.loopStart = 6000;
        wave->params.loopEnd = 30'000;
        const std::vector<f32> source = [&] {
            const auto blocks = openSamples(*wave, true);
            std::vector<f32> samples(std::size_t{blocks->frames()} * blocks->channels());
            EXPECT_TRUE(blocks->read(std::span(samples)));
            return samples;
        }();
        ASSERT_TRUE(Export(rowOf("Microsoft wave"), folder / "b.wav", wave,
                           kCompressed | kMonoBit | kStereoBit, row.asked, false))
            << failure();
        const std::vector<f32> ours = samplesOf("b.wav");
        const Wave* packed = store().First<Wave>();
        const f64 factor = static_cast<f64>(row.rateOut) / row.rate;
        EXPECT_EQ(packed->sampleRate, row.rateOut);
        EXPECT_EQ(packed->channels, row.channels);
        EXPECT_EQ(packed->frames, static_cast<u32>(std::lround(40'000 * factor)));
        EXPECT_NEAR(packed->compressedKbps, row.kbps, 1);
        EXPECT_EQ(packed->params.loopStart, std::round(6000 * factor));
        EXPECT_EQ(packed->params.loopEnd, 30'000 * factor);
        if (row.rate == row.rateOut) {
            EXPECT_LT(largestDifference(source, ours), 0.06F);
        }
        if (!test::has("ffmpeg")) continue;
        ASSERT_TRUE(run("ffmpeg -v error -y -i b.wav c.wav"));
        EXPECT_GE(samplesOf("c.wav").size(), ours.size());
    }
}

TEST_F(WavStreams, AacOfOtherPrograms) {
    KV_NEEDS("ffmpeg");
    ASSERT_TRUE(import(tones(2, 44100, 30'000), "a.wav"));
    ASSERT_TRUE(run("ffmpeg -v error -y -i a.wav -c:a aac -b:a 192k b.wav"));
    const std::vector<f32> source = samplesOf("a.wav"), ours = samplesOf("b.wav");
    const Wave* wave = store().First<Wave>();
    EXPECT_EQ(wave->preferredFormat, kCompressed);
    EXPECT_GE(wave->frames, 30'000U);
    EXPECT_LT(wave->frames, 30'000U + 2048) << "the last block is filled up";
    EXPECT_LT(largestDifference(std::span(source).subspan(4000, 50'000), std::span(ours).subspan(4000)),
              0.06F);
}

TEST_F(WavStreams, OggInAllItsTags) {
    ASSERT_TRUE(import(tones(2, 44100, 30'000), "a.wav"));
    exportTo("Ogg Vorbis", "a.ogg");
    const std::vector<f32> plain = samplesOf("a.ogg");
    const Bytes stream = test::readFile(folder / "a.ogg");
    for (const u16 tag : {u16{0x674F}, u16{0x6750}, u16{0x6751}, u16{0x676F}, u16{0x6770}, u16{0x6771}}) {
        const Wave* wave = import(wavAround(tag, stream), "b.wav");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->frames, 30'000U);
        EXPECT_EQ(wave->compressedKbps, 128);
        EXPECT_TRUE(samplesOf("b.wav") == plain) << tag;
    }
}

// Streams of six channels: left and right, wherever the codec has them.
TEST_F(WavStreams, OfManyChannelsLeftAndRightAreKept) {
    KV_NEEDS("ffmpeg");
    ByteWriter data, chunks;
    for (u32 i = 0; i < 20'000; ++i) {
        for (u32 c = 0; c < 6; ++c) // left and right are loud, the others silent
            data.u16le(static_cast<u16>(c < 2 ? static_cast<i16>(8000 * std::sin(i * (c + 1) * 0.05)) : 0));
    }
    addChunk(chunks, "fmt ", fmtContents(1, 6, 44100, 16));
    addChunk(chunks, "data", data.view());
    ASSERT_TRUE(import(riff(chunks.view()), "a.wav"));
    const std::vector<f32> source = samplesOf("a.wav");
    for (const char* name : {"b.ogg", "b.flac", "b.wv", "b.aac"}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(run(std::string("ffmpeg -v error -y -i a.wav -ac 6 ") + name));
        const std::vector<f32> ours = samplesOf(name);
        ASSERT_GE(ours.size(), source.size());
        EXPECT_EQ(store().First<Wave>()->channels, 2U);
        EXPECT_LT(largestDifference(std::span(source).subspan(8000, 20'000), std::span(ours).subspan(8000)),
                  0.12F);
    }
}

// Markers of an mp3, which has none of its own.
TEST_F(WavStreams, ChaptersOfTags) {
    const auto frame = [](std::string_view id, ByteSpan contents) {
        ByteWriter out;
        out.text(id).u32be(static_cast<u32>(contents.size())).u16be(0).bytes(contents);
        return out.take();
    };
    const auto chapter = [&](u32 start, u32 end, std::string_view title) {
        ByteWriter text, out;
        text.u8le(3).text(title);
        out.text("ch").u8le(0).u32be(start).u32be(end).u32be(0xFFFFFFFF).u32be(0xFFFFFFFF);
        out.bytes(frame("TIT2", text.view()));
        return frame("CHAP", out.view());
    };
    ByteWriter frames, tagged;
    frames.bytes(chapter(0, 100, "Intro"))
        .bytes(chapter(250, 300, "Caf\xC3\xA9"))
        .bytes(chapter(0x7FFFFFFF, 0, "late"));
    ASSERT_TRUE(import(tones(1, 44100, 30'000), "a.wav"));
    exportTo("MPEG layer III - CBR", "a.mp3");
    tagged.text("ID3").u8le(3).u8le(0).u8le(0).u16be(0);
    tagged.u8le(static_cast<u8>(frames.size() >> 7)).u8le(static_cast<u8>(frames.size() & 127));
    tagged.bytes(frames.view()).bytes(test::readFile(folder / "a.mp3"));
    const Wave* wave = import(tagged.view(), "b.mp3");
    ASSERT_TRUE(wave) << failure();
    EXPECT_THAT(wave->cuePoints, testing::ElementsAre(CuePoint{0, 4410, "Intro", ""},
                                                      CuePoint{11025, 2205, "Caf\xC3\xA9", ""}));
}

TEST_F(WavStreams, CueSheets) {
    constexpr std::string_view kSheet =
        "TITLE \"Disc\"\r\nFILE \"x.wav\" WAVE\r\n  TRACK 01 AUDIO\r\n    TITLE \"One\"\r\n    INDEX 01 "
        "00:00:00\r\n"
        "  TRACK 02 AUDIO\n    INDEX 00 00:01:00\n    INDEX 01 00:01:37\n    INDEX 02 00:02:00\n    TITLE "
        "Two\n"
        "  TRACK 03 AUDIO\n    INDEX 01 0:x:0\n  TRACK 04 AUDIO\nINDEX 01 61:00:74";
    const std::vector<TimedMark> marks = readCueSheet(kSheet);
    ASSERT_EQ(marks.size(), 3U);
    EXPECT_EQ(marks[0].label, "One");
    EXPECT_EQ(marks[1].label, "Two");
    EXPECT_DOUBLE_EQ(marks[1].start, 1 + 37 / 75.0);
    EXPECT_DOUBLE_EQ(marks[2].start, 3660 + 74 / 75.0);

    Wave* wave = import(tones(1, 48000, 96'000), "a.wav");
    for (const bool isSheet : {false, true}) {
        wave->cuePoints.clear();
        TextTaker texts(*wave);
        texts.take(isSheet ? "cuesheet=TRACK 01 AUDIO\nTITLE \"A b\"\nINDEX 01 00:00:00\nTRACK 02 AUDIO\n"
                             "TITLE C\nINDEX 01 00:01:15"
                           : "CHAPTER002=00:00:01.2");
        if (!isSheet) {
            for (const char* text : {"chapter001=00:00:00.000", "CHAPTER001NAME=A b", "Chapter002Name=C",
                                     "CHAPTER003=00:00:02", "CHAPTER004=1:2"})
                texts.take(text);
        }
        texts.finish();
        EXPECT_THAT(wave->cuePoints,
                    testing::ElementsAre(CuePoint{0, 0, "A b", ""}, CuePoint{57'600, 0, "C", ""}));
    }
}

TEST_F(WavStreams, TagsInChunks) {
    ByteWriter frames, tag, chunks;
    frames.text("TIT2").u32be(6).u16be(0).u8le(3).text("Caf\xC3\xA9");
    frames.text("TPE1").u32be(6).u16be(0).u8le(0).text("Maker");
    tag.text("ID3").u8le(3).u8le(0).u8le(0).u32be(static_cast<u32>(frames.size())).bytes(frames.view());
    for (const char* id : {"ID3 ", "id3 "}) {
        ByteWriter more;
        addChunk(more, id, tag.view());
        const Wave* wave = import(wavAround(7, Bytes(100), more.view()), "a.wav");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->name(), "Caf\xC3\xA9");
        EXPECT_EQ(wave->artist, "Maker");
    }
}

} // namespace
} // namespace kv
