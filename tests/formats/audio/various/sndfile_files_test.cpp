// Formats that libsndfile reads and writes.
#include "formats/audio/various/various_test.h"
#include "formats/codecs/sndfile_stream.h"

namespace kv {
namespace {

class SndfileFiles : public test::VariousTest {};

TEST_F(SndfileFiles, HoldWhatTheirRowsSay) {
    const SndfileFormat formats[] = {SndfileFormat::Nist, SndfileFormat::Paf, SndfileFormat::Ircam,
                                     SndfileFormat::Mat5};
    const char* const names[] = {"a.nist", "a.paf", "a.sf", "a.mat"};
    const std::vector<i16> samples = tone(2003);
    for (std::size_t i = 0; i < 4; ++i) {
        const FormatRow* row = formatTable().row(
            formatTable().RowByExtension(std::filesystem::path(names[i]).extension().string(), kWaveClass));
        ASSERT_TRUE(row);
        EXPECT_EQ(row->dataMask, sndfileCodes(formats[i]) | kMonoBit | kStereoBit) << names[i];
        for (u32 code = 1; code <= kALaw; code <<= 1) {
            if ((row->dataMask & code) == 0) continue;
            for (const u32 channels : {kMonoBit, kStereoBit}) {
                ASSERT_TRUE(import(wavWith(samples)));
                Wave* wave = open(exportAs("ref.wav", code | channels).filename());
                ASSERT_TRUE(wave) << failure();
                std::vector<i16> wanted = samplesOf(*wave);
                if (formats[i] == SndfileFormat::Paf && code == kPcm24) // in blocks of 10 frames
                    wanted.resize(wanted.size() + 7 * wave->channels);
                exportAs(names[i], code | channels);
                wave = open(names[i]);
                ASSERT_TRUE(wave) << names[i] << " " << std::hex << code << failure();
                EXPECT_EQ(wave->sampleRate, 44100U);
                EXPECT_EQ(wave->preferredFormat, code == kFloat64 ? kFloat32 : code);
                EXPECT_EQ(samplesOf(*wave), wanted) << names[i] << std::hex << code;
            }
        }
    }
}

TEST_F(SndfileFiles, AreReadAsOtherProgramsWriteThem) {
    if (!run("sox -R -n -r 32000 -c 2 -b 24 a.wav synth 0.1 sine 300 sine 500 gain -2"))
        GTEST_SKIP() << "no sox";
    const std::vector<i16> wanted = samplesOf(*open("a.wav"));
    for (const char* command :
         {"sndfile-convert -pcm24 a.wav b.nist", "sndfile-convert -pcm24 a.wav b.paf",
          "sndfile-convert -pcm32 a.wav b.sf", "sox a.wav -e floating-point -b 32 b.mat4",
          "sox a.wav -e signed -b 32 b.mat5", "sox a.wav -e signed -b 32 -L b.sf",
          "sox a.wav -e signed -b 32 -B b.sf"}) {
        ASSERT_TRUE(run(command)) << command;
        const std::string text = command;
        Wave* wave = open(text.substr(text.rfind(' ') + 1));
        ASSERT_TRUE(wave) << command << failure();
        EXPECT_EQ(wave->sampleRate, 32000U);
        const std::vector<i16> samples = samplesOf(*wave);
        ASSERT_EQ(samples.size(), wanted.size()) << command;
        for (std::size_t i = 0; i < samples.size(); ++i) ASSERT_NEAR(samples[i], wanted[i], 1) << command;
    }
    // Of many channels the first two are kept.
    ASSERT_TRUE(run("sox -M a.wav a.wav c.wav && sox c.wav -b 16 d.sf"));
    Wave* wave = open("d.sf");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->channels, 2U);
    EXPECT_EQ(samplesOf(*wave).size(), wanted.size());
}

TEST_F(SndfileFiles, OtherFilesAreRefused) {
    EXPECT_FALSE(import(wavWith(tone(50)), "a.wav") && Import(folder / "a.wav", false, rowOf("NIST Sphere")));
    EXPECT_EQ(failure(), "libsndfile: Unsupported file");
}

} // namespace
} // namespace kv
