#include "formats/audio/wave64.h"

#include "formats/format_test.h"

namespace kv {
namespace {

class Wave64 : public test::FormatTest {};

TEST_F(Wave64, HoldsEveryFormAndText) {
    std::vector<i16> samples(1001);
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<i16>(i * 31 - 15000);
    for (const u32 code : {kPcm8, kPcm16, kPcm24, kPcm32, kFloat32, kMuLaw, kALaw}) {
        Wave* wave = import(wavWith(samples));
        wave->artist = "J\xC3\xBCrgen \xF0\x9F\x8E\xB9";
        wave->comments = "odd";
        const Bytes first = test::readFile(exportAs("a.w64", code | kMonoBit));
        ByteCursor size(ByteSpan(first).subspan(16));
        EXPECT_EQ(size.u64le(), first.size());
        ASSERT_TRUE(Import(folder / "a.w64", false)) << failure();
        Wave* back = store().First<Wave>();
        EXPECT_EQ(back->frames, 1001U);
        EXPECT_EQ(back->sampleRate, 44100U);
        EXPECT_EQ(back->artist, "J\xC3\xBCrgen \xF0\x9F\x8E\xB9");
        EXPECT_EQ(back->comments, "odd");
        EXPECT_EQ(back->preferredFormat, code);
        if (code != kPcm8 && code != kMuLaw && code != kALaw) {
            ASSERT_TRUE(back->LoadData());
            const auto data = GetInt16Data(*back);
            EXPECT_TRUE(std::equal(data.begin(), data.end(), samples.begin(), samples.end()))
                << std::hex << code;
        }
        EXPECT_EQ(test::readFile(exportAs("b.w64")), first) << std::hex << code;
    }
}

TEST_F(Wave64, SaysWhatIsMissing) {
    ASSERT_TRUE(import(wavWith(std::vector<i16>(100, 1))));
    const Bytes good = test::readFile(exportAs("a.w64", kFloat32 | kMonoBit));
    Bytes bad = good;
    bad[40] = std::byte{'x'};
    EXPECT_FALSE(import(bad, "b.w64"));
    EXPECT_EQ(failure(), "w64_Imp: Couldn't find fmt chunk!");
    bad = good;
    bad[textOf(good).find("data\xF3")] = std::byte{'x'};
    EXPECT_FALSE(import(bad, "b.w64"));
    EXPECT_EQ(failure(), "w64_Imp: Couldn't find data chunk!");
    bad = good;
    bad[40 + 24] = std::byte{9};
    EXPECT_FALSE(import(bad, "b.w64"));
    EXPECT_EQ(failure(), "w64_Imp: Unsupported compression type");
}

TEST_F(Wave64, TellsWhatItCanNotHold) {
    Wave* wave = import(wavWith(std::vector<i16>(100, 1)));
    wave->params.loopFlags = kLooped;
    wave->params.loopEnd = 50;
    wave->params.rootKey = 61;
    exportAs("a.w64");
    ASSERT_EQ(space.diagnostics.entries().size(), 2U);
    EXPECT_EQ(space.diagnostics.entries()[0].field, "loop");
}

} // namespace
} // namespace kv
