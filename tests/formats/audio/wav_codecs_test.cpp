// WAV files with coded samples: against files that other programs wrote (tests/data/coded/README.md), and
// written and read back.
#include <cmath>

#include "formats/audio/wav_writer.h"
#include "formats/format_test.h"

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
                          {"ima3", 1, 3},      {"ms_mono", 1, 4},     {"ms_stereo", 2, 4}};
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

} // namespace
} // namespace kv
