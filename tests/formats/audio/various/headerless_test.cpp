// Fixed layouts, text, mu-law by its formula, and packages of sounds.
#include "formats/audio/various/various_test.h"

namespace kv {
namespace {

class Headerless : public test::VariousTest {};

TEST_F(Headerless, FixedLayoutsAreReadAsSoxWritesThem) {
    struct Case {
        const char* name;
        const char* sox; ///< options of the output
        u32 rate, channels;
        bool exact; ///< 16 bits: the same samples
    };
    const Case cases[] = {
        {"a.sndt", "-r 8000 -c 1", 8000, 1, false},
        {"a.sndr", "-r 11025 -c 1", 11025, 1, false},
        {"a.wve", "-r 8000 -c 1", 8000, 1, false},
        {"a.cdr", "-r 44100 -c 2", 44100, 2, true},
    };
    for (const Case& c : cases) {
        if (!run(std::string("sox -R -n ") + c.sox + " " + c.name + " synth 0.05 sine 440 gain -3 && sox " +
                 c.name + " -b 16 ref.wav && sox ref.wav ref.s16"))
            GTEST_SKIP() << "no sox";
        const std::vector<i16> wanted = int16s(test::readFile(folder / "ref.s16"));
        Wave* wave = open(c.name);
        ASSERT_TRUE(wave) << c.name << failure();
        EXPECT_EQ(wave->sampleRate, c.rate);
        EXPECT_EQ(wave->channels, c.channels);
        const std::vector<i16> samples = samplesOf(*wave);
        ASSERT_GE(samples.size(), wanted.size()) << c.name;
        EXPECT_LT(samples.size() - wanted.size(), 2 * 588U) << c.name; // CD sectors are filled up
        for (std::size_t i = 0; i < wanted.size(); ++i)
            ASSERT_NEAR(samples[i], wanted[i], c.exact ? 0 : 255) << c.name << " " << i;
    }
}

TEST_F(Headerless, SndtoolHeaderTellsLengthAndComment) {
    ByteWriter out;
    out.text(std::string_view("SOUND\x1A\0\0", 8))
        .u32le(5)
        .u32le(0)
        .u32le(5)
        .u16le(9000)
        .u16le(0)
        .u16le(10)
        .u16le(4)
        .text("J\xFCrgen")
        .fill(90);
    out.fill(20, 0x80);
    Wave* wave = import(out.view(), "a.sndt");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->frames, 5U);
    EXPECT_EQ(wave->sampleRate, 9000U);
    EXPECT_EQ(wave->comments, "J\xC3\xBCrgen");
}

// Two frames at a time: four upper words, then their four low bytes.
TEST_F(Headerless, DvdSamplesAreRegrouped) {
    ByteWriter out;
    for (int group = 0; group < 3; ++group) {
        const auto base = static_cast<u16>(0x1000 * (group + 1));
        for (u16 i = 0; i < 4; ++i) out.u16be(static_cast<u16>(base + i));
        for (u8 i = 0; i < 4; ++i) out.u8le(static_cast<u8>(0x10 * i + group));
    }
    out.fill(11); // no whole group
    Wave* wave = import(out.view(), "a.dvd-24-96");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->sampleRate, 96000U);
    ASSERT_EQ(wave->frames, 6U);
    std::vector<f32> samples(12);
    ASSERT_TRUE(openSamples(*wave, true)->read(std::span(samples)));
    for (int i = 0; i < 12; ++i) {
        const int value = (0x1000 * (i / 4 + 1) + i % 4) * 256 + 0x10 * (i % 4) + i / 4;
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], static_cast<f32>(value) * 0x1p-23F) << i;
    }
    // Pieces that begin and end anywhere give the same.
    std::vector<f32> piecewise(12);
    const auto blocks = openSamples(*wave, true);
    for (std::size_t at = 0; at < 12; at += 2) ASSERT_TRUE(blocks->read(std::span(piecewise).subspan(at, 2)));
    EXPECT_EQ(piecewise, samples);

    wave = import(out.view(), "a.dvd-16-192");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->sampleRate, 192000U);
    EXPECT_EQ(samplesOf(*wave)[1], 0x1001);
}

TEST_F(Headerless, DvdSamplesAreThoseOfFfmpegsEncoder) {
    const std::string tone =
        "ffmpeg -v error -y -f lavfi -i sine=500:r=48000:d=0.1 -ac 2 -af volume=0.7 -sample_fmt s32 ";
    if (!run(tone + "-c:a pcm_dvd -f s24be packets && " + tone + "-c:a pcm_s24le ref.wav"))
        GTEST_SKIP() << "no ffmpeg that packs DVD samples";
    const Bytes packets = test::readFile(folder / "packets");
    constexpr std::size_t kPacketBytes = 1011, kHeadBytes = 3;
    ByteWriter plain;
    for (std::size_t at = 0; at < packets.size(); at += kPacketBytes) {
        const ByteSpan packet = ByteSpan(packets).subspan(at, std::min(kPacketBytes, packets.size() - at));
        plain.bytes(packet.subspan(kHeadBytes));
    }
    const auto floatsOf = [](const Wave& wave) {
        std::vector<f32> samples(wave.sampleCount());
        EXPECT_TRUE(openSamples(wave, true)->read(std::span(samples)));
        return samples;
    };
    Wave* wave = open("ref.wav");
    ASSERT_TRUE(wave) << failure();
    const std::vector<f32> wanted = floatsOf(*wave);
    wave = import(plain.view(), "a.dvd-24-48");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(floatsOf(*wave), wanted);
}

TEST_F(Headerless, MuLawByItsFormula) {
    std::vector<std::byte> codes(256);
    for (std::size_t i = 0; i < codes.size(); ++i) codes[i] = static_cast<std::byte>(i);
    Wave* wave = import(codes, "a.u255law");
    ASSERT_TRUE(wave) << failure();
    const std::vector<i16> samples = samplesOf(*wave);
    ASSERT_EQ(samples.size(), 256U);
    EXPECT_EQ(samples[0x80], 32767);
    EXPECT_EQ(samples[0x00], -32767);
    EXPECT_EQ(samples[0xFF], 0);
    // The segments of G.711 lie close to the formula.
    std::vector<i16> segments(256);
    muLawToInt16(codes, segments);
    for (std::size_t i = 0; i < 256; ++i)
        EXPECT_NEAR(samples[i], segments[i], 40 + std::abs(segments[i]) * 0.05) << i;
    Bytes again = test::readFile(exportAs("b.u255law"));
    EXPECT_EQ(again[0x7F], std::byte{0xFF}); // of two zeros one is written
    again[0x7F] = std::byte{0x7F};
    EXPECT_EQ(again, codes);
}

TEST_F(Headerless, TextsOfManyKinds) {
    struct Case {
        std::string text;
        u32 rate, channels;
        std::vector<f32> samples; ///< full scale 1
    };
    const f32 k16 = 0x1p-15F;
    const Case cases[] = {
        {"1\n-2\n32767\n-32768\n", 22050, 1, {k16, -2 * k16, 32767 * k16, -1}},
        {"\r\n  +5\r\n\r\n6", 22050, 1, {5 * k16, 6 * k16}},
        {"0.5\n-1\n1e-1\n", 22050, 1, {0.5F, -1, 0.1F}},
        {"8388607\n-8388608\n", 22050, 1, {8388607 * 0x1p-23F, -1}},
        {"2147483647\n-2147483648", 22050, 1, {1, -1}},
        {"; Sample Rate 8000\n; Channels 1\n 0 0.25\n 0.1 -0.25\n", 8000, 1, {0.25F, -0.25F}},
        {"; Sample Rate 8000\n; Channels 2\n 0 0 1\n 0.1 1 0\n", 8000, 2, {0, 1, 1, 0}},
        {"; Sample Rate 96000\n; Channels 2\n1 2\n3 4\n", 96000, 2, {k16, 2 * k16, 3 * k16, 4 * k16}},
        {"# made by hand\n1,2\n3;4\n5\n", 22050, 2, {k16, 2 * k16, 3 * k16, 4 * k16, 5 * k16, 0}},
        {"left\tright\ttoo many\n1\t2\t3\nnan -1\n", 22050, 2, {1, 2, 0, -1}},
    };
    const int row = rowOf("Ascii text audio");
    for (const Case& c : cases) {
        test::writeFile(folder / "a.txt", bytesOf(c.text));
        Wave* wave = open("a.txt", row);
        ASSERT_TRUE(wave) << c.text << failure();
        EXPECT_EQ(wave->sampleRate, c.rate) << c.text;
        EXPECT_EQ(wave->channels, c.channels) << c.text;
        std::vector<f32> samples(wave->sampleCount());
        ASSERT_TRUE(openSamples(*wave, true)->read(std::span(samples))) << c.text;
        EXPECT_EQ(samples, c.samples) << c.text;
    }
    for (const char* text : {"", "words only\n", "; Sample Rate 8000\n"}) {
        test::writeFile(folder / "a.txt", bytesOf(text));
        EXPECT_FALSE(open("a.txt", row));
        EXPECT_EQ(failure(), "txt_Imp: No numbers in the text");
    }
}

TEST_F(Headerless, TextComesBackAsItWas) {
    const int row = rowOf("Ascii text audio");
    const std::vector<i16> samples = tone(3001);
    Wave* wave = import(wavWith(samples));
    ASSERT_TRUE(Export(row, folder / "a.txt", wave, kAnyFormat, 0, false)) << failure();
    wave = open("a.txt", row);
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->sampleRate, 44100U);
    EXPECT_EQ(wave->preferredFormat, kPcm16);
    EXPECT_EQ(samplesOf(*wave), samples);

    ASSERT_TRUE(wave->samplesFloat.allocate(wave->frames));
    for (u32 i = 0; i < wave->frames; ++i) wave->samplesFloat.data()[i] = std::sin(static_cast<f32>(i)) / 3;
    const std::vector<f32> floats(wave->samplesFloat.span().begin(), wave->samplesFloat.span().end());
    wave->samples16.reset();
    ASSERT_TRUE(Export(row, folder / "b.txt", wave, kAnyFormat, 0, false)) << failure();
    wave = open("b.txt", row);
    ASSERT_TRUE(wave) << failure();
    std::vector<f32> back(wave->frames);
    ASSERT_TRUE(openSamples(*wave, true)->read(std::span(back)));
    EXPECT_EQ(back, floats);
    if (run("test -x /usr/bin/sox && sox -n -r 48000 -c 2 -b 16 s.wav synth 0.02 sine 300 sine 500 && sox "
            "s.wav s.dat")) {
        const std::vector<i16> wanted = samplesOf(*open("s.wav"));
        wave = open("s.dat", row);
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->sampleRate, 48000U);
        EXPECT_EQ(samplesOf(*wave), wanted);
    }
}

/// A package of the given version with two sounds and an object of another class.
Bytes package(u16 version, ByteSpan first, ByteSpan second) {
    const auto name = [version](ByteWriter& out, std::string_view text) {
        if (version >= 64) out.u8le(static_cast<u8>(text.size() + 1));
        out.text(text).u8le(0).u32le(0);
    };
    const auto index = [](ByteWriter& out, u32 value) {
        out.u8le(static_cast<u8>((value & 0x3F) | (value > 0x3F ? 0x40 : 0)));
        for (value >>= 6; value > 0; value >>= 7)
            out.u8le(static_cast<u8>((value & 0x7F) | (value > 0x7F ? 0x80 : 0)));
    };
    constexpr u32 kHead = 36;
    ByteWriter body;
    for (const char* text : {"None", "Sound", "Texture", "bang", "click", "WAV"}) name(body, text);
    u32 places[3] = {};
    const ByteSpan contents[] = {first, second, first};
    u32 sizes[3] = {};
    for (std::size_t i = 0; i < 3; ++i) {
        places[i] = kHead + static_cast<u32>(body.size());
        body.u8le(0).u8le(5); // no properties; the kind of sound
        body.u32le(0);
        index(body, static_cast<u32>(contents[i].size()));
        body.bytes(contents[i]);
        sizes[i] = kHead + static_cast<u32>(body.size()) - places[i];
    }
    const u32 imports = kHead + static_cast<u32>(body.size());
    for (u32 type = 1; type <= 2; ++type) body.u8le(0).u8le(0).u32le(0).u8le(static_cast<u8>(type));
    const u32 exports = kHead + static_cast<u32>(body.size());
    for (std::size_t i = 0; i < 3; ++i) {
        body.u8le(i == 2 ? u8{0x82} : u8{0x81})
            .u8le(0)
            .u32le(0)
            .u8le(i == 1 ? u8{4} : u8{3})
            .u32le(0); // class -1 or -2
        index(body, sizes[i]);
        index(body, places[i]);
    }
    ByteWriter out;
    out.u32le(0x9E2A83C1)
        .u16le(version)
        .u16le(0)
        .u32le(0)
        .u32le(6)
        .u32le(kHead)
        .u32le(3)
        .u32le(exports)
        .u32le(2)
        .u32le(imports);
    return out.bytes(body.view()).take();
}

TEST_F(Headerless, PackagesHoldSounds) {
    const std::vector<i16> samples = tone(40);
    const Bytes wav = wavWith(samples), other = wavWith(std::span(samples).first(7));
    for (const u16 version : {u16{60}, u16{69}}) {
        Wave* wave = import(package(version, wav, other), "a.uax");
        ASSERT_TRUE(wave) << failure();
        ASSERT_EQ(store().count(kWaveClass), 2U);
        EXPECT_EQ(wave->name(), "bang");
        EXPECT_EQ(samplesOf(*wave), samples);
        for (Wave& each : store().all<Wave>()) wave = &each; // the last one
        EXPECT_EQ(wave->name(), "click");
        EXPECT_EQ(wave->frames, 7U);
    }
    EXPECT_FALSE(import(package(69, bytesOf("no wave"), {}), "a.uax"));
    EXPECT_EQ(failure(), "uax_Imp: No sounds in the package");
}

} // namespace
} // namespace kv
