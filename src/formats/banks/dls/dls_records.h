// The contents of the fixed records of a DLS bank, read and written.
// Documents: "Downloadable Sounds Level 1, version 1.1b" and "Level 2.2" (MIDI Manufacturers Association).
#pragma once

#include "formats/framework/chunks.h"

namespace kv {

struct Articulation;
class Region;
struct SampleParams;

/// From which level on a file holds what: velocities and layers, compressed samples, all that is our own.
inline constexpr int kDlsLevel2 = 2, kDlsLevel2Plus = 3, kDlsLevel2Full = 4;

/// `rgnh`: ranges, options and the key group. `layer` gets the number of the region's layer, from 1; 0 where
/// the record is without one. False, with nothing changed, when it is too short.
bool readDlsRegionHeader(ByteSpan record, Region& region, u32& layer);
/// The whole chunk. Below level 2 it has no layer, and all velocities.
void writeDlsRegionHeader(ByteWriter& to, const Region& region, u32 layer, int level);

/// `wlnk`: the phase group, and the index in the cue table.
bool readDlsWaveLink(ByteSpan record, Region& region, u32& cue);
void writeDlsWaveLink(ByteWriter& to, const Region& region, u32 cue, bool stereo);

/// `wsmp`, with the first of its loops. False, with nothing changed, when it is too short.
bool readDlsWaveSample(ByteSource& source, const Chunk& chunk, SampleParams& params);
/// Writes the chunk, and from the full level on a private list with what it can't hold. `sounding` is the
/// region's articulation, of which some goes into tuning and gain; null for a wave.
void writeDlsWaveSample(ByteWriter& to, const SampleParams& params, const Articulation* sounding, int level);
/// The gain in dB that `writeDlsWaveSample` adds for an LFO which swings to one side only.
f32 dlsLfoGain(const Articulation& sounding);

/// Records of the private list: `rgnx`, what triggers a region, and `wsmx`, fractions and kind of a loop.
void readDlsRegionMore(ByteSpan record, Region& region);
void writeDlsRegionMore(ByteWriter& to, const Region& region);
void readDlsWaveSampleMore(ByteSpan record, SampleParams& params);

} // namespace kv
