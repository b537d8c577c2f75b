#include "formats/audio/raw.h"

#include "formats/format_test.h"

namespace kv {
namespace {

class Raw : public test::FormatTest {};

TEST_F(Raw, RowsReadAndWriteTheirForm) {
    struct Case {
        const char* name;
        u32 word, bytes;
        bool writes;
    };
    const Case cases[] = {
        {"a.sb", kPcm8, 1, true},     {"a.raw", kPcm8, 1, false},
        {"a.sam", kPcm8, 1, false},   {"a.ub", kPcm8 | kUnsigned, 1, true},
        {"a.sw", kPcm16, 2, true},    {"a.uw", kPcm16 | kUnsigned, 2, true},
        {"a.sdw", kPcm32, 4, false},  {"a.udw", kPcm32 | kUnsigned, 4, false},
        {"a.f32", kFloat32, 4, true}, {"a.f64", kFloat64, 8, true},
        {"a.alaw", kALaw, 1, true},   {"a.alw", kALaw, 1, true},
        {"a.ulaw", kMuLaw, 1, true},  {"a.ulw", kMuLaw, 1, true},
    };
    Bytes bytes(803);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::byte>(i * 7 % 64);
    for (const Case& c : cases) {
        const Wave* wave = import(bytes, c.name);
        ASSERT_TRUE(wave) << c.name << failure();
        EXPECT_EQ(wave->dataFormat, c.word) << c.name;
        EXPECT_EQ(wave->frames, 803 / c.bytes) << c.name;
        EXPECT_EQ(wave->sampleRate, 22050U);
        if (!c.writes) continue;
        const Bytes whole(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(wave->frames * c.bytes));
        EXPECT_EQ(test::readFile(exportAs(std::string("out") + c.name, (c.word & kCodeMask) | kMonoBit)),
                  whole)
            << c.name;
    }
}

TEST_F(Raw, BigEndianRowsSwap) {
    ASSERT_TRUE(import(ByteWriter().u16le(0x1234).take(), "a.sw"));
    const std::pair<const char*, std::string_view> cases[] = {
        {"Signed words (16-bit) - Big Endian", "\x12\x34"},
        {"Unsigned words (16-bit) - Bit Endian", "\x92\x34"}};
    for (const auto& [row, wanted] : cases) {
        ASSERT_TRUE(
            Export(rowOf(row), folder / "b", store().First<Wave>(), kAnyFormat & ~kStereoBit, 0, false))
            << failure();
        EXPECT_EQ(textOf(test::readFile(folder / "b")), wanted);
    }
}

TEST_F(Raw, UnrecognisedFilesAreAskedFor) {
    space.rawSource = {kPcm16 | kByteswap, 48000, 2, 2};
    ui.answers = {0};
    const Wave* wave = import(Bytes(11), "what.ever");
    ASSERT_TRUE(wave);
    EXPECT_EQ(ui.questions, (std::vector<std::string>{"Unknown file type!"}));
    EXPECT_EQ(wave->frames, 2U);
    EXPECT_EQ(wave->sampleRate, 48000U);
    EXPECT_EQ(wave->channels, 2U);
    EXPECT_EQ(wave->sourceOffset, 2U);
    EXPECT_FALSE(import(Bytes(11), "what.ever")); // the safe answer: nothing is read, and that is no failure
    EXPECT_EQ(store().count(kWaveClass), 0U);
    EXPECT_FALSE(Import(folder / "what.ever", false));
    EXPECT_EQ(failure(), "Import: Not detected as any supported file type");
}

TEST_F(Raw, CanBeSeenOtherwise) {
    Wave* wave = import(Bytes(11), "a.sb");
    ASSERT_TRUE(wave->LoadData());
    ASSERT_TRUE(reinterpretSource(*wave, {kPcm16 | kUnsigned, 8000, 2, 1}, 100));
    EXPECT_EQ(wave->frames, 2U);
    EXPECT_EQ(wave->bits, 16U);
    EXPECT_FALSE(wave->resident());
    EXPECT_TRUE(wave->LoadData());
    ASSERT_TRUE(reinterpretSource(*wave, {kPcm8, 8000, 1, 99}, 5)); // an offset beyond the file
    EXPECT_EQ(wave->sourceOffset, 0U);
    EXPECT_EQ(wave->frames, 5U);
    wave->reloadable = false;
    ASSERT_TRUE(reinterpretSource(*wave, {kPcm16, 8000, 1, 0}, 10));
    EXPECT_EQ(wave->frames, 5U); // holds the only copy
}

} // namespace
} // namespace kv
