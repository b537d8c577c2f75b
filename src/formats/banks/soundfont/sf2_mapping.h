// What the generators and modulators of SoundFont 2 mean in the model, in both directions.
#pragma once

#include "formats/banks/soundfont/sf_zone.h"
#include "model/articulation.h"
#include "model/sample_params.h"

namespace kv {

/// Timecents to seconds; -12000 and below are 0.
f64 secondsOfTimecents(i32 timecents);
/// Absolute cents to Hz.
f64 hertzOfCents(i32 cents);

/// A preset's and an instrument's zone taken together.
struct SfZonePair {
    const SfZone& preset;
    const SfZone& instrument;

    i32 generator(std::size_t number) const {
        return preset.generators[number] + instrument.generators[number];
    }
    i32 slot(std::size_t number) const { return preset.slots[number] + instrument.slots[number]; }
};

/// What a zone gives a region: the articulation, and the playing of the wave. `params` holds the wave's own
/// and is changed; `unpitched` is the wave's flag for a sound without a pitch.
void sf2_ReadZone(const SfZonePair& zone, bool unpitched, Articulation& articulation, SampleParams& params);

/// The articulation as generators and slots, over the defaults. Tuning and volume are those of a region that
/// plays its wave as it is.
SfZone sf2_ZoneOf(const Articulation& articulation);
/// Adds what a region's playing of its wave needs; `params` are those in force, `wave` the wave's own.
void sf2_AddPlaying(SfZone& zone, const Articulation& articulation, const SampleParams& params,
                    const SampleParams& wave);

/// The loop, and what of the wave is left out, which both versions tell alike. The other offsets of `params`
/// count from those of the wave.
void sf_ReadLoop(const SfZone& instrument, SampleParams& params);
void sf_AddLoop(SfZone& zone, const SampleParams& params, const SampleParams& wave);

/// The filter can be told in the format, which has one low-pass.
bool sf2_HasFilter(const Articulation& articulation);

} // namespace kv
