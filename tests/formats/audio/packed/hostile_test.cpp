// Files of packed audio that are broken on purpose: each gives a message or what can be read of it, in little
// time and memory. The sanitizers watch.
#include "formats/audio/packed/packed_test.h"

namespace kv {
namespace {

class PackedHostile : public test::PackedTest {
protected:
    /// Small files of every form.
    std::vector<std::string> samples() {
        const std::pair<const char*, const char*> rows[] = {{"Free lossless audio codec (default)", "a.flac"},
                                                            {"WavPack lossless", "a.wv"},
                                                            {"Ogg Vorbis", "a.ogg"},
                                                            {"Opus (Voice)", "a.opus"},
                                                            {"MPEG layer III - CBR", "a.mp3"},
                                                            {"MPEG layer II - CBR", "a.mp2"}};
        std::vector<std::string> names;
        for (const auto& [row, name] : rows) {
            Wave* wave = import(tones(1, 16000, 1500), "a.wav");
            wave->comments = "text";
            wave->params.loopFlags = kLooped;
            wave->params.loopEnd = 1000;
            exportTo(row, name, kPcm16 | kMonoBit, 16);
            names.emplace_back(name);
        }
        if (test::has("ffmpeg") && run("ffmpeg -y -i a.wav -c:a aac -b:a 16k a.aac"))
            names.emplace_back("a.aac");
        return names;
    }
    /// Imports and loads whatever comes of it; a failure says why.
    void tryAll(ByteSpan bytes, const std::string& name) {
        space.error = {};
        space.diagnostics = {};
        test::writeFile(folder / name, bytes);
        const bool imported = Import(folder / name, false);
        EXPECT_TRUE(imported || !space.error.message.empty());
        Wave* wave = imported ? store().First<Wave>() : nullptr;
        if (!wave) return; // one without frames is gone
        EXPECT_TRUE(wave->channels >= 1 && wave->channels <= 2);
        EXPECT_LE(wave->frames, bytes.size() * 16384);
        if (wave->frames < 1'000'000 && wave->LoadData()) {
            EXPECT_EQ(std::max(wave->samples16.size(), wave->samplesFloat.size()), wave->sampleCount());
        }
    }
};

TEST_F(PackedHostile, CutAnywhere) {
    for (const std::string& name : samples()) {
        const Bytes good = test::readFile(folder / name);
        const std::size_t step = 1 + good.size() / 400;
        for (std::size_t n = 0; n < good.size(); n += n < 300 ? 1 : step)
            tryAll(ByteSpan(good).first(n), name);
    }
}

TEST_F(PackedHostile, ChangedBytes) {
    std::mt19937 random(3);
    for (const std::string& name : samples()) {
        const Bytes good = test::readFile(folder / name);
        for (int round = 0; round < 300; ++round) {
            Bytes bad = good;
            for (auto changes = 1 + random() % 3; changes > 0; --changes)
                bad[random() % (round % 2 != 0 ? bad.size() : std::min<std::size_t>(bad.size(), 200))] =
                    static_cast<std::byte>(random() % 3 == 0 ? 0xFF : random());
            tryAll(bad, name);
        }
    }
}

TEST_F(PackedHostile, LyingHeaders) {
    for (const std::string& name : samples()) {
        Bytes bad = test::readFile(folder / name);
        if (name == "a.ogg") {
            bad[28 + 11] = std::byte{255}; // channels
            tryAll(bad, name);
        } else if (name == "a.flac") {
            std::fill(bad.begin() + 22, bad.begin() + 26, std::byte{0xFF}); // frames
            tryAll(bad, name);
            EXPECT_FALSE(import(bad, name));
        } else if (name == "a.mp3") {
            const std::size_t at = textOf(bad).find("Info") + 8;
            std::fill_n(bad.begin() + static_cast<std::ptrdiff_t>(at), 4, std::byte{0xFF}); // frames
            const Wave* wave = import(bad, name);
            ASSERT_TRUE(wave) << failure();
            EXPECT_LT(wave->frames, 4000U);
        }
    }
}

/// A file that ends early is as long as what is there of it.
TEST_F(PackedHostile, HalfAnMp3) {
    ASSERT_TRUE(import(tones(2, 44100, 100'000), "a.wav"));
    exportTo("MPEG layer III - CBR", "a.mp3");
    const Bytes good = test::readFile(folder / "a.mp3");
    const Wave* wave = import(ByteSpan(good).first(good.size() / 2), "b.mp3");
    ASSERT_TRUE(wave);
    const u32 frames = wave->frames;
    EXPECT_NEAR(frames, 50'000, 3000);
    EXPECT_EQ(samplesOf("b.mp3").size(), 2 * std::size_t{frames});
}

} // namespace
} // namespace kv
