// Walking the events of a track: a Standard MIDI File track chunk without its header.
#pragma once

#include "base/bytes.h"

namespace kv {

inline constexpr u32 kMidiLengthLimit = 0x0FFFFFFF; ///< what four bytes of a variable length quantity hold

enum MidiStatus : u8 {
    kNoteOff = 0x80,
    kNoteOn = 0x90,
    kPolyPressure = 0xA0,
    kControlChange = 0xB0,
    kProgramChange = 0xC0,
    kChannelPressure = 0xD0,
    kPitchBend = 0xE0,
    kSysEx = 0xF0,
    kSysExMore = 0xF7,
    kMeta = 0xFF,
};

enum MetaType : u8 {
    kMetaSequenceNumber = 0,
    kMetaText = 1,
    kMetaCopyright = 2,
    kMetaTrackName = 3,
    kMetaCuePoint = 7,
    kMetaChannelPrefix = 0x20,
    kMetaChannelGroup = 0x21,
    kMetaEndOfTrack = 0x2F,
    kMetaTempo = 0x51,
    kMetaSmpteOffset = 0x54,
    kMetaTimeSignature = 0x58,
    kMetaKeySignature = 0x59,
    kMetaSequencerSpecific = 0x7F,
};

/// Program change and channel pressure have one data byte, the other channel messages two.
constexpr bool hasTwoDataBytes(u8 status) {
    return (status & 0xE0) != 0xC0;
}
constexpr bool hasPayload(u8 status) {
    return status == kSysEx || status == kSysExMore || status == kMeta;
}

/// The reading state: `next` steps from event to event and stops at what is cut short. The bytes must
/// outlive the cursor. Running status lasts over SysEx and meta events; a data byte ahead of any channel
/// message is skipped, its delta time counts for the next event.
struct MidiEventCursor {
    u64 time = 0;                       ///< absolute ticks of the current event
    u32 delta = 0;                      ///< ticks since the event before
    u8 status = 0;                      ///< upper nibble of a channel message, the whole byte of all else
    u8 channel = 0;                     ///< of a channel message; the type of a meta event
    u8 data1 = 0, data2 = 0;            ///< of a channel message, 7 bits each; a missing second one is 0
    const std::byte* payload = nullptr; ///< of a SysEx or meta event
    u32 length = 0;                     ///< of the payload
    const std::byte* position;          ///< next unread byte
    const std::byte* end;
    u8 running = 0;         ///< last channel status byte
    u8 trackChannel = 0xFF; ///< for the merger: channel of the track's last, at first of its first, message

    explicit MidiEventCursor(ByteSpan events) : position(events.data()), end(events.data() + events.size()) {}

    /// Reads the next event; false at the end, and where an event is cut short.
    bool next() {
        delta = 0;
        while (readDelta() && position != end) {
            const u8 byte = std::to_integer<u8>(*position);
            if (byte >= 0xF0) return readSystem(byte);
            if (byte >= 0x80) {
                running = byte;
                ++position;
            } else if (running == 0) {
                ++position;
                continue;
            }
            return readChannelMessage();
        }
        return stop();
    }

    bool isChannelMessage() const { return status < 0xF0; }
    bool isMeta(u8 type) const { return status == kMeta && channel == type; }
    ByteSpan body() const { return {payload, length}; }
    /// A payload byte; 0 behind the end.
    u8 byteAt(std::size_t index) const {
        return index < length ? std::to_integer<u8>(payload[index]) : u8{0};
    }
    u32 tempo() const { return u32{byteAt(0)} << 16 | u32{byteAt(1)} << 8 | byteAt(2); }

private:
    bool stop() {
        position = end;
        return false;
    }
    /// A quantity of at most four bytes, whatever bit 7 of the fourth says.
    bool readQuantity(u32& value) {
        value = 0;
        for (int i = 0; i < 4; ++i) {
            if (position == end) return false;
            const u8 byte = std::to_integer<u8>(*position++);
            value = value << 7 | (byte & 0x7F);
            if (byte < 0x80) return true;
        }
        return true;
    }
    bool readDelta() {
        u32 ticks = 0;
        if (!readQuantity(ticks)) return false;
        time += ticks;
        delta += ticks;
        return true;
    }
    bool readChannelMessage() {
        status = running & 0xF0;
        channel = running & 0x0F;
        const bool two = hasTwoDataBytes(status);
        if (end - position < 1 + two) return stop();
        data1 = std::to_integer<u8>(*position++) & 0x7F;
        data2 = two ? std::to_integer<u8>(*position++) & 0x7F : 0;
        return true;
    }
    bool readSystem(u8 byte);
};

/// The events up to the end or to where one is cut short.
u32 countMidiEvents(ByteSpan events);

} // namespace kv
