#include "midi/midi_process.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "midi/midi_song.h"
#include "midi/midi_track_writer.h"
#include "midi/tempo_map.h"

namespace kv {
namespace {

constexpr u8 kDrumChannel = 9;
constexpr u8 kBankMsb = 0, kBankLsb = 32;
constexpr std::size_t kChannels = 16;

bool isSysEx(const MidiEventCursor& event) {
    return event.status == kSysEx || event.status == kSysExMore;
}

bool isKeyMessage(const MidiEventCursor& event) {
    return event.status == kNoteOff || event.status == kNoteOn || event.status == kPolyPressure;
}

/// Calls `write(event, writer)` with each event, at its time, to make the track anew.
template <class Write>
void rewrite(Track& track, Write write) {
    if (track.events.empty()) return;
    const Bytes old = std::exchange(track.events, Bytes());
    MidiTrackWriter writer(&track, old.size());
    MidiEventCursor event(old);
    while (event.next()) {
        writer.time = event.time;
        write(event, writer);
    }
    writer.finish();
    track.FixUp();
}

} // namespace

void transposeNotes(Track& track, int semitones, bool excludeDrums) {
    rewrite(track, [&](const MidiEventCursor& event, MidiTrackWriter& out) {
        if (!isKeyMessage(event) || (excludeDrums && event.channel == kDrumChannel)) return out.copy(event);
        const int key = event.data1 + semitones;
        if (key < 0 || key > 127) return;
        out.channelMessage(event.status, event.channel, static_cast<u8>(key), event.data2);
    });
}

void filterEvents(Track& track, const MidiFilter& filter) {
    const auto dropped = [&](const MidiEventCursor& event) {
        if (event.isChannelMessage()) {
            const bool pressure = event.status == kPolyPressure || event.status == kChannelPressure;
            return (filter.aftertouch && pressure) ||
                   (event.channel >= filter.firstChannel && event.channel <= filter.lastChannel);
        }
        if (event.status != kMeta) return filter.sysEx && isSysEx(event);
        return filter.meta && event.channel != kMetaTempo && event.channel != kMetaTrackName &&
               event.channel != kMetaEndOfTrack;
    };
    rewrite(track, [&](const MidiEventCursor& event, MidiTrackWriter& out) {
        if (!dropped(event)) out.copy(event);
    });
}

// ---- Repairs

namespace {

/// For each bank MSB of a track in order: whether a bank LSB follows on its channel ahead of a program change
/// and of the End of Track.
std::vector<bool> bankMsbsWithLsb(const Track& track) {
    std::vector<bool> with;
    std::array<std::vector<std::size_t>, kChannels> waiting;
    MidiEventCursor event(track.events);
    while (event.next() && !event.isMeta(kMetaEndOfTrack)) {
        if (!event.isChannelMessage()) continue;
        std::vector<std::size_t>& mine = waiting[event.channel];
        if (event.status == kProgramChange) {
            mine.clear();
        } else if (event.status == kControlChange && event.data1 == kBankMsb) {
            mine.push_back(with.size());
            with.push_back(false);
        } else if (event.status == kControlChange && event.data1 == kBankLsb) {
            for (const std::size_t index : mine) with[index] = true;
            mine.clear();
        }
    }
    return with;
}

class CompatibilityFixer {
public:
    CompatibilityFixer(const MidiFixes& fixes, std::vector<bool> withLsb)
        : fixes_(fixes), withLsb_(std::move(withLsb)) {}

    void take(const MidiEventCursor& event, MidiTrackWriter& out) {
        if (fixes_.dropSysEx && isSysEx(event)) return;
        if (!event.isChannelMessage()) return out.copy(event);
        Channel& channel = channels_[event.channel];
        if (event.status == kNoteOn) return noteOn(event, channel, out);
        out.copy(event);
        if (event.status == kProgramChange) {
            program(event, channel);
        } else if (event.status == kControlChange && event.data1 == kBankMsb) {
            channel.msb = {event.data2, valueOf(out)};
            bankMsb(event, channel, out);
        } else if (event.status == kControlChange && event.data1 == kBankLsb) {
            channel.lsb = {event.data2, valueOf(out)};
        }
    }

    /// Sets the bank numbers to 0 that lead to nothing.
    void zeroBanks(Track& track) const {
        for (const std::size_t at : zeroed_) track.events[at] = std::byte{0};
    }

private:
    struct Bank {
        u8 value = 0;
        std::optional<std::size_t> at{}; ///< of the value in the new bytes, since the last program change
    };
    struct Channel {
        Bank msb{}, lsb{};
        bool played = false; ///< a note was seen
        bool programmed = false;
    };

    /// Where the value of the message written last stands.
    static std::size_t valueOf(const MidiTrackWriter& out) {
        return static_cast<std::size_t>(out.countedBytes() - 1);
    }

    void noteOn(const MidiEventCursor& event, Channel& channel, MidiTrackWriter& out) const {
        if (fixes_.noteOffs && event.data2 == 0)
            return out.channelMessage(kNoteOff, event.channel, event.data1, 0);
        if (fixes_.programs && !channel.played && !channel.programmed) {
            out.channelMessage(kProgramChange, event.channel, 0, 0);
            channel.programmed = true;
        }
        channel.played = true;
        out.copy(event);
    }

    void bankMsb(const MidiEventCursor& event, Channel& channel, MidiTrackWriter& out) {
        const bool followed = msbs_ >= withLsb_.size() || withLsb_[msbs_];
        ++msbs_;
        if (!fixes_.bankLsb || channel.lsb.at || followed) return;
        out.channelMessage(kControlChange, event.channel, kBankLsb, 0);
        channel.lsb = {0, valueOf(out)};
    }

    void program(const MidiEventCursor& event, Channel& channel) {
        channel.programmed = true;
        const u32 patch = u32{event.data1} | u32{channel.lsb.value} << 7 | u32{channel.msb.value} << 14;
        if (fixes_.holdsPatch && !fixes_.holdsPatch(patch)) {
            for (Bank* bank : {&channel.msb, &channel.lsb}) {
                if (!bank->at) continue;
                zeroed_.push_back(*bank->at);
                bank->value = 0;
            }
        }
        channel.msb.at.reset();
        channel.lsb.at.reset();
    }

    const MidiFixes& fixes_;
    std::vector<bool> withLsb_;
    std::size_t msbs_ = 0;
    std::array<Channel, kChannels> channels_{};
    std::vector<std::size_t> zeroed_;
};

} // namespace

void fixCompatibility(Track& track, const MidiFixes& fixes) {
    CompatibilityFixer fixer(fixes, fixes.bankLsb ? bankMsbsWithLsb(track) : std::vector<bool>());
    rewrite(track, [&](const MidiEventCursor& event, MidiTrackWriter& out) { fixer.take(event, out); });
    fixer.zeroBanks(track);
}

// ---- Compacting

namespace {

/// What is set on a channel; -1: unknown.
class ChannelState {
public:
    ChannelState() { forget(); }

    void forget() {
        controllers_.fill(-1);
        keyPressures_.fill(-1);
        program_ = pressure_ = -1;
    }

    /// Notes what a message sets. False when that was set already.
    bool changes(const MidiEventCursor& event) {
        switch (event.status) {
            case kPolyPressure:
                return set(keyPressures_[event.data1], event.data2);
            case kChannelPressure:
                return set(pressure_, event.data1);
            case kProgramChange:
                return set(program_, event.data1);
            case kControlChange:
                return control(event.data1, event.data2);
            case kNoteOn: // a new note begins without pressure
            case kNoteOff:
                keyPressures_[event.data1] = -1;
                return true;
            default:
                return true;
        }
    }

private:
    static bool set(i16& value, u8 wanted) { return std::exchange(value, wanted) != wanted; }

    bool control(u8 number, u8 value) {
        constexpr u8 kDataMsb = 6, kDataLsb = 38, kDataInc = 96, kDataDec = 97, kFirstMode = 120;
        constexpr u8 kNrpnLsb = 98, kNrpnMsb = 99, kRpnLsb = 100, kRpnMsb = 101;
        if (number == kDataMsb || number == kDataLsb || number == kDataInc || number == kDataDec) return true;
        if (number >= kFirstMode) {
            forget();
            return true;
        }
        if (!set(controllers_[number], value)) return false;
        if (number == kBankMsb || number == kBankLsb) program_ = -1; // the same program is another sound now
        if (number == kNrpnLsb || number == kNrpnMsb) controllers_[kRpnLsb] = controllers_[kRpnMsb] = -1;
        if (number == kRpnLsb || number == kRpnMsb) controllers_[kNrpnLsb] = controllers_[kNrpnMsb] = -1;
        return true;
    }

    std::array<i16, 128> controllers_, keyPressures_;
    i16 program_, pressure_;
};

} // namespace

void compactTrack(Track& track, const MidiCompaction& how) {
    std::array<ChannelState, kChannels> channels;
    rewrite(track, [&](const MidiEventCursor& event, MidiTrackWriter& out) {
        if (isSysEx(event)) {
            for (ChannelState& channel : channels) channel.forget();
        }
        if (!event.isChannelMessage()) return out.copy(event);
        const bool shared = (how.sharedChannels >> event.channel & 1) != 0;
        if (how.duplicates && !shared && !channels[event.channel].changes(event)) return;
        if (how.noteOffsAsNoteOns && event.status == kNoteOff)
            return out.channelMessage(kNoteOn, event.channel, event.data1, 0);
        out.copy(event);
    });
}

u32 channelsOfSeveralTracks(const Song& song) {
    std::map<u8, u32> seen; // by port
    u32 shared = 0;
    for (const Track* track : tracksOf(song)) {
        u32 own = 0;
        MidiEventCursor event(track->events);
        while (event.next()) {
            if (event.isChannelMessage()) own |= 1U << event.channel;
        }
        u32& before = seen[track->channelGroup];
        shared |= before & own;
        before |= own;
    }
    return shared;
}

// ---- Trimming

namespace {

/// What of the cut-off stretch still holds at its end.
bool isState(const MidiEventCursor& event) {
    if (event.isChannelMessage()) return !isKeyMessage(event);
    if (event.status != kMeta || event.time == 0) return true;
    return event.channel < kMetaText || event.channel > kMetaCuePoint;
}

std::optional<u64> firstNote(const Song& song) {
    std::optional<u64> first;
    for (const Track* track : tracksOf(song)) {
        MidiEventCursor event(track->events);
        while (event.next() && !(event.status == kNoteOn && event.data2 > 0)) {
        }
        if (event.status == kNoteOn && event.data2 > 0)
            first = std::min(first.value_or(event.time), event.time);
    }
    return first;
}

} // namespace

TrimRange trimRange(const Song& song, const MidiTrim& trim) {
    const TempoMap tempo(song);
    TrimRange range;
    range.start = tempo.tickAt(trim.cutSeconds);
    if (trim.toFirstNote) range.start = std::max(range.start, firstNote(song).value_or(0));
    if (trim.lengthSeconds) range.end = tempo.tickAt(tempo.secondsAt(range.start) + *trim.lengthSeconds);
    return range;
}

void trimTrack(Track& track, const TrimRange& range) {
    if (track.events.empty()) return;
    const Bytes old = std::exchange(track.events, Bytes());
    MidiTrackWriter out(&track, old.size());
    std::array<std::array<u32, 128>, kChannels> open{}; // notes that sound
    MidiEventCursor event(old);
    bool more = event.next();
    for (; more && event.time < range.end && !event.isMeta(kMetaEndOfTrack); more = event.next()) {
        const bool ahead = event.time < range.start;
        out.time = ahead ? 0 : event.time - range.start;
        if (ahead && !isState(event)) continue;
        if (!ahead && isKeyMessage(event)) {
            u32& sounding = open[event.channel][event.data1];
            const bool begins = event.status == kNoteOn && event.data2 > 0;
            if (begins)
                ++sounding;
            else if (sounding == 0)
                continue;
            else if (event.status != kPolyPressure)
                --sounding;
        }
        out.copy(event);
    }
    const u64 end =
        std::clamp(std::min(event.time, range.end), range.start, std::max(range.start, range.end));
    out.time = end - range.start;
    for (u8 channel = 0; channel < kChannels; ++channel) {
        for (u8 key = 0; key < 128; ++key) {
            for (; open[channel][key] > 0; --open[channel][key])
                out.channelMessage(kNoteOff, channel, key, 0);
        }
    }
    out.endOfTrack();
    out.finish();
    track.FixUp();
}

} // namespace kv
