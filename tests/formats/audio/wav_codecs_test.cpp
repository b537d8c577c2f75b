// WAV files with coded samples: against files that other programs wrote (tests/data/coded/README.md), and
// written and read back.
#include <cmath>

#include "formats/audio/wav_writer.h"
#include "formats/format_test.h"
#include "places.h"

namespace kv {
namespace {

using test::addChunk;

Bytes dataFile(const std::string& name) {
    return test::readFile(std::filesystem::path(KV_SOURCE_DIR "/tests/data/coded") / name);
}

std::vector<i16> samplesOf(ByteSpan bytes) {
    std::vector<i16> samples;
    ByteCursor in(bytes);
    while (in.left() >= 2) samples.push_back(in.s16le());
    return samples;
}

f64 signalToNoiseDb(std::span<const i16> signal, std::span<const i16> decoded) {
    f64 power = 0, noise = 1e-9;
    for (std::size_t i = 0; i < std::min(signal.size(), decoded.size()); ++i) {
        const f64 s = signal[i], d = s - decoded[i];
        power += s * s;
        noise += d * d;
    }
    return 10 * std::log10(power / noise);
}

class WavCodecs : public test::FormatTest {
protected:
    /// The samples of a wave that was imported.
    std::vector<i16> load(Wave* wave) {
        EXPECT_TRUE(wave && wave->LoadData()) << failure();
        if (!wave) return {};
        const auto samples = wave->samples16.span();
        return {samples.begin(), samples.end()};
    }
    /// A memory-only wave of the test signal.
    Wave* signal(u32 channels) {
        const std::vector<i16> samples = samplesOf(dataFile(channels == 1 ? "in_8k.s16" : "in_8k_st.s16"));
        Wave* wave = import(wavWith(samples));
        wave->channels = channels;
        wave->frames = static_cast<u32>(samples.size() / channels);
        wave->sampleRate = 8000;
        EXPECT_TRUE(wave->samples16.allocate(samples.size()));
        std::copy(samples.begin(), samples.end(), wave->samples16.span().begin());
        return wave;
    }
};

TEST_F(WavCodecs, DecodesWhatOthersWrote) {
    struct Case {
        const char* name;
        u32 channels, bits;
    };
    const Case cases[] = {{"ima4_mono", 1, 4}, {"ima4_stereo", 2, 4}, {"ima2", 1, 2},
                          {"ima3", 1, 3},      {"yamaha_mono", 1, 4}, {"yamaha_stereo", 2, 4},
                          {"gsm_wav49", 1, 2}, {"ms_mono", 1, 4},     {"ms_stereo", 2, 4}};
    for (const Case& c : cases) {
        const std::vector<i16> expected = samplesOf(dataFile(std::string(c.name) + ".s16"));
        Wave* wave = import(dataFile(std::string(c.name) + ".wav"));
        ASSERT_TRUE(wave) << c.name << failure();
        EXPECT_FALSE(wave->resident()) << c.name;
        EXPECT_EQ(wave->channels, c.channels) << c.name;
        EXPECT_EQ(wave->bits, c.bits) << c.name;
        const std::vector<i16> samples = load(wave);
        ASSERT_LE(samples.size(), expected.size()) << c.name; // those pad the last block
        ASSERT_GE(samples.size(), std::size_t{1600} * c.channels) << c.name;
        EXPECT_TRUE(std::equal(samples.begin(), samples.end(), expected.begin())) << c.name;
    }
}

TEST_F(WavCodecs, WritesWhatItReads) {
    struct Case {
        u32 code, subType, channels, frames;
        const char* atLeast; ///< what another encoder made of it
    };
    const Case cases[] = {
        {kAdpcm4, kWavSubIma, 1, 1600, "ima4_mono"},
        {kAdpcm4, kWavSubIma, 2, 1600, "ima4_stereo"},
        {kAdpcm4, kWavSubMs, 1, 1600, "ms_mono"},
        {kAdpcm4, kWavSubMs, 2, 1600, "ms_stereo"},
        {kAdpcm4, kWavSubYamaha, 1, 1600, "yamaha_mono"},
        {kAdpcm4, kWavSubYamaha, 2, 1600, "yamaha_stereo"},
        {kGsm, 0, 1, 1600, "gsm_wav49"},
        {kGsm, kWavSubUsrGsm, 1, 1600, "gsm_plain"},
        {kAdpcm2, 0, 1, 1600, "g726_2"},
        {kAdpcm3, 0, 1, 1600, "g726_3"},
        {kAdpcm4, 0, 1, 1600, "g726_4"},
        {kAdpcm5, 0, 1, 1600, "g726_5"},
    };
    for (const Case& c : cases) {
        const std::string label = fmt::format("code {:x}, sub-type {:x}", c.code, c.subType);
        Wave* wave = signal(c.channels);
        const std::vector<i16> original = load(wave);
        Bytes file;
        ASSERT_TRUE(wav_Build(*wave, file, c.code | kMonoBit | kStereoBit, c.subType, 0)) << label;
        wave = import(file);
        ASSERT_TRUE(wave) << label << failure();
        EXPECT_EQ(wave->frames, c.frames) << label;
        EXPECT_GT(signalToNoiseDb(original, load(wave)),
                  signalToNoiseDb(original, samplesOf(dataFile(std::string(c.atLeast) + ".s16"))) - 0.01)
            << label;
    }
}

/// A fmt chunk of a coded tag with its extension.
Bytes codedFmt(u16 tag, u16 channels, u16 blockAlign, u16 bits, std::initializer_list<u16> extension) {
    ByteWriter out;
    out.u16le(tag).u16le(channels).u32le(8000).u32le(8000).u16le(blockAlign).u16le(bits);
    out.u16le(static_cast<u16>(2 * extension.size()));
    for (const u16 word : extension) out.u16le(word);
    return out.take();
}
Bytes codedWav(ByteSpan fmt, std::size_t dataBytes) {
    ByteWriter chunks;
    addChunk(chunks, "fmt ", fmt);
    addChunk(chunks, "data", Bytes(dataBytes, std::byte{0x33}));
    return test::riff(chunks.view());
}

TEST_F(WavCodecs, HeadersThatAreRefused) {
    const std::string ms = "wav_Imp: Unsupported or invalid MS ADPCM file",
                      ima = "wav_Imp: Unsupported or invalid IMA ADPCM file",
                      gsm = "wav_Imp: Can only handle (the standard!) mono GSM",
                      g72x = "wav_Imp: Invalid no bits/sample for CCITT G.721/.723/.726 ADPCM encoding";
    const std::pair<Bytes, std::string> cases[] = {
        {codedFmt(0x02, 1, 256, 3, {500, 0}), ms},
        {codedFmt(0x02, 1, 0, 4, {500, 0}), ms},
        {codedFmt(0x02, 1, 6, 4, {500, 0}), ms},
        {codedFmt(0x02, 3, 256, 4, {500, 0}), ms},
        {codedFmt(0x11, 1, 256, 5, {505}), ima},
        {codedFmt(0x11, 1, 0, 4, {505}), ima},
        {codedFmt(0x11, 2, 7, 4, {505}), ima},
        {codedFmt(0x11, 9, 256, 4, {505}), ima},
        {codedFmt(0x17, 2, 1, 4, {}), "wav_Imp: Can only handle mono Dialogic ADPCM format"},
        {codedFmt(0x17, 1, 1, 8, {}), "wav_Imp: Unsupported or invalid Dialogic ADPCM file"},
        {codedFmt(0x20, 3, 1, 4, {}), "wav_Imp: > 2ch Yamaha ADPCM not supported"},
        {codedFmt(0x20, 1, 1, 5, {}), "wav_Imp: Unsupported bits/sample for Yamaha ADPCM format"},
        {codedFmt(0x31, 2, 65, 0, {320}), gsm},
        {codedFmt(0x303, 2, 38, 0, {}), gsm},
        {codedFmt(0x3B, 2, 1, 4, {}), "wav_Imp: Can only handle mono Rockwell ADPCM format"},
        {codedFmt(0x300, 1, 1, 5, {}), "wav_Imp: Unsupported or invalid Rockwell ADPCM file"},
        {codedFmt(0x45, 1, 1, 6, {}), g72x},
        {codedFmt(0x14, 1, 1, 0, {}), g72x},
    };
    for (const auto& [fmt, message] : cases) {
        EXPECT_FALSE(import(codedWav(fmt, 1000))) << message;
        EXPECT_EQ(failure(), message);
    }
}

TEST_F(WavCodecs, LengthsComeFromTheSizes) {
    struct Case {
        const char* name;
        Bytes fmt;
        std::size_t dataBytes;
        u32 frames, bits, code;
    };
    const Case cases[] = {
        {"IMA blocks", codedFmt(0x11, 1, 256, 4, {505}), 512, 1010, 4, kAdpcm4},
        {"IMA, a short last block", codedFmt(0x11, 1, 256, 4, {505}), 266, 518, 4, kAdpcm4},
        {"IMA, less than a head", codedFmt(0x11, 1, 256, 4, {505}), 259, 505, 4, kAdpcm4},
        {"IMA, fewer stated", codedFmt(0x11, 1, 256, 4, {100}), 512, 200, 4, kAdpcm4},
        {"IMA, none stated", codedFmt(0x11, 1, 256, 4, {}), 512, 1010, 4, kAdpcm4},
        {"IMA, 3 bits", codedFmt(0x11, 1, 256, 3, {673}), 512, 1346, 3, kAdpcm4},
        {"IMA stereo, the largest block", codedFmt(0x11, 2, 65535, 4, {65535}), 65535, 65527, 4, kAdpcm4},
        {"MS blocks, without pairs", codedFmt(0x02, 2, 256, 4, {244, 0}), 512, 488, 4, kAdpcm4},
        {"MS, 65535 pairs stated", codedFmt(0x02, 2, 256, 4, {244, 65535}), 300, 276, 4, kAdpcm4},
        {"Dialogic", codedFmt(0x17, 1, 1, 4, {}), 7, 14, 4, kAdpcm4},
        {"Yamaha stereo", codedFmt(0x20, 2, 1, 4, {}), 7, 7, 4, kAdpcm4},
        {"GSM", codedFmt(0x31, 1, 65, 0, {320}), 131, 640, 2, kPcm16},
        {"GSM, an odd frame", codedFmt(0x1000, 1, 65, 0, {320}), 98, 480, 2, kPcm16},
        {"GSM, no block", codedFmt(0x31, 1, 0, 0, {}), 130, 640, 2, kPcm16},
        {"GSM of a modem", codedFmt(0x303, 1, 38, 0, {}), 77, 320, 2, kPcm16},
        {"Rockwell, 3 bits", codedFmt(0x3B, 1, 1, 3, {}), 4, 10, 3, kAdpcm3},
        {"G.726, 5 bits", codedFmt(0x64, 1, 1, 5, {}), 4, 6, 5, kAdpcm5},
        {"G.726, said to be stereo", codedFmt(0x40, 2, 1, 4, {}), 4, 8, 4, kAdpcm4},
        {"G.722", codedFmt(0x65, 1, 1, 4, {}), 4, 8, 4, kAdpcm4},
    };
    for (const Case& c : cases) {
        Wave* wave = import(codedWav(c.fmt, c.dataBytes));
        ASSERT_TRUE(wave) << c.name << ": " << failure();
        EXPECT_EQ(wave->frames, c.frames) << c.name;
        EXPECT_EQ(wave->bits, c.bits) << c.name;
        EXPECT_EQ(wave->preferredFormat, c.code) << c.name;
        EXPECT_EQ(load(wave).size(), wave->sampleCount()) << c.name;
    }
}

TEST_F(WavCodecs, ModemFramesMayLackWhatStandsAroundThem) {
    const Bytes plain = dataFile("gsm_plain.gsm");
    const std::vector<i16> expected = samplesOf(dataFile("gsm_plain.s16"));
    ByteWriter bare, whole;
    for (std::size_t at = 0; at < plain.size(); at += 33) {
        whole.u8le(0xFE).u8le(0xFE).bytes(ByteSpan(plain).subspan(at, 33)).u8le(0).fill(2, 0xA5);
        bare.bytes(ByteSpan(plain).subspan(at, 33));
    }
    bare.fill(50, 0xA5); // the rounds are counted as if each took 38 bytes
    for (const ByteWriter* data : {&whole, &bare}) {
        ByteWriter chunks;
        addChunk(chunks, "fmt ", codedFmt(0x303, 1, 38, 0, {}));
        addChunk(chunks, "data", data->view());
        EXPECT_EQ(load(import(test::riff(chunks.view()))), expected);
    }
}

/// What no block or stream is left to decode from is defined all the same.
TEST_F(WavCodecs, TruncationAtEveryByte) {
    for (const char* name : {"ima4_stereo", "ms_stereo", "gsm_wav49", "yamaha_mono"}) {
        Bytes good = dataFile(std::string(name) + ".wav");
        good.resize(std::min<std::size_t>(good.size(), 400));
        for (std::size_t n = 0; n <= good.size(); ++n) {
            Wave* wave = import(ByteSpan(good).first(n));
            if (!wave || wave->frames == 0) continue;
            EXPECT_LE(wave->frames, n * 8) << name;
            EXPECT_EQ(load(wave).size(), wave->sampleCount()) << name << n;
        }
    }
}

} // namespace
} // namespace kv
