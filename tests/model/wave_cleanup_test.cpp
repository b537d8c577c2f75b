#include "model/wave_cleanup.h"

#include "model/stereo.h"
#include "model/wave_data.h"
#include "model/workspace_test.h"

namespace kv {
namespace {

using test::WorkspaceTest;

class Cleanup : public WorkspaceTest {
protected:
    Instrument* addInstrument(std::initializer_list<Wave*> waves, u32 patch = 0) {
        Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, 0U, 0U, "i");
        instrument->patch = patch;
        for (Wave* wave : waves)
            instrument->AddChild(store().Create<Layer>(kNextFreeNumber, numberOf(wave->id()))->id());
        return instrument;
    }
    static Layer* layerOf(const Instrument* instrument, std::size_t index) {
        return store().Find<Layer>(instrument->childIds[index]);
    }
    static Region* regionOf(const Instrument* instrument, std::size_t layer) {
        return store().Find<Region>(layerOf(instrument, layer)->childIds[0]);
    }
    Wave* named(std::string_view name, std::vector<i16> samples, u32 channels = 1) {
        Wave* wave = addWaveWith(std::move(samples), channels);
        wave->SetName(name);
        return wave;
    }
};

TEST_F(Cleanup, LonelyWavesGetInstruments) {
    Wave* played = addWave("played");
    addWave("one");
    addWave("two");
    addInstrument({played}, 1);
    EXPECT_EQ(AutoCreateInstruments(), 2U);
    std::vector<std::pair<std::string, u32>> made;
    for (const Instrument& instrument : store().all<Instrument>())
        made.emplace_back(instrument.name().str(), instrument.patch);
    EXPECT_EQ(made[1], std::pair(std::string("one"), 0U));
    EXPECT_EQ(made[2], std::pair(std::string("two"), 2U)) << "the next free patch";
    EXPECT_EQ(AutoCreateInstruments(), 0U);
}

TEST_F(Cleanup, UnusedWavesGo) {
    Wave* played = addWave("played");
    addWave("idle")->dataSize = 2000;
    addInstrument({played});
    settings().load.bConfirm = true;
    u64 freed = 0;
    ui.answers = {1};
    EXPECT_EQ(DeleteUnusedWaves(freed), 0U) << "the user said no";
    settings().load.bConfirm = false;
    EXPECT_EQ(DeleteUnusedWaves(freed), 1U);
    EXPECT_EQ(freed, 2000U);
    EXPECT_EQ(store().count(kWaveClass), 1U);
}

TEST_F(Cleanup, CopiesGiveWayToTheFirst) {
    Wave* first = named("b", {1, 2, 3});
    Wave* copy = named("A", {1, 2, 3});
    Wave* other = named("other", {1, 2, 4});
    Wave* tuned = named("tuned", {1, 2, 3});
    Wave* close = named("close", {});
    close->frames = 3;
    close->sampleRate = 44100;
    ASSERT_TRUE(close->samplesFloat.allocate(3));
    for (int i = 0; i < 3; ++i) close->samplesFloat.data()[i] = static_cast<f32>(i + 1) / 32768 + 0x1p-25F;
    Wave* exact = named("exact", {1, 2, 3});
    exact->sampleRate = 44100;
    Wave* unread = addWave("unread", 77);
    unread->sourceFile = "/not/there.wav"; // alone with its header, so never opened
    tuned->params.fineTune = 5;
    Instrument* instrument = addInstrument({copy, tuned, other, exact});
    u64 freed = 0;
    EXPECT_EQ(DeleteDuplicateWaves(freed), 3U);
    EXPECT_EQ(RegionWave(*regionOf(instrument, 0)), first);
    EXPECT_EQ(first->name(), "A") << "the name that sorts first";
    EXPECT_EQ(RegionWave(*regionOf(instrument, 1)), first);
    EXPECT_TRUE(regionOf(instrument, 1)->params.override) << "it goes on sounding as it did";
    EXPECT_EQ(regionOf(instrument, 1)->params.fineTune, 5);
    EXPECT_FALSE(regionOf(instrument, 0)->params.override);
    EXPECT_EQ(RegionWave(*regionOf(instrument, 2)), other);
    EXPECT_EQ(RegionWave(*regionOf(instrument, 3)), close);
    EXPECT_EQ(DeleteDuplicateWaves(freed), 0U);
    EXPECT_EQ(freed, 0U);
}

TEST_F(Cleanup, PairsBecomeStereoByName) {
    Wave* left = named("Piano-L", {1, 2});
    Wave* right = named("Piano-R", {3, 4});
    named("Organ L", {1, 2});
    named("Organ r", {3, 4}); // the letter's own case alone is tried
    named("Bell L", {1, 2});
    named("Bell R", {3, 4, 5});
    Instrument* instrument = addInstrument({left, right});
    layerOf(instrument, 0)->articulation.panDefault = -1;
    u32 waves = 0;
    EXPECT_EQ(MergeStereo(*collection, waves, true, false, true), 1U);
    EXPECT_EQ(waves, 1U);
    ASSERT_EQ(instrument->childIds.size(), 1U);
    const Wave* stereo = RegionWave(*regionOf(instrument, 0));
    EXPECT_EQ(stereo->name(), "Piano");
    EXPECT_EQ(stereo->channels, 2U);
    EXPECT_EQ((std::vector<i16>{stereo->samples16.span().begin(), stereo->samples16.span().end()}),
              (std::vector<i16>{1, 3, 2, 4}));
    EXPECT_EQ(layerOf(instrument, 0)->articulation.panDefault, 0);
    EXPECT_EQ(store().count(kWaveClass), 7U) << "the mono ones stay";
}

TEST_F(Cleanup, PairsBecomeStereoByPan) {
    Wave* right = named("Str-R2", {3, 4});
    Wave* left = named("Strl", {1, 2});
    Wave* middle = named("mid", {1, 2});
    Instrument* instrument = addInstrument({right, middle, left});
    Instrument* twin = addInstrument({right, left}, 1);
    for (Instrument* each : {instrument, twin}) {
        for (std::size_t i = 0; i < each->childIds.size(); ++i) {
            Region* region = regionOf(each, i);
            region->articulation.enabled = true;
            region->phaseGroup = 3;
            const Wave* wave = RegionWave(*region);
            region->articulation.panDefault = wave == right ? 1.0F : wave == left ? -1.0F : 0.0F;
        }
    }
    u32 waves = 0;
    EXPECT_EQ(MergeStereo(*collection, waves, false, true, false), 2U);
    EXPECT_EQ(waves, 1U) << "both instruments share it";
    ASSERT_EQ(instrument->childIds.size(), 2U);
    const Region* merged = regionOf(instrument, 0);
    const Wave* stereo = RegionWave(*merged);
    EXPECT_EQ(stereo->name(), "Str S");
    EXPECT_EQ(stereo->samples16.span()[0], 1) << "left by its pan";
    EXPECT_EQ(merged->articulation.panDefault, 0);
    EXPECT_EQ(merged->phaseGroup, 0);
    EXPECT_EQ(RegionWave(*regionOf(instrument, 1)), middle);
}

TEST_F(Cleanup, StereoBecomesPairs) {
    Wave* stereo = named("Pad S", {1, 3, 2, 4}, 2);
    Wave* mono = named("mono", {9});
    Instrument* instrument = addInstrument({stereo, mono});
    layerOf(instrument, 0)->articulation.enabled = true;
    EXPECT_EQ(SplitStereo(*collection), 1U);
    ASSERT_EQ(instrument->childIds.size(), 3U);
    const Wave* left = RegionWave(*regionOf(instrument, 0));
    const Wave* right = RegionWave(*regionOf(instrument, 1));
    EXPECT_EQ(left->name(), "Pad L");
    EXPECT_EQ(right->name(), "Pad R");
    EXPECT_EQ(left->samples16.span()[1], 2);
    EXPECT_EQ(right->samples16.span()[1], 4);
    EXPECT_EQ(layerOf(instrument, 0)->articulation.panDefault, -1);
    EXPECT_EQ(layerOf(instrument, 1)->articulation.panDefault, 1);
    EXPECT_NE(regionOf(instrument, 0)->phaseGroup, 0);
    EXPECT_EQ(regionOf(instrument, 0)->phaseGroup, regionOf(instrument, 1)->phaseGroup);
    u32 waves = 0;
    EXPECT_EQ(MergeStereo(*collection, waves, true, false, true), 1U) << "and back";
    EXPECT_EQ(RegionWave(*regionOf(instrument, 0))->name(), "Pad");
}

TEST_F(Cleanup, JoinedListsKeepTheirLinks) {
    Wave* old = addWave("old");
    Instrument* first = addInstrument({old}, 0);
    const ItemId oldId = first->id(), oldWave = old->id();
    ASSERT_TRUE(store().PushLists());
    store().Create<Collection>("/music/second.wav");
    Instrument* second = addInstrument({addWave("new"), addWave("newer")}, 0);
    ASSERT_TRUE(store().PopAndJoin());
    EXPECT_EQ(store().FindItem(oldId), first);
    EXPECT_EQ(store().FindItem(oldWave), old);
    EXPECT_EQ(store().FindItem(second->id()), second);
    EXPECT_NE(second->id(), first->id());
    EXPECT_EQ(RegionWave(*regionOf(second, 1))->name(), "newer");
    EXPECT_EQ(store().Next(*first), second) << "old ones first";
    EXPECT_EQ(store().count(kCollectionClass), 1U);
    collection->FixUp();
    EXPECT_EQ(second->patch, 1U) << "the patch was taken";
    Wave* clash = store().Create<Wave>(kNextFreeNumber, nullptr, "new");
    EXPECT_EQ(clash->name(), "new 1") << "names of both are known";
    EXPECT_FALSE(store().PopAndJoin());
}

} // namespace
} // namespace kv
