#include "formats/banks/soundfont/sf2_mapping.h"

#include <algorithm>
#include <cmath>

namespace kv {
namespace {

using A = Articulation;
using Field = f32 A::*;

constexpr f64 kLowestHertz = 8.176; // of key 0
constexpr f64 kDecibelsPerAttenuation = 0.0385;

/// Which LFO's shape halves a depth on writing: the format's LFOs swing around zero.
enum class Lfo : u8 { None, One, Two };

enum class Form : u8 {
    Linear,    ///< field = number * unit + offset
    Time,      ///< timecents
    Frequency, ///< absolute cents
    Sustain,   ///< field = 1 - number / 1000
    Factor,    ///< field = 2^(number / 1200)
};

/// A field that is one number in a zone.
struct Row {
    u8 number; ///< of the generator or slot
    Field field;
    Form form;
    f64 unit = 1;
    i32 least = -32768, most = 32767;
    Lfo lfo = Lfo::None;
    bool filter = false; ///< only with a filter
    f64 offset = 0;
};

constexpr i32 kLongestDelay = 5000, kLongestTime = 8000; // timecents

constexpr Row time(u8 number, Field field, i32 most) {
    return {number, field, Form::Time, 1, -12000, most};
}
constexpr Row depth(u8 number, Field field, f64 unit, i32 limit, Lfo lfo = Lfo::None, bool filter = false) {
    return {number, field, Form::Linear, unit, -limit, limit, lfo, filter};
}
constexpr Row level(u8 number, Field field, f64 unit, i32 least, i32 most) {
    return {number, field, Form::Linear, unit, least, most};
}

constexpr Row kGenerators[] = {
    depth(kModLfoToPitch, &A::lfo1ToPitch, 0.01, 12000, Lfo::One),
    depth(kVibLfoToPitch, &A::lfo2ToPitch, 0.01, 12000, Lfo::Two),
    depth(kModEnvToPitch, &A::eg2ToPitch, 0.01, 12000),
    {kInitialFilterFc, &A::filterCutoff, Form::Frequency, 1, 1500, 13500, Lfo::None, true},
    {kInitialFilterQ, &A::filterResonance, Form::Linear, 0.1, 0, 960, Lfo::None, true},
    depth(kModLfoToFilterFc, &A::lfo1ToCutoff, 0.01, 12000, Lfo::One, true),
    depth(kModEnvToFilterFc, &A::eg2ToCutoff, 0.01, 12000, Lfo::None, true),
    depth(kModLfoToVolume, &A::lfo1ToVolume, 0.1, 960, Lfo::One),
    level(kChorusEffectsSend, &A::chorusDefault, 0.001, 0, 1000),
    level(kReverbEffectsSend, &A::reverbDefault, 0.001, 0, 1000),
    level(kPan, &A::panDefault, 0.002, -500, 500),
    time(kDelayModLfo, &A::lfo1Delay, kLongestDelay),
    {kFreqModLfo, &A::lfo1Frequency, Form::Frequency, 1, -16000, 4500},
    time(kDelayVibLfo, &A::lfo2Delay, kLongestDelay),
    {kFreqVibLfo, &A::lfo2Frequency, Form::Frequency, 1, -16000, 4500},
    time(kDelayModEnv, &A::eg2Delay, kLongestDelay),
    time(kAttackModEnv, &A::eg2Attack, kLongestTime),
    time(kHoldModEnv, &A::eg2Hold, kLongestDelay),
    time(kDecayModEnv, &A::eg2Decay, kLongestTime),
    {kSustainModEnv, &A::eg2Sustain, Form::Sustain, 1, 0, 1000},
    time(kReleaseModEnv, &A::eg2Release, kLongestTime),
    time(kDelayVolEnv, &A::eg1Delay, kLongestDelay),
    time(kAttackVolEnv, &A::eg1Attack, kLongestTime),
    time(kHoldVolEnv, &A::eg1Hold, kLongestDelay),
    time(kDecayVolEnv, &A::eg1Decay, kLongestTime),
    {kSustainVolEnv, &A::eg1Sustain, Form::Sustain, 1, 0, 1000},
    time(kReleaseVolEnv, &A::eg1Release, kLongestTime),
    level(kScaleTuning, &A::keyToPitch, 0.01, -1200, 1200),
};

constexpr u8 kKeyToVolumeSlot = 3, kKeyToVolumeSecondSlot = 4;

constexpr Row kSlots[] = {
    {0, &A::eg2VelToAttack, Form::Factor},
    {1, &A::eg1VelToAttack, Form::Factor},
    depth(2, &A::velToVolume, 0.1, 32767),
    depth(kKeyToVolumeSlot, &A::keyToVolume, -1 / 5.6, 32767),
    depth(5, &A::aftertouchToVolume, -0.1, 32767),
    depth(6, &A::modToLfo1Volume, 0.1, 32767, Lfo::One),
    depth(7, &A::aftertouchToLfo1Volume, 0.1, 32767, Lfo::One),
    {8, &A::pitchBendRange, Form::Linear, 0.01, -32767, 32767, Lfo::None, false, 2},
    depth(9, &A::modToLfo1Pitch, 0.01, 32767, Lfo::One),
    depth(10, &A::aftertouchToLfo1Pitch, 0.01, 32767, Lfo::One),
    depth(11, &A::modToLfo2Pitch, 0.01, 32767, Lfo::Two),
    depth(12, &A::aftertouchToLfo2Pitch, 0.01, 32767, Lfo::Two),
    depth(13, &A::velToCutoff, -0.01, 32767, Lfo::None, true),
    depth(14, &A::keyToCutoff, 0.01, 32767, Lfo::None, true),
    depth(15, &A::modToCutoff, 0.01, 32767, Lfo::None, true),
    depth(16, &A::aftertouchToCutoff, 0.01, 32767, Lfo::None, true),
    depth(17, &A::modToLfo1Cutoff, 0.01, 32767, Lfo::One, true),
    depth(18, &A::aftertouchToLfo1Cutoff, 0.01, 32767, Lfo::One, true),
    level(19, &A::keyToPan, 0.001, -1000, 1000),
    level(20, &A::cc10ToPan, 0.001, 0, 1000),
    level(21, &A::cc91ToReverb, 0.001, 0, 1000),
    level(22, &A::cc93ToChorus, 0.001, 0, 1000),
};

/// A time that changes over the keys. The format's time is that of key 60, the model's that of key 0.
struct KeyFactorRow {
    u8 generator;
    u8 timeGenerator;
    Field factor;
    Field time;
    bool movesTimeOnReading; ///< the modulation envelope's times are left as they come
};
constexpr KeyFactorRow kKeyFactors[] = {
    {kKeynumToModEnvHold, kHoldModEnv, &A::eg2KeyToHold, &A::eg2Hold, false},
    {kKeynumToModEnvDecay, kDecayModEnv, &A::eg2KeyToDecay, &A::eg2Decay, false},
    {kKeynumToVolEnvHold, kHoldVolEnv, &A::eg1KeyToHold, &A::eg1Hold, true},
    {kKeynumToVolEnvDecay, kDecayVolEnv, &A::eg1KeyToDecay, &A::eg1Decay, true},
};

constexpr f64 kOpenCutoff = 19900; // Hz; a filter above does nothing

f64 fieldValue(const Row& row, i32 number) {
    switch (row.form) {
        case Form::Time:
            return secondsOfTimecents(number);
        case Form::Frequency:
            return hertzOfCents(number);
        case Form::Sustain:
            return 1 - number * 0.001;
        case Form::Factor:
            return std::exp2(number / 1200.0);
        case Form::Linear:
            break;
    }
    return number * row.unit + row.offset;
}

i32 timecentsOf(f64 seconds, i32 most) {
    if (!(seconds > 0)) return -12000;
    return std::clamp(roundHalf(std::log2(seconds) * 1200), -12000, most);
}

/// Whole cents stay as they are; what lies between is truncated, which below key 0 goes up.
i32 centsOf(f64 hertz) {
    constexpr f64 kFloatError = 0.001; // cents
    const f64 cents = std::log2(hertz / kLowestHertz) * 1200;
    const f64 nearest = std::round(cents);
    return saturate<i32>(std::abs(cents - nearest) < kFloatError ? nearest : cents + 0.5);
}

bool unipolar(const Articulation& from, Lfo lfo) {
    return (lfo == Lfo::One && isLfoUnipolar(from.lfo1Shape)) ||
           (lfo == Lfo::Two && isLfoUnipolar(from.lfo2Shape));
}

i16 numberOf(const Row& row, const Articulation& from) {
    const f64 value = from.*row.field;
    i32 number = 0;
    switch (row.form) {
        case Form::Time:
            number = timecentsOf(value, row.most);
            break;
        case Form::Frequency:
            number = centsOf(value);
            break;
        case Form::Sustain:
            number = roundHalf((1 - value) * 1000);
            break;
        case Form::Factor:
            number = roundHalf(std::log2(value) * 1200);
            break;
        case Form::Linear:
            number = roundHalf((value - row.offset) / row.unit * (unipolar(from, row.lfo) ? 0.5 : 1));
            break;
    }
    return static_cast<i16>(std::clamp(number, row.least, row.most));
}

void readKeyFactor(const KeyFactorRow& row, i32 number, Articulation& to) {
    to.*row.factor = number == 0 ? 1.0F : static_cast<f32>(std::exp2(number * -0.10666667));
    if (number == 0 || !row.movesTimeOnReading) return;
    to.*row.time = static_cast<f32>(static_cast<f64>(to.*row.time) * std::exp2(number * 60 / 1200.0));
}

void writeKeyFactor(const KeyFactorRow& row, const Articulation& from, SfZone& zone) {
    const f64 factor = from.*row.factor;
    if (factor == 1) return;
    const i32 number = roundHalf(std::log2(factor) * -9.375);
    zone.generators[row.generator] = static_cast<i16>(std::clamp(number, -1200, 1200));
    const f64 seconds = static_cast<f64>(from.*row.time) * std::exp2(number * -60.0 / 1200);
    const bool hold = row.timeGenerator == kHoldModEnv || row.timeGenerator == kHoldVolEnv;
    zone.generators[row.timeGenerator] =
        static_cast<i16>(timecentsOf(seconds, hold ? kLongestDelay : kLongestTime));
}

/// A number of frames in steps of 32768 and the rest.
void splitFrames(i32 count, i16& coarse, i16& fine) {
    const i32 bias = count < 0 ? 32767 : 0;
    const i32 biased = count + bias;
    coarse = saturate<i16>(biased >> 15);
    fine = static_cast<i16>((biased & 0x7FFF) - bias);
}

i32 frames(const SfZone& zone, Generator coarse, Generator fine) {
    return zone.generators[coarse] * 32768 + zone.generators[fine];
}

void readPlaying(const SfZonePair& zone, Articulation& articulation, SampleParams& params) {
    const SfZone& own = zone.instrument;
    const i32 attenuation = zone.generator(kInitialAttenuation);
    if (attenuation > -1440 && attenuation < 1440)
        params.gainDb -= static_cast<f32>(kDecibelsPerAttenuation * attenuation);
    else
        params.gainDb = attenuation > 0 ? -96.0F : 96.0F;
    // A depth from the key is told around key 60, so it moves the volume too.
    if (const i32 depth = zone.slot(kKeyToVolumeSlot)) {
        articulation.keyToVolume = static_cast<f32>(-depth / 5.6);
        params.gainDb -= articulation.keyToVolume * 0.33333334F;
    }
    if (const i32 depth = zone.slot(kKeyToVolumeSecondSlot)) {
        articulation.keyToVolume -= static_cast<f32>(depth / 11.2);
        params.gainDb += articulation.keyToVolume * 5;
    }
    const i16 rootKey = own.generators[kOverridingRootKey];
    if (rootKey >= 0 && rootKey < 128) params.rootKey = static_cast<u8>(rootKey);
    params.fineTune += zone.generator(kFineTune);
    sf_ReadLoop(own, params);
    articulation.masterTune = static_cast<f32>(zone.generator(kCoarseTune));
}

} // namespace

void sf_ReadLoop(const SfZone& own, SampleParams& params) {
    const int modes = own.generators[kSampleModes] & 3;
    params.loopFlags = modes == 1 ? u16{kLooped} : modes == 3 ? u16{kLooped | kLoopUntilRelease} : u16{0};
    params.loopStart += frames(own, kStartloopAddrsCoarseOffset, kStartloopAddrsOffset);
    params.loopEnd += frames(own, kEndloopAddrsCoarseOffset, kEndloopAddrsOffset);
    params.startOffset = frames(own, kStartAddrsCoarseOffset, kStartAddrsOffset);
    params.endOffset = frames(own, kEndAddrsCoarseOffset, kEndAddrsOffset);
}

void sf_AddLoop(SfZone& zone, const SampleParams& params, const SampleParams& wave) {
    auto& out = zone.generators;
    if (params.startOffset > 0) {
        splitFrames(params.startOffset, out[kStartAddrsCoarseOffset], out[kStartAddrsOffset]);
    }
    if (params.endOffset < 0) {
        out[kEndAddrsOffset] = static_cast<i16>(params.endOffset % 32768);
        out[kEndAddrsCoarseOffset] = saturate<i16>(params.endOffset / 32768);
    }
    splitFrames(roundHalf(params.loopStart - wave.loopStart), out[kStartloopAddrsCoarseOffset],
                out[kStartloopAddrsOffset]);
    splitFrames(roundHalf(params.loopEnd - wave.loopEnd), out[kEndloopAddrsCoarseOffset],
                out[kEndloopAddrsOffset]);
    out[kSampleModes] = static_cast<i16>(!params.looped()                              ? 0
                                         : (params.loopFlags & kLoopUntilRelease) != 0 ? 3
                                                                                       : 1);
}

f64 secondsOfTimecents(i32 timecents) {
    return timecents <= -12000 ? 0 : std::exp2(timecents / 1200.0);
}

f64 hertzOfCents(i32 cents) {
    return kLowestHertz * std::exp2(cents / 1200.0);
}

bool sf2_HasFilter(const Articulation& articulation) {
    constexpr i32 kLowAndBandPass[] = {0, 1, 2, 6, 7};
    return articulation.filterEnable && std::find(std::begin(kLowAndBandPass), std::end(kLowAndBandPass),
                                                  articulation.filterType) != std::end(kLowAndBandPass);
}

void sf2_ReadZone(const SfZonePair& zone, bool unpitched, Articulation& articulation, SampleParams& params) {
    constexpr u32 kTriangle = 4;
    articulationInit(articulation, true);
    articulation.lfo1Shape = articulation.lfo2Shape = kTriangle;
    const i32 cutoff = zone.generator(kInitialFilterFc);
    articulation.filterEnable = hertzOfCents(cutoff) < kOpenCutoff || zone.generator(kInitialFilterQ) > 0;
    articulation.filterType = 1;

    const auto read = [&](const Row& row, i32 number) {
        const bool always = row.number == kInitialFilterFc || row.number == kInitialFilterQ;
        if (row.filter && !always && !articulation.filterEnable) return;
        articulation.*row.field = static_cast<f32>(fieldValue(row, number));
    };
    for (const Row& row : kGenerators) read(row, zone.generator(row.number));
    for (const Row& row : kSlots) {
        if (row.number == kKeyToVolumeSlot) continue; // with the volume
        if (row.filter && !articulation.filterEnable) continue;
        articulation.*row.field = static_cast<f32>(fieldValue(row, zone.slot(row.number)));
    }
    for (const KeyFactorRow& row : kKeyFactors) {
        readKeyFactor(row, zone.generator(row.generator), articulation);
    }
    if (unpitched && articulation.keyToPitch == 1) articulation.keyToPitch = 0;
    readPlaying(zone, articulation, params);
}

SfZone sf2_ZoneOf(const Articulation& articulation) {
    SfZone zone = instrumentZoneDefaults();
    const bool filter = sf2_HasFilter(articulation);
    for (const Row& row : kGenerators) {
        if (!row.filter || filter) zone.generators[row.number] = numberOf(row, articulation);
    }
    for (const Row& row : kSlots) {
        if (!row.filter || filter) zone.slots[row.number] = numberOf(row, articulation);
    }
    for (const KeyFactorRow& row : kKeyFactors) writeKeyFactor(row, articulation, zone);
    if (articulation.eg1Release >= kEndlessRelease && articulation.eg1Sustain >= 1) {
        zone.generators[kReleaseVolEnv] = kLongestTime;
    }
    sf2_AddPlaying(zone, articulation, SampleParams(), SampleParams());
    return zone;
}

void sf2_AddPlaying(SfZone& zone, const Articulation& articulation, const SampleParams& params,
                    const SampleParams& wave) {
    auto& out = zone.generators;
    f64 volume = params.gainDb;
    if (isLfoUnipolar(articulation.lfo1Shape)) volume += static_cast<f64>(articulation.lfo1ToVolume) * 0.5;
    volume += static_cast<f64>(articulation.keyToVolume) * 0.33333334;
    out[kInitialAttenuation] =
        static_cast<i16>(std::clamp(roundHalf(-volume / kDecibelsPerAttenuation), -1440, 1440));

    const f64 tune = (params.fineTune - wave.fineTune) * 0.01 + static_cast<f64>(articulation.masterTune);
    const i32 semitones = roundHalf(tune);
    out[kCoarseTune] = saturate<i16>(semitones);
    out[kFineTune] = saturate<i16>(roundHalf((tune - semitones) * 100));
    if (params.rootKey != wave.rootKey) out[kOverridingRootKey] = params.rootKey;

    sf_AddLoop(zone, params, wave);
}

} // namespace kv
