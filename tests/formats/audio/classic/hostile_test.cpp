// Files of classic formats that would take long or never end.
#include "formats/audio/classic/classic_test.h"

namespace kv {
namespace {

using ClassicHostile = test::ClassicTest;

TEST_F(ClassicHostile, SilenceWithoutEndIsBounded) {
    ByteWriter out;
    out.text("Creative Voice File\x1A").u16le(26).u16le(0x010A).u16le(0x1129);
    out.u8le(1).u16le(3).u8le(0).u8le(6).u8le(0).u8le(0x80);
    for (int i = 0; i < 100'000; ++i) out.u8le(3).u16le(3).u8le(0).u16le(0xFFFF).u8le(6);
    Wave* wave = import(out.view(), "a.voc");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->frames, (1U << 25) + 1);
}

TEST_F(ClassicHostile, TreesThatRunInCirclesEnd) {
    ByteWriter out;
    out.text("HCOM").u32be(1000).u32be(0).u32be(0).u32be(1).u16be(2);
    out.u16be(1).u16be(1).u16be(0).u16be(0).u8le(0).u8le(0x90).fill(4000, 0x5A);
    Wave* wave = import(out.view(), "a.hcom");
    ASSERT_TRUE(wave);
    const std::vector<i16> samples = samplesOf(*wave);
    EXPECT_EQ(samples.size(), 1000U);
    EXPECT_EQ(samples[999], 128);
}

} // namespace
} // namespace kv
