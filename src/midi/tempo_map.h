// Ticks of a song as seconds and back.
#pragma once

#include <vector>

#include "base/integers.h"

namespace kv {

class Song;

/// The tempo events of all tracks, or the frame rate of a song that counts frames.
class TempoMap {
public:
    explicit TempoMap(const Song& song);

    f64 secondsAt(u64 tick) const;
    /// The tick nearest to a time; times below 0 give 0.
    u64 tickAt(f64 seconds) const;

private:
    /// A stretch with one tempo.
    struct Stretch {
        u64 tick;
        f64 seconds; ///< of its start
        f64 secondsPerTick;
    };
    std::vector<Stretch> stretches_; ///< by tick; the first starts at 0
};

} // namespace kv
