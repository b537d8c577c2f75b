#include <cmath>
#include <limits>

#include "model/parameter_set.h"
#include "model/sample_params.h"
#include "workspace_test.h"

namespace kv {
namespace {

TEST(ValidateParams, MovesSemitonesIntoTheKey) {
    struct Case {
        i32 cents;
        u8 key;
        i32 wantedCents;
        u8 wantedKey;
    };
    const Case cases[] = {
        {50, 60, 50, 60}, {51, 60, -49, 59},     {-50, 60, -50, 60}, {-51, 60, 49, 61},
        {350, 2, 50, 0},  {-350, 126, -50, 127}, {0, 200, 0, 0},     {99, 61, -1, 60},
    };
    for (const Case& c : cases) {
        SampleParams params;
        params.fineTune = c.cents;
        params.rootKey = c.key;
        ValidateParams(params, 100, ParameterSet());
        EXPECT_EQ(params.fineTune, c.wantedCents) << c.cents;
        EXPECT_EQ(params.rootKey, c.wantedKey) << c.cents;
    }
    SampleParams hostile;
    hostile.fineTune = std::numeric_limits<i32>::max();
    ValidateParams(hostile, 100, ParameterSet());
    EXPECT_LE(std::abs(hostile.fineTune), 50);
}

TEST(ValidateParams, KeepsLoopsInside) {
    struct Case {
        f64 start, end;
        f64 wantedStart, wantedEnd;
        bool looped;
    };
    const f64 nan = std::numeric_limits<f64>::quiet_NaN();
    const Case cases[] = {
        {10, 90, 10, 90, true}, {10, 12, 10, 12, false},  {10, 12.5, 10, 12.5, true},
        {-1, 50, 0, 50, true},  {60, 50, 0, 50, true},    {10, 101, 10, 100, true},
        {10, 0, 10, 100, true}, {nan, nan, 0, 100, true}, {99, 100, 99, 100, false},
    };
    for (const Case& c : cases) {
        SampleParams params;
        params.loopStart = c.start;
        params.loopEnd = c.end;
        params.loopFlags = kLooped | kLoopReverse;
        ValidateParams(params, 100, ParameterSet());
        EXPECT_EQ(params.loopStart, c.wantedStart) << c.start << ".." << c.end;
        EXPECT_EQ(params.loopEnd, c.wantedEnd) << c.start << ".." << c.end;
        EXPECT_EQ(params.looped(), c.looped) << c.start << ".." << c.end;
        EXPECT_NE(params.loopFlags & kLoopReverse, 0);
    }
}

TEST(ValidateParams, TakesAwayWhatIsSwitchedOff) {
    ParameterSet set;
    SampleParams params;
    params.startOffset = 150;
    params.endOffset = -500;
    params.gainDb = 200;
    params.loopStart = 10.5;
    params.loopEnd = 90.51;
    ValidateParams(params, 100, set);
    EXPECT_EQ(params.startOffset, 99);
    EXPECT_EQ(params.endOffset, 0); // one frame must remain
    EXPECT_EQ(params.gainDb, 96);
    EXPECT_EQ(params.loopStart, 10.5);
    set.set(Switch::StartOffset, false);
    set.set(Switch::FractionalLoops, false);
    ValidateParams(params, 100, set);
    EXPECT_EQ(params.startOffset, 0);
    EXPECT_EQ(params.loopStart, 10);
    EXPECT_EQ(params.loopEnd, 91);
}

} // namespace
} // namespace kv
