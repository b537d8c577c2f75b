// What is done with a song as a whole.
#pragma once

#include "model/song.h"

namespace kv {

/// A new track, outside any song, with the events of all tracks of the song; those of one tick in the order
/// of the tracks. SysEx and meta events of tracks that play a channel get a channel prefix. Null with the
/// error pair set for a song of another format than 0 or 1, and for one of format 0 without a track.
Track* kvGetFormat0Track(Song& song);

/// To format 0: one track, "Combined track". To format 1: a track for each channel that has events, and a
/// control track. Other values do nothing. False with the error pair set, and the song as it was, when the
/// tracks can't be merged.
bool changeFileFormat(Song& song, u16 format);

/// A format 2 song becomes one format 0 song for each track and is deleted; one of a single track just
/// becomes format 0. A first track that holds only a tempo map goes in front of all others instead of
/// becoming a song. Returns the first song.
Song* splitFormat2(Song& song);

/// Stretches all times to a new number of ticks per quarter note. A rate of 0 and the song's own do nothing,
/// nor does a song that counts frames. False with the error pair set for a rate beyond 32767, which a song
/// can't hold.
bool changeTickRate(Song& song, u32 division);

/// The song that holds the track; null if none does.
Song* FindParentSong(const Track& track);

/// The tracks of a song in their order.
std::vector<Track*> tracksOf(const Song& song);

} // namespace kv
