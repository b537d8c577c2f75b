// PlayStation sounds and Shorten.
#include "formats/audio/various/various_test.h"
#include "formats/codecs/shorten.h"

namespace kv {
namespace {

class PackedFiles : public test::VariousTest {};

TEST_F(PackedFiles, VagDecodesAsInFfmpegAndSoundsLikeItsSource) {
    const std::vector<i16> samples = tone(5003);
    ASSERT_TRUE(import(wavWith(samples)));
    exportAs("a.vag");
    Wave* wave = open("a.vag");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->sampleRate, 44100U);
    EXPECT_EQ(wave->name(), "test");
    EXPECT_FALSE(wave->params.looped());
    const std::vector<i16> decoded = samplesOf(*wave);
    ASSERT_EQ(decoded.size(), 5012U); // whole blocks of 28
    f64 signal = 0, error = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        signal += static_cast<f64>(samples[i] * samples[i]);
        error += std::pow(static_cast<f64>(samples[i] - decoded[i]), 2);
    }
    EXPECT_GT(10 * std::log10(signal / error), 40);
    const std::vector<i16> other = samplesByFfmpeg("a.vag");
    if (other.empty()) GTEST_SKIP() << "no ffmpeg";
    ASSERT_GE(other.size(), decoded.size());
    EXPECT_TRUE(std::equal(decoded.begin(), decoded.end(), other.begin()));
}

TEST_F(PackedFiles, VagLoopsInWholeBlocks) {
    struct Case {
        f64 start, end;
        u32 flags;
        f64 wantedStart, wantedEnd;
        bool moved;
    };
    const Case cases[] = {
        {28, 280, kLooped, 28, 280, false},
        {0, 28, kLooped, 0, 56, true}, // once more, and what stands behind it goes
        {13, 267, kLooped, 0, 280, true},
        {100, 115, kLooped, 112, 168, true},
        {28, 280, kLooped | kLoopBidirectional, 28, 280, true},
        {0, 0, 0, 0, 0, false},
    };
    space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false;
    for (const Case& c : cases) {
        Wave* wave = import(wavWith(tone(280)));
        wave->params.loopFlags = static_cast<u16>(c.flags);
        wave->params.loopStart = c.start;
        wave->params.loopEnd = c.end;
        space.diagnostics.clear();
        exportAs("a.vag");
        EXPECT_EQ(!space.diagnostics.entries().empty(), c.moved) << c.start;
        wave = open("a.vag");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->params.looped(), c.flags != 0);
        EXPECT_EQ(wave->frames, c.flags == 0 ? 280 : c.wantedEnd) << c.start;
        if (c.flags == 0) continue;
        EXPECT_EQ(wave->params.loopStart, c.wantedStart);
        EXPECT_EQ(wave->params.loopEnd, c.wantedEnd);
    }
}

TEST_F(PackedFiles, ShortenKeepsAllOfAWavFile) {
    const std::vector<i16> samples = tone(2001, 30000);
    for (const u32 code : {kPcm8, kPcm16, kMuLaw}) {
        ASSERT_TRUE(import(wavWith(samples)));
        Wave* wave = open(exportAs("a.wav", code | kMonoBit).filename());
        ASSERT_TRUE(wave) << failure();
        wave->artist = "somebody";
        wave->params.rootKey = 64;
        wave->params.loopFlags = kLooped;
        wave->params.loopStart = 100;
        wave->params.loopEnd = 1900;
        const std::vector<i16> wanted = samplesOf(*wave);
        exportAs("a.shn");
        wave = open("a.shn");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->sampleRate, 44100U);
        EXPECT_EQ(wave->preferredFormat, code);
        EXPECT_EQ(wave->artist, "somebody");
        EXPECT_EQ(wave->params.rootKey, 64);
        EXPECT_EQ(wave->params.loopStart, 100);
        EXPECT_EQ(wave->params.loopEnd, 1900);
        EXPECT_EQ(samplesOf(*wave), wanted) << std::hex << code;
        if (code == kMuLaw) continue; // ffmpeg doesn't read it
        const std::vector<i16> other = samplesByFfmpeg("a.shn"), plain = samplesByFfmpeg("a.wav");
        EXPECT_TRUE(other.empty() || other == plain) << std::hex << code;
    }
}

TEST_F(PackedFiles, ShortenStereoIsThatOfFfmpeg) {
    if (!run("sox -R -n -r 32000 -c 2 -b 16 a.wav synth 0.4 sine 300 pinknoise")) GTEST_SKIP() << "no sox";
    const std::vector<i16> wanted = samplesOf(*open("a.wav"));
    exportAs("a.shn");
    EXPECT_LT(std::filesystem::file_size(folder / "a.shn"), wanted.size() * 2);
    EXPECT_EQ(samplesOf(*open("a.shn")), wanted);
    EXPECT_EQ(store().First<Wave>()->sampleRate, 32000U);
    const std::vector<i16> other = samplesByFfmpeg("a.shn");
    EXPECT_TRUE(other.empty() || other == wanted);
}

/// Bits as the streams have them, for what the encoder doesn't write.
class Stream {
public:
    Stream(u8 version, std::initializer_list<u32> header) {
        for (const char c : {'a', 'j', 'k', 'g'}) out_.u8le(static_cast<u8>(c));
        out_.u8le(version);
        for (const u32 value : header) number(value);
    }
    Stream& code(u32 value, u32 low) {
        for (u32 zeros = value >> low; zeros > 0; --zeros) bit(0);
        bit(1);
        for (u32 i = low; i-- > 0;) bit(value >> i & 1);
        return *this;
    }
    Stream& number(u32 value) {
        const auto width = static_cast<u32>(std::bit_width(value));
        return code(width, 2).code(value, width);
    }
    Stream& sample(i32 value, u32 low) {
        return code(value < 0 ? (~static_cast<u32>(value) << 1) | 1 : static_cast<u32>(value) << 1, low + 1);
    }
    Bytes take() {
        code(4, 2);
        while (count_ > 0) bit(0);
        return out_.take();
    }

private:
    void bit(u32 value) {
        byte_ = static_cast<u8>(u32{byte_} << 1 | value);
        if (++count_ == 8) out_.u8le(byte_), count_ = 0;
    }
    ByteWriter out_;
    u8 byte_ = 0;
    u32 count_ = 0;
};

TEST_F(PackedFiles, ShortenReadsWhatOthersWrite) {
    // type, channels, block, coefficients, means, skipped bytes
    Wave* wave = import(Stream(2, {5, 1, 4, 2, 0, 1})
                            .code(0x55, 7)
                            .code(7, 2)
                            .code(3, 3)
                            .code(1, 2)
                            .sample(32, 5)
                            .sample(5, 3)
                            .sample(1, 3)
                            .sample(-2, 3)
                            .sample(0, 3) // one coefficient of 1
                            .code(6, 2)
                            .code(3, 2) // shifted by 3
                            .code(1, 2)
                            .code(1, 3)
                            .sample(1, 1)
                            .sample(0, 1)
                            .sample(0, 1)
                            .sample(1, 1)
                            .code(8, 2) // silence
                            .code(5, 2)
                            .number(2)
                            .code(3, 2)
                            .code(2, 3)
                            .sample(1, 2)
                            .sample(1, 2)
                            .take(),
                        "a.shn");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(samplesOf(*wave), (std::vector<i16>{6, 8, 7, 8, 72, 72, 72, 80, 0, 0, 0, 0, 8, 32}));

    // Versions differ in how means are rounded: of two blocks' means, one is 7 / 2.
    for (const u8 version : {u8{1}, u8{2}, u8{3}}) {
        wave = import(Stream(version, {5, 1, 2, 0, 1, 0})
                          .code(0, 2)
                          .code(3, 3)
                          .sample(3, 3)
                          .sample(4, 3)
                          .code(0, 2)
                          .code(3, 3)
                          .sample(0, 3)
                          .sample(0, 3)
                          .take(),
                      "a.shn");
        ASSERT_TRUE(wave) << failure();
        const i16 mean = version == 1 ? 3 : 4;
        EXPECT_EQ(samplesOf(*wave), (std::vector<i16>{3, 4, mean, mean})) << int{version};
    }

    struct Case {
        u32 type;
        i32 value;
        i16 sample;
    };
    const auto muLaw = [](u8 code) {
        i16 sample = 0;
        const std::byte byte{code};
        muLawToInt16({&byte, 1}, {&sample, 1});
        return sample;
    };
    const Case cases[] = {
        {1, -128, -32768},
        {1, 127, 32767},
        {2, 0x80 - 0x80, 128},
        {3, -32768, -32768},
        {4, 1, 1},
        {5, 40000, 32767},
        {6, -0x8000, -32768},
        {7, 32124 / 8, 32124},
        {8, -128, muLaw(0)},
        {8, -1, muLaw(0x7F)},
        {8, 0, 0},
        {8, 127, muLaw(0x80)},
        {0, -127, muLaw(0)},
        {0, -128, muLaw(0x7F)},
        {0, 1, muLaw(0xFE)},
        {10, 5504 / 8, 5504},
    };
    for (const Case& c : cases) {
        wave = import(Stream(2, {c.type, 1, 1, 0, 0, 0}).code(0, 2).code(15, 3).sample(c.value, 15).take(),
                      "a.shn");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(samplesOf(*wave), std::vector<i16>{c.sample}) << c.type << " " << c.value;
    }
    // Mu-law bytes of values that have zero bits at their end stand next to each other.
    wave = import(Stream(2, {8, 1, 3, 0, 0, 0})
                      .code(6, 2)
                      .code(5, 2)
                      .code(0, 2)
                      .code(3, 3)
                      .sample(-2, 3)
                      .sample(0, 3)
                      .sample(1, 3)
                      .take(),
                  "a.shn");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(samplesOf(*wave), (std::vector<i16>{muLaw(103), 0, muLaw(231)}));
}

TEST_F(PackedFiles, ShortenRefusesWhatItCanNotRead) {
    EXPECT_FALSE(import(Stream(0, {5, 1, 256, 0, 0, 0}).take(), "a.shn"));
    EXPECT_EQ(failure(), "Shorten: Unsupported version");
    EXPECT_FALSE(import(Stream(2, {9, 1, 256, 0, 0, 0}).take(), "a.shn"));
    EXPECT_EQ(failure(), "Shorten: Unsupported subformat");
    EXPECT_FALSE(import(Stream(2, {5, 0, 256, 0, 0, 0}).take(), "a.shn"));
    EXPECT_EQ(failure(), "Shorten: No channels");
    EXPECT_FALSE(import(Stream(2, {5, 1, 70000, 0, 0, 0}).take(), "a.shn"));
    EXPECT_EQ(failure(), "Shorten: The header is damaged");
    // Silence without end takes a bounded time.
    Stream silence(2, {5, 2, 65535, 0, 0, 0});
    for (int i = 0; i < 20000; ++i) silence.code(8, 2);
    const Bytes bytes = silence.take();
    Wave* wave = import(bytes, "a.shn");
    ASSERT_TRUE(wave) << failure();
    EXPECT_LE(u64{wave->frames} * 2, bytes.size() * 4096);
}

} // namespace
} // namespace kv
