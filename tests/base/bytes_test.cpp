#include "base/bytes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/integers.h"
#include "base/run_context.h"

namespace kv {
namespace {

TEST(ByteCursor, ReadsInBothOrders) {
    const Bytes bytes =
        ByteWriter().u32le(0x11223344).u32be(0x11223344).u16be(0xFFFE).u8le(0x80).u64le(7).take();
    ByteCursor in(bytes, 1000);
    EXPECT_EQ(in.u32le(), 0x11223344U);
    EXPECT_EQ(in.u32be(), 0x11223344U);
    EXPECT_EQ(in.s16be(), -2);
    EXPECT_EQ(in.s8(), -128);
    EXPECT_EQ(in.offset(), 1011U);
    EXPECT_EQ(in.u64le(), 7U);
    EXPECT_TRUE(in.ok());
    EXPECT_EQ(in.left(), 0U);
}

TEST(ByteCursor, LatchesAtTheFirstAccessPastTheEnd) {
    const Bytes bytes(5, std::byte{0xFF});
    ByteCursor in(bytes);
    in.skip(2);
    EXPECT_EQ(in.u32le(), 0U);
    EXPECT_FALSE(in.ok());
    EXPECT_EQ(in.offset(), 2U);
    EXPECT_EQ(in.u8le(), 0U); // what would fit gives nothing either
    EXPECT_TRUE(in.bytes(1).empty());
    EXPECT_FALSE(in.sub(0).ok());
    ByteCursor huge(bytes);
    huge.skip(3);
    EXPECT_TRUE(huge.bytes(std::numeric_limits<std::size_t>::max()).empty());
    EXPECT_FALSE(huge.ok());
}

TEST(ByteCursor, PartsStayInsideAndKnowTheirPlace) {
    const Bytes bytes = ByteWriter().text("abcd\0efg").text("tail").take();
    ByteCursor in(bytes, 100);
    in.skip(1);
    ByteCursor part = in.sub(2);
    EXPECT_EQ(part.text(2), "bc");
    EXPECT_EQ(part.u8le(), 0);
    EXPECT_FALSE(part.ok());
    EXPECT_EQ(part.offset(), 103U);
    EXPECT_TRUE(in.ok());
    EXPECT_EQ(in.text(5), "dtail");
    ByteCursor cut(bytesOf(std::string_view("ab\0cd", 5)));
    EXPECT_EQ(cut.text(5), "ab");
}

TEST(ByteWriter, PadsAndPatches) {
    ByteWriter out;
    out.text("x").pad(4).u32le(0).fill(2, 7);
    out.patchU32le(4, 0xAABBCCDD);
    EXPECT_EQ(textOf(out.view()), std::string_view("x\0\0\0\xDD\xCC\xBB\xAA\x07\x07", 10));
    EXPECT_EQ(out.pad(5).size(), 10U);
}

TEST(Integers, SaturateAndRound) {
    const f64 nan = std::nan("");
    EXPECT_EQ(saturate<i16>(40000.0), 32767);
    EXPECT_EQ(saturate<i16>(-1e300), -32768);
    EXPECT_EQ(saturate<u32>(-0.5), 0U);
    EXPECT_EQ(saturate<u32>(1e20), 0xFFFFFFFFU);
    EXPECT_EQ(saturate<u64>(1e30), std::numeric_limits<u64>::max());
    EXPECT_EQ(saturate<i32>(nan), 0);
    EXPECT_EQ(saturate<i32>(-2.9), -2);
    EXPECT_EQ(roundHalf(2.5), 3);
    EXPECT_EQ(roundHalf(-2.5), -3);
    EXPECT_EQ(roundHalf(2.5, 0.499), 2);
    EXPECT_EQ(roundHalf(1e20), std::numeric_limits<i32>::max());
}

TEST(Diagnostics, StopCollectingAtALimit) {
    Diagnostics log;
    for (int i = 0; i < 20000; ++i) log.warn(0, "field", "text");
    EXPECT_EQ(log.entries().size(), 10000U);
    EXPECT_EQ(log.dropped(), 10000U);
}

TEST(RunContext, IsTheThreadsOwnAndNests) {
    RunContext outer, inner;
    const RunContextScope first(outer);
    {
        const RunContextScope second(inner);
        EXPECT_FALSE(Fail("here", "{} of {}", 1, 2));
    }
    EXPECT_EQ(inner.error.message, "1 of 2");
    EXPECT_TRUE(outer.error.message.empty());
    EXPECT_EQ(&runContext(), &outer);
    static constexpr std::string_view kButtons[] = {"a", "b"};
    EXPECT_EQ(Ask("", "", kButtons, 1), 1); // nobody there: the safe answer
    EXPECT_EQ(ShowMessage("", ""), 1);
}

} // namespace
} // namespace kv
