// What the generators of SoundFont 1 mean in the model. Its units are absolute and linear.
#pragma once

#include "formats/banks/soundfont/sf2_mapping.h"

namespace kv {

/// What a zone of an instrument starts from.
SfZone sbkInstrumentDefaults();

/// What a zone gives a region. `params` holds the wave's own and is changed.
void sbk_ReadZone(const SfZonePair& zone, Articulation& articulation, SampleParams& params);
/// The sample rate that a zone gives its wave, in Hz.
u32 sbk_SampleRate(const SfZonePair& zone);

/// The articulation as generators over the defaults.
SfZone sbk_ZoneOf(const Articulation& articulation);
/// Adds what a region's playing of its wave needs.
void sbk_AddPlaying(SfZone& zone, const Articulation& articulation, const SampleParams& params,
                    const SampleParams& wave, u32 sampleRate);

} // namespace kv
