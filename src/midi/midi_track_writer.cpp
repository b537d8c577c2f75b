#include "midi/midi_track_writer.h"

namespace kv {

MidiTrackWriter::MidiTrackWriter(Track* target, std::size_t expected) : track(target) {
    base_ = at_ = scratch_.data();
    limit_ = at_ + scratch_.size();
    if (!track) return;
    track->events.clear();
    track->events.resize(expected);
    base_ = at_ = track->events.data();
    limit_ = base_ + expected;
}

void MidiTrackWriter::grow(std::size_t bytes) {
    if (!track) { // nothing keeps what was counted
        flushed_ += static_cast<u64>(at_ - base_);
        at_ = base_;
        return;
    }
    const std::size_t used = static_cast<std::size_t>(at_ - base_);
    track->events.resize(used + std::max<std::size_t>(bytes, used / 2) + 32);
    base_ = track->events.data();
    at_ = base_ + used;
    limit_ = base_ + track->events.size();
}

void MidiTrackWriter::writePayload(ByteSpan payload) {
    payload = payload.first(std::min<std::size_t>(payload.size(), kMidiLengthLimit));
    at_ = putQuantity(at_, static_cast<u32>(payload.size()));
    if (track) {
        reserve(static_cast<std::ptrdiff_t>(payload.size()));
        at_ = std::copy(payload.begin(), payload.end(), at_);
    } else {
        flushed_ += payload.size();
    }
    runningStatus = kNoStatus;
}

void MidiTrackWriter::meta(u8 type, ByteSpan payload) {
    begin(kMeta);
    put(type);
    writePayload(payload);
}

void MidiTrackWriter::sysEx(u8 status, ByteSpan payload) {
    begin(status);
    writePayload(payload);
}

void MidiTrackWriter::copySystem(const MidiEventCursor& event) {
    if (event.status == kMeta) return meta(event.channel, event.body());
    if (hasPayload(event.status)) return sysEx(event.status, event.body());
    begin(runningStatus = event.status);
}

void MidiTrackWriter::finish() {
    if (!track) return;
    Bytes& events = track->events;
    events.resize(static_cast<std::size_t>(at_ - base_));
    if (events.capacity() - events.size() > events.size() / 8) events.shrink_to_fit();
    track->dataSize = events.size();
    track->eventCount = eventCount_;
}

} // namespace kv
