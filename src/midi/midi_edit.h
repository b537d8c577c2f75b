// Changing single events of a track.
#pragma once

#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "model/midi_event_cursor.h"
#include "model/song.h"

namespace kv {

/// An event that stands for itself.
struct MidiEvent {
    u64 time = 0; ///< absolute ticks
    u8 status = kNoteOn;
    u8 channel = 0; ///< of a channel message; the type of a meta event
    u8 data1 = 0, data2 = 0;
    Bytes payload;

    explicit MidiEvent(const MidiEventCursor& event);
    MidiEvent() = default;
};

/// Changes to make in one go; indexes are those of the track before them all.
class TrackEdit {
public:
    static constexpr u32 kInTimeOrder = 0xFFFFFFFF;

    /// Replaces an event. At another time than before, it moves to its place in time.
    void modify(u32 index, MidiEvent event) { changes_[index] = std::move(event); }
    void remove(u32 index) { changes_[index] = std::nullopt; }
    /// Puts an event ahead of the one at `before` if that has the same time, else behind all others of its
    /// time. An End of Track stays the last.
    void insert(MidiEvent event, u32 before = kInTimeOrder) {
        if (before == kInTimeOrder)
            inserted_.push_back(std::move(event));
        else
            ahead_.emplace(before, std::move(event));
    }
    /// Rewrites the track. False with the error pair set, and the track as it was, for an index that there
    /// is not, a change of the End of Track, and events that can't be written.
    bool apply(Track& track) const;

private:
    bool check(const Track& track) const;
    bool findMoving(const Track& track, std::vector<const MidiEvent*>& moving) const;

    std::map<u32, std::optional<MidiEvent>> changes_;
    std::multimap<u32, MidiEvent> ahead_; ///< by the event to go ahead of
    std::vector<MidiEvent> inserted_;
};

/// Takes an edited track's events back unless the edits are kept.
class TrackEditSession {
public:
    explicit TrackEditSession(Track& track) : track_(track), before_(track.events) {}
    void cancel();

private:
    Track& track_;
    Bytes before_;
};

/// Bytes as pairs of hexadecimal digits, with blanks where wanted; a digit alone between blanks is a byte.
/// False with the error pair set for anything else.
bool parseHex(std::string_view text, Bytes& bytes);
std::string hexText(ByteSpan bytes);

/// How the payload of a meta event is edited.
enum class MetaForm : u8 { Number, Text, Hex };
MetaForm metaForm(u8 type);

/// A new meta event's payload: zeros in the natural size of the type.
Bytes newMetaPayload(u8 type);
/// The payload for a value in the type's form. False with the error pair set when the value is malformed or
/// too large.
bool parseMetaValue(u8 type, std::string_view value, Bytes& payload);

} // namespace kv
