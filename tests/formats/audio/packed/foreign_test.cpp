// What other programs make of our files, and we of theirs.
#include "formats/audio/packed/packed_test.h"

namespace kv {
namespace {

class Foreign : public test::PackedTest {};

struct Lossless {
    const char *name, *program, *row, *pack, *unpack;
    u16 bits;
    bool isFloat;
    u32 code;
};
const Lossless kLossless[] = {
    {"a.flac", "flac", "Free lossless audio codec (default)", "flac -s a.wav -o b.flac",
     "flac -t -w -s a.flac && flac -d -s a.flac -o c.wav", 8, false, kPcm8},
    {"a.flac", "flac", "Free lossless audio codec (max comp)", "flac -s a.wav -o b.flac",
     "flac -t -w -s a.flac && flac -d -s a.flac -o c.wav", 16, false, kPcm16},
    {"a.flac", "flac", "Free lossless audio codec (default)", "flac -s a.wav -o b.flac",
     "flac -t -w -s a.flac && flac -d -s a.flac -o c.wav", 24, false, kPcm24},
    {"a.wv", "wavpack", "WavPack lossless", "wavpack -q a.wav -o b.wv", "wvunpack -q a.wv -o c.wav", 8, false,
     kPcm8},
    {"a.wv", "wavpack", "WavPack lossless", "wavpack -q a.wav -o b.wv", "wvunpack -q a.wv -o c.wav", 16,
     false, kPcm16},
    {"a.wv", "wavpack", "WavPack lossless", "wavpack -q a.wav -o b.wv", "wvunpack -q a.wv -o c.wav", 24,
     false, kPcm24},
    {"a.wv", "wavpack", "WavPack lossless", "wavpack -q a.wav -o b.wv", "wvunpack -q a.wv -o c.wav", 32,
     false, kPcm32},
    {"a.wv", "wavpack", "WavPack lossless", "wavpack -q a.wav -o b.wv", "wvunpack -q a.wv -o c.wav", 32, true,
     kFloat32},
};

TEST_F(Foreign, LosslessBothWays) {
    for (const Lossless& row : kLossless) {
        if (!test::has(row.program)) continue;
        const u16 channels = row.bits == 16 || row.bits == 32 ? 2 : 1;
        const std::string what = std::string(row.name) + ", " + std::to_string(row.bits) + " bits";
        ASSERT_TRUE(import(noise(channels, row.bits, 70'001, row.isFloat), "a.wav")) << failure();
        const Bytes samples = dataOf("a.wav");
        exportTo(row.row, row.name);
        run("rm -f b.* c.*");
        ASSERT_TRUE(run(row.unpack)) << what;
        EXPECT_TRUE(dataOf("c.wav") == samples) << what << ", unpacked by its own program";
        ASSERT_TRUE(run(row.pack)) << what;
        const Wave* wave =
            importFile(std::string("b") + std::filesystem::path(row.name).extension().string());
        ASSERT_TRUE(wave) << what << ": " << failure();
        EXPECT_EQ(wave->preferredFormat, row.code);
        EXPECT_EQ(wave->channels, channels);
        EXPECT_EQ(wave->bits, row.bits);
        exportTo("Microsoft wave", "c.wav");
        EXPECT_TRUE(dataOf("c.wav") == samples) << what << ", packed by its own program";
    }
}

TEST_F(Foreign, FlacOf32BitsLosesNone) {
    KV_NEEDS("flac");
    ASSERT_TRUE(import(noise(2, 32, 70'001), "a.wav"));
    const Bytes samples = dataOf("a.wav");
    if (!run("flac -s a.wav -o b.flac")) GTEST_SKIP() << "an older flac";
    for (const char* name : {"c.wav", "c.aif"}) {
        ASSERT_TRUE(importFile("b.flac")) << failure();
        EXPECT_EQ(store().First<Wave>()->bits, 32U);
        exportTo(std::string_view(name) == "c.wav" ? "Microsoft wave" : "Audio interchange", name);
        ASSERT_TRUE(importFile(name)) << failure();
        exportTo("Microsoft wave", "d.wav");
        EXPECT_TRUE(dataOf("d.wav") == samples) << name;
    }
}

struct Lossy {
    const char *row, *name, *program, *unpack;
    u32 rateOut; ///< 0: as it was
};
const Lossy kLossy[] = {
    {"MPEG layer III - CBR", "a.mp3", "mpg123", "mpg123 -q -e f32 -w c.wav a.mp3", 0},
    {"MPEG layer III - ABR", "a.mp3", "mpg123", "mpg123 -q -e f32 -w c.wav a.mp3", 0},
    {"MPEG layer III - VBR", "a.mp3", "mpg123", "mpg123 -q -e f32 -w c.wav a.mp3", 0},
    {"Ogg Vorbis", "a.ogg", "oggdec", "oggdec -Q -o c.wav a.ogg", 0},
    {"Opus (Music)", "a.opus", "opusdec", "opusdec --quiet --float --rate 48000 a.opus c.wav", 48000},
    {"Opus (Voice)", "a.opus", "opusdec", "opusdec --quiet --float --rate 48000 a.opus c.wav", 48000},
};

/// As long as the source, near to it, and the same to one step of 16 bits as another decoder makes it.
TEST_F(Foreign, LossyOfOursIsWhatOtherDecodersMakeOfIt) {
    constexpr u32 kFrames = 50'001;
    for (const Lossy& row : kLossy) {
        if (!test::has(row.program)) continue;
        constexpr std::pair<u32, u16> kSounds[] = {{44100, 2}, {48000, 1}, {22050, 1}};
        for (const auto& [rate, channels] : kSounds) {
            const std::string what = std::string(row.row) + ", " + std::to_string(rate) + " Hz";
            ASSERT_TRUE(import(tones(channels, rate, kFrames), "a.wav"));
            const std::vector<f32> source = samplesOf("a.wav");
            exportTo(row.row, row.name, kAnyFormat, 128);
            const std::vector<f32> ours = samplesOf(row.name);
            const Wave* wave = store().First<Wave>();
            const u32 rateOut = row.rateOut != 0 ? row.rateOut : rate;
            EXPECT_EQ(wave->sampleRate, rateOut) << what;
            EXPECT_EQ(wave->frames, (u64{kFrames} * rateOut + rate - 1) / rate) << what;
            EXPECT_EQ(wave->channels, channels) << what;
            EXPECT_EQ(wave->preferredFormat, kPcm16);
            if (rateOut == rate) {
                EXPECT_LT(largestDifference(source, ours), 0.06F) << what;
            }
            run("rm -f c.wav");
            ASSERT_TRUE(run(row.unpack)) << what;
            const std::vector<f32> theirs = samplesOf("c.wav");
            EXPECT_EQ(theirs.size(), ours.size()) << what;
            EXPECT_LE(largestDifference(theirs, ours), 1.01F / 32768) << what;
        }
    }
}

TEST_F(Foreign, LayerTwo) {
    KV_NEEDS("mpg123");
    for (const u32 rate : {44100U, 24000U, 8000U, 96000U}) {
        ASSERT_TRUE(import(tones(2, rate, 40'000), "a.wav"));
        exportTo("MPEG layer II - CBR", "a.mp2", kAnyFormat, 100);
        const std::vector<f32> ours = samplesOf("a.mp2");
        EXPECT_EQ(store().First<Wave>()->sampleRate, rate == 8000 ? 16000U : std::min(rate, 48000U));
        ASSERT_TRUE(run("mpg123 -q -e f32 -w c.wav a.mp2"));
        const std::vector<f32> theirs = samplesOf("c.wav");
        EXPECT_EQ(theirs.size(), ours.size());
        EXPECT_EQ(largestDifference(theirs, ours), 0);
    }
}

/// Encoders that other programs have: as long as the source, whatever the encoder put around it.
TEST_F(Foreign, LengthsOfTheirs) {
    constexpr u32 kFrames = 60'000;
    const struct {
        const char *program, *pack, *name;
        u32 frames;
    } rows[] = {
        {"lame", "lame --quiet -V2 a.wav a.mp3", "a.mp3", kFrames},
        {"lame", "lame --quiet -t -b 128 a.wav a.mp3", "a.mp3", 0}, // without a frame that tells
        {"ffmpeg", "ffmpeg -y -i a.wav -c:a libmp3lame -b:a 64k a.mp3", "a.mp3", kFrames},
        {"ffmpeg", "ffmpeg -y -i a.wav -c:a mp2 a.mpa", "a.mpa", 0},
        {"oggenc", "oggenc -Q a.wav -o a.ogg", "a.ogg", kFrames},
        {"opusenc", "opusenc --quiet a.wav a.opus", "a.opus", (kFrames * 480 + 440) / 441},
        {"ffmpeg", "ffmpeg -y -i a.wav -c:a libmp3lame -b:a 128k a.wav.wav", "a.wav.wav", 0},
        {"ffmpeg", "ffmpeg -y -i a.wav -c:a mp2 -f wav a.wav.wav", "a.wav.wav", 0},
    };
    for (const auto& row : rows) {
        if (!test::has(row.program)) continue;
        ASSERT_TRUE(import(tones(2, 44100, kFrames), "a.wav"));
        const std::vector<f32> source = samplesOf("a.wav");
        ASSERT_TRUE(run(row.pack)) << row.pack;
        const std::vector<f32> got = samplesOf(row.name);
        const Wave* wave = store().First<Wave>();
        ASSERT_TRUE(wave) << row.pack;
        if (row.frames != 0) {
            EXPECT_EQ(wave->frames, row.frames) << row.pack;
        } else {
            EXPECT_TRUE(wave->frames >= kFrames && wave->frames < kFrames + 3 * 1152)
                << row.pack << wave->frames;
        }
        const auto loudest = [](std::span<const f32> s) { return *std::max_element(s.begin(), s.end()); };
        EXPECT_NEAR(loudest(got), loudest(source), 0.03F) << row.pack;
    }
}

TEST_F(Foreign, FlacOfUnknownLengthIsCounted) {
    KV_NEEDS("flac");
    ASSERT_TRUE(import(noise(2, 16, 30'001), "a.wav"));
    const Bytes samples = dataOf("a.wav");
    ASSERT_TRUE(
        run("tail -c +45 a.wav | flac -s --force-raw-format --endian=little --sign=signed --channels=2 "
            "--bps=16 --sample-rate=44100 - -c > b.flac"));
    const Wave* wave = importFile("b.flac");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->frames, 30'001U);
    exportTo("Microsoft wave", "c.wav");
    EXPECT_TRUE(dataOf("c.wav") == samples);
}

/// A sink that can't be patched, as a pipe.
class Pipe final : public ByteSink {
public:
    bool write(ByteSpan bytes) override { return memory.write(bytes); }
    bool patch(u64, ByteSpan) override { return false; }
    u64 position() const override { return memory.position(); }
    MemorySink memory;
};

TEST_F(Foreign, EveryWriterWorksOnAPipe) {
    const std::pair<const char*, const char*> rows[] = {
        {"Free lossless audio codec (default)", "p.flac"},
        {"WavPack lossless", "p.wv"},
        {"MPEG layer III - CBR", "p.mp3"},
        {"MPEG layer II - CBR", "p.mp2"},
        {"Ogg Vorbis", "p.ogg"},
        {"Opus (Music)", "p.opus"},
    };
    for (const auto& [row, name] : rows) {
        ASSERT_TRUE(import(tones(1, 48000, 20'000), "a.wav"));
        Pipe pipe;
        ASSERT_TRUE(ExportTo(pipe, rowOf(row), "-", store().First<Wave>(), kAnyFormat, 0, false))
            << failure();
        test::writeFile(folder / name, pipe.memory.view());
        const Wave* wave = importFile(name);
        ASSERT_TRUE(wave) << row << failure();
        EXPECT_TRUE(wave->frames >= 20'000 && wave->frames < 20'000 + 3 * 1152) << row << wave->frames;
    }
}

TEST_F(Foreign, FirstTwoOfManyChannels) {
    ASSERT_TRUE(import(noise(2, 16, 5000), "a.wav"));
    const Bytes samples = dataOf("a.wav");
    KV_NEEDS("sox");
    ASSERT_TRUE(run("sox -M a.wav a.wav a.wav six.wav"));
    const std::pair<const char*, const char*> rows[] = {
        {"flac -s --channel-map=none six.wav -o six.flac", "six.flac"},
        {"wavpack -q six.wav -o six.wv", "six.wv"}};
    for (const auto& [pack, name] : rows) {
        ASSERT_TRUE(run(pack)) << pack;
        const Wave* wave = importFile(name);
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->channels, 2U);
        exportTo("Microsoft wave", "c.wav");
        EXPECT_TRUE(dataOf("c.wav") == samples) << name;
    }
}

TEST_F(Foreign, ChainsOfOgg) {
    ASSERT_TRUE(import(tones(2, 44100, 10'000), "a.wav"));
    exportTo("Ogg Vorbis", "a.ogg");
    ASSERT_TRUE(import(tones(2, 44100, 7000), "b.wav"));
    exportTo("Ogg Vorbis", "b.ogg");
    ASSERT_TRUE(import(tones(1, 44100, 7000), "c.wav"));
    exportTo("Ogg Vorbis", "c.ogg");
    ASSERT_TRUE(run("cat a.ogg b.ogg > same.ogg; cat a.ogg c.ogg > other.ogg"));
    EXPECT_EQ(samplesOf("same.ogg").size(), 2 * 17'000U);
    EXPECT_EQ(samplesOf("other.ogg").size(), 2 * 10'000U);
}

/// The first block prepares the second: a common encoder fills it with silence.
TEST_F(Foreign, Aac) {
    KV_NEEDS("ffmpeg");
    for (const char* options : {"-ac 2", "-ac 1", "-ac 1 -ar 22050"}) {
        ASSERT_TRUE(import(tones(2, 44100, 60'000), "a.wav"));
        ASSERT_TRUE(run(std::string("ffmpeg -y -i a.wav -c:a aac -aac_pns 0 ") + options + " a.aac"));
        ASSERT_TRUE(run("ffmpeg -y -i a.aac -c:a pcm_f32le c.wav"));
        const std::vector<f32> ours = samplesOf("a.aac");
        const u32 channels = store().First<Wave>()->channels;
        const std::vector<f32> theirs = samplesOf("c.wav");
        EXPECT_EQ(channels, store().First<Wave>()->channels) << options;
        ASSERT_EQ(ours.size() + 1024 * channels, theirs.size()) << options;
        EXPECT_LE(largestDifference(ours, std::span(theirs).subspan(1024 * channels)), 1.0F / 32768)
            << options;
    }
}

/// Bits, the first one the most significant.
class BitWriter {
public:
    void put(u32 value, int count) {
        for (int i = count - 1; i >= 0; --i) {
            if (bits_ % 8 == 0) bytes_.push_back(std::byte{0});
            bytes_.back() |= static_cast<std::byte>((value >> i & 1) << (7 - bits_ % 8));
            ++bits_;
        }
    }
    Bytes padded() {
        bits_ = bytes_.size() * 8;
        return bytes_;
    }

private:
    Bytes bytes_;
    std::size_t bits_ = 0;
};

TEST_F(Foreign, AdifHoldsWhatAdtsHolds) {
    KV_NEEDS("ffmpeg");
    ASSERT_TRUE(import(tones(2, 44100, 20'000), "a.wav"));
    ASSERT_TRUE(run("ffmpeg -y -i a.wav -c:a aac -aac_pns 0 a.aac"));
    const Bytes adts = test::readFile(folder / "a.aac");
    BitWriter head;
    for (const char c : std::string_view("ADIF")) head.put(static_cast<u8>(c), 8);
    head.put(0, 3); // no copyright id, no original, no home
    head.put(1, 1); // variable rate
    head.put(128'000, 23);
    head.put(0, 4); // one configuration
    head.put(0, 4);
    head.put(1, 2); // low complexity
    head.put(4, 4); // 44.1 kHz
    head.put(1, 4); // one element in front
    for (const int count : {4, 4, 2, 3, 4, 1, 1, 1}) head.put(0, count);
    head.put(1, 1); // a pair
    head.put(0, 4);
    ByteWriter adif;
    adif.bytes(head.padded()).u8le(0);
    for (ByteSpan rest = adts; rest.size() > 7;) {
        const auto byteAt = [&](std::size_t i) { return std::to_integer<u32>(rest[i]); };
        const u32 size = (byteAt(3) & 3) << 11 | byteAt(4) << 3 | byteAt(5) >> 5;
        adif.bytes(rest.subspan(7, size - 7));
        rest = rest.subspan(size);
    }
    test::writeFile(folder / "b.aac", adif.view());
    EXPECT_TRUE(samplesOf("b.aac") == samplesOf("a.aac"));
}

TEST_F(Foreign, RatesOnOffer) {
    const struct {
        const char* row;
        int index;
        f32 rate;
        const char* label;
    } rows[] = {
        {"MPEG layer III - CBR", 0, 8, "MP3 CBR 8 kbit/s"},
        {"MPEG layer III - CBR", 16, 320, "MP3 CBR 320 kbit/s"},
        {"MPEG layer III - VBR", 9, 245, "MP3 VBR 245 kbit/s"},
        {"MPEG layer III - VBR", 10, 0, ""},
        {"MPEG layer II - CBR", 18, 384, "MP2 CBR 384 kbit/s"},
        {"Ogg Vorbis", 11, 128, "OGG 128 kbit/s"},
        {"Opus (Voice)", 1, 16, "Opus 16 kbit/s"},
        {"Opus (Voice)", -1, 0, ""},
    };
    for (const auto& row : rows) {
        f32 rate = 0;
        std::string label;
        EXPECT_EQ(formatTable().FormatOption(rowOf(row.row), row.index, rate, &label), row.rate > 0);
        EXPECT_EQ(rate, row.rate) << row.row;
        EXPECT_EQ(label, row.label);
    }
}

/// A rate that the codec hasn't becomes one that it has, and a higher rate makes a larger file.
TEST_F(Foreign, BitRatesCount) {
    for (const char* row : {"MPEG layer III - CBR", "MPEG layer III - VBR", "MPEG layer II - CBR",
                            "Ogg Vorbis", "Opus (Music)"}) {
        u64 last = 0;
        for (const f32 rate : {1.F, 40.F, 96.F, 320.F}) {
            ASSERT_TRUE(import(noise(1, 16, 44'100), "a.wav"));
            exportTo(row, "a.out", kAnyFormat, rate);
            const u64 size = std::filesystem::file_size(folder / "a.out");
            EXPECT_GE(size, last) << row << rate;
            last = size;
        }
        EXPECT_GT(last, 12'000U) << row;
    }
}

} // namespace
} // namespace kv
