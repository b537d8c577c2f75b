// Saved states: the collection as it was, in the richest form that the table has.
#include "formats/format_test.h"
#include "formats/framework/collection_files.h"
#include "model/instrument.h"
#include "model/store.h"

namespace kv {
namespace {

class SavedStates : public test::FormatTest {
protected:
    SavedStates() {
        space.stateFolder = folder / "states";
        store().Create<Collection>(folder / "made.wav");
        Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr, "wave");
        wave->frames = 40;
        wave->sourceFile = kMemoryOnly;
        wave->reloadable = false;
        EXPECT_TRUE(wave->samples16.allocate(40));
        for (u32 i = 0; i < 40; ++i) wave->samples16.data()[i] = static_cast<i16>(i * 7);
        wave->FixUp();
        Instrument* instrument =
            store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 2U, "first");
        instrument->FixUp();
    }
    static Instrument& instrument() { return *store().First<Instrument>(); }
    static void rename(int n) { instrument().SetName("state " + std::to_string(n), false); }
};

TEST_F(SavedStates, ComeBackNewestFirst) {
    EXPECT_FALSE(RestoreState()) << "there is none";
    for (int n = 0; n < 3; ++n) {
        rename(n);
        instrument().patch = static_cast<u32>(n);
        ASSERT_TRUE(SaveState()) << failure();
    }
    rename(99);
    store().First<Wave>()->samples16.data()[5] = 1000;
    for (int n = 2; n >= 0; --n) {
        ASSERT_TRUE(HasState(static_cast<u32>(n)));
        EXPECT_FALSE(HasState(static_cast<u32>(n + 1)));
        ASSERT_TRUE(RestoreState()) << failure();
        EXPECT_EQ(instrument().name(), "state " + std::to_string(n));
        EXPECT_EQ(instrument().program(), static_cast<u32>(n));
        EXPECT_EQ(instrument().childIds.size(), 2U);
        ASSERT_EQ(store().count(kWaveClass), 1U);
        Wave& wave = *store().First<Wave>();
        ASSERT_TRUE(wave.resident());
        EXPECT_EQ(wave.samples16.data()[5], 35);
        EXPECT_FALSE(wave.hasFile()) << "the state's file is gone";
    }
    EXPECT_FALSE(HasState(0));
    EXPECT_EQ(store().pushedDepth(), 0U);
}

TEST_F(SavedStates, ComeBackAsTheyWere) {
    Wave& wave = *store().First<Wave>();
    wave.params.override = true;
    wave.params.loopFlags = kLooped | kLoopBidirectional;
    wave.params.loopStart = 10;
    wave.params.loopEnd = 30.25;
    ASSERT_TRUE(space.settings.load.bAutoBid2Fwd) << "files that are opened have such loops laid out";
    ASSERT_TRUE(SaveState());
    wave.params.loopFlags = 0;
    ASSERT_TRUE(RestoreState());
    EXPECT_EQ(store().First<Wave>()->params.loopFlags, kLooped | kLoopBidirectional);
    EXPECT_EQ(store().First<Wave>()->params.loopEnd, 30.25);
    EXPECT_EQ(store().First<Wave>()->frames, 40U);
    EXPECT_TRUE(space.settings.load.bAutoBid2Fwd);
}

TEST_F(SavedStates, StandSixteenDeep) {
    for (int n = 0; n < 20; ++n) {
        rename(n);
        ASSERT_TRUE(SaveState());
    }
    EXPECT_TRUE(HasState(15));
    EXPECT_FALSE(HasState(16));
    for (int n = 19; n >= 4; --n) {
        ASSERT_TRUE(RestoreState());
        EXPECT_EQ(instrument().name(), "state " + std::to_string(n));
    }
    EXPECT_FALSE(HasState(0)) << "the oldest four are forgotten";
}

TEST_F(SavedStates, AreCleared) {
    for (int n = 0; n < 5; ++n) ASSERT_TRUE(SaveState());
    ClearStates();
    EXPECT_FALSE(HasState(0));
    EXPECT_EQ(folder.fileCount(), 0U);
}

} // namespace
} // namespace kv
