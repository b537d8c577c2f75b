// Rewriting the events of tracks: transposing, filtering, repairing, compacting, trimming. What is dropped
// loses no time: the event after it takes up the delta time.
#pragma once

#include <optional>

#include "model/song.h"

namespace kv {

/// Moves notes and polyphonic pressure by semitones; what leaves 0..127 is dropped.
void transposeNotes(Track& track, int semitones, bool excludeDrums);

struct MidiFilter {
    bool sysEx = false;
    bool meta = false;                      ///< all but tempo, track name and End of Track
    bool aftertouch = false;                ///< of channels and of keys
    int firstChannel = 0, lastChannel = -1; ///< whose messages are dropped, from 0
};
void filterEvents(Track& track, const MidiFilter& filter);

struct MidiFixes {
    bool bankLsb = false;  ///< a bank LSB of 0 behind each bank MSB that has none up to its program change
    bool programs = false; ///< a program change ahead of the first note of a channel without one
    bool dropSysEx = false;
    bool noteOffs = false; ///< note offs for note ons of velocity 0
    /// Programs for which it answers false have the bank numbers ahead of them set to 0, so that the song
    /// falls back to bank 0. Takes a patch word as `Instrument::patch` holds it. Null: all stay.
    bool (*holdsPatch)(u32 patch) = nullptr;
};
void fixCompatibility(Track& track, const MidiFixes& fixes);

struct MidiCompaction {
    /// Drops control changes, program changes and pressures that set what is set already. Kept all the same:
    /// what has an effect of its own each time (data entry and steps, channel modes), and channels in
    /// `sharedChannels`, which other tracks change too. SysEx and "reset all" make all values unknown.
    bool duplicates = false;
    bool noteOffsAsNoteOns = false; ///< with velocity 0, which running status makes shorter
    u32 sharedChannels = 0;         ///< bit n: channel n
};
void compactTrack(Track& track, const MidiCompaction& how);
/// The channels that more than one track of the same port uses, as bits.
u32 channelsOfSeveralTracks(const Song& song);

struct MidiTrim {
    bool toFirstNote = false;         ///< the start is the first note of the song
    f64 cutSeconds = 0;               ///< from the start; not above 0: nothing
    std::optional<f64> lengthSeconds; ///< of what is kept from there on
};
/// Where a song is cut, in ticks: by all of its tempo events.
struct TrimRange {
    u64 start = 0, end = ~u64{0};
};
TrimRange trimRange(const Song& song, const MidiTrim& trim);
/// Cuts a track to [start, end). What was set ahead of the start (tempo, programs, controllers and the like)
/// stands at time 0; notes that began there are dropped, those that are open at the end end there, and so
/// does the track.
void trimTrack(Track& track, const TrimRange& range);

} // namespace kv
