// Banks with packed samples: what comes out is what was packed. The files were made with `wavpack`, `oggenc`
// and by hand, from a tone of 440 Hz.
#include <cmath>
#include <random>

#include "base/shared_library.h"
#include "formats/format_test.h"
#include "model/store.h"
#include "places.h"

namespace kv {
namespace {

using test::FormatTest;

class Packed : public FormatTest {
protected:
    void SetUp() override {
        const SharedLibrary wavPack("libwavpack1", {"libwavpack.so.1"}),
            vorbis("libvorbisfile3", {"libvorbisfile.so.3"});
        if (!wavPack.ready("WavPack") || !vorbis.ready("Ogg Vorbis")) GTEST_SKIP() << failure();
    }
    static Bytes seed(const std::string& name) {
        return test::readFile(std::filesystem::path(KV_SOURCE_DIR) / "fuzz/seeds/import" / name);
    }
    /// The samples of all waves of a file, one after the other.
    std::vector<std::vector<f32>> samples(const Bytes& bytes) {
        test::writeFile(folder / "bank.sf2", bytes);
        std::vector<std::vector<f32>> waves;
        if (!Import(folder / "bank.sf2", true)) return waves;
        for (Wave& wave : store().all<Wave>()) {
            EXPECT_TRUE(wave.LoadData()) << failure();
            const std::span<f32> data = GetFloatData(wave);
            waves.emplace_back(data.begin(), data.end());
        }
        return waves;
    }
};

TEST_F(Packed, WavPackIsLossless) {
    // The plain bank's two samples are the 400 points that were packed, twice over.
    const auto plain = samples(seed("seed.sf2"));
    ASSERT_EQ(plain.size(), 2U);
    std::vector<f32> points = plain[0];
    points.insert(points.end(), plain[1].begin(), plain[1].end());
    ASSERT_EQ(points.size(), 400U);
    const auto packed = samples(seed("packed.sf2pack"));
    ASSERT_EQ(packed.size(), 2U);
    ASSERT_EQ(packed[0].size(), 400U);
    ASSERT_EQ(packed[1].size(), 354U);
    // The plain bank has a third byte, which the packed points lack.
    for (std::size_t i = 0; i < 400; ++i) EXPECT_EQ(packed[0][i], std::floor(points[i] * 32768) / 32768);
    for (std::size_t i = 0; i < 354; ++i) EXPECT_EQ(packed[1][i], packed[0][i + 46]) << "from the middle on";
}

TEST_F(Packed, VorbisComesClose) {
    const auto waves = samples(seed("packed.sf3"));
    ASSERT_EQ(waves.size(), 1U);
    ASSERT_EQ(waves[0].size(), 1103U);
    const Wave& wave = *store().First<Wave>();
    EXPECT_EQ(wave.sampleRate, 22050U);
    // The tone's correlation with itself, in any phase, over its whole energy.
    f64 sine = 0, cosine = 0, energy = 0;
    for (std::size_t i = 0; i < waves[0].size(); ++i) {
        const f64 phase = 2 * 3.14159265358979 * 440 * static_cast<f64>(i) / 22050;
        sine += f64{waves[0][i]} * std::sin(phase);
        cosine += f64{waves[0][i]} * std::cos(phase);
        energy += f64{waves[0][i]} * f64{waves[0][i]};
    }
    EXPECT_GT(2 * (sine * sine + cosine * cosine) / static_cast<f64>(waves[0].size()) / energy, 0.999);
}

TEST_F(Packed, DamagedStreamsEndInSilenceOrAMessage) {
    std::minstd_rand random(3);
    for (const char* name : {"packed.sf2pack", "packed.sf3"}) {
        const Bytes whole = seed(name);
        for (int i = 0; i < 300; ++i) {
            Bytes bytes = whole;
            if (i % 3 == 0) bytes.resize(random() % bytes.size());
            for (int n = 0; n < 4 && !bytes.empty(); ++n)
                bytes[random() % bytes.size()] = static_cast<std::byte>(random());
            test::writeFile(folder / "hurt.sf2", bytes);
            if (!Import(folder / "hurt.sf2", true)) continue;
            for (Wave& wave : store().all<Wave>()) wave.LoadData();
        }
    }
}

TEST_F(Packed, ArchivesHoldTheirWavesInMemory) {
    test::writeFile(folder / "bank.sfark", seed("method6.sfark"));
    ASSERT_TRUE(Import(folder / "bank.sfark", true)) << failure();
    Wave& wave = *store().First<Wave>();
    EXPECT_TRUE(wave.resident());
    EXPECT_FALSE(FreeData(wave, true)) << "there is no other copy";
    EXPECT_EQ(wave.sourceFile, folder / "bank.sfark");
    EXPECT_EQ(store().count(kInstrumentClass), 1U);
    Bytes cut = seed("method6.sfark");
    cut.resize(cut.size() / 2);
    test::writeFile(folder / "cut.sfark", cut);
    EXPECT_FALSE(Import(folder / "cut.sfark", true));
    EXPECT_EQ(failure(), "sfark_Imp: sfArk decompression failed");
}

} // namespace
} // namespace kv
