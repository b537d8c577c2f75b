#include "model/fix_up.h"

#include "samples/data_format.h"
#include "workspace_test.h"

namespace kv {
namespace {

class FixUp : public test::WorkspaceTest {
protected:
    Layer* layerWith(std::vector<std::pair<u8, u8>> ranges) {
        const u32 wave = numberOf(addWave("w")->id());
        Layer* layer = store().Create<Layer>(kNextFreeNumber);
        for (const auto& [low, high] : ranges) {
            layer->AddChild(store().Create<Region>(kNextFreeNumber, wave, low, high)->id());
        }
        return layer;
    }
    std::vector<std::pair<int, int>> rangesOf(const Layer& layer) {
        std::vector<std::pair<int, int>> ranges;
        for (const ItemId id : layer.childIds) {
            const Region* region = store().Find<Region>(id);
            ranges.emplace_back(region->keyLow, region->keyHigh);
        }
        return ranges;
    }
};

TEST_F(FixUp, EarlierRegionsWinTheirKeys) {
    using Ranges = std::vector<std::pair<int, int>>;
    struct Case {
        std::vector<std::pair<u8, u8>> given;
        Ranges wanted;
        std::size_t regionsLeft;
    };
    const Case cases[] = {
        {{{50, 60}, {40, 70}}, {{61, 70}, {50, 60}}, 2}, // 40..49 only count for the order
        {{{60, 70}, {50, 60}, {0, 10}}, {{0, 10}, {61, 60}, {60, 70}}, 3},
        {{{0, 127}, {60, 60}}, {{0, 127}}, 1}, // nothing left of the second: deleted
        {{{64, 127}, {0, 63}}, {{0, 63}, {64, 127}}, 2},
    };
    for (const Case& c : cases) {
        Layer* layer = layerWith(c.given);
        layer->FixUp();
        EXPECT_EQ(rangesOf(*layer), c.wanted);
        EXPECT_EQ(store().count(kRegionClass), c.regionsLeft);
        store().Delete(layer);
    }
}

TEST_F(FixUp, OrdersRangesAndFoldsGroups) {
    Layer* layer = layerWith({{100, 20}});
    Region* region = store().First<Region>();
    region->velHigh = 200;
    region->keyGroup = 16;
    region->pedalUp = region->pedalDown = 0;
    region->FixUp();
    EXPECT_EQ(rangesOf(*layer), (std::vector<std::pair<int, int>>{{20, 100}}));
    EXPECT_EQ(region->velHigh, 127);
    EXPECT_EQ(region->keyGroup, 1);
    EXPECT_EQ(region->pedalUp, 1);
    EXPECT_EQ(region->name(), "G#0..E7 : w");
    region->keyGroup = 31;
    region->FixUp();
    EXPECT_EQ(region->keyGroup, 1);
}

TEST_F(FixUp, RegionsShowTheWavesParameters) {
    layerWith({{0, 127}});
    Wave* wave = store().First<Wave>();
    Region* region = store().First<Region>();
    wave->params.override = true;
    wave->params.rootKey = 72;
    region->FixUp();
    EXPECT_EQ(region->params.rootKey, 72);
    EXPECT_FALSE(region->params.override);
    region->params.override = true;
    region->params.rootKey = 48;
    region->FixUp();
    EXPECT_EQ(region->params.rootKey, 48);
}

TEST_F(FixUp, MasterTuningMovesIntoTheFineTune) {
    space.settings.pset.set(Switch::MasterTuning, false);
    Layer* layer = layerWith({{0, 127}});
    Region* region = store().First<Region>();
    layer->articulation.enabled = true;
    layer->articulation.masterTune = -0.3F;
    layer->FixUp();
    EXPECT_EQ(region->params.fineTune, -30);
    EXPECT_EQ(layer->articulation.masterTune, 0);
    region->articulation.enabled = true;
    region->articulation.masterTune = 0.05F;
    region->FixUp();
    EXPECT_EQ(region->params.fineTune, -25);
}

TEST_F(FixUp, PatchClashesMoveOn) {
    const u32 drum = Instrument::kDrumKit;
    const u32 given[] = {0, 0, 127, 127, drum | 5, drum | 5, 0};
    const u32 wanted[] = {0, 1, 127, 128, drum | 5, drum | 6, 2};
    for (const u32 patch : given) store().Create<Instrument>(kNextFreeNumber)->patch = patch;
    collection->FixUp();
    std::size_t i = 0;
    for (const Instrument& instrument : store().all<Instrument>()) EXPECT_EQ(instrument.patch, wanted[i++]);
    EXPECT_EQ(collection->childIds.size(), std::size(given));
    for (int n = 0; n < 50000; ++n) store().Create<Instrument>(kNextFreeNumber)->patch = 0;
    collection->FixUp(); // in no quadratic time
    EXPECT_EQ(store().count(kInstrumentClass), 50000 + std::size(given));
}

TEST_F(FixUp, SweepDropsWhatIsEmptyInTheMask) {
    addWave("empty", 0);
    addWave("surround", 100, 6);
    Wave* good = addWave("good");
    Instrument* hollow = store().Create<Instrument>(kNextFreeNumber);
    hollow->AddChild(store().Create<Layer>(kNextFreeNumber)->id());
    Instrument* whole = store().Create<Instrument>(kNextFreeNumber, numberOf(good->id()), 1U);
    FixUpAll(0);
    EXPECT_EQ(store().count(kWaveClass), 2U); // six channels go in any case
    EXPECT_EQ(store().count(kInstrumentClass), 2U);
    FixUpAll(kAllClasses);
    EXPECT_EQ(store().First<Wave>(), good);
    EXPECT_EQ(store().count(kWaveClass), 1U);
    EXPECT_EQ(store().First<Instrument>(), whole);
    EXPECT_EQ(store().count(kInstrumentClass), 1U);
    store().Delete(good);
    FixUpAll(kAllClasses); // the dead reference takes region, layer and instrument along
    EXPECT_EQ(store().count(kRegionClass) + store().count(kLayerClass) + store().count(kInstrumentClass), 0U);
}

TEST_F(FixUp, WavesDeriveTheirFormats) {
    struct Case {
        u32 dataFormat, preferred, bits;
    };
    const Case cases[] = {
        {kPcm8 | kUnsigned, kPcm8, 8}, {kPcm20, kPcm16, 20},   {kPcm24, kPcm24, 24},
        {kFloat64, kPcm32, 64},        {kRevMuLaw, kMuLaw, 8}, {kAdpcm3, kAdpcm2, 3},
        {kDeltaPcm16, kPcm16, 16},     {kAdpcm4, kAdpcm4, 4},
    };
    for (const Case& c : cases) {
        Wave* wave = store().Create<Wave>(kNextFreeNumber, &genericReader, "w");
        wave->dataFormat = c.dataFormat;
        wave->frames = 10;
        wave->sampleRate = 0;
        wave->FixUp();
        EXPECT_EQ(wave->preferredFormat, c.preferred) << std::hex << c.dataFormat;
        EXPECT_EQ(wave->bits, c.bits) << std::hex << c.dataFormat;
        EXPECT_EQ(wave->sampleRate, 22050U);
        EXPECT_EQ(wave->sourceFile, collection->fileName);
    }
    Wave* compressed = addWave("c", 48000);
    compressed->sampleRate = 48000;
    compressed->preferredFormat = kCompressed;
    compressed->compressedKbps = 128;
    compressed->FixUp();
    EXPECT_EQ(compressed->dataSize, 16000U);
    space.settings.pset.set(Switch::CompressedFormats, false);
    compressed->FixUp();
    EXPECT_EQ(compressed->preferredFormat, kPcm16);
}

TEST_F(FixUp, AWaveOfNowhereIsGone) {
    store().Create<Wave>(kNextFreeNumber, nullptr, "lost");
    store().Delete(collection);
    FixUpAll(0);
    EXPECT_EQ(store().count(kWaveClass), 0U);
}

TEST_F(FixUp, KeyMapsBecomeRegions) {
    const u32 a = numberOf(addWave("a")->id()), b = numberOf(addWave("b")->id());
    Layer* layer = store().Create<Layer>(kNextFreeNumber);
    layer->keyMap.fill(kNoWaveNumber);
    std::fill(layer->keyMap.begin() + 10, layer->keyMap.begin() + 20, a);
    std::fill(layer->keyMap.begin() + 20, layer->keyMap.begin() + 30, 999); // no such wave
    std::fill(layer->keyMap.begin() + 30, layer->keyMap.end(), b);
    KeyMapToRegions(*layer);
    EXPECT_EQ(rangesOf(*layer), (std::vector<std::pair<int, int>>{{10, 19}, {30, 127}}));
}

TEST_F(FixUp, TracksCountTheirEvents) {
    Song* song = store().Create<Song>(kNextFreeNumber);
    Track* track = store().Create<Track>(kNextFreeNumber);
    song->AddChild(track->id());
    song->division = -25;
    // Note on, running status, program change, text, system exclusive, clock; then an event cut short.
    for (const int b : {0x00, 0x90, 60,   100,  0x81, 0x00, 60,   0,    0x00, 0xC1, 5,    0x00, 0xFF,
                        0x01, 0x02, 0x68, 0x69, 0x00, 0xF0, 0x01, 0xF7, 0x00, 0xF8, 0x00, 0x90, 61}) {
        track->events.push_back(static_cast<std::byte>(b));
    }
    FixUpAll(0);
    EXPECT_EQ(track->eventCount, 6U);
    EXPECT_EQ(song->eventCount, 6U);
    EXPECT_EQ(song->division, 24);
    EXPECT_EQ(song->dataSize, track->events.size());
}

} // namespace
} // namespace kv
