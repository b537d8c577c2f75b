#include "model/articulation_fields.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kv {
namespace {

using A = Articulation;
using U = FieldUnit;
using G = FieldAverage;
using enum Switch;

/// A factor across all keys is a factor per octave of 0.01..100 to the power of 128 / 12.
constexpr f64 kFactorLeast = 4.6415888336127e-22, kFactorMost = 2.1544346900319e21;

#define KV_FIELD(member, ...)                          \
    ArticulationField {                                \
#member, &A::member __VA_OPT__(, ) __VA_ARGS__ \
    }
#define KV_ENVELOPE(eg, carrier)                                                                       \
    KV_FIELD(eg##Delay, U::Seconds, 0, 40, G::Mean, SixStageEnvelopes, carrier, {}),                   \
        KV_FIELD(eg##Attack, U::Seconds, 0, 40, G::Mean, carrier, {}, {}),                             \
        KV_FIELD(eg##Hold, U::Seconds, 0, 40, G::Mean, SixStageEnvelopes, carrier, {}),                \
        KV_FIELD(eg##Decay, U::Seconds, 0, 40, G::Mean, carrier, {}, {}),                              \
        KV_FIELD(eg##Sustain, U::Level, 0, 1, G::Mean, carrier, {}, {}),                               \
        KV_FIELD(eg##Release, U::Seconds, 0, 40, G::Mean, carrier, {}, {}),                            \
        KV_FIELD(eg##Shutdown, U::Seconds, 0, 40, G::Mean, SixStageEnvelopes, {}, 0.015F),             \
        KV_FIELD(eg##VelToAttack, U::Factor, kFactorLeast, kFactorMost, G::Mean, VelocityToAttack, {}, \
                 1.0F),                                                                                \
        KV_FIELD(eg##KeyToHold, U::Factor, kFactorLeast, kFactorMost, G::Mean, carrier, {}, {}),       \
        KV_FIELD(eg##KeyToDecay, U::Factor, kFactorLeast, kFactorMost, G::Mean, carrier, {}, {})
#define KV_EQ_BAND(band, group)                                                   \
    KV_FIELD(eq##band##Freq, U::Hertz, 16, 24000, group, Equaliser, {}, {}),      \
        KV_FIELD(eq##band##Gain, U::Decibels, -24, 24, group, Equaliser, {}, {}), \
        KV_FIELD(eq##band##Q, U::None, 0.01, 10, group, Equaliser, {}, {})

constexpr std::optional<Switch> kAlways{};

const ArticulationField kFields[] = {
    KV_FIELD(lfo1Frequency, U::Hertz, 0.01, 20, G::Mean, {}, {}, {}),
    KV_FIELD(lfo1Delay, U::Seconds, 0, 10, G::Mean, {}, {}, {}),
    KV_FIELD(lfo1Ramp, U::Seconds, 0, 100, G::Mean, LfoRamp, {}, 0.0F),
    KV_FIELD(lfo1Shape, U::Shape, 0, 11, G::Last, LfoShapes, {}, 0.0F),
    KV_FIELD(lfo2Frequency, U::Hertz, 0.01, 20, G::Mean, Lfo2, {}, {}),
    KV_FIELD(lfo2Delay, U::Seconds, 0, 10, G::Mean, Lfo2, {}, {}),
    KV_FIELD(lfo2Ramp, U::Seconds, 0, 100, G::Mean, LfoRamp, {}, 0.0F),
    KV_FIELD(lfo2Shape, U::Shape, 0, 11, G::Last, LfoShapes, {}, 0.0F),
    KV_ENVELOPE(eg1, kAlways),
    KV_ENVELOPE(eg2, Eg2),
    KV_FIELD(panDefault, U::Level, -1, 1, G::Mean, {}, {}, {}),
    KV_FIELD(keyToPan, U::Level, -5, 5, G::Mean, KeyToVolumeAndPan, {}, 0.0F),
    KV_FIELD(cc10ToPan, U::Level, -1, 1, G::Mean, ChannelCommandDepths, {}, 1.0F),
    KV_FIELD(reverbDefault, U::Level, 0, 1, G::Mean, ReverbAndChorus, {}, 0.0F),
    KV_FIELD(cc91ToReverb, U::Level, 0, 1, G::Mean, ReverbAndChorus, ChannelCommandDepths, {}),
    KV_FIELD(chorusDefault, U::Level, 0, 1, G::Mean, ReverbAndChorus, {}, 0.0F),
    KV_FIELD(cc93ToChorus, U::Level, 0, 1, G::Mean, ReverbAndChorus, ChannelCommandDepths, {}),
    KV_FIELD(filterEnable, U::Flag, 0, 1, G::Filter, LowPass, {}, 0.0F),
    KV_FIELD(filterType, U::FilterType, 0, 9, G::Filter, LowPass, MoreFilterTypes, {}),
    KV_FIELD(filterCutoff, U::Hertz, 16, 24000, G::Filter, LowPass, {}, {}),
    KV_FIELD(filterResonance, U::Decibels, 0, 96, G::Filter, LowPass, {}, {}),
    KV_FIELD(eqEnable, U::Flag, 0, 1, G::EqualiserSwitch, Equaliser, {}, 0.0F),
    KV_FIELD(eqLoShelf, U::Flag, 0, 1, G::EqLow, Equaliser, {}, {}),
    KV_FIELD(eqHiShelf, U::Flag, 0, 1, G::EqHigh, Equaliser, {}, {}),
    KV_EQ_BAND(Lo, G::EqLow),
    KV_EQ_BAND(Mid, G::EqMiddle),
    KV_EQ_BAND(Hi, G::EqHigh),
    KV_FIELD(velToVolume, U::Decibels, -96, 96, G::Mean, {}, {}, {}),
    KV_FIELD(keyToVolume, U::DecibelsPerOctave, -24, 24, G::Mean, KeyToVolumeAndPan, {}, 0.0F),
    KV_FIELD(lfo1ToVolume, U::Decibels, -96, 96, G::Mean, {}, {}, {}),
    KV_FIELD(aftertouchToVolume, U::Decibels, -96, 96, G::Mean, AfterTouchToVolume, {}, 0.0F),
    KV_FIELD(modToLfo1Volume, U::Decibels, -96, 96, G::Mean, ControllersToLfo, {}, 0.0F),
    KV_FIELD(aftertouchToLfo1Volume, U::Decibels, -96, 96, G::Mean, ControllersToLfo, {}, 0.0F),
    KV_FIELD(masterTune, U::Semitones, -48, 48, G::Mean, MasterTuning, {}, 0.0F),
    KV_FIELD(keyToPitch, U::SemitonesPerKey, -12, 12, G::Mean, KeyToPitch, {}, 1.0F),
    KV_FIELD(pitchBendRange, U::Semitones, -96, 96, G::Mean, PitchBend, {}, 2.0F),
    KV_FIELD(lfo1ToPitch, U::Semitones, -96, 96, G::Mean, Lfo1ToPitch, {}, {}),
    KV_FIELD(lfo2ToPitch, U::Semitones, -96, 96, G::Mean, Lfo2, {}, {}),
    KV_FIELD(eg2ToPitch, U::Semitones, -96, 96, G::Mean, Eg2, {}, {}),
    KV_FIELD(modToLfo2Pitch, U::Semitones, -96, 96, G::Mean, ControllersToLfo, {}, 0.0F),
    KV_FIELD(modToLfo1Pitch, U::Semitones, -96, 96, G::Mean, ControllersToLfo, {}, 0.0F),
    KV_FIELD(aftertouchToLfo2Pitch, U::Semitones, -96, 96, G::Mean, ControllersToLfo, {}, 0.0F),
    KV_FIELD(aftertouchToLfo1Pitch, U::Semitones, -96, 96, G::Mean, ControllersToLfo, {}, 0.0F),
    KV_FIELD(lfo1ToCutoff, U::Semitones, -128, 128, G::Mean, LowPass, {}, 0.0F),
    KV_FIELD(eg2ToCutoff, U::Semitones, -128, 128, G::Mean, LowPass, {}, 0.0F),
    KV_FIELD(velToCutoff, U::Semitones, -128, 128, G::Mean, LowPass, {}, 0.0F),
    KV_FIELD(keyToCutoff, U::Semitones, -128, 128, G::Mean, LowPass, {}, 0.0F),
    KV_FIELD(modToCutoff, U::Semitones, -128, 128, G::Mean, ControllersToFilter, LowPass, 0.0F),
    KV_FIELD(aftertouchToCutoff, U::Semitones, -128, 128, G::Mean, ControllersToFilter, LowPass, 0.0F),
    KV_FIELD(modToLfo1Cutoff, U::Semitones, -128, 128, G::Mean, ControllersToLfo, LowPass, 0.0F),
    KV_FIELD(aftertouchToLfo1Cutoff, U::Semitones, -128, 128, G::Mean, ControllersToLfo, LowPass, 0.0F),
};
#undef KV_FIELD
#undef KV_ENVELOPE
#undef KV_EQ_BAND

constexpr std::string_view kShapes[] = {"Sine",   "Sine+",   "Square",   "Square+",   "Triangle", "Triangle+",
                                        "Saw-Up", "Saw-Up+", "Saw-Down", "Saw-Down+", "Noise",    "Noise+"};
constexpr std::string_view kFilterTypes[] = {
    "Low-Pass 6 dB/oct",    "Low-Pass 12 dB/oct",   "Low-Pass 24 dB/oct", "High-Pass 6 dB/oct",
    "High-Pass 12 dB/oct",  "High-Pass 24 dB/oct",  "Band-Pass 6 dB/oct", "Band-Pass 12 dB/oct",
    "Band-Reject 6 dB/oct", "Band-Reject 12 dB/oct"};

} // namespace

std::span<const ArticulationField> articulationFields() {
    return kFields;
}

std::span<const std::string_view> lfoShapeNames() {
    return kShapes;
}

std::span<const std::string_view> filterTypeNames() {
    return kFilterTypes;
}

f64 ArticulationField::get(const Articulation& record) const {
    if (const auto* m = std::get_if<f32 Articulation::*>(&member))
        return static_cast<f64>(record.**m); // most are
    return std::visit([&](auto m) { return static_cast<f64>(record.*m); }, member);
}

void ArticulationField::set(Articulation& record, f64 value) const {
    std::visit(
        [&](auto m) {
            using T = std::remove_reference_t<decltype(record.*m)>;
            if constexpr (std::is_same_v<T, bool>)
                record.*m = value != 0;
            else
                record.*m = static_cast<T>(std::clamp(value, least, most));
        },
        member);
}

void ArticulationField::clamp(Articulation& record) const {
    const f64 value = get(record);
    if (value >= least && value <= most) return;
    set(record, std::isnan(value) ? initial() : value);
}

bool ArticulationField::carriedBy(const ParameterSet& parameterSet) const {
    return (!carrier || parameterSet[*carrier]) && (!secondCarrier || parameterSet[*secondCarrier]);
}

std::string_view unitName(FieldUnit unit) {
    switch (unit) {
        case FieldUnit::Hertz:
            return "Hz";
        case FieldUnit::Seconds:
            return "s";
        case FieldUnit::Factor:
            return "x";
        case FieldUnit::Decibels:
            return "dB";
        case FieldUnit::DecibelsPerOctave:
            return "dB/oct";
        case FieldUnit::Semitones:
            return "semitones";
        case FieldUnit::SemitonesPerKey:
            return "semitones/key";
        default:
            return {};
    }
}

std::string fieldText(const ArticulationField& field, const Articulation& record) {
    const f64 value = field.get(record);
    switch (field.unit) {
        case FieldUnit::Flag:
            return value != 0 ? "on" : "off";
        case FieldUnit::Shape:
            return std::string(kShapes[static_cast<std::size_t>(std::clamp(value, 0.0, 11.0))]);
        case FieldUnit::FilterType:
            return std::string(kFilterTypes[static_cast<std::size_t>(std::clamp(value, 0.0, 9.0))]);
        default:
            break;
    }
    const std::string_view unit = unitName(field.unit);
    return fmt::format("{:.6g}{}{}", value, unit.empty() ? "" : " ", unit);
}

} // namespace kv
