#include <cmath>
#include <limits>

#include "model/articulation_fields.h"
#include "model/articulation_levels.h"
#include "model/fix_up.h"
#include "model/workspace_test.h"

namespace kv {
namespace {

using test::WorkspaceTest;

ParameterSet without(std::initializer_list<Switch> off) {
    ParameterSet set;
    for (const Switch s : off) set.set(s, false);
    return set;
}

TEST(Articulation, FieldsAreCompleteAndTheirDefaultsLegal) {
    Articulation record;
    EXPECT_EQ(articulationFields().size(), 75U);
    for (const ArticulationField& field : articulationFields()) {
        EXPECT_GE(field.initial(), field.least) << field.name;
        EXPECT_LE(field.initial(), field.most) << field.name;
        field.set(record, field.most);
    }
    Articulation all = record;
    sanitizeArticulation(all, ParameterSet());
    EXPECT_EQ(all, record) << "the limits themselves are legal";
}

TEST(Articulation, ValuesComeIntoTheirLimits) {
    const f32 infinite = std::numeric_limits<f32>::infinity();
    for (const ArticulationField& field : articulationFields()) {
        if (!field.isReal()) continue;
        for (const f32 value : {1e9F, -1e9F, infinite, -infinite, std::nanf("")}) {
            Articulation record;
            record.*field.real() = value;
            sanitizeArticulation(record, ParameterSet());
            EXPECT_GE(record.*field.real(), static_cast<f32>(field.least)) << field.name << " " << value;
            EXPECT_LE(record.*field.real(), static_cast<f32>(field.most)) << field.name << " " << value;
        }
    }
}

TEST(Articulation, WhatASetLacksIsFoldedOrDropped) {
    struct Case {
        const char* what;
        ParameterSet set;
        std::vector<std::pair<f32 Articulation::*, f32>> before, after;
    };
    using A = Articulation;
    const Case cases[] = {
        {"ramp",
         without({Switch::LfoRamp}),
         {{&A::lfo1Delay, 1}, {&A::lfo1Ramp, 4}},
         {{&A::lfo1Delay, 3}, {&A::lfo1Ramp, 0}}},
        {"stages",
         without({Switch::SixStageEnvelopes}),
         {{&A::eg1Delay, 1}, {&A::eg1Attack, 2}, {&A::eg1Hold, 3}, {&A::eg1Decay, 4}, {&A::eg1Shutdown, 5}},
         {{&A::eg1Delay, 0},
          {&A::eg1Attack, 3},
          {&A::eg1Hold, 0},
          {&A::eg1Decay, 7},
          {&A::eg1Shutdown, 0.015F}}},
        {"stages too long",
         without({Switch::SixStageEnvelopes}),
         {{&A::eg2Delay, 30}, {&A::eg2Attack, 30}},
         {{&A::eg2Attack, 40}}},
        {"LFO2 goes to LFO1, with its rate",
         without({Switch::Lfo2}),
         {{&A::lfo2ToPitch, 0.5F}, {&A::lfo2Frequency, 7}},
         {{&A::lfo1ToPitch, 0.5F}, {&A::lfo2ToPitch, 0}, {&A::lfo1Frequency, 7}}},
        {"LFO1 is in use and keeps its rate",
         without({Switch::Lfo2}),
         {{&A::lfo2ToPitch, 0.5F}, {&A::lfo2Frequency, 7}, {&A::lfo1ToVolume, 3}},
         {{&A::lfo1ToPitch, 0.5F}, {&A::lfo1Frequency, 5}}},
        {"LFO1 goes to LFO2",
         without({Switch::Lfo1ToPitch}),
         {{&A::lfo1ToPitch, 1}, {&A::lfo1Frequency, 3}},
         {{&A::lfo1ToPitch, 0}, {&A::lfo2ToPitch, 1}, {&A::lfo2Frequency, 3}}},
        {"no reverb",
         without({Switch::ReverbAndChorus}),
         {{&A::reverbDefault, 0.5F}, {&A::cc93ToChorus, 0.5F}},
         {{&A::reverbDefault, 0}, {&A::cc91ToReverb, 0}, {&A::cc93ToChorus, 0}}},
        {"no depths",
         without({Switch::ChannelCommandDepths}),
         {{&A::cc91ToReverb, 0.5F}, {&A::cc10ToPan, 0}},
         {{&A::cc91ToReverb, 1}, {&A::cc10ToPan, 1}}},
        {"pitch",
         without({Switch::PitchBend, Switch::MasterTuning, Switch::KeyToPitch}),
         {{&A::pitchBendRange, 12}, {&A::masterTune, 5}, {&A::keyToPitch, 0}},
         {{&A::pitchBendRange, 2}, {&A::masterTune, 0}, {&A::keyToPitch, 1}}},
        {"controllers",
         without({Switch::ControllersToLfo, Switch::ControllersToFilter}),
         {{&A::modToLfo1Pitch, 1},
          {&A::modToCutoff, 1},
          {&A::aftertouchToLfo1Cutoff, 1},
          {&A::lfo1ToCutoff, 1}},
         {{&A::modToLfo1Pitch, 0},
          {&A::modToCutoff, 0},
          {&A::aftertouchToLfo1Cutoff, 0},
          {&A::lfo1ToCutoff, 1}}},
        {"no filter",
         without({Switch::LowPass}),
         {{&A::velToCutoff, 1}, {&A::modToLfo1Cutoff, 1}},
         {{&A::velToCutoff, 0}, {&A::modToLfo1Cutoff, 0}}},
    };
    for (const Case& c : cases) {
        Articulation record;
        for (const auto& [field, value] : c.before) record.*field = value;
        sanitizeArticulation(record, c.set);
        for (const auto& [field, value] : c.after) EXPECT_FLOAT_EQ(record.*field, value) << c.what;
    }
}

TEST(Articulation, TheCutoffTakesInWhatKeyAndVelocityDo) {
    Articulation record;
    record.filterEnable = true;
    record.filterType = 4;
    record.filterCutoff = 1000;
    record.keyToCutoff = 25.6F; // 12 semitones at the middle key
    record.velToCutoff = 24;    // 12 at half velocity
    Articulation off = record;
    off.filterEnable = false;
    const ParameterSet set = without({Switch::KeyAndVelocityToFilter, Switch::MoreFilterTypes});
    sanitizeArticulation(record, set);
    EXPECT_NEAR(record.filterCutoff, 4000, 0.01);
    EXPECT_EQ(record.filterType, 1);
    sanitizeArticulation(off, set);
    EXPECT_EQ(off.filterCutoff, 1000) << "a filter that is off is left alone";
}

TEST(Articulation, AveragesAndVotes) {
    EXPECT_EQ(averageArticulation({}).eg1Release, kEndlessRelease);
    std::vector<Articulation> records(3);
    records[0].eg1Attack = 1;
    records[2].eg1Attack = 2;
    records[2].lfo1Shape = 7;
    records[0].filterEnable = true;
    records[0].filterCutoff = 100;
    records[1].eqEnable = true;
    records[1].eqLoGain = 6;
    records[1].eqLoShelf = true;
    Articulation average = averageArticulation(records);
    EXPECT_FLOAT_EQ(average.eg1Attack, 1);
    EXPECT_EQ(average.lfo1Shape, 7U) << "the last one's stands";
    EXPECT_FALSE(average.filterEnable) << "one vote of three";
    EXPECT_FALSE(average.eqEnable);
    EXPECT_FLOAT_EQ(average.eqLoGain, 6) << "only bands that do something count";
    EXPECT_TRUE(average.eqLoShelf);
    records.pop_back();
    average = averageArticulation(records);
    EXPECT_TRUE(average.filterEnable) << "one vote of two";
    EXPECT_FLOAT_EQ(average.filterCutoff, 100) << "of the records that have the filter on";
    EXPECT_TRUE(average.eqEnable);
    EXPECT_EQ(averageArticulation(std::vector<Articulation>(7, records[0])), [&] {
        Articulation same = records[0];
        same.enabled = true;
        return same;
    }());
}

/// An instrument of two layers with two regions each, made to be told apart by their attack.
class Levels : public WorkspaceTest {
protected:
    Levels() {
        Wave* wave = addWave("w");
        instrument = store().Create<Instrument>(kNextFreeNumber, 0U, 0U, "i");
        for (Layer*& layer : layers) {
            layer = store().Create<Layer>(kNextFreeNumber);
            instrument->AddChild(layer->id());
            for (const u8 key : {u8{10}, u8{20}}) {
                Region* region = store().Create<Region>(kNextFreeNumber, numberOf(wave->id()), key, key);
                layer->AddChild(region->id());
                regions.push_back(region);
            }
        }
    }
    static void enable(Articulation& record, f32 attack) {
        record.enabled = true;
        record.eg1Attack = attack;
    }
    static f32 attack(const Articulation& record) { return record.enabled ? record.eg1Attack : -1; }

    Instrument* instrument;
    Layer* layers[2] = {};
    std::vector<Region*> regions;
};

TEST_F(Levels, TheNearestRecordSounds) {
    enable(instrument->articulation, 1);
    enable(layers[0]->articulation, 2);
    enable(regions[0]->articulation, 3);
    EXPECT_EQ(attack(resolveArticulation(instrument, layers[0], regions[0])), 3);
    EXPECT_EQ(attack(resolveArticulation(instrument, layers[0], regions[1])), 2);
    EXPECT_EQ(attack(resolveArticulation(instrument, layers[1], regions[2])), 1);
    EXPECT_EQ(resolveArticulation(nullptr, nullptr, nullptr), Articulation());
    regions[3]->params.override = true;
    regions[3]->params.loopFlags = kLooped;
    const Articulation none = resolveArticulation(nullptr, layers[1], regions[3]);
    EXPECT_FALSE(none.enabled);
    EXPECT_FLOAT_EQ(none.eg1Release, 1.234F);
    EXPECT_FLOAT_EQ(resolveArticulation(nullptr, layers[1], regions[2]).eg1Release, kEndlessRelease);

    EXPECT_EQ(attack(articulationRange(instrument, 0, 1)), (3 + 2 + 1 + 1) / 4.0F);
    EXPECT_EQ(attack(articulationRange(instrument, 0, 0)), 2.5F) << "a region has its own";
    regions[0]->articulation.enabled = false;
    EXPECT_EQ(attack(articulationRange(instrument, 0, 0)), 2) << "the layer's stands as it is";
    EXPECT_FALSE(articulationRange(nullptr, 0, 0).enabled);
}

TEST_F(Levels, RecordsMoveToTheLevelsOfTheSet) {
    constexpr auto I = Switch::InstrumentArticulation, L = Switch::LayerArticulation,
                   R = Switch::RegionArticulation;
    struct Case {
        const char* what;
        std::initializer_list<Switch> off;
        f32 instrument, layers[2], regions[4];
        bool drumKit = false;
    };
    // Before: instrument 1, layer 0 2, region 0 3.
    const Case cases[] = {
        {"all", {}, 1, {2, -1}, {3, -1, -1, -1}},
        {"regions alone", {I, L}, -1, {-1, -1}, {3, 2, 1, 1}},
        {"layers alone", {I, R}, -1, {2.5F, 1}, {-1, -1, -1, -1}},
        {"instrument alone", {L, R}, 1.75F, {-1, -1}, {-1, -1, -1, -1}},
        {"no layers", {L}, 1, {-1, -1}, {3, 2, -1, -1}},
        {"no instrument", {I}, -1, {2, 1}, {3, -1, -1, -1}},
        {"none", {I, L, R}, -1, {-1, -1}, {-1, -1, -1, -1}},
        {"drum kits have theirs whatever the set", {I, L, R}, 1, {-1, -1}, {3, 2, -1, -1}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        for (Region* region : regions) region->articulation = {};
        for (Layer* layer : layers) layer->articulation = {};
        enable(instrument->articulation, 1);
        enable(layers[0]->articulation, 2);
        enable(regions[0]->articulation, 3);
        instrument->patch = c.drumKit ? Instrument::kDrumKit : 0;
        fitLevelsToParameterSet(*instrument, without(c.off));
        EXPECT_EQ(attack(instrument->articulation), c.instrument);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(attack(layers[i]->articulation), c.layers[i]);
        for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(attack(regions[i]->articulation), c.regions[i]);
    }
}

TEST_F(Levels, TheMinimalSetLeavesPlainRegionsInOneLayer) {
    enable(regions[0]->articulation, 3);
    regions[0]->trigger = 0x12;
    regions[0]->articulation.masterTune = 1;
    instrument->patch = Instrument::kDrumKit;
    settings().pset.switches.fill(0);
    FixUpAll(kAllClasses);
    EXPECT_EQ(instrument->childIds.size(), 1U);
    EXPECT_FALSE(instrument->drumKit());
    EXPECT_FALSE(regions[0]->articulation.enabled);
    EXPECT_EQ(regions[0]->trigger, 0x10);
    EXPECT_EQ(regions[0]->params.rootKey, 59) << "the tuning went into the region";
}

} // namespace
} // namespace kv
