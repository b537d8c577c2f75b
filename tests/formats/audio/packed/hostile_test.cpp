// Files of packed audio that are broken on purpose: each gives a message or what can be read of it, in little
// time and memory. The sanitizers watch.
#include "formats/audio/packed/packed_test.h"

namespace kv {
namespace {

using PackedHostile = test::PackedTest;

TEST_F(PackedHostile, LyingHeaders) {
    ASSERT_TRUE(import(tones(1, 16000, 1500), "a.wav"));
    exportTo("Free lossless audio codec (default)", "a.flac");
    Bytes bad = test::readFile(folder / "a.flac");
    std::fill(bad.begin() + 22, bad.begin() + 26, std::byte{0xFF}); // frames
    EXPECT_FALSE(import(bad, "a.flac"));

    ASSERT_TRUE(import(tones(1, 16000, 1500), "a.wav"));
    exportTo("MPEG layer III - CBR", "a.mp3", kAnyFormat, 16);
    bad = test::readFile(folder / "a.mp3");
    const std::size_t at = textOf(bad).find("Info") + 8;
    std::fill_n(bad.begin() + static_cast<std::ptrdiff_t>(at), 4, std::byte{0xFF}); // frames
    const Wave* wave = import(bad, "a.mp3");
    ASSERT_TRUE(wave) << failure();
    EXPECT_LT(wave->frames, 4000U);
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
