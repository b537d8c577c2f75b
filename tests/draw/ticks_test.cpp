#include "draw/ticks.h"

#include <gtest/gtest.h>

#include <cmath>

#include "draw/plot.h"

namespace kv {
namespace {

std::string labelsOf(const std::vector<Tick>& ticks) {
    std::string text;
    for (const Tick& tick : ticks) {
        if (!tick.label.empty()) text += (text.empty() ? "" : "|") + tick.label;
    }
    return text;
}

TEST(Ticks, AreRoundAndLabelled) {
    EXPECT_EQ(labelsOf(linearTicks(-1, 1, 4)), "-1.0|-0.5|0.0|0.5|1.0");
    EXPECT_EQ(labelsOf(linearTicks(-0.003, 0.003, 6)), "-0.003|-0.002|-0.001|0.000|0.001|0.002|0.003");
    EXPECT_EQ(labelsOf(linearTicks(-2e6, 2e6, 4)), "-2e+06|-1e+06|0|1e+06|2e+06");
    EXPECT_EQ(labelsOf(linearTicks(0, 1234567, 3, 1)), "0|500 000|1 000 000");
    EXPECT_EQ(labelsOf(linearTicks(77000, 77003, 12, 1)), "77 000|77 001|77 002|77 003");
    EXPECT_EQ(labelsOf(timeTicks(0, 0.59, 10)), "0.0 s|0.1 s|0.2 s|0.3 s|0.4 s|0.5 s");
    EXPECT_EQ(labelsOf(timeTicks(0, 100, 4)), "0:00|0:30|1:00|1:30");
    EXPECT_EQ(labelsOf(timeTicks(59.75, 60.5, 4)), "0:59.8|1:00.0|1:00.2|1:00.4");
    EXPECT_EQ(labelsOf(timeTicks(3590, 10900, 3)), "1:00:00|2:00:00|3:00:00");
    EXPECT_EQ(labelsOf(frequencyTicks(20, 22050)), "20|50|100|200|500|1k|2k|5k|10k|20k");
    EXPECT_EQ(labelsOf(levelTicks(-60, 0, 6)), "-60|-50|-40|-30|-20|-10|0");
    EXPECT_EQ(frequencyTicks(20, 22050).size(), 8 + 9 + 9 + 2U);
}

TEST(Ticks, SurviveOddRanges) {
    for (const f64 to : {0.0, -1.0, std::nan("")}) {
        EXPECT_TRUE(linearTicks(0, to, 5).empty());
        EXPECT_TRUE(timeTicks(0, to, 5).empty());
        EXPECT_TRUE(levelTicks(0, to, 5).empty());
        EXPECT_TRUE(frequencyTicks(0, to).empty());
    }
    for (const f64 to : {1e-12, 1e300, 5e9}) {
        for (const u32 most : {0U, 1U, 10U}) {
            EXPECT_LE(linearTicks(-to, to, most).size(), 13U) << to;
            EXPECT_LE(timeTicks(0, std::min(to, 5e9), most).size(), 6000U) << to;
        }
    }
    EXPECT_EQ(grouped(-1234567), "-1 234 567");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(niceCeiling(3e20), 3e20);
    EXPECT_EQ(niceCeiling(1.2), 1.5);
    EXPECT_EQ(niceCeiling(0), 1);
}

TEST(Scales, GoBothWays) {
    for (const Scale& scale :
         {Scale{-1, 3, 100, 20}, logScale(20, 20000, 50, 1050), melScale(0, 22050, 500, 10)}) {
        EXPECT_NEAR(scale.at(scale.from), scale.low, 1e-9);
        EXPECT_NEAR(scale.at(scale.to), scale.high, 1e-9);
        for (const f64 part : {0.1, 0.5, 0.9}) {
            const f64 pixel = scale.low + part * (scale.high - scale.low);
            EXPECT_NEAR(scale.at(scale.valueAt(pixel)), pixel, 1e-6);
        }
    }
    EXPECT_NEAR(logScale(20, 20000, 0, 3).at(200), 1, 1e-9);
}

} // namespace
} // namespace kv
