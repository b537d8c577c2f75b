// Merging the tracks of a song by time.
#include <fmt/format.h>

#include "base/run_context.h"
#include "midi/midi_song.h"
#include "midi/midi_track_writer.h"
#include "model/store.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "kvGetFormat0Track()";
constexpr u8 kNoChannel = 0xFF;
constexpr u64 kTimeLimit = kMidiLengthLimit; ///< events from here on are lost

/// Tracks by their next event. A key is the time with the track's index below it, so that of one time the
/// first track comes first.
class TrackQueue {
public:
    static u64 keyOf(u64 time, std::size_t track) { return time << 32 | track; }
    static std::size_t trackOf(u64 key) { return static_cast<std::size_t>(key & 0xFFFFFFFF); }

    void add(u64 key) {
        keys_.push_back(key);
        std::push_heap(keys_.begin(), keys_.end(), std::greater<>());
    }
    bool empty() const { return keys_.empty(); }
    u64 top() const { return keys_.front(); }
    /// The smallest key but one; above all keys if there is none.
    u64 second() const {
        u64 key = ~u64{0};
        for (std::size_t i = 1; i < std::min<std::size_t>(keys_.size(), 3); ++i)
            key = std::min(key, keys_[i]);
        return key;
    }
    void replaceTop(u64 key) {
        const std::size_t count = keys_.size();
        std::size_t at = 0;
        for (std::size_t child = 1; child < count; child = 2 * at + 1) {
            if (child + 1 < count) child += keys_[child + 1] < keys_[child] ? 1 : 0;
            if (keys_[child] >= key) break;
            keys_[at] = keys_[child];
            at = child;
        }
        keys_[at] = key;
    }
    void removeTop() {
        const u64 last = keys_.back();
        keys_.pop_back();
        if (!keys_.empty()) replaceTop(last);
    }

private:
    std::vector<u64> keys_;
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
    Merger(const std::vector<Track*>& tracks, Track& target, std::size_t size) : out_(&target, size) {
        cursors_.reserve(tracks.size());
        for (const Track* track : tracks) {
            cursors_.emplace_back(track->events);
            cursors_.back().trackChannel = firstChannel(track->events);
            if (advance(cursors_.back()))
                queue_.add(TrackQueue::keyOf(cursors_.back().time, cursors_.size() - 1));
        }
    }

    void run() {
        while (!queue_.empty()) drainTop();
        out_.time = lastTime_;
        out_.endOfTrack();
        out_.finish();
    }
    /// Tracks that go on beyond the last time that can be written.
    std::size_t cutTracks() const { return cutTracks_; }

private:
    bool advance(MidiEventCursor& cursor) {
        if (!cursor.next()) return false;
        if (cursor.time < kTimeLimit) return true;
        ++cutTracks_;
        return false;
    }
    /// Takes events of the first track in the queue for as long as it stays the first.
    void drainTop() {
        const std::size_t index = TrackQueue::trackOf(queue_.top());
        const u64 rival = queue_.second();
        MidiEventCursor& cursor = cursors_[index];
        for (;;) {
            lastTime_ = out_.time = cursor.time;
            if (cursor.isChannelMessage()) {
                out_.channelMessage(cursor.status, cursor.channel, cursor.data1, cursor.data2);
                cursor.trackChannel = cursor.channel;
            } else if (cursor.isMeta(kMetaEndOfTrack)) {
                return queue_.removeTop();
            } else {
                takeSystem(cursor, index == 0 || cursor.trackChannel == kNoChannel);
            }
            if (!advance(cursor)) return queue_.removeTop();
            const u64 key = TrackQueue::keyOf(cursor.time, index);
            if (key > rival) return queue_.replaceTop(key);
        }
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
