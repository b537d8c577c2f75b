#include "model/loops.h"

#include "model/fix_up.h"
#include "model/move_articulation.h"
#include "model/wave_data.h"
#include "model/workspace_test.h"

namespace kv {
namespace {

using test::WorkspaceTest;

class Loops : public WorkspaceTest {
protected:
    Wave* addLooped(std::vector<i16> samples, u16 flags, f64 start, f64 end, u32 channels = 1) {
        Wave* wave = addWaveWith(std::move(samples), channels);
        wave->params.loopFlags = flags;
        wave->params.loopStart = start;
        wave->params.loopEnd = end;
        return wave;
    }
    static std::vector<i16> samplesOf(Wave* wave) {
        const std::span<i16> data = GetInt16Data(*wave);
        return {data.begin(), data.end()};
    }
};

TEST_F(Loops, AreLaidOutForward) {
    struct Case {
        u16 flags;
        u32 channels;
        std::vector<i16> before, after;
        f64 start, end, newStart, newEnd;
    };
    const Case cases[] = {
        {kLooped | kLoopBidirectional, 1, {0, 1, 2, 3, 4, 5, 6}, {0, 1, 2, 3, 4, 4, 3, 2, 5, 6}, 2, 5, 2, 8},
        {kLooped | kLoopReverse, 1, {0, 1, 2, 3, 4, 5, 6}, {0, 1, 2, 3, 4, 4, 3, 2, 5, 6}, 2, 5, 5, 8},
        {kLooped | kLoopBidirectional,
         2,
         {0, 9, 1, 8, 2, 7, 3, 6},
         {0, 9, 1, 8, 2, 7, 3, 6, 3, 6, 2, 7, 1, 8},
         1,
         4,
         1,
         7},
        {kLooped, 1, {0, 1, 2, 3}, {0, 1, 2, 3}, 1, 3, 1, 3},
    };
    for (const Case& c : cases) {
        Wave* wave = addLooped(c.before, c.flags, c.start, c.end, c.channels);
        ASSERT_TRUE(unrollWaveLoop(*wave, true, true));
        EXPECT_EQ(samplesOf(wave), c.after) << c.flags;
        EXPECT_EQ(wave->params.loopStart, c.newStart);
        EXPECT_EQ(wave->params.loopEnd, c.newEnd);
        EXPECT_EQ(wave->params.loopFlags, kLooped);
        EXPECT_EQ(wave->frames, c.after.size() / c.channels);
    }
    Wave* kept = addLooped({0, 1, 2, 3, 4, 5, 6}, kLooped | kLoopReverse, 2, 5);
    ASSERT_TRUE(unrollWaveLoop(*kept, true, false));
    EXPECT_EQ(kept->params.loopFlags, kLooped | kLoopReverse) << "only what was asked for";
    settings().pset.set(Switch::ReverseLoops, false);
    kept->FixUp();
    EXPECT_EQ(kept->params.loopFlags, kLooped) << "a set without such loops has them laid out";
}

TEST_F(Loops, GetATailToReadAheadIn) {
    std::vector<i16> samples(50);
    for (i16 i = 0; i < 50; ++i) samples[static_cast<std::size_t>(i)] = i;
    Wave* wave = addLooped(samples, kLooped, 10, 40);
    Wave* released = addLooped(samples, kLooped | kLoopUntilRelease, 10, 40);
    Wave* roomy = addLooped(samples, kLooped, 2, 18);
    Wave* byRegion = addLooped(samples, kLooped, 10, 20);
    Region* region = store().Create<Region>(kNextFreeNumber, numberOf(byRegion->id()));
    region->params.override = true;
    region->params.loopFlags = kLooped;
    region->params.loopStart = 30;
    region->params.loopEnd = 45;
    AppendLoopTail(true);
    ASSERT_EQ(wave->frames, 72U);
    EXPECT_EQ(samplesOf(wave)[39], 39);
    EXPECT_EQ(samplesOf(wave)[40], 10);
    EXPECT_EQ(samplesOf(wave)[71], 11) << "the loop has 30 frames";
    EXPECT_EQ(released->frames, 50U) << "what stands behind it is played";
    EXPECT_EQ(roomy->frames, 50U);
    ASSERT_EQ(byRegion->frames, 77U) << "the loop that reaches furthest counts";
    EXPECT_EQ(samplesOf(byRegion)[45], 30);
}

TEST_F(Loops, ArticulationInCommonMovesUp) {
    Instrument* instrument =
        store().Create<Instrument>(kNextFreeNumber, numberOf(addWave("w")->id()), 2U, "i");
    std::vector<Layer*> layers;
    for (const ItemId id : instrument->childIds) layers.push_back(store().Find<Layer>(id));
    for (Region& region : store().all<Region>()) {
        region.articulation.enabled = true;
        region.articulation.eg1Attack = 2;
    }
    store().Find<Region>(layers[1]->childIds[0])->articulation.eg1Attack = 3;
    moveArticulationUp(true, true);
    EXPECT_TRUE(layers[0]->articulation.enabled && layers[1]->articulation.enabled);
    EXPECT_FALSE(store().First<Region>()->articulation.enabled);
    EXPECT_FALSE(instrument->articulation.enabled) << "the layers differ";
    layers[1]->articulation.eg1Attack = 2;
    settings().pset.set(Switch::InstrumentArticulation, false);
    moveArticulationUp(true, true);
    EXPECT_FALSE(instrument->articulation.enabled) << "the set has no such level";
    settings().pset = ParameterSet();
    moveArticulationUp(true, true);
    EXPECT_EQ(instrument->articulation.eg1Attack, 2);
    EXPECT_FALSE(layers[0]->articulation.enabled);
}

} // namespace
} // namespace kv
