#include "formats/banks/soundfont/sbk_mapping.h"

#include <algorithm>
#include <cmath>

namespace kv {
namespace {

using A = Articulation;

struct Row {
    u8 number;
    f32 A::*field;
    f64 unit; ///< field = number * unit
    i32 least, most;
    i16 initial;
    bool filter = false; ///< only with a filter
};

constexpr f64 kMillisecond = 0.001, kSustainStep = 1.0 / 99, kSemitoneStep = 0.0936;
constexpr i16 kOpenFilter = 415; // the first number above the cutoff that does nothing
constexpr i16 kUsualRate = 64;   // of an LFO, some 5 Hz

constexpr Row kRows[] = {
    {kModLfoToPitch, &A::lfo1ToPitch, kSemitoneStep, -127, 127, 0},
    {kVibLfoToPitch, &A::lfo2ToPitch, kSemitoneStep, -127, 127, 0},
    {kModEnvToPitch, &A::eg2ToPitch, kSemitoneStep, -127, 127, 0},
    {kInitialFilterFc, &A::filterCutoff, 48, 0, kOpenFilter - 1, kOpenFilter, true},
    {kInitialFilterQ, &A::filterResonance, 0.15, 0, 640, 0, true},
    {kModLfoToFilterFc, &A::lfo1ToCutoff, kSemitoneStep, -1367, 1367, 0, true},
    {kModEnvToFilterFc, &A::eg2ToCutoff, -kSemitoneStep, -1367, 1367, 0, true},
    {kModLfoToVolume, &A::lfo1ToVolume, 0.18, -533, 533, 0},
    {kChorusEffectsSend, &A::chorusDefault, 0.003917, 0, 255, 0},
    {kReverbEffectsSend, &A::reverbDefault, 0.003917, 0, 255, 0},
    {kDelayModLfo, &A::lfo1Delay, kMillisecond, 0, 32767, 0},
    {kFreqModLfo, &A::lfo1Frequency, 0.08405, 0, 255, kUsualRate},
    {kDelayVibLfo, &A::lfo2Delay, kMillisecond, 0, 32767, 0},
    {kFreqVibLfo, &A::lfo2Frequency, 0.08405, 0, 255, kUsualRate},
    {kDelayModEnv, &A::eg2Delay, kMillisecond, 0, 32767, 0},
    {kAttackModEnv, &A::eg2Attack, kMillisecond, 0, 32767, 0},
    {kHoldModEnv, &A::eg2Hold, kMillisecond, 0, 32767, 0},
    {kDecayModEnv, &A::eg2Decay, kMillisecond, 0, 32767, 0},
    {kSustainModEnv, &A::eg2Sustain, kSustainStep, 0, 99, 99},
    {kReleaseModEnv, &A::eg2Release, kMillisecond, 0, 32767, 0},
    {kDelayVolEnv, &A::eg1Delay, kMillisecond, 0, 32767, 0},
    {kAttackVolEnv, &A::eg1Attack, kMillisecond, 0, 32767, 0},
    {kHoldVolEnv, &A::eg1Hold, kMillisecond, 0, 32767, 0},
    {kDecayVolEnv, &A::eg1Decay, kMillisecond, 0, 32767, 0},
    {kSustainVolEnv, &A::eg1Sustain, kSustainStep, 0, 99, 99},
    {kReleaseVolEnv, &A::eg1Release, kMillisecond, 0, 32767, 0},
    {kScaleTuning, &A::keyToPitch, 0.5, -24, 24, 2},
};

constexpr i16 kFullVolume = 127, kMiddle = 64, kOriginalPitch = 6000;
constexpr f64 kOriginalRate = 44100; // Hz
constexpr f64 kOpenCutoff = 19900;   // Hz

} // namespace

SfZone sbkInstrumentDefaults() {
    SfZone zone = presetZoneDefaults();
    for (const Row& row : kRows) zone.generators[row.number] = row.initial;
    zone.generators[kInitialAttenuation] = kFullVolume;
    zone.generators[kPan] = kMiddle;
    zone.generators[kSamplePitch] = kOriginalPitch;
    zone.generators[kOverridingRootKey] = -1;
    return zone;
}

void sbk_ReadZone(const SfZonePair& zone, Articulation& articulation, SampleParams& params) {
    constexpr u32 kTriangle = 4;
    constexpr i32 kHalfScale = 1;
    articulationInit(articulation, true);
    articulation.lfo1Shape = articulation.lfo2Shape = kTriangle;
    for (const Row& row : kRows) {
        articulation.*row.field = static_cast<f32>(zone.generator(row.number) * row.unit);
    }
    articulation.filterEnable =
        static_cast<f64>(articulation.filterCutoff) < kOpenCutoff || articulation.filterResonance > 0;
    const i32 pan = zone.generator(kPan);
    articulation.panDefault = pan == 0 ? -1.0F : static_cast<f32>((pan - kMiddle) / 63.0);

    params.gainDb +=
        static_cast<f32>(roundHalf((zone.generator(kInitialAttenuation) - kFullVolume) * 96 / 127.0));
    sf_ReadLoop(zone.instrument, params);
    if (zone.generator(kScaleTuning) == kHalfScale) return;
    const i16 rootKey = zone.instrument.generators[kOverridingRootKey];
    if (rootKey >= 0 && rootKey < 128) params.rootKey = static_cast<u8>(rootKey);
    params.fineTune += zone.generator(kFineTune);
    articulation.masterTune = static_cast<f32>(zone.generator(kCoarseTune));
}

u32 sbk_SampleRate(const SfZonePair& zone) {
    const f64 cents = zone.generator(kSamplePitch) - kOriginalPitch;
    return saturate<u32>(kOriginalRate / std::exp2(cents / 1200) + 0.5);
}

SfZone sbk_ZoneOf(const Articulation& articulation) {
    SfZone zone = sbkInstrumentDefaults();
    const bool filter = sf2_HasFilter(articulation);
    for (const Row& row : kRows) {
        if (row.filter && !filter) continue;
        const i32 number = roundHalf(static_cast<f64>(articulation.*row.field) / row.unit);
        zone.generators[row.number] = static_cast<i16>(std::clamp(number, row.least, row.most));
    }
    const i32 pan = roundHalf(static_cast<f64>(articulation.panDefault) * 63 + kMiddle);
    zone.generators[kPan] = static_cast<i16>(articulation.panDefault <= -1 ? 0 : std::clamp(pan, 0, 127));
    zone.generators[kCoarseTune] = saturate<i16>(roundHalf(static_cast<f64>(articulation.masterTune)));
    return zone;
}

void sbk_AddPlaying(SfZone& zone, const Articulation& articulation, const SampleParams& params,
                    const SampleParams& wave, u32 sampleRate) {
    auto& out = zone.generators;
    const i32 volume = roundHalf(kFullVolume + static_cast<f64>(params.gainDb) * 127 / 96);
    out[kInitialAttenuation] = static_cast<i16>(std::clamp<i32>(volume, 0, kFullVolume));
    const f64 octaves = std::log2(kOriginalRate / std::max(sampleRate, 1U));
    out[kSamplePitch] = saturate<i16>(roundHalf(kOriginalPitch + octaves * 1200));
    out[kOverridingRootKey] = params.rootKey == 60 ? i16{-1} : i16{params.rootKey};
    const f64 tune = params.fineTune * 0.01 + static_cast<f64>(articulation.masterTune);
    const i32 semitones = roundHalf(tune);
    out[kCoarseTune] = saturate<i16>(semitones);
    out[kFineTune] = saturate<i16>(roundHalf((tune - semitones) * 100));
    sf_AddLoop(zone, params, wave);
}

} // namespace kv
