// The neutral record of everything that shapes a sound, in physical units.
#pragma once

#include <span>
#include <string_view>
#include <type_traits>

#include "base/integers.h"

namespace kv {

struct ParameterSet;

/// Envelopes, LFOs, filter, equaliser, mixing and modulation depths. Limits and defaults stand in the table
/// of `articulationFields()`; a new record has the defaults. A record that is not enabled keeps its values,
/// and what it stands for is found by `resolveArticulation`.
struct Articulation {
    bool enabled = false; ///< the record is in force at its level

    f32 lfo1Frequency = 5; ///< Hz
    f32 lfo1Delay = 0;     ///< s
    f32 lfo1Ramp = 0;      ///< s, in which the depth rises
    u32 lfo1Shape = 0;     ///< index in `lfoShapeNames()`
    f32 lfo2Frequency = 5;
    f32 lfo2Delay = 0;
    f32 lfo2Ramp = 0;
    u32 lfo2Shape = 0;

    f32 eg1Delay = 0; ///< volume envelope: all times in s
    f32 eg1Attack = 0;
    f32 eg1Hold = 0;
    f32 eg1Decay = 0;   ///< of a fall over the full range of levels, not the time to the sustain level
    f32 eg1Sustain = 1; ///< level, 0..1
    f32 eg1Release = 0;
    f32 eg1Shutdown = 0.015F; ///< release of a voice that is stolen or cut off by a key group
    f32 eg1VelToAttack = 1;   ///< factor on the time at full velocity
    f32 eg1KeyToHold = 1;     ///< factor on the time across all keys
    f32 eg1KeyToDecay = 1;
    f32 eg2Delay = 0; ///< modulation envelope
    f32 eg2Attack = 0;
    f32 eg2Hold = 0;
    f32 eg2Decay = 0;
    f32 eg2Sustain = 1;
    f32 eg2Release = 0;
    f32 eg2Shutdown = 0.015F; ///< stands here for symmetry; no file holds it
    f32 eg2VelToAttack = 1;
    f32 eg2KeyToHold = 1;
    f32 eg2KeyToDecay = 1;

    f32 panDefault = 0; ///< -1 left .. 1 right
    f32 keyToPan = 0;
    f32 cc10ToPan = 1;
    f32 reverbDefault = 0;
    f32 cc91ToReverb = 1;
    f32 chorusDefault = 0;
    f32 cc93ToChorus = 1;

    bool filterEnable = false;
    i32 filterType = 1;      ///< index in `filterTypeNames()`
    f32 filterCutoff = 8000; ///< Hz
    f32 filterResonance = 0; ///< dB
    bool eqEnable = false;
    bool eqLoShelf = false;
    bool eqHiShelf = false;
    f32 eqLoFreq = 120, eqLoGain = 0, eqLoQ = 1; ///< Hz, dB, and quality
    f32 eqMidFreq = 800, eqMidGain = 0, eqMidQ = 1;
    f32 eqHiFreq = 5000, eqHiGain = 0, eqHiQ = 1;

    f32 velToVolume = 96; ///< dB over all velocities
    f32 keyToVolume = 0;  ///< dB per octave
    f32 lfo1ToVolume = 0; ///< dB
    f32 aftertouchToVolume = 0;
    f32 modToLfo1Volume = 0; ///< depth that the modulation wheel adds to the LFO's
    f32 aftertouchToLfo1Volume = 0;
    f32 masterTune = 0;     ///< semitones
    f32 keyToPitch = 1;     ///< semitones per key
    f32 pitchBendRange = 2; ///< semitones
    f32 lfo1ToPitch = 0;
    f32 lfo2ToPitch = 0;
    f32 eg2ToPitch = 0;
    f32 modToLfo2Pitch = 0;
    f32 modToLfo1Pitch = 0;
    f32 aftertouchToLfo2Pitch = 0;
    f32 aftertouchToLfo1Pitch = 0;
    f32 lfo1ToCutoff = 0; ///< semitones
    f32 eg2ToCutoff = 0;
    f32 velToCutoff = 0;
    f32 keyToCutoff = 0;
    f32 modToCutoff = 0;
    f32 aftertouchToCutoff = 0;
    f32 modToLfo1Cutoff = 0;
    f32 aftertouchToLfo1Cutoff = 0;

    friend bool operator==(const Articulation&, const Articulation&) = default;
};
static_assert(std::is_trivially_copyable_v<Articulation>);

inline constexpr f32 kEndlessRelease = 40; ///< s; the longest time, which stands for a sound that rings on

/// The twelve shapes; those with "+" swing from zero to the depth.
std::span<const std::string_view> lfoShapeNames();
std::span<const std::string_view> filterTypeNames();

constexpr bool isLfoUnipolar(u32 shape) {
    return shape <= 11 && shape % 2 == 1;
}

/// Sets all fields to their defaults.
inline void articulationInit(Articulation& record, bool enabled) {
    record = Articulation();
    record.enabled = enabled;
}

/// The volume envelope that formats without one get: full level while the key is down, and a release that
/// rings on when the wave doesn't loop.
void makeDefaultEnvelope(Articulation& record, bool looped);

/// The mean of several records; the filter's type and the equaliser are found by vote. Without any record:
/// an enabled one with a flat envelope of endless release.
Articulation averageArticulation(std::span<const Articulation> records);

/// Brings every field into its limits and takes away, or folds into others, what the set doesn't have.
void sanitizeArticulation(Articulation& record, const ParameterSet& set);

} // namespace kv
