#include "model/store.h"

#include <cstring>

#include "model/wave_data.h"
#include "workspace_test.h"

namespace kv {
namespace {

class StoreTest : public test::WorkspaceTest {};

TEST_F(StoreTest, NumbersRunOnOverAllClasses) {
    Wave* wave = addWave("w");
    Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 2U);
    EXPECT_EQ(numberOf(wave->id()), 1U);
    EXPECT_EQ(numberOf(instrument->id()), 2U);
    EXPECT_EQ(instrument->childIds, (std::vector<ItemId>{kLayerClass | 3, kLayerClass | 5}));
    EXPECT_EQ(FindItem(kRegionClass | 4),
              RegionWave(*store().Find<Region>(kRegionClass | 4)) ? FindItem(kRegionClass | 4) : nullptr);
    EXPECT_EQ(FindItem(kWaveClass | 2), nullptr);
    EXPECT_EQ(store().Find<Layer>(wave->id()), nullptr);
}

TEST_F(StoreTest, ExplicitNumbersBeyondTheTableAreFound) {
    Wave* far = store().Create<Wave>(5'000'000U, nullptr, "far");
    EXPECT_EQ(FindItem(kWaveClass | 5'000'000), far);
    EXPECT_EQ(store().Create<Instrument>(200U)->patch, 200U & 127);
    store().Delete(far);
    EXPECT_EQ(FindItem(kWaveClass | 5'000'000), nullptr);
}

TEST_F(StoreTest, EnumeratesClassesInOrder) {
    Song* song = store().Create<Song>(kNextFreeNumber);
    Wave* a = addWave("a");
    Wave* b = addWave("b");
    EXPECT_EQ(store().FirstItem(kWaveClass), a);
    EXPECT_EQ(store().NextItem(*a), b);
    EXPECT_EQ(store().NextItem(*b), song);
    EXPECT_EQ(store().FirstItem(kLayerClass), song);
    EXPECT_EQ(store().NextItem(*song), collection);
    EXPECT_EQ(store().NextItem(*collection), nullptr);
    EXPECT_EQ(store().FirstItem(0x12345678), nullptr);
}

TEST_F(StoreTest, OwnersTakeTheirChildrenAlongButNotWaves) {
    Wave* wave = addWave("w");
    Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 2U);
    Region* region = store().First<Region>();
    region->AddChild(store().Create<SynthModel>(kNextFreeNumber)->id());
    store().Delete(instrument);
    EXPECT_EQ(store().count(kLayerClass), 0U);
    EXPECT_EQ(store().count(kRegionClass), 0U);
    EXPECT_EQ(store().count(kSynthModelClass), 0U);
    EXPECT_EQ(store().count(kWaveClass), 1U);
}

TEST_F(StoreTest, CopiesAreDeep) {
    Wave* wave = addWave("w");
    Instrument* source = store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 1U, "Piano");
    Region* region = store().First<Region>();
    region->keyGroup = 3;
    region->params.override = true;
    region->AddChild(store().Create<SynthModel>(kNextFreeNumber, "fm")->id());
    Instrument* copy = store().Create<Instrument>(*source, kNextFreeNumber);
    const Layer* layer = store().Find<Layer>(copy->childIds.at(0));
    const Region* copied = store().Find<Region>(layer->childIds.at(0));
    EXPECT_NE(copied, region);
    EXPECT_EQ(copied->keyGroup, 3);
    EXPECT_TRUE(copied->params.override);
    EXPECT_EQ(RegionWave(*copied), wave);
    EXPECT_NE(RegionSynth(*copied), RegionSynth(*region));
}

TEST_F(StoreTest, WavePartsAreCopiedWithTheirSamples) {
    Wave* wave = addWaveWith({0, 1, 2, 3, 4, 5, 6, 7}, 2);
    wave->bits = 16;
    wave->sourceOffset = 100;
    const Wave* part = store().Create<Wave>(*wave, kNextFreeNumber, "part", 1U, 2U);
    EXPECT_EQ(part->frames, 2U);
    EXPECT_EQ(std::vector<i16>(part->samples16.span().begin(), part->samples16.span().end()),
              (std::vector<i16>{2, 3, 4, 5}));
    EXPECT_EQ(part->sourceOffset, 104U);
    EXPECT_FALSE(part->reloadable);
    EXPECT_EQ(store().Create<Wave>(*wave, kNextFreeNumber, "", 9U, 9U)->frames, 1U);
    EXPECT_EQ(store().Create<Wave>(*wave, kNextFreeNumber, "", 1U, 0U)->frames, 3U);
}

TEST_F(StoreTest, ListsStackFourDeepAndComeBack) {
    Wave* wave = addWave("old");
    for (std::size_t i = 0; i < Store::kStackDepth; ++i) {
        ASSERT_TRUE(store().PushLists());
        EXPECT_EQ(store().FirstItem(kWaveClass), nullptr);
        EXPECT_EQ(FindItem(wave->id()), nullptr);
        addWave("new");
    }
    EXPECT_FALSE(store().PushLists());
    for (std::size_t i = 0; i < Store::kStackDepth; ++i) store().PopAndDiscard();
    EXPECT_EQ(store().First<Wave>(), wave);
    EXPECT_EQ(FindItem(wave->id()), wave);
    EXPECT_EQ(addWave("old")->name(), "old 1");
}

TEST_F(StoreTest, SortsAreStable) {
    const u32 patches[] = {5, 1, 5, 0, Instrument::kDrumKit | 2};
    for (const u32 patch : patches) store().Create<Instrument>(kNextFreeNumber)->patch = patch;
    store().sort(kInstrumentClass, patchBefore);
    std::vector<std::string> names;
    for (const Instrument& instrument : store().all<Instrument>())
        names.emplace_back(instrument.name().view().substr(7, 1));
    EXPECT_EQ(names, (std::vector<std::string>{"4", "2", "1", "3", "5"}));
    EXPECT_EQ(store().NextItem(*store().First<Instrument>())->name(), "drums: 2nd instrument");
}

TEST_F(StoreTest, LocksConflictOnce) {
    Wave* wave = addWave("Kick");
    EXPECT_TRUE(Lock(*wave));
    EXPECT_FALSE(Lock(*wave));
    EXPECT_EQ(space.error.context, "Resource usage conflict");
    EXPECT_EQ(space.error.message,
              "Item \"Kick\" is locked!\n\nPlease close all Property && Players dialogs then try again.");
    EXPECT_TRUE(store().anyLocked());
}

TEST_F(StoreTest, FreesOnlyWhatCanBeReadAgainAndIsNotLocked) {
    Wave* only = addWaveWith({1, 2, 3});
    Wave* locked = addWaveWith({1, 2, 3});
    Wave* free = addWaveWith({1, 2, 3});
    locked->reloadable = free->reloadable = true;
    locked->locked = true;
    EXPECT_FALSE(FreeData(*only, true));
    EXPECT_TRUE(PurgeReloadableWaves());
    EXPECT_TRUE(only->resident());
    EXPECT_TRUE(locked->resident());
    EXPECT_FALSE(free->resident());
    EXPECT_FALSE(PurgeReloadableWaves());
    EXPECT_TRUE(FreeData(*only, false));
    EXPECT_FALSE(only->resident());
}

TEST_F(StoreTest, SampleMemoryIsPurgedBeforeItRunsOut) {
    static int calls;
    calls = 0;
    const MemoryPurge previous = setMemoryPurge([] { return ++calls < 3; });
    SampleBuffer<f32> huge;
    EXPECT_FALSE(huge.allocate(static_cast<std::size_t>(1) << 60));
    setMemoryPurge(previous);
    EXPECT_EQ(calls, 3);
    EXPECT_FALSE(huge.allocate(static_cast<std::size_t>(-1)));
}

TEST_F(StoreTest, DescribesItems) {
    Wave* wave = addWave("w", 44100, 2);
    wave->sampleRate = 44100;
    wave->params.loopFlags = kLooped;
    EXPECT_EQ(wave->Describe(), "Stereo waveform with 44100 samples, 1.1s, 44100 Hz, looped");
    Instrument* kit = store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 2U);
    kit->patch = Instrument::kDrumKit | 1 << 14 | 2 << 7 | 3;
    EXPECT_EQ(kit->Describe(), "Drum kit 1:2:3 with 2 layers and 2 regions");
    Region* region = store().First<Region>();
    EXPECT_EQ(region->Describe(),
              "Region with key range C-1..G9, velocity range 0..127 -> Waveform (root key C4)");
    region->params.override = true;
    region->params.rootKey = 61;
    EXPECT_EQ(region->Describe(),
              "Region with key range C-1..G9, velocity range 0..127 -> Waveform (root key override C#4)");
    Song* song = store().Create<Song>(kNextFreeNumber);
    song->artist = "Anna";
    EXPECT_EQ(song->Describe(), "MIDI song with 0 tracks (0 events) by Anna");
    collection->FixUp();
    EXPECT_EQ(collection->Describe(), "Collection with 1 instrument and 1 waveform (0KB)");
}

} // namespace
} // namespace kv
