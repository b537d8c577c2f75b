#include "midi/song_summary.h"

#include <algorithm>
#include <array>
#include <memory>

#include "midi/midi_song.h"
#include "midi/tempo_map.h"
#include "model/midi_event_cursor.h"

namespace kv {
namespace {

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
            } else if (event.isMeta(kMetaEndOfTrack)) {
                break;
            }
        }
    }

    SongSummary finish(const Song& song) {
        SongSummary summary;
        summary.ticks = ticks_;
        summary.seconds = TempoMap(song).secondsAt(ticks_);
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
    u64 ticks_ = 0;
};

} // namespace

SongSummary summarize(const Song& song) {
    Summarizer summarizer;
    for (const Track* track : tracksOf(song)) summarizer.track(*track);
    return summarizer.finish(song);
}

} // namespace kv
