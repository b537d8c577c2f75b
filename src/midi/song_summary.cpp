#include "midi/song_summary.h"

#include <algorithm>
#include <array>
#include <memory>

#include "midi/midi_song.h"
#include "model/midi_event_cursor.h"

namespace kv {
namespace {

struct TempoChange {
    u64 time;  ///< ticks
    u32 tempo; ///< microseconds per quarter note
};

/// Frames per second of an SMPTE division; 29 stands for the drop frame rate.
f64 frameRate(i16 division) {
    const int frames = -(division >> 8);
    return frames == 29 ? 30000.0 / 1001 : frames;
}

f64 secondsOf(u64 ticks, i16 division, std::vector<TempoChange>& changes) {
    const auto length = static_cast<f64>(ticks);
    if (division < 0) {
        const int ticksPerFrame = std::max(division & 0xFF, 1);
        return length / (frameRate(division) * ticksPerFrame);
    }
    constexpr u32 kDefaultTempo = 500000;
    std::stable_sort(changes.begin(), changes.end(),
                     [](const TempoChange& a, const TempoChange& b) { return a.time < b.time; });
    f64 microseconds = 0; // times the division
    TempoChange last{0, kDefaultTempo};
    for (const TempoChange& change : changes) {
        microseconds += static_cast<f64>(change.time - last.time) * last.tempo;
        last = change;
    }
    microseconds += static_cast<f64>(ticks - last.time) * last.tempo;
    return microseconds / (std::max<int>(division, 1) * 1e6);
}

class Summarizer {
public:
    void track(const Track& track) {
        Port& port = portOf(track.channelGroup);
        std::array<u32, 16> banks{};
        MidiEventCursor event(track.events);
        while (event.next()) {
            ticks_ = std::max(ticks_, event.time);
            if (event.isChannelMessage()) {
                take(event, port[event.channel], banks[event.channel]);
            } else if (event.isMeta(kMetaTempo) && event.length >= 3) {
                tempos_.push_back({event.time, event.tempo()});
            } else if (event.isMeta(kMetaEndOfTrack)) {
                break;
            }
        }
    }

    SongSummary finish(const Song& song) {
        SongSummary summary;
        summary.ticks = ticks_;
        summary.seconds = secondsOf(ticks_, song.division, tempos_);
        for (std::size_t number = 0; number < ports_.size(); ++number) {
            if (!ports_[number]) continue;
            for (std::size_t channel = 0; channel < 16; ++channel) {
                ChannelUse& use = (*ports_[number])[channel];
                if (use.notes == 0 && use.programs.empty()) continue;
                use.port = static_cast<u8>(number);
                use.channel = static_cast<u8>(channel);
                summary.notes += use.notes;
                summary.channels.push_back(std::move(use));
            }
        }
        return summary;
    }

private:
    using Port = std::array<ChannelUse, 16>;

    Port& portOf(u8 number) {
        if (!ports_[number]) ports_[number] = std::make_unique<Port>();
        return *ports_[number];
    }
    static void take(const MidiEventCursor& event, ChannelUse& use, u32& bank) {
        constexpr u8 kBankMsb = 0, kBankLsb = 32;
        if (event.status == kNoteOn) {
            if (event.data2 > 0) ++use.notes;
        } else if (event.status == kControlChange && event.data1 == kBankMsb) {
            bank = (bank & 0x7F) | u32{event.data2} << 7;
        } else if (event.status == kControlChange && event.data1 == kBankLsb) {
            bank = (bank & 0x3F80) | event.data2;
        } else if (event.status == kProgramChange) {
            use.programs.insert(bank << 7 | event.data1);
        }
    }

    std::array<std::unique_ptr<Port>, 256> ports_;
    std::vector<TempoChange> tempos_;
    u64 ticks_ = 0;
};

} // namespace

SongSummary summarize(const Song& song) {
    Summarizer summarizer;
    for (const Track* track : tracksOf(song)) summarizer.track(*track);
    return summarizer.finish(song);
}

} // namespace kv
