// Writing the events of a track, or counting the bytes that they would take.
#pragma once

#include <algorithm>
#include <array>

#include "model/midi_event_cursor.h"
#include "model/song.h"

namespace kv {

/// The writing state. The caller sets `time` and writes events; `finish` must end it. What is counted goes
/// through the same code as what is written, so the two agree to the byte.
class MidiTrackWriter {
public:
    static constexpr u8 kNoStatus = 0xFF;

    /// Replaces the events of `track`; null counts only. `expected` is a guess of the size in bytes.
    explicit MidiTrackWriter(Track* track, std::size_t expected = 0);
    MidiTrackWriter(const MidiTrackWriter&) = delete;
    MidiTrackWriter& operator=(const MidiTrackWriter&) = delete;

    Track* const track;
    u64 lastTime = 0; ///< absolute ticks of the last event written
    u64 time = 0;     ///< absolute ticks of the next event; before `lastTime` counts as that
    u8 channelOr = 0; ///< OR-ed into each channel status
    u8 runningStatus = kNoStatus;

    /// `status` is the upper nibble.
    void channelMessage(u8 status, u8 channel, u8 data1, u8 data2) {
        reserve(kSmallEvent);
        const u8 byte = static_cast<u8>(status | channel | channelOr);
        std::byte* at = putQuantity(at_, takeDelta());
        if (byte != runningStatus) *at++ = static_cast<std::byte>(runningStatus = byte);
        *at++ = static_cast<std::byte>(data1);
        if (hasTwoDataBytes(status)) *at++ = static_cast<std::byte>(data2);
        at_ = at;
        ++eventCount_;
    }
    void meta(u8 type, ByteSpan payload);
    /// `status` is `kSysEx` or `kSysExMore`.
    void sysEx(u8 status, ByteSpan payload);
    void endOfTrack() { meta(kMetaEndOfTrack, {}); }
    /// The cursor's event, at the writer's time.
    void copy(const MidiEventCursor& event) {
        if (event.isChannelMessage())
            channelMessage(event.status, event.channel, event.data1, event.data2);
        else
            copySystem(event);
    }

    /// Bytes of the events so far.
    u64 countedBytes() const { return flushed_ + static_cast<u64>(at_ - base_); }
    u32 eventCount() const { return eventCount_; }
    /// Cuts the track to what was written and sets its size and event count.
    void finish();

private:
    static constexpr std::ptrdiff_t kSmallEvent = 4 + 1 + 1 + 4; // delta, status, type, length: also 3 bytes

    // These work on a pointer of their own: a store to bytes could be one to the members.
    static std::byte* putQuantity(std::byte* at, u32 value) {
        if (value >= 0x80) {
            if (value >= 0x4000) {
                if (value >= 0x200000) *at++ = static_cast<std::byte>(value >> 21 | 0x80);
                *at++ = static_cast<std::byte>(value >> 14 | 0x80);
            }
            *at++ = static_cast<std::byte>(value >> 7 | 0x80);
        }
        *at++ = static_cast<std::byte>(value & 0x7F);
        return at;
    }
    u32 takeDelta() {
        const u64 delta = time > lastTime ? std::min<u64>(time - lastTime, kMidiLengthLimit) : 0;
        lastTime += delta; // what a delta time can't hold, the next one makes up for
        return static_cast<u32>(delta);
    }
    /// Room for the event, its delta time and its status.
    void begin(u8 status) {
        reserve(kSmallEvent);
        at_ = putQuantity(at_, takeDelta());
        put(status);
        ++eventCount_;
    }
    void put(u8 byte) { *at_++ = static_cast<std::byte>(byte); }
    void reserve(std::ptrdiff_t bytes) {
        if (limit_ - at_ < bytes) grow(static_cast<std::size_t>(bytes));
    }
    void grow(std::size_t bytes);
    void copySystem(const MidiEventCursor& event);
    void writePayload(ByteSpan payload);

    std::array<std::byte, 64> scratch_; ///< takes the events while counting
    std::byte *base_, *at_, *limit_;
    u64 flushed_ = 0; ///< counted bytes that left the scratch buffer
    u32 eventCount_ = 0;
};

} // namespace kv
