// What a song plays, and for how long.
#pragma once

#include <set>
#include <vector>

#include "model/song.h"

namespace kv {

/// What happens on one channel of one port.
struct ChannelUse {
    u8 port = 0;    ///< `Track::channelGroup`
    u8 channel = 0; ///< 0 to 15
    u64 notes = 0;  ///< Note On events with a velocity
    /// Program changes: bank MSB, bank LSB and program, in bits 14, 7 and 0. The bank is the one that the
    /// track had selected on the channel before; 0 without.
    std::set<u32> programs;
};

struct SongSummary {
    u64 ticks = 0;   ///< of the last event
    f64 seconds = 0; ///< by all tempo events of all tracks, or the frame rate
    u64 notes = 0;
    std::vector<ChannelUse> channels; ///< those with notes or programs, by port and channel
};

SongSummary summarize(const Song& song);

} // namespace kv
