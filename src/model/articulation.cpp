#include "model/articulation.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "model/articulation_fields.h"

namespace kv {
namespace {

/// The fields of one way of averaging.
template <class Do>
void forEachOf(FieldAverage group, Do work) {
    for (const ArticulationField& field : articulationFields()) {
        if (field.average == group) work(field);
    }
}

/// Takes the means of the group's real fields over some of the records.
template <class Counts>
void averageGroup(Articulation& result, std::span<const Articulation> records, FieldAverage group,
                  Counts counts) {
    const auto n = std::count_if(records.begin(), records.end(), counts);
    if (n == 0) return;
    forEachOf(group, [&](const ArticulationField& field) {
        if (!field.isReal()) return;
        f64 sum = 0;
        for (const Articulation& record : records) {
            if (counts(record)) sum += static_cast<f64>(record.*field.real());
        }
        result.*field.real() = static_cast<f32>(sum / static_cast<f64>(n));
    });
}

void averageFilter(Articulation& result, std::span<const Articulation> records) {
    const auto needed = static_cast<std::ptrdiff_t>((records.size() + 1) / 2);
    for (i32 type = 0; type < static_cast<i32>(filterTypeNames().size()); ++type) {
        const auto votes = std::count_if(records.begin(), records.end(), [&](const Articulation& record) {
            return record.filterEnable && record.filterType == type;
        });
        if (votes < needed) continue;
        result.filterEnable = true;
        result.filterType = type;
        averageGroup(result, records, FieldAverage::Filter,
                     [](const Articulation& record) { return record.filterEnable; });
        return;
    }
}

struct EqBand {
    FieldAverage group;
    f32 Articulation::*gain;
    bool Articulation::*shelf; ///< null: the band has none
};
constexpr EqBand kEqBands[] = {{FieldAverage::EqLow, &Articulation::eqLoGain, &Articulation::eqLoShelf},
                               {FieldAverage::EqMiddle, &Articulation::eqMidGain, nullptr},
                               {FieldAverage::EqHigh, &Articulation::eqHiGain, &Articulation::eqHiShelf}};

void averageEqualiser(Articulation& result, std::span<const Articulation> records) {
    const auto on =
        std::count_if(records.begin(), records.end(), [](const Articulation& r) { return r.eqEnable; });
    result.eqEnable = on >= static_cast<std::ptrdiff_t>((records.size() + 1) / 2);
    for (const EqBand& band : kEqBands) {
        const auto active = [&](const Articulation& r) { return r.eqEnable && r.*band.gain != 0; };
        averageGroup(result, records, band.group, active);
        if (!band.shelf) continue;
        const auto counted = std::count_if(records.begin(), records.end(), active);
        const auto shelves = std::count_if(records.begin(), records.end(),
                                           [&](const Articulation& r) { return active(r) && r.*band.shelf; });
        result.*band.shelf = counted > 0 && shelves >= counted / 2;
    }
}

struct LfoMembers {
    f32 Articulation::*frequency;
    f32 Articulation::*delay;
    f32 Articulation::*ramp;
    u32 Articulation::*shape;
};
constexpr LfoMembers kLfo1{&Articulation::lfo1Frequency, &Articulation::lfo1Delay, &Articulation::lfo1Ramp,
                           &Articulation::lfo1Shape};
constexpr LfoMembers kLfo2{&Articulation::lfo2Frequency, &Articulation::lfo2Delay, &Articulation::lfo2Ramp,
                           &Articulation::lfo2Shape};

void copyLfo(Articulation& record, const LfoMembers& from, const LfoMembers& to) {
    record.*to.frequency = record.*from.frequency;
    record.*to.delay = record.*from.delay;
    record.*to.ramp = record.*from.ramp;
    record.*to.shape = record.*from.shape;
}

/// The pitch depth of an LFO that is missing goes to the other one, if that has none.
void foldLfos(Articulation& record, const ParameterSet& set) {
    if (!set[Switch::Lfo2] && record.lfo2ToPitch != 0 && record.lfo1ToPitch == 0) {
        record.lfo1ToPitch = record.lfo2ToPitch;
        record.lfo2ToPitch = 0;
        if (record.lfo1ToVolume == 0 && record.lfo1ToCutoff == 0) copyLfo(record, kLfo2, kLfo1);
    }
    if (!set[Switch::Lfo1ToPitch] && record.lfo1ToPitch != 0 && record.lfo2ToPitch == 0) {
        record.lfo2ToPitch = record.lfo1ToPitch;
        record.lfo1ToPitch = 0;
        copyLfo(record, kLfo1, kLfo2);
    }
}

/// Without delay and hold stages their times lengthen the stages behind them.
void foldEnvelope(f32& delay, f32& attack, f32& hold, f32& decay) {
    attack += delay;
    decay += hold;
    delay = hold = 0;
}

/// Without depths from key and velocity, the cutoff takes in what they'd do to a middling note.
void foldCutoffDepths(Articulation& record) {
    if (!record.filterEnable || (record.keyToCutoff == 0 && record.velToCutoff == 0)) return;
    const f64 semitones =
        static_cast<f64>(record.keyToCutoff) * 0.46875 + static_cast<f64>(record.velToCutoff) * 0.5;
    record.filterCutoff = static_cast<f32>(static_cast<f64>(record.filterCutoff) * std::exp2(semitones / 12));
    record.keyToCutoff = record.velToCutoff = 0;
}

/// The fields from the first modulation depth on.
std::size_t firstDepth() {
    static const auto kFirst =
        std::find_if(articulationFields().begin(), articulationFields().end(),
                     [](const ArticulationField& f) { return f.name == "velToVolume"; });
    return static_cast<std::size_t>(kFirst - articulationFields().begin());
}

/// A record that needs no clean-up under the full set, as nearly all do that are looked at again and again.
bool withinLimits(const Articulation& record) {
    struct Limits {
        f32 Articulation::*member;
        f32 least, most;
    };
    static const std::vector<Limits> kReal = [] {
        std::vector<Limits> list;
        for (const ArticulationField& field : articulationFields()) {
            if (field.isReal())
                list.push_back({field.real(), static_cast<f32>(field.least), static_cast<f32>(field.most)});
        }
        return list;
    }();
    for (const Limits& limits : kReal) {
        const f32 value = record.*limits.member;
        if (!(value >= limits.least && value <= limits.most)) return false;
    }
    return record.lfo1Shape < lfoShapeNames().size() && record.lfo2Shape < lfoShapeNames().size() &&
           record.filterType >= 0 && record.filterType < static_cast<i32>(filterTypeNames().size());
}

} // namespace

void makeDefaultEnvelope(Articulation& record, bool looped) {
    record.eg1Delay = record.eg1Attack = record.eg1Hold = record.eg1Decay = 0;
    record.eg1Sustain = 1;
    record.eg1Shutdown = 0.015F;
    record.eg1Release = looped ? 1.234F : kEndlessRelease;
}

Articulation averageArticulation(std::span<const Articulation> records) {
    Articulation result;
    result.enabled = true;
    if (records.empty()) {
        makeDefaultEnvelope(result, false);
        return result;
    }
    if (records.size() == 1) return records[0];
    averageGroup(result, records, FieldAverage::Mean, [](const Articulation&) { return true; });
    forEachOf(FieldAverage::Last,
              [&](const ArticulationField& field) { field.set(result, field.get(records.back())); });
    averageFilter(result, records);
    averageEqualiser(result, records);
    return result;
}

void sanitizeArticulation(Articulation& record, const ParameterSet& set) {
    const bool full = set == ParameterSet();
    if (full && withinLimits(record)) return;
    if (!set[Switch::LfoRamp]) {
        record.lfo1Delay += record.lfo1Ramp / 2;
        record.lfo2Delay += record.lfo2Ramp / 2;
    }
    const std::span<const ArticulationField> fields = articulationFields();
    for (const ArticulationField& field : fields.first(firstDepth())) field.clamp(record);
    if (!set[Switch::SixStageEnvelopes]) {
        foldEnvelope(record.eg1Delay, record.eg1Attack, record.eg1Hold, record.eg1Decay);
        foldEnvelope(record.eg2Delay, record.eg2Attack, record.eg2Hold, record.eg2Decay);
    }
    if (!set[Switch::ChannelCommandDepths]) record.cc91ToReverb = record.cc93ToChorus = 1;
    if (!set[Switch::ReverbAndChorus]) record.cc91ToReverb = record.cc93ToChorus = 0;
    if (set[Switch::LowPass] && !set[Switch::MoreFilterTypes]) record.filterType = 1;
    foldLfos(record, set);
    if (set[Switch::LowPass] && !set[Switch::KeyAndVelocityToFilter]) foldCutoffDepths(record);
    for (const ArticulationField& field : fields.subspan(firstDepth())) field.clamp(record);
    if (full) return;
    for (const ArticulationField& field : fields) {
        if (field.without && !field.carriedBy(set)) field.set(record, static_cast<f64>(*field.without));
        field.clamp(record); // again for what was folded
    }
}

} // namespace kv
