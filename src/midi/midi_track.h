// What is done with one track: what stands at its start, its tempo map, its channels one by one.
#pragma once

#include <array>

#include "model/song.h"

namespace kv {

/// Takes channel group and name from the meta events at time zero: a track name wins over a text, which
/// the next text replaces. With a song, its copyright too. Blank names are passed over.
void scanTimeZero(Track& track, Song* song = nullptr);

/// Keeps nothing but tempo and time signature events, at their times, and the End of Track. True if there
/// is more than that End of Track.
bool extractTempoMap(Track& track);
/// The events that `extractTempoMap` would leave of a copy of the track; empty if there is none but the End
/// of Track.
Bytes tempoMapOf(const Track& track);

/// All events up to End of Track are meta events at time zero, one of them a tempo.
bool isTempoMap(const Track& track);

/// The bytes of the meta events at time zero that the track starts with, ahead of its End of Track.
ByteSpan timeZeroPrefix(const Track& track);
/// Puts the time zero prefix of `source` in front of `target`.
void copyTimeZeroPrefix(Track& target, const Track& source);

/// A track for each channel, and at index 0 one for what belongs to no channel.
using ChannelTracks = std::array<Track*, 17>;
/// Distributes the events of a track: channel messages by channel, meta events by the channel prefix ahead
/// of them, SysEx and the rest to index 0. Prefixes and channel groups are dropped; every track gets the
/// End of Track.
void extractChannels(const Track& source, const ChannelTracks& targets);

} // namespace kv
