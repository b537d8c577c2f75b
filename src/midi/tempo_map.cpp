#include "midi/tempo_map.h"

#include <algorithm>
#include <cmath>

#include "midi/midi_song.h"
#include "model/midi_event_cursor.h"

namespace kv {
namespace {

constexpr u32 kDefaultTempo = 500'000; // microseconds per quarter note: 120 quarters a minute

/// Of a division that counts frames; a rate or a frame of nothing counts as 1.
f64 secondsPerTickOfFrames(i16 division) {
    constexpr int kDropFrames = 29; // stands for 30000 / 1001 frames a second
    const int rate = -(division >> 8);
    const f64 frames = rate == kDropFrames ? 30000.0 / 1001 : std::max(rate, 1);
    return 1 / (frames * std::max(division & 0xFF, 1));
}

} // namespace

TempoMap::TempoMap(const Song& song) {
    if (song.division < 0) {
        stretches_.push_back({0, 0, secondsPerTickOfFrames(song.division)});
        return;
    }
    struct Change {
        u64 tick;
        u32 tempo;
    };
    std::vector<Change> changes;
    for (const Track* track : tracksOf(song)) {
        MidiEventCursor event(track->events);
        while (event.next() && !event.isMeta(kMetaEndOfTrack)) {
            if (event.isMeta(kMetaTempo) && event.length >= 3) changes.push_back({event.time, event.tempo()});
        }
    }
    std::stable_sort(changes.begin(), changes.end(),
                     [](const Change& a, const Change& b) { return a.tick < b.tick; });
    const auto perTick = [&](u32 tempo) { return tempo / 1e6 / std::max<int>(song.division, 1); };
    stretches_.push_back({0, 0, perTick(kDefaultTempo)});
    for (const Change& change : changes) {
        const Stretch next{change.tick, secondsAt(change.tick), perTick(change.tempo)};
        if (stretches_.back().tick == change.tick) stretches_.pop_back();
        stretches_.push_back(next);
    }
}

f64 TempoMap::secondsAt(u64 tick) const {
    const auto after = std::upper_bound(stretches_.begin(), stretches_.end(), tick,
                                        [](u64 wanted, const Stretch& one) { return wanted < one.tick; });
    const Stretch& in = after[-1];
    return in.seconds + static_cast<f64>(tick - in.tick) * in.secondsPerTick;
}

u64 TempoMap::tickAt(f64 seconds) const {
    if (!(seconds > 0)) return 0;
    const auto after = std::upper_bound(stretches_.begin(), stretches_.end(), seconds,
                                        [](f64 wanted, const Stretch& one) { return wanted < one.seconds; });
    const Stretch& in = after[-1];
    constexpr f64 kMostTicks = 9e15;
    const f64 ticks = (seconds - in.seconds) / in.secondsPerTick + 0.5;
    return in.tick + static_cast<u64>(ticks < kMostTicks ? ticks : kMostTicks);
}

} // namespace kv
