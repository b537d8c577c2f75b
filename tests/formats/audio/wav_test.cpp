#include "formats/audio/wav_chunks.h"
#include "formats/audio/wav_fmt.h"
#include "formats/audio/wav_smpl.h"
#include "formats/audio/wav_writer.h"
#include "formats/format_test.h"

namespace kv {
namespace {

using test::addChunk;
using test::fmtContents;
using test::riff;

class Wav : public test::FormatTest {
protected:
    /// A file of the given fmt contents and data.
    Wave* importFormat(ByteSpan fmt, ByteSpan data, ByteSpan between = {}) {
        ByteWriter chunks;
        addChunk(chunks, "fmt ", fmt);
        chunks.bytes(between);
        addChunk(chunks, "data", data);
        return import(riff(chunks.view()));
    }
    Bytes smplChunk(const SmplHeader& header, const SmplLoop* loop, ByteSpan more = {}) {
        ByteWriter contents, chunk;
        writeSmplHeader(contents, header);
        if (loop) writeSmplLoop(contents, *loop);
        contents.bytes(more);
        addChunk(chunk, "smpl", contents.view());
        return chunk.take();
    }
    std::vector<i16> samples() {
        Wave* wave = store().First<Wave>();
        EXPECT_TRUE(wave->LoadData()) << failure();
        const auto span = GetInt16Data(*wave);
        return {span.begin(), span.end()};
    }
    const std::vector<i16> ramp = std::vector<i16>(2000, 5);
};

TEST_F(Wav, ReadsEachLinearForm) {
    struct Case {
        u16 tag, bits;
        u32 dataFormat, preferred;
        std::vector<u8> bytes; ///< one mono sample
        i16 sample;            ///< as 16 bits
    };
    const Case cases[] = {
        {1, 8, kPcm8 | kUnsigned, kPcm8, {0x80}, 128},
        {1, 16, kPcm16, kPcm16, {0x34, 0x12}, 0x1234},
        {1, 12, kPcm16, kPcm16, {0x30, 0x12}, 0x1230},
        {1, 24, kPcm24, kPcm24, {0x00, 0x34, 0x12}, 0x1234},
        {1, 20, kPcm24, kPcm24, {0x00, 0x34, 0x12}, 0x1234},
        {1, 32, kPcm32, kPcm32, {0, 0, 0x34, 0x12}, 0x1234},
        {1, 48, 0, kPcm32, {9, 9, 0, 0, 0x34, 0x12}, 0x1234},
        {3, 32, kFloat32, kFloat32, {0, 0, 0, 0x3F}, 16384},
        {3, 64, kFloat64, kFloat32, {0, 0, 0, 0, 0, 0, 0xE0, 0x3F}, 16384},
        {6, 8, kALaw, kALaw, {0xD5}, 8},
        {7, 8, kMuLaw, kMuLaw, {0xFF}, 0},
        {0x0172, 8, kALaw, kALaw, {0x55}, -8},
        {0x0171, 8, kMuLaw, kMuLaw, {0x80}, 32124},
    };
    for (const Case& c : cases) {
        Bytes data;
        for (int i = 0; i < 4; ++i) {
            for (const u8 b : c.bytes) data.push_back(std::byte{b});
        }
        Wave* wave = importFormat(fmtContents(c.tag, 1, 8000, c.bits), data);
        ASSERT_TRUE(wave) << failure() << " tag " << c.tag << " bits " << c.bits;
        EXPECT_EQ(wave->frames, 4U) << c.bits;
        EXPECT_EQ(wave->dataFormat, c.dataFormat) << c.bits;
        EXPECT_EQ(wave->preferredFormat, c.preferred) << c.bits;
        EXPECT_FALSE(wave->resident());
        EXPECT_EQ(samples(), std::vector<i16>(4, c.sample)) << "tag " << c.tag << " bits " << c.bits;
    }
}

TEST_F(Wav, KeepsTheFirstTwoOfManyChannels) {
    std::vector<i16> frames;
    for (i16 f = 0; f < 5000; ++f) {
        for (i16 c = 0; c < 6; ++c) frames.push_back(static_cast<i16>(f * 6 + c));
    }
    Wave* wave = importFormat(fmtContents(1, 6, 48000, 16), test::int16Bytes(frames));
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->channels, 2U);
    EXPECT_EQ(wave->frames, 5000U);
    const std::vector<i16> kept = samples();
    for (std::size_t i = 0; i < 5000; ++i) {
        ASSERT_EQ(kept[2 * i], static_cast<i16>(i * 6));
        ASSERT_EQ(kept[2 * i + 1], static_cast<i16>(i * 6 + 1));
    }
    EXPECT_EQ(space.diagnostics.entries().at(0).severity, Severity::Loss);
}

Bytes extensible(u16 channels, u16 bits, u16 valid, u32 subTag, bool goodTail = true) {
    ByteWriter out;
    out.bytes(fmtContents(kWavExtensible, channels, 44100, bits))
        .u16le(22)
        .u16le(valid)
        .u32le(3)
        .u32le(subTag);
    for (const int b : {0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, goodTail ? 0x71 : 0x72}) {
        out.u8le(static_cast<u8>(b));
    }
    return out.take();
}

TEST_F(Wav, ReadsExtensible) {
    Wave* wave = importFormat(extensible(2, 24, 20, 1), Bytes(60));
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->bits, 20U);
    EXPECT_EQ(wave->frames, 10U);
    EXPECT_EQ(wave->preferredFormat, kPcm24);
    EXPECT_TRUE(importFormat(extensible(1, 32, 32, 3), Bytes(40)));
    EXPECT_EQ(store().First<Wave>()->preferredFormat, kFloat32);
    for (const Bytes& bad : {extensible(1, 16, 16, 0x10001), extensible(1, 16, 16, 1, false)}) {
        EXPECT_FALSE(importFormat(bad, Bytes(40)));
        EXPECT_EQ(failure(), "wav_Imp: Unsupported 'Extensible' subformat GUID");
    }
}

TEST_F(Wav, RefusalsHaveTheirMessages) {
    const std::pair<Bytes, const char*> formats[] = {
        {fmtContents(0x1234, 1, 8000, 16), "wav_Imp: Unsupported compression type"},
        {fmtContents(3, 1, 8000, 16), "wav_Imp: Unsupported bits/sample for IEEE floating point samples"},
        {fmtContents(1, 0, 8000, 16), "wav_Imp: No channels"},
        {fmtContents(1, 65535, 8000, 65535), "wav_Imp: Unsupported compression type"},
    };
    for (const auto& [fmt, message] : formats) {
        EXPECT_FALSE(importFormat(fmt, Bytes(64)));
        EXPECT_EQ(failure(), message);
        EXPECT_EQ(store().count(kWaveClass), 0U);
        EXPECT_EQ(store().First<Collection>()->name(), "Empty collection");
    }
    ByteWriter noData;
    addChunk(noData, "fmt ", fmtContents(1, 1, 8000, 16));
    EXPECT_FALSE(import(riff(noData.view())));
    EXPECT_EQ(failure(), "wav_Imp: No wave data found!");
    EXPECT_FALSE(Import(folder / "test.wav", true, formatTable().RowByImportDescription("Wave-64")));
    EXPECT_EQ(failure(), "w64_Imp: Not a Sonic Foundry/Sony Wave64 file");
    test::writeFile(folder / "x.avi", riff(noData.view(), "RIFF", "AVI "));
    EXPECT_FALSE(Import(folder / "x.avi", true, formatTable().RowByImportDescription("Microsoft wave")));
    EXPECT_EQ(failure(), "wav_Imp: Not a RIFF WAVE file");
}

TEST_F(Wav, FactCountsWithinTheData) {
    const auto withFact = [this](u32 frames) {
        ByteWriter fact;
        addChunk(fact, "fact", ByteWriter().u32le(frames).take());
        return importFormat(fmtContents(7, 1, 8000, 8), Bytes(100), fact.view())->frames;
    };
    EXPECT_EQ(withFact(0), 100U);
    EXPECT_EQ(withFact(1), 100U);
    EXPECT_EQ(withFact(40), 40U);
    EXPECT_EQ(withFact(0xFFFFFFFF), 100U);
}

TEST_F(Wav, ReadsTheLoopOfASamplerChunk) {
    space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false;
    SmplHeader header;
    header.unityNote = 64;
    header.pitchFraction = 42949672U * 30;
    header.loopCount = 1;
    SmplLoop loop{0, 0, 100, 999, 0x80000000, 0};
    struct Case {
        u32 type;
        int flags;
    };
    for (const Case c : {Case{0, 1}, Case{1, 3}, Case{2, 5}, Case{255, 0}, Case{77, 1}}) {
        loop.type = c.type;
        const Wave* wave = import(wavWith(ramp, smplChunk(header, &loop)));
        ASSERT_TRUE(wave);
        EXPECT_EQ(wave->params.loopFlags, c.flags) << c.type;
        EXPECT_EQ(wave->params.loopStart, 100);
        EXPECT_EQ(wave->params.loopEnd, 1000.5);
        EXPECT_EQ(wave->params.rootKey, 64);
        EXPECT_EQ(wave->params.fineTune, 30);
    }
    // Behind the loop, samplers of one family keep that the end is one more.
    header.samplerDataSize = 28;
    Bytes cwdt(28);
    std::copy_n(bytesOf("CWDT").begin(), 4, cwdt.begin());
    loop.type = loop.fraction = 0;
    EXPECT_EQ(import(wavWith(ramp, smplChunk(header, &loop, cwdt)))->params.loopEnd, 999);
    // A note that is stored the wrong way round.
    header.unityNote = 60U << 24;
    Wave* wave = import(wavWith(ramp, smplChunk(header, nullptr)));
    EXPECT_EQ(wave->params.rootKey, 60);
}

TEST_F(Wav, ReadsTheOtherTuningChunks) {
    ByteWriter inst;
    addChunk(inst, "inst",
             ByteWriter().u8le(70).u8le(static_cast<u8>(-20)).u8le(static_cast<u8>(-6)).u32le(0).take());
    const Wave* wave = import(wavWith(ramp, inst.view()));
    EXPECT_EQ(wave->params.rootKey, 70);
    EXPECT_EQ(wave->params.fineTune, -20);
    EXPECT_EQ(wave->params.gainDb, -6);

    SmplHeader header;
    header.manufacturer = 0x01000000 | 71;
    header.product = 94;
    header.samplerDataSize = 18;
    Bytes vendor(18);
    vendor[2] = std::byte{65};
    vendor[3] = std::byte{5};
    vendor[6] = std::byte{3};
    wave = import(wavWith(ramp, smplChunk(header, nullptr, vendor)));
    EXPECT_EQ(wave->params.rootKey, 60);
    EXPECT_EQ(wave->params.fineTune, 5);
    EXPECT_EQ(wave->params.loopFlags, kLooped | kLoopUntilRelease);

    ByteWriter mesa;
    Bytes contents(142);
    contents[2] = std::byte{72};
    const u8 name[] = {21, 19, 13, 21, 10, 1, 37, 10, 10, 10, 10, 10}; // "KICK 1_"
    std::transform(std::begin(name), std::end(name), contents.begin() + 3, [](u8 c) { return std::byte{c}; });
    contents[16] = std::byte{1};
    contents[19] = std::byte{1};
    contents[38] = std::byte{100};
    contents[43] = std::byte{0x80};
    contents[44] = std::byte{200};
    contents[139] = std::byte{0x7D}; // 32000 Hz
    addChunk(mesa, "mesa", contents);
    wave = import(wavWith(ramp, mesa.view()));
    EXPECT_EQ(wave->name(), "KICK 1_");
    EXPECT_EQ(wave->sampleRate, 32000U);
    EXPECT_EQ(wave->params.rootKey, 72);
    EXPECT_EQ(wave->params.loopStart, 100);
    EXPECT_EQ(wave->params.loopEnd, 300.5);
}

class WavCues : public Wav {
protected:
    void cue(u32 name, u32 offset) {
        points_.u32le(name).u32le(offset).text("data").u32le(0).u32le(0).u32le(offset);
    }
    void label(u32 name, std::string_view text, std::string_view id = "labl") {
        addChunk(texts_, id, ByteWriter().u32le(name).text(text).u8le(0).take());
    }
    void range(u32 name, u32 length, std::string_view purpose) {
        addChunk(texts_, "ltxt", ByteWriter().u32le(name).u32le(length).text(purpose).fill(8).take());
    }
    Bytes chunks() {
        ByteWriter out, cues, list;
        cues.u32le(static_cast<u32>(points_.size() / 24)).bytes(points_.view());
        addChunk(out, "cue ", cues.view());
        list.text("adtl").bytes(texts_.view());
        addChunk(out, "LIST", list.view());
        return out.take();
    }

private:
    ByteWriter points_, texts_;
};

TEST_F(WavCues, MakeALoop) {
    cue(0, 100);
    cue(1, 499);
    label(0, "loop START");
    label(1, "Loop End");
    const Wave* wave = import(wavWith(ramp, chunks()));
    EXPECT_TRUE(wave->params.looped());
    EXPECT_EQ(wave->params.loopStart, 100);
    EXPECT_EQ(wave->params.loopEnd, 500);
    EXPECT_TRUE(wave->cuePoints.empty());
}

TEST_F(WavCues, AMarkMakesALoop) {
    cue(7, 100);
    range(7, 300, "mark");
    const Wave* wave = import(wavWith(ramp, chunks()));
    EXPECT_TRUE(wave->params.looped());
    EXPECT_EQ(wave->params.loopEnd, 400);
}

TEST_F(WavCues, AStartAloneDoesNot) {
    cue(0, 100);
    label(0, "Loop Start");
    label(99, "Loop End"); // of no cue
    const Wave* wave = import(wavWith(ramp, chunks()));
    EXPECT_FALSE(wave->params.looped());
    EXPECT_EQ(wave->params.loopStart, 100);
}

TEST_F(WavCues, SurviveAConversionBesideTheLoop) {
    cue(1, 10);
    cue(2, 20);
    cue(3, 30);
    label(1, "Intro \xC3\xBC");
    range(2, 15, "rgn ");
    label(2, "Verse");
    label(2, "second take", "note");
    SmplHeader header;
    header.loopCount = 1;
    const SmplLoop loop{0, 0, 100, 999, 0, 0};
    ByteWriter more;
    more.bytes(chunks()).bytes(smplChunk(header, &loop));
    ASSERT_TRUE(import(wavWith(ramp, more.view())));
    const std::vector<CuePoint> cues = store().First<Wave>()->cuePoints;
    ASSERT_EQ(cues.size(), 3U);
    EXPECT_EQ(cues[0], (CuePoint{10, 0, "Intro \xC3\xBC", ""}));
    EXPECT_EQ(cues[1], (CuePoint{20, 15, "Verse", "second take"}));
    ASSERT_TRUE(Import(exportAs("out.wav", kPcm24 | kMonoBit), false));
    EXPECT_EQ(store().First<Wave>()->cuePoints, cues);
    EXPECT_EQ(store().First<Wave>()->params.loopEnd, 1000);
}

TEST_F(Wav, ReadsTextsInAnyEncoding) {
    ByteWriter info;
    info.text("INFO");
    const std::pair<std::string_view, std::string_view> items[] = {
        {"INAM", "Glocke \xE4"},
        {"IART", "J\xC3\xBCrgen"},
        {"ICMT", "take 2"},
        {"ISRC", "tape"},
        {"ICOP", ""},
    };
    for (const auto& [id, text] : items) addChunk(info, id, bytesOf(std::string(text) + '\0'));
    ByteWriter list;
    addChunk(list, "LIST", info.view());
    const Wave* wave = import(wavWith(ramp, list.view()));
    EXPECT_EQ(wave->name(), "Glocke \xC3\xA4");
    EXPECT_EQ(wave->artist, "J\xC3\xBCrgen");
    EXPECT_EQ(wave->comments, "take 2");
    EXPECT_EQ(wave->album, "tape");
}

TEST_F(Wav, ReadsBigEndianAnd64BitForms) {
    ByteWriter big;
    big.text("RIFX").u32be(4 + 24 + 8 + 4).text("WAVEfmt ").u32be(16);
    big.u16be(1)
        .u16be(1)
        .u32be(8000)
        .u32be(16000)
        .u16be(2)
        .u16be(16)
        .text("data")
        .u32be(4)
        .u16be(0x1234)
        .u16be(0xFFFF);
    ASSERT_TRUE(import(big.view())) << failure();
    EXPECT_EQ(samples(), (std::vector<i16>{0x1234, -1}));

    ByteWriter wide;
    wide.text("RF64").u32le(0xFFFFFFFF).text("WAVEds64").u32le(28).u64le(0).u64le(4).u64le(2).u32le(0);
    addChunk(wide, "fmt ", fmtContents(1, 1, 8000, 16));
    wide.text("data").u32le(0xFFFFFFFF).u16le(7).u16le(8);
    addChunk(wide, "smpl", Bytes(36));
    ASSERT_TRUE(import(wide.view())) << failure();
    EXPECT_EQ(samples(), (std::vector<i16>{7, 8}));
    EXPECT_TRUE(store().First<Wave>()->params.override); // what stands behind the data was found
}

TEST_F(Wav, SizesThatLieDoNotHideTheData) {
    const Bytes good = wavWith(ramp);
    for (const u32 formSize : {0U, 1U, 20U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        for (const u32 dataSize : {4000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
            ByteWriter bad;
            bad.bytes(good);
            bad.patchU32le(4, formSize);
            bad.patchU32le(40, dataSize);
            Wave* wave = import(bad.view());
            ASSERT_TRUE(wave) << formSize << " " << dataSize;
            EXPECT_EQ(wave->frames, 2000U) << formSize << " " << dataSize;
            EXPECT_TRUE(wave->LoadData());
        }
    }
}

TEST_F(Wav, SecondWritingIsEqualToTheByte) {
    SmplHeader header;
    header.unityNote = 61;
    header.pitchFraction = 42949672U * 99;
    header.loopCount = 1;
    const SmplLoop loop{0, 1, 100, 1499, 0, 0};
    ByteWriter more, info;
    info.text("INFO");
    addChunk(info, "IART", bytesOf("Someone"));
    addChunk(info, "ICMT", bytesOf("even"));
    addChunk(more, "LIST", info.view());
    more.bytes(smplChunk(header, &loop));
    for (const u32 code : {kPcm8, kPcm16, kPcm24, kPcm32, kFloat32, kMuLaw, kALaw}) {
        ASSERT_TRUE(import(wavWith(ramp, more.view())));
        const Bytes first = test::readFile(exportAs("a.wav", code | kMonoBit));
        ASSERT_TRUE(Import(folder / "a.wav", false)) << failure();
        EXPECT_EQ(store().First<Wave>()->params.fineTune, -1);
        EXPECT_EQ(store().First<Wave>()->params.rootKey, 60);
        EXPECT_EQ(test::readFile(exportAs("b.wav")), first) << std::hex << code;
        space.wavFact = 0;
    }
}

TEST_F(Wav, OddDataIsPaddedWithSilence) {
    ASSERT_TRUE(import(wavWith(std::vector<i16>{0, 0, 0})));
    const Bytes file = test::readFile(exportAs("a.wav", kPcm8 | kMonoBit));
    EXPECT_EQ(textOf(file).substr(36, 8), std::string_view("data\3\0\0\0", 8));
    EXPECT_EQ(textOf(file).substr(44, 4), "\x80\x80\x80\x80");
    EXPECT_EQ(textOf(file).substr(48, 4), "LIST");
}

TEST_F(Wav, TheLoopIsWrittenAsCuesToo) {
    Wave* wave = import(wavWith(ramp));
    wave->params.loopFlags = kLooped;
    wave->params.loopStart = 100.4;
    wave->params.loopEnd = 1500;
    const Bytes file = test::readFile(exportAs("a.wav"));
    const std::size_t at = textOf(file).find("cue ");
    ASSERT_NE(at, std::string_view::npos);
    EXPECT_EQ(textOf(file).substr(at + 194, 4), "smpl");
    ByteCursor in(ByteSpan(file).subspan(at));
    in.skip(4);
    EXPECT_EQ(in.u32le(), 76U);
    EXPECT_EQ(in.u32le(), 3U);
    const u32 offsets[] = {100, 100, 1499};
    for (u32 i = 0; i < 3; ++i) {
        EXPECT_EQ(in.u32le(), i);
        EXPECT_EQ(in.u32le(), i);
        in.skip(12);
        EXPECT_EQ(in.u32le(), offsets[i]);
    }
}

TEST_F(Wav, SubTypesOfTheWriter) {
    Wave* wave = import(wavWith(ramp));
    wave->params.loopFlags = kLooped;
    wave->params.loopEnd = 1000;
    Bytes file;
    ASSERT_TRUE(wav_Build(*wave, file, kFloat32 | kMonoBit, kWavSubExtensible, 0));
    EXPECT_EQ(textOf(file).substr(16, 6), std::string_view("\x28\0\0\0\xFE\xFF", 6));
    EXPECT_FALSE(wav_Build(*wave, file, kMuLaw | kMonoBit, kWavSubExtensible, 0));
    EXPECT_EQ(failure(), "wav_Exp: Unsupported subformat");
    ASSERT_TRUE(wav_Build(*wave, file, kPcm16 | kMonoBit, kWavSubBare, 0));
    EXPECT_LT(textOf(file).find("smpl"), textOf(file).find("data"));
    EXPECT_EQ(textOf(file).find("LIST"), std::string_view::npos);
    ASSERT_TRUE(wav_Build(*wave, file, kPcm16 | kMonoBit, kWavSubCwdt, 0));
    EXPECT_EQ(textOf(file).find("ISFT"), std::string_view::npos);
    EXPECT_NE(textOf(file).find("CWDT"), std::string_view::npos);
    ASSERT_TRUE(import(file));
    EXPECT_EQ(store().First<Wave>()->params.loopEnd, 1000); // one more in the file, one less on reading
}

TEST_F(Wav, FloatTakesOverTheLastFactChunk) {
    Wave* wave = import(wavWith(ramp));
    const auto factOf = [&](u32 code) {
        Bytes file;
        EXPECT_TRUE(wav_Build(*wave, file, code | kMonoBit, 0, 0));
        ByteCursor in(ByteSpan(file).subspan(textOf(file).find("fact") + 8));
        return in.u32le();
    };
    EXPECT_EQ(factOf(kFloat32), 0U);
    EXPECT_EQ(factOf(kMuLaw), 2000U);
    EXPECT_EQ(factOf(kFloat32), 2000U);
}

} // namespace
} // namespace kv
