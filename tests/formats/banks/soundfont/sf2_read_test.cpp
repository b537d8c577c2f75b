#include "formats/banks/soundfont/sf2_mapping.h"
#include "formats/banks/soundfont/test_bank.h"
#include "model/instrument.h"
#include "model/store.h"

namespace kv {
namespace {

using test::FormatTest;
using test::range;
using test::TestBank;
using test::TestZone;

class Sf2Read : public FormatTest {
protected:
    bool read(const TestBank& bank) {
        test::writeFile(folder / "bank.sf2", bank.build());
        return Import(folder / "bank.sf2", true);
    }
    /// All regions, layer by layer, of all instruments.
    std::vector<std::vector<Region*>> layers() {
        std::vector<std::vector<Region*>> list;
        for (Instrument& instrument : store().all<Instrument>()) {
            for (const ItemId layerId : instrument.childIds) {
                list.emplace_back();
                for (const ItemId id : store().Find<Layer>(layerId)->childIds)
                    list.back().push_back(store().Find<Region>(id));
            }
        }
        return list;
    }
    /// Of a bank whose one zone has these generators.
    Region* regionWith(const TestZone& presetZone, TestZone zone) {
        zone.generators.emplace_back(53, 0);
        return read(TestBank::simple(presetZone, {zone})) ? store().First<Region>() : nullptr;
    }
};

TEST_F(Sf2Read, ZonesBecomeLayersAndRegions) {
    const TestZone plain{{{53, 0}}};
    const auto keys = [](int low, int high) { return TestZone{{{43, range(low, high)}, {53, 0}}}; };
    struct Case {
        const char* what;
        TestBank bank;
        std::vector<std::size_t> regions; ///< by layer
    };
    TestBank late = TestBank::simple({}, {plain});
    late.presets[0].zones.push_back({{{17, 100}}}); // not the first: no global zone
    TestBank unknown = TestBank::simple({}, {plain, {{{53, 7}}}});
    TestBank rom = TestBank::simple({}, {plain, {{{43, range(1, 2)}, {53, 1}}}});
    rom.samples.push_back({"rom", 0, 100, 0, 100, 60, 0, 0, 0x8001});
    const Case cases[] = {
        {"disjoint ranges", TestBank::simple({{{43, range(0, 10)}}}, {keys(20, 30), keys(5, 30)}), {1}},
        {"disjoint velocities",
         TestBank::simple({{{44, range(0, 10)}}}, {{{{44, range(20, 30)}, {53, 0}}}}),
         {}},
        {"two on the same keys", TestBank::simple({}, {keys(20, 30), keys(30, 40)}), {1, 1}},
        {"sides of pairs in turn",
         TestBank::simple({}, {keys(0, 9), keys(0, 9), keys(10, 19), keys(10, 19)}),
         {2, 2}},
        {"no instrument, not first", late, {1}},
        {"a sample that isn't there", unknown, {1}},
        {"a sample that stands in a chip", rom, {1}},
        {"reversed range", TestBank::simple({}, {keys(30, 20)}), {}},
        {"global zone without sample", TestBank::simple({}, {{{{43, range(3, 4)}}}, plain}), {1}},
        {"no sample, not first", TestBank::simple({}, {plain, {{{17, 100}}}}), {1}},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(read(c.bank)) << c.what;
        std::vector<std::size_t> regions;
        for (const auto& layer : layers()) regions.push_back(layer.size());
        EXPECT_EQ(regions, c.regions) << c.what;
    }
}

TEST_F(Sf2Read, RangesMeetAndGlobalZonesReach) {
    TestBank bank =
        TestBank::simple({{{43, range(10, 50)}, {44, range(0, 100)}}},
                         {{{{17, -250}, {8, 6000}}}, {{{43, range(0, 20)}, {44, range(50, 127)}, {53, 0}}}});
    bank.presets[0].zones.insert(bank.presets[0].zones.begin(), TestZone{{{17, 100}}}); // global
    bank.presets[0].bank = 128;
    bank.presets[0].program = 5;
    ASSERT_TRUE(read(bank));
    const Region& region = *store().First<Region>();
    EXPECT_EQ(region.keyLow, 10);
    EXPECT_EQ(region.keyHigh, 20);
    EXPECT_EQ(region.velLow, 50);
    EXPECT_EQ(region.velHigh, 100);
    EXPECT_FLOAT_EQ(region.articulation.panDefault, -0.3F);
    EXPECT_NEAR(region.articulation.filterCutoff, 261.6, 0.1);
    EXPECT_TRUE(region.articulation.filterEnable);
    EXPECT_TRUE(store().First<Instrument>()->drumKit());
    EXPECT_EQ(store().First<Instrument>()->program(), 5U);
    EXPECT_EQ(store().First<Collection>()->name(), "Bank");
}

TEST_F(Sf2Read, GeneratorsInPhysicalUnits) {
    using A = Articulation;
    struct Case {
        std::vector<std::pair<u16, int>> preset, zone;
        f32 A::*field;
        f64 value;
    };
    const Case cases[] = {
        {{}, {{34, 0}}, &A::eg1Attack, 1},
        {{{34, 1200}}, {{34, 0}}, &A::eg1Attack, 2},
        {{}, {}, &A::eg1Attack, 0},
        {{}, {{38, 32767}}, &A::eg1Release, 40}, // limited by the model
        {{}, {{37, 500}}, &A::eg1Sustain, 0.5},
        {{}, {{22, 0}}, &A::lfo1Frequency, 8.176},
        {{{24, -1200}}, {{24, 0}}, &A::lfo2Frequency, 4.088},
        {{}, {{13, -60}}, &A::lfo1ToVolume, -6},
        {{}, {{5, 50}}, &A::lfo1ToPitch, 0.5},
        {{{51, 1}}, {{51, 1}}, &A::masterTune, 2},
        {{}, {{56, 50}}, &A::keyToPitch, 0.5},
        {{}, {{8, 6000}, {10, 1200}}, &A::lfo1ToCutoff, 12},
        {{}, {{10, 1200}}, &A::lfo1ToCutoff, 0}, // no filter
        {{}, {{8, 6000}}, &A::velToCutoff, 24},
        {{}, {{36, 0}, {40, 100}}, &A::eg1Decay, 32},
        {{}, {{36, 0}, {40, 100}}, &A::eg1KeyToDecay, 0.0006152},
        {{}, {{28, 0}, {32, 100}}, &A::eg2Decay, 1}, // the other envelope's time stays
        {{}, {{15, 500}}, &A::chorusDefault, 0.5},
        {{}, {}, &A::cc10ToPan, 0.5},
        {{}, {}, &A::cc91ToReverb, 0.2},
        {{}, {}, &A::velToVolume, 96},
        {{}, {}, &A::modToLfo2Pitch, 0.5},
    };
    for (const Case& c : cases) {
        const Region* region = regionWith({c.preset}, {c.zone});
        ASSERT_TRUE(region);
        EXPECT_NEAR(region->articulation.*c.field, c.value, std::abs(c.value) * 0.001)
            << (c.zone.empty() ? -1 : c.zone.back().first);
    }
}

TEST_F(Sf2Read, PlayingOfTheWave) {
    struct Case {
        std::vector<std::pair<u16, int>> preset, zone;
        f64 (*value)(const SampleParams&);
        f64 expected;
    };
    const auto gain = [](const SampleParams& p) { return f64(p.gainDb); };
    const auto root = [](const SampleParams& p) { return f64(p.rootKey) + p.fineTune * -0.01; };
    const auto flags = [](const SampleParams& p) { return f64(p.loopFlags); };
    const auto start = [](const SampleParams& p) { return p.loopStart; };
    const auto end = [](const SampleParams& p) { return p.loopEnd; };
    const auto offset = [](const SampleParams& p) { return f64(p.startOffset); };
    const auto cut = [](const SampleParams& p) { return f64(p.endOffset); };
    const Case cases[] = {
        {{{48, 40}}, {{48, 60}}, gain, -3.85},
        {{}, {{48, 1440}}, gain, -96},
        {{}, {{48, -1440}}, gain, 96},
        {{}, {{58, 72}}, root, 72},
        {{}, {{58, -1}}, root, 60},
        {{{52, 30}}, {{52, 40}}, root, 59.3},
        {{}, {{54, 1}}, flags, 1},
        {{}, {{54, 3}}, flags, 9},
        {{}, {{54, 2}}, flags, 0},
        {{}, {{2, 5}}, start, 15},
        {{}, {{3, -100}}, end, 300},
        {{}, {{0, 20}}, offset, 20},
        {{}, {{1, -20}}, cut, -20},
        {{}, {{4, 1}}, offset, 499}, // beyond the sample
    };
    for (const Case& c : cases) {
        const Region* region = regionWith({c.preset}, {c.zone});
        ASSERT_TRUE(region);
        EXPECT_NEAR(c.value(effectiveParams(*region)), c.expected, 1e-4) << c.zone.back().first;
    }
}

TEST_F(Sf2Read, ModulatorsGoToTheirSlots) {
    using A = Articulation;
    struct Case {
        SfModulator modulator;
        f32 A::*field;
        f64 value;
    };
    const Case cases[] = {
        {{0x0502, 48, 480}, &A::velToVolume, 48},
        {{0x0402, 48, 480}, &A::velToVolume, -48}, // rises where the usual one falls
        {{0x0081, 6, 100}, &A::modToLfo2Pitch, 1},
        {{0x0181, 6, 100}, &A::modToLfo2Pitch, -1},
        {{0x0081, 6, 100, 0x81}, &A::modToLfo2Pitch, 0.5}, // depends on something else
        {{0x020E, 52, 1000}, &A::pitchBendRange, 12},
        {{0x000E, 52, 1000}, &A::pitchBendRange, 2}, // not bipolar
        {{0x0203, 48, -56}, &A::keyToVolume, 10},
        {{0x0002, 34, -1200}, &A::eg1VelToAttack, 0.5},
        {{0x028A, 17, 1000}, &A::cc10ToPan, 1},
        {{0x0102, 8, -1200, 0x0D02}, &A::velToCutoff, 12},
        {{0x0102, 8, -1200, 0x0081}, &A::velToCutoff, 24},
        {{0x0003, 8, 500}, &A::keyToCutoff, 5},
    };
    for (const Case& c : cases) {
        const Region* region = regionWith({}, {{{8, 6000}}, {c.modulator}});
        ASSERT_TRUE(region);
        EXPECT_NEAR(region->articulation.*c.field, c.value, 1e-4)
            << c.modulator.source << " " << c.modulator.destination;
    }
}

TEST_F(Sf2Read, SamplesAsTheyStand) {
    TestBank bank = TestBank::simple({}, {{{{53, 0}}}});
    bank.samples[0].rootKey = 255;
    bank.samples[0].correction = -70;
    bank.samples.push_back({"past the end", 900, 2000, 900, 2000});
    bank.samples.push_back({"empty", 900, 900});
    ASSERT_TRUE(read(bank));
    EXPECT_EQ(store().count(kWaveClass), 2U) << "what has no points is gone";
    const Wave& wave = *store().First<Wave>();
    EXPECT_EQ(wave.params.rootKey, 61); // 60 and a semitone that the correction has too much
    EXPECT_EQ(wave.params.fineTune, 30);
    EXPECT_EQ(store().First<Region>()->articulation.keyToPitch, 0) << "without a pitch";
    EXPECT_EQ(store().Next(wave)->frames, 100U);
    EXPECT_EQ(wave.params.loopStart, 10);
    EXPECT_EQ(wave.params.loopEnd, 400);
}

TEST_F(Sf2Read, ThirdBytesWhenTheyFit) {
    TestBank bank = TestBank::simple({}, {{{{53, 0}}}});
    bank.points.assign(1001, 0x0102);
    for (const std::size_t size : {1001U, 1002U, 1000U, 1U}) {
        bank.low.assign(size, std::byte{3});
        ASSERT_TRUE(read(bank));
        Wave& wave = *store().First<Wave>();
        const bool fits = size >= 1001;
        EXPECT_EQ(wave.bits, fits ? 24U : 16U) << size;
        ASSERT_TRUE(wave.LoadData());
        EXPECT_EQ(GetFloatData(wave)[499], fits ? 0x010203 / 8388608.0F : 0x0102 / 32768.0F);
        EXPECT_EQ(space.diagnostics.entries().empty(), fits);
        space.diagnostics.clear();
    }
}

TEST_F(Sf2Read, PairsAndPlainWaves) {
    TestBank bank = TestBank::simple({}, {{{{17, 500}, {53, 1}}}, {{{17, -500}, {53, 0}}}});
    bank.samples = {{"L", 0, 400, 0, 400, 60, 0, 1, 4}, {"R", 450, 850, 450, 850, 60, 0, 0, 2}};
    ASSERT_TRUE(read(bank));
    const auto found = layers();
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(RegionWave(*found[0][0])->name(), "L") << "hard left stands first";
    EXPECT_EQ(found[0][0]->phaseGroup, found[1][0]->phaseGroup);
    EXPECT_NE(found[0][0]->phaseGroup, 0);
    EXPECT_EQ(found[0][0]->phaseMaster, 0);
    EXPECT_EQ(found[1][0]->phaseMaster, 1);
    EXPECT_FALSE(found[0][0]->params.override) << "it plays its wave as it is";

    TestBank shared =
        TestBank::simple({}, {{{{43, range(0, 10)}, {58, 50}, {53, 0}}}, {{{43, range(11, 20)}, {53, 0}}}});
    ASSERT_TRUE(read(shared));
    EXPECT_TRUE(layers()[0][0]->params.override);
    EXPECT_FALSE(layers()[0][1]->params.override);
    shared.instruments[0].zones.pop_back();
    ASSERT_TRUE(read(shared));
    EXPECT_FALSE(layers()[0][0]->params.override) << "the only one to play the wave: the wave takes it over";
    EXPECT_EQ(store().First<Wave>()->params.rootKey, 50);
}

TEST_F(Sf2Read, WhatIsAndIsNoBank) {
    TestBank bank = TestBank::simple({}, {{{{53, 0}}}});
    bank.major = 4;
    EXPECT_FALSE(read(bank));
    EXPECT_EQ(failure(), "sf2_Imp: Not a Sound Font v2.x file");
    bank.major = 2;
    Bytes bytes = bank.build();
    bytes[9] = std::byte{'?'};
    test::writeFile(folder / "no.sf2", bytes);
    EXPECT_FALSE(Import(folder / "no.sf2", true, rowOf("SoundFont v2 bank")));
    EXPECT_EQ(failure(), "sf2_Imp: Not a SoundFont2 file");

    bank.terminals = false;
    ASSERT_TRUE(read(bank)) << "tables without their end records";
    EXPECT_EQ(store().count(kInstrumentClass), 0U) << "the last record closes its list";
    bank.presets.push_back(bank.presets[0]);
    bank.terminals = true;
    bank.padding = false;
    bank.low.assign(1001, std::byte{});
    ASSERT_TRUE(read(bank)) << "odd chunks without padding";
    EXPECT_EQ(store().count(kInstrumentClass), 2U);

    bytes = bank.build();
    for (const u32 size : {0U, 20U, 0xFFFFFFFFU}) { // what the RIFF header says
        for (std::size_t i = 0; i < 4; ++i) bytes[4 + i] = static_cast<std::byte>(size >> 8 * i);
        test::writeFile(folder / "size.sf2", bytes);
        ASSERT_TRUE(Import(folder / "size.sf2", true)) << size;
        EXPECT_EQ(store().count(kRegionClass), 2U) << size;
    }
    TestBank empty;
    ASSERT_TRUE(read(empty)) << "a bank without presets is no failure";
}

} // namespace
} // namespace kv
