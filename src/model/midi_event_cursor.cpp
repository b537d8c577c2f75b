#include "model/midi_event_cursor.h"

namespace kv {

bool MidiEventCursor::readSystem(u8 byte) {
    ++position;
    status = byte;
    channel = 0;
    data1 = data2 = 0;
    payload = position;
    length = 0;
    if (!hasPayload(byte)) return true;
    if (byte == kMeta) {
        if (position == end) return stop();
        channel = std::to_integer<u8>(*position++);
    }
    if (!readQuantity(length) || length > static_cast<std::size_t>(end - position)) return stop();
    payload = position;
    position += length;
    return true;
}

u32 countMidiEvents(ByteSpan events) {
    MidiEventCursor cursor(events);
    u32 count = 0;
    while (cursor.next()) ++count;
    return count;
}

} // namespace kv
