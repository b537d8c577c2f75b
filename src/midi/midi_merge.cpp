// Merging the tracks of a song by time.
#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "base/run_context.h"
#include "midi/midi_song.h"
#include "midi/midi_track_writer.h"
#include "model/store.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "kvGetFormat0Track()";
constexpr u8 kNoChannel = 0xFF;
constexpr u64 kTimeLimit = kMidiLengthLimit; ///< events from here on are lost

/// Tracks by the time of their next event: a tree of which each node is the smaller of the two below it. A
/// key is the time with the track's index below it, so that of one time the first track comes first.
class TrackQueue {
public:
    explicit TrackQueue(std::size_t tracks)
        : leaves_(std::bit_ceil(std::max<std::size_t>(tracks, 1))), keys_(2 * leaves_, kEmpty) {}

    void set(std::size_t track, u64 time) { put(track, time << 32 | track); }
    void remove(std::size_t track) { put(track, kEmpty); }
    bool empty() const { return keys_[1] == kEmpty; }
    std::size_t first() const { return static_cast<std::size_t>(keys_[1] & 0xFFFFFFFF); }

private:
    static constexpr u64 kEmpty = ~u64{0};

    void put(std::size_t track, u64 key) {
        std::size_t at = leaves_ + track;
        keys_[at] = key;
        while (at > 1) {
            key = std::min(key, keys_[at ^ 1]);
            at /= 2;
            keys_[at] = key;
        }
    }

    std::size_t leaves_;
    std::vector<u64> keys_; ///< the root at 1, the nodes below n at 2n and 2n + 1
};

u8 firstChannel(ByteSpan events) {
    MidiEventCursor event(events);
    while (event.next()) {
        if (event.isChannelMessage()) return event.channel;
    }
    return kNoChannel;
}

class Merger {
public:
    Merger(const std::vector<Track*>& tracks, Track& target, std::size_t size)
        : out_(&target, size), queue_(tracks.size()) {
        cursors_.reserve(tracks.size());
        for (const Track* track : tracks) {
            cursors_.emplace_back(track->events);
            cursors_.back().trackChannel = firstChannel(track->events);
            advance(cursors_.size() - 1);
        }
    }

    void run() {
        while (!queue_.empty()) takeFirst();
        out_.time = lastTime_;
        out_.endOfTrack();
        out_.finish();
    }
    /// Tracks that go on beyond the last time that can be written.
    std::size_t cutTracks() const { return cutTracks_; }

private:
    void advance(std::size_t index) {
        MidiEventCursor& cursor = cursors_[index];
        if (!cursor.next()) return queue_.remove(index);
        if (cursor.time < kTimeLimit) return queue_.set(index, cursor.time);
        queue_.remove(index);
        ++cutTracks_;
    }
    void takeFirst() {
        const std::size_t index = queue_.first();
        MidiEventCursor& cursor = cursors_[index];
        lastTime_ = out_.time = cursor.time;
        if (cursor.isChannelMessage()) {
            out_.channelMessage(cursor.status, cursor.channel, cursor.data1, cursor.data2);
            cursor.trackChannel = cursor.channel;
        } else if (cursor.isMeta(kMetaEndOfTrack)) {
            return queue_.remove(index);
        } else {
            takeSystem(cursor, index == 0 || cursor.trackChannel == kNoChannel);
        }
        advance(index);
    }
    /// `global`: what the event says holds for all channels.
    void takeSystem(const MidiEventCursor& cursor, bool global) {
        if (cursor.isMeta(kMetaChannelPrefix) || (global && cursor.isMeta(kMetaTrackName))) return;
        if (!global && hasPayload(cursor.status)) {
            const auto channel = static_cast<std::byte>(cursor.trackChannel);
            out_.meta(kMetaChannelPrefix, {&channel, 1});
        }
        out_.copy(cursor);
    }

    MidiTrackWriter out_;
    std::vector<MidiEventCursor> cursors_;
    TrackQueue queue_;
    u64 lastTime_ = 0; ///< of the last event taken
    std::size_t cutTracks_ = 0;
};

Track* copyOfOnlyTrack(const Song& song) {
    const std::vector<Track*> tracks = tracksOf(song);
    if (tracks.empty()) {
        Fail(kContext, "The song has no track");
        return nullptr;
    }
    if (tracks.size() > 1) {
        runContext().diagnostics.add({Severity::Loss, 0, song.name().str(), "tracks",
                                      fmt::format("{} of {} tracks of a format 0 song, which has one",
                                                  tracks.size() - 1, tracks.size())});
    }
    return song.store().Create<Track>(*tracks.front(), kNextFreeNumber);
}

} // namespace

Track* kvGetFormat0Track(Song& song) {
    if (song.smfFormat == 0) return copyOfOnlyTrack(song);
    if (song.smfFormat != 1) {
        Fail(kContext, "Can't convert this midi format to format 0");
        return nullptr;
    }
    song.Recount();
    Track* merged = song.store().Create<Track>(kNextFreeNumber);
    Merger merger(tracksOf(song), *merged, static_cast<std::size_t>(song.dataSize + song.dataSize / 8));
    merger.run();
    if (merger.cutTracks() > 0) {
        runContext().diagnostics.add(
            {Severity::Loss, 0, song.name().str(), "events",
             fmt::format("what lies beyond tick {} in {} tracks", kTimeLimit - 1, merger.cutTracks())});
    }
    return merged;
}

} // namespace kv
