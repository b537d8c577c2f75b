// Headerless coded files: what their rows read and write.
#include "formats/audio/raw_coded.h"

#include "formats/audio/raw.h"
#include "formats/format_test.h"
#include "places.h"

namespace kv {
namespace {

class RawCoded : public test::FormatTest {
protected:
    static Bytes dataFile(const std::string& name) {
        return test::readFile(std::filesystem::path(KV_SOURCE_DIR "/tests/data/coded") / name);
    }
    Bytes samplesOf(Wave& wave) {
        EXPECT_TRUE(wave.LoadData()) << failure();
        return test::int16Bytes(wave.samples16.span());
    }
    /// The test signal at a rate, two channels of it if wanted.
    Wave* signal(u32 rate, bool stereo = false) {
        Wave* wave = import(dataFile("in_8k.s16"), "in.sw");
        wave->sampleRate = rate;
        if (!stereo) return wave;
        EXPECT_TRUE(wave->LoadData());
        SampleBuffer<i16> both;
        EXPECT_TRUE(both.allocate(3200));
        for (std::size_t i = 0; i < 3200; ++i) both.span()[i] = wave->samples16.span()[i / 2];
        wave->samples16 = std::move(both);
        wave->channels = 2;
        return wave;
    }
    Bytes write(std::string_view description, Wave* wave, u32 wanted = kAnyFormat, f32 kbps = 0) {
        std::filesystem::remove(folder / "out");
        EXPECT_TRUE(Export(rowOf(description), folder / "out", wave, wanted, kbps, false))
            << description << failure();
        return test::readFile(folder / "out");
    }
};

TEST_F(RawCoded, RowsRead) {
    struct Case {
        const char* name;  ///< picks the row by its extension
        const char* coded; ///< contents
        const char* decoded;
        u32 rate;
        int answer; ///< to the question for the bits; -1: none is asked
    };
    const Case cases[] = {
        {"a.g721", "g726_4.lsb", "g726_4", 8000, -1},
        {"a.g721-4", "g726_4.lsb", "g726_4", 8000, -1},
        {"a.g723", "g726_3.lsb", "g726_3", 8000, 0},
        {"a.g723", "g726_5.lsb", "g726_5", 8000, 1},
        {"a.g723-5", "g726_5.lsb", "g726_5", 8000, -1},
        {"a.g726", "g726_2.lsb", "g726_2", 8000, 0},
        {"a.g726", "g726_5.lsb", "g726_5", 8000, 3},
        {"a.g726-2", "g726_2.lsb", "g726_2", 8000, -1},
        {"a.g722", "g722_8.bin", "g722_8", 16000, 2},
        {"a.g722", "g722_6.lsb", "g722_6", 16000, 0},
        {"a.g722-7", "g722_7.lsb", "g722_7", 16000, -1},
        {"a.vox", "vox.vox", "vox", 8000, -1},
        {"a.vox-6k", "vox.vox", "vox", 6000, -1},
        {"a.rockwell", "rockwell_3.bin", "rockwell_3", 7200, 1},
        {"a.rockwell-4", "rockwell_4.bin", "rockwell_4", 7200, -1},
        {"a.gsm", "gsm_plain.gsm", "gsm_plain", 8000, -1},
    };
    for (const Case& c : cases) {
        ui.questions.clear();
        if (c.answer >= 0) ui.answers = {c.answer};
        Wave* wave = import(dataFile(c.coded), c.name);
        ASSERT_TRUE(wave) << c.name << failure();
        EXPECT_EQ(ui.questions.size(), c.answer >= 0 ? 1U : 0U) << c.name;
        EXPECT_EQ(wave->sampleRate, c.rate) << c.name;
        EXPECT_FALSE(wave->resident());
        EXPECT_TRUE(samplesOf(*wave) == dataFile(std::string(c.decoded) + ".s16")) << c.name;
    }
}

TEST_F(RawCoded, BitsCanBeGivenAhead) {
    space.rawSource.codeBits = 3;
    Wave* wave = import(dataFile("g726_3.lsb"), "a.g726");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->bits, 3U);
    EXPECT_TRUE(ui.questions.empty());
    ASSERT_TRUE(import(dataFile("g722_8.bin"), "a.g722")); // has no such width: asks
    EXPECT_EQ(ui.questions.size(), 1U);
}

TEST_F(RawCoded, AnotherBitOrderCanBeTaken) {
    Wave* wave = import(dataFile("g726_5.msb"), "a.g726-5");
    ASSERT_TRUE(wave);
    ASSERT_TRUE(reinterpretSource(*wave, {kByteswap, 11025}, static_cast<u64>(-1)));
    EXPECT_EQ(wave->sampleRate, 11025U);
    EXPECT_TRUE(samplesOf(*wave) == dataFile("g726_5.s16"));
}

TEST_F(RawCoded, RowsWrite) {
    struct Case {
        std::string_view row;
        const char* expected;
        u32 rate;
        u32 code = kCodeMask;
        f32 kbps = 0;
    };
    const Case cases[] = {
        {"G.726 3-bit ADPCM - Big Endian", "g726_3.msb", 44100},
        {"G.726 2-bit ADPCM - Little Endian", "g726_2.lsb", 8000},
        {"G.726 5-bit ADPCM - Big Endian", "g726_5.msb", 8000},
        {"G.721 ADPCM - Little Endian", "g726_4.lsb", 8000},
        {"G.723 3-bit ADPCM - Little Endian", "g726_3.lsb", 8000},
        {"G.726 48 kbit/s ADPCM - Little Endian", "g722_6.lsb", 16000},
        {"G.726 64 kbit/ ADPCM", "g722_8.bin", 16000},
        {"Dialogic 4-bit ADPCM", "vox_enc.vox", 8000, kAdpcm4},
        {"Dialogic 4-bit ADPCM (6000 Hz)", "vox_enc.vox", 6000, kAdpcm4},
        {"Dialogic 4-bit ADPCM", "vox_enc.vox", 11025, kAdpcm4, 11},
        {"Dialogic 4-bit ADPCM", "in_8k.s16", 8000, kPcm16},
        {"Rockwell ADPCM", "rockwell_2.bin", 7200, kAdpcm2},
        {"Rockwell 4-bit ADPCM", "rockwell_4.bin", 7200},
        {"Raw GSM 06.10 'byte aligned'", "gsm_plain.gsm", 8000},
    };
    for (const Case& c : cases) {
        for (const bool stereo : {false, true}) {
            const Bytes written = write(c.row, signal(c.rate, stereo), c.code | kMonoBit, c.kbps);
            EXPECT_TRUE(written == dataFile(c.expected)) << c.row << (stereo ? " from stereo" : "");
        }
    }
    // A row of several widths takes the one of the format word.
    MemorySink sink;
    FileContext file;
    file.sink = &sink;
    EXPECT_TRUE(exportCoded(*signal(8000), file, RawCoding::G726, kAdpcm3 | kMonoBit, kCodedBigEndian, 0));
    EXPECT_TRUE(sink.take() == dataFile("g726_3.msb"));
    // Rows that no other program's file is at hand for: what they write they read.
    for (const auto& [row, name] :
         {std::pair("Raw GSM 06.10", "b.gsm"), std::pair("USR GSM without header", "b.gsm"),
          std::pair("USR GSM without header (alternative)", "b.gsm")}) {
        Wave* wave = import(write(row, signal(8000)), name);
        ASSERT_TRUE(wave) << row;
        EXPECT_TRUE(samplesOf(*wave) == dataFile("gsm_plain.s16")) << row;
    }
    EXPECT_EQ(write("Raw Yamaha 4-bit ADPCM", signal(22050)).size(), 800U);
}

TEST_F(RawCoded, WritersResampleToTheirRate) {
    struct Case {
        std::string_view row;
        u32 rate, code;
        f32 kbps;
        std::size_t size; ///< of the 1600 frames of the signal
    };
    const Case cases[] = {
        {"Rockwell ADPCM", 14400, kAdpcm2, 0, 200},
        {"Dialogic 4-bit ADPCM", 16000, kAdpcm4, 0, 400},
        {"Dialogic 4-bit ADPCM (6000 Hz)", 48000, kAdpcm4, 0, 100},
        {"Dialogic 4-bit ADPCM", 22050, kPcm16, 11, 1600},
        {"Dialogic 4-bit ADPCM", 1, kAdpcm4, 6, 4800000},
    };
    for (const Case& c : cases) {
        for (const bool stereo : {false, true})
            EXPECT_EQ(write(c.row, signal(c.rate, stereo), c.code | kMonoBit, c.kbps).size(), c.size)
                << c.row;
    }
}

TEST_F(RawCoded, WritersSayWhatTheyCanNot) {
    FileContext file;
    EXPECT_FALSE(exportCoded(*signal(7200), file, RawCoding::Rockwell, kAdpcm5, 0, 0));
    EXPECT_EQ(failure(), "rockwell_Exp: Invalid data format");
    EXPECT_FALSE(exportCoded(*store().First<Collection>(), file, RawCoding::Dialogic, 0, 0, 0));
    EXPECT_EQ(failure(), "vox_Exp: The file format can not save this item");
}

TEST_F(RawCoded, BitRatesAreOfferedByWidth) {
    std::string label;
    EXPECT_EQ(g722_Options(0, 0x100, &label), 64);
    EXPECT_EQ(label, "64 kbit/s");
    EXPECT_EQ(g722_Options(2, 0, nullptr), 48);
    EXPECT_EQ(g722_Options(3, 0, nullptr), 0);
    EXPECT_EQ(g722_Options(0, 7, nullptr), 56);
    EXPECT_EQ(g722_Options(1, 7, nullptr), 0);
}

} // namespace
} // namespace kv
