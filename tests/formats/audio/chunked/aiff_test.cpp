// AIFF files as no program here writes them.
#include "formats/audio/chunked/chunked_test.h"

namespace kv {
namespace {

using test::addBigChunk;
using test::aiff;
using test::comm;
using test::firstSamples;
using test::ssnd;
using namespace std::string_view_literals;

class Aiff : public test::FormatTest {
protected:
    Aiff() { space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false; }
    const std::vector<i16> samples{100, -200, 300, -400};

    /// A file of 16-bit mono samples and more chunks.
    Bytes with(ByteSpan more) {
        ByteWriter chunks;
        addBigChunk(chunks, "COMM", comm(1, 4, 16));
        addBigChunk(chunks, "SSND", ssnd(test::bigEndian16(samples)));
        chunks.bytes(more);
        return aiff(chunks.view());
    }
};

TEST_F(Aiff, IsFoundUnderEveryName) {
    for (const char* name : {"a.aif", "a.aiff", "a.aifc", "a.afc", "a.bin", "a.wav"}) {
        for (const auto* compression : {"", "sowt"}) {
            const bool plain = std::string_view(compression).empty();
            ByteWriter chunks;
            addBigChunk(chunks, "COMM", comm(1, 4, 16, 44100, compression));
            addBigChunk(chunks, "SSND", ssnd(plain ? test::bigEndian16(samples) : test::int16Bytes(samples)));
            Wave* wave = import(aiff(chunks.view(), plain ? "AIFF" : "AIFC"), name);
            ASSERT_TRUE(wave) << name << compression << failure();
            EXPECT_EQ(firstSamples(*wave), samples) << name << compression;
        }
    }
}

TEST_F(Aiff, StoresSamplesInManyWays) {
    struct Case {
        std::string_view compression;
        u16 bits;
        std::string_view stored; ///< two samples
        std::vector<i16> wanted;
        u32 waveBits, preferred;
    };
    const Case cases[] = {
        {"NONE", 12, "\x12\x30\xFE\xD0"sv, {0x1230, -0x130}, 12, kPcm16},
        {"NONE", 20, "\x12\x34\x50\xFE\xDC\xB0"sv, {0x1234, -0x123}, 20, kPcm24},
        {"NONE", 5, "\x18\xF0"sv, {0x18 * 257 + 128, -16 * 257 + 128}, 5, kPcm8},
        {"twos", 16, "\x12\x34\xFE\xDC"sv, {0x1234, -0x124}, 16, kPcm16},
        {"raw ", 16, "\x92\x34\x7E\xDC"sv, {0x1234, -0x124}, 16, kPcm16},
        {"in24", 16, "\x12\x34\0\xFE\xDC\0"sv, {0x1234, -0x124}, 24, kPcm24},
        {"42ni", 24, "\0\x34\x12\0\xDC\xFE"sv, {0x1234, -0x124}, 24, kPcm24},
        {"23ni", 32, "\0\0\x34\x12\0\0\xDC\xFE"sv, {0x1234, -0x124}, 32, kPcm32},
        {"FL32", 32, "\x3F\0\0\0\xBE\x80\0\0"sv, {0x4000, -0x2000}, 32, kFloat32},
        {"FL64", 64, "\x3F\xE0\0\0\0\0\0\0\xBF\xD0\0\0\0\0\0\0"sv, {0x4000, -0x2000}, 64, kFloat32},
        {"ALAW", 16, "\xD5\x55"sv, {8, -8}, 8, kALaw},
    };
    for (const Case& c : cases) {
        ByteWriter chunks;
        addBigChunk(chunks, "SSND", ssnd(bytesOf(c.stored), 4)); // ahead of COMM, and with an offset
        addBigChunk(chunks, "COMM", comm(1, 2, c.bits, 44100, c.compression));
        Wave* wave = import(aiff(chunks.view(), "AIFC"), "a.aif");
        ASSERT_TRUE(wave) << c.compression << failure();
        EXPECT_EQ(firstSamples(*wave), c.wanted) << c.compression;
        EXPECT_EQ(wave->bits, c.waveBits) << c.compression;
        EXPECT_EQ(wave->preferredFormat, c.preferred) << c.compression;
    }
}

TEST_F(Aiff, LengthsThatAreWrongOrUnknown) {
    struct Case {
        u32 form, sound, frames;
        u32 wanted;
    };
    const Case cases[] = {
        {0, 0, 0, 4},                   // a stream
        {0xFFFFFFFF, 0xFFFFFFFF, 0, 4}, // likewise
        {0x7F000050, 0x7F000008, 0x1FC00000, 4},
        {46, 8, 4, 4},
        {20, 16, 4, 4}, // a form smaller than what is in it
        {46, 16, 3, 3},
        {46, 16, 100, 4},
        {46, 12, 4, 2},
    };
    for (const Case& c : cases) {
        ByteWriter file;
        file.text("FORM").u32be(c.form).text("AIFF");
        addBigChunk(file, "COMM", comm(1, c.frames, 16));
        file.text("SSND").u32be(c.sound).bytes(ssnd(test::bigEndian16(samples)));
        Wave* wave = import(file.view(), "a.aif");
        ASSERT_TRUE(wave) << std::hex << c.form << failure();
        EXPECT_EQ(wave->frames, c.wanted) << std::hex << c.form << " " << c.sound;
    }
    // A pad byte that is missing, and rubbish behind the form.
    ByteWriter chunks, rest;
    addBigChunk(rest, "COMM", comm(1, 4, 16));
    addBigChunk(rest, "SSND", ssnd(test::bigEndian16(samples)));
    chunks.text("ANNO").u32be(3).text("odd").bytes(rest.view());
    Bytes file = aiff(chunks.view());
    for (const char c : "NAME\0\0\0\4xxxx"sv) file.push_back(static_cast<std::byte>(c));
    Wave* wave = import(file, "a.aif");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->comments, "odd");
    EXPECT_EQ(wave->name(), "a");
}

TEST_F(Aiff, RatesAreExtendedNumbers) {
    struct Case {
        std::string_view bytes;
        u32 wanted; ///< 0: refused
    };
    const Case cases[] = {
        {"\x40\x0E\xAC\x44\0\0\0\0\0\0"sv, 44100},
        {"\x40\x0D\xAD\xDD\x17\x46\0\0\0\0"sv, 22255}, // 22254.545 of the first Macs
        {"\x40\x1E\xFF\xFF\xFF\xFF\0\0\0\0"sv, 0xFFFFFFFF},
        {"\x3F\xFF\x80\0\0\0\0\0\0\0"sv, 1},
        {"\0\0\0\0\0\0\0\0\0\0"sv, 0},
        {"\xC0\x0E\xAC\x44\0\0\0\0\0\0"sv, 0}, // negative
        {"\x7F\xFF\x80\0\0\0\0\0\0\0"sv, 0},   // infinity
        {"\x40\x40\x80\0\0\0\0\0\0\0"sv, 0},
    };
    for (const Case& c : cases) {
        Bytes file = with({});
        std::copy_n(bytesOf(c.bytes).begin(), 10, file.begin() + 12 + 8 + 8);
        const Wave* wave = import(file, "a.aif");
        EXPECT_EQ(wave ? wave->sampleRate : 0, c.wanted);
        if (c.wanted == 0) {
            EXPECT_EQ(failure(), "aif_Imp: No sample rate");
        }
    }
    for (const u32 rate : {1U, 8000U, 44100U, 0x80000001U, 0xFFFFFFFFU}) {
        ByteWriter out;
        writeExtended(out, rate);
        EXPECT_EQ(extendedNumber(out.view().first<kExtendedBytes>()), rate);
    }
}

TEST_F(Aiff, TextsMarkersAndLoops) {
    ByteWriter chunks;
    addBigChunk(chunks, "NAME", bytesOf("Fl\x9Ate"sv)); // Mac Roman
    addBigChunk(chunks, "AUTH", bytesOf("J\xC3\xBCrgen"sv));
    addBigChunk(chunks, "(c) ", bytesOf("\xA9 1989"sv));
    addBigChunk(chunks, "ANNO", bytesOf("one"sv));
    addBigChunk(chunks, "ANNO", bytesOf("two"sv));
    addBigChunk(chunks, "INST", bytesOf("\x3D\xE7\0\x7F\1\x7F\xFF\xFA\0\2\0\7\0\3\0\1\0\7\0\3"sv));
    addBigChunk(chunks, "MARK",
                bytesOf("\0\4"
                        "\0\3\0\0\0\4\3end"
                        "\0\7\0\0\0\1\4beg\0\0"
                        "\0\1\0\0\0\0\1A"
                        "\0\2\0\0\0\3\7A (end)"sv));
    addBigChunk(chunks, "COMT", bytesOf("\0\2\0\0\0\0\0\0\0\5three\0\0\0\0\0\0\1\0\4note"sv));
    Wave* wave = import(with(chunks.view()), "a.aif");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->name(), "Fl\xC3\xB6te");
    EXPECT_EQ(wave->artist, "J\xC3\xBCrgen");
    EXPECT_EQ(wave->copyright, "\xC2\xA9 1989");
    EXPECT_EQ(wave->comments, "one\ntwo\nthree");
    const SampleParams& params = wave->params;
    EXPECT_TRUE(params.override);
    EXPECT_EQ(params.rootKey, 61);
    EXPECT_EQ(params.fineTune, -25);
    EXPECT_EQ(params.gainDb, -6);
    EXPECT_EQ(params.loopFlags, kLooped | kLoopBidirectional);
    EXPECT_EQ(params.loopStart, 1);
    EXPECT_EQ(params.loopEnd, 4);
    ASSERT_EQ(wave->cuePoints.size(), 1U);
    EXPECT_EQ(wave->cuePoints[0], (CuePoint{0, 3, "A", "note"}));
    ASSERT_EQ(space.diagnostics.entries().size(), 1U); // the release loop is another one
    EXPECT_EQ(space.diagnostics.entries()[0].field, "INST");
}

TEST_F(Aiff, SaysWhatItCanNotRead) {
    const auto compressed = [&](std::string_view compression, u16 channels = 1, u16 bits = 16) {
        ByteWriter chunks;
        addBigChunk(chunks, "COMM", comm(channels, 4, bits, 44100, compression));
        addBigChunk(chunks, "SSND", ssnd(test::bigEndian16(samples)));
        return aiff(chunks.view(), "AIFC");
    };
    ByteWriter noSound;
    addBigChunk(noSound, "COMM", comm(1, 4, 16));
    const std::pair<Bytes, std::string_view> cases[] = {
        {compressed("DWVW"), "aif_Imp: Compression type \"DWVW\" is not supported"},
        {compressed("GSM ", 2), "aif_Imp: Can only handle mono files of this compression type"},
        {compressed("NONE", 0), "aif_Imp: No channels"},
        {compressed("NONE", 1, 33), "aif_Imp: Unsupported number of bits per sample"},
        {aiff({}), "aif_Imp: Couldn't find COMM chunk!"},
        {aiff(noSound.view()), "aif_Imp: Couldn't find SSND chunk!"},
    };
    for (const auto& [file, message] : cases) {
        EXPECT_FALSE(import(file, "a.aif"));
        EXPECT_EQ(failure(), message);
    }
}

} // namespace
} // namespace kv
