#include "midi/midi_edit.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "base/run_context.h"
#include "midi/midi_names.h"
#include "midi/midi_track_writer.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Edit event";

bool checkEvent(const MidiEvent& event) {
    if (event.status == kMeta && event.channel == kMetaEndOfTrack)
        return Fail(kContext, "Sorry, you can't set an 'End of Track' manually!");
    const bool channelMessage = event.status >= kNoteOff && event.status < kSysEx;
    if (!channelMessage && !hasPayload(event.status)) return Fail(kContext, "There is no such event");
    if (channelMessage && (event.status % 16 != 0 || event.channel > 15))
        return Fail(kContext, "Channels go from 1 to 16");
    if (channelMessage && (event.data1 > 127 || event.data2 > 127))
        return Fail(kContext, "Values of channel messages go from 0 to 127");
    if (event.payload.size() > kMidiLengthLimit) return Fail(kContext, "The event is too long");
    return true;
}

void write(MidiTrackWriter& out, const MidiEvent& event) {
    out.time = event.time;
    if (event.status == kMeta)
        out.meta(event.channel, event.payload);
    else if (event.status >= kSysEx)
        out.sysEx(event.status, event.payload);
    else
        out.channelMessage(event.status, event.channel, event.data1, event.data2);
}

} // namespace

MidiEvent::MidiEvent(const MidiEventCursor& event)
    : time(event.time),
      status(event.status),
      channel(event.channel),
      data1(event.data1),
      data2(event.data2),
      payload(event.isChannelMessage() ? Bytes() : Bytes(event.body().begin(), event.body().end())) {}

bool TrackEdit::check(const Track& track) const {
    for (const auto& [index, event] : changes_) {
        if (event && !checkEvent(*event)) return false;
    }
    for (const auto& [before, event] : ahead_) {
        if (!checkEvent(event)) return false;
    }
    if (!std::all_of(inserted_.begin(), inserted_.end(), checkEvent)) return false;
    const u32 count = countMidiEvents(track.events);
    return (changes_.empty() || changes_.rbegin()->first < count) &&
                   (ahead_.empty() || ahead_.rbegin()->first < count)
               ? true
               : Fail(kContext, "Please select an event in the event list first");
}

/// What goes to its place in time, in that order: changed events whose time is another now, and new ones.
bool TrackEdit::findMoving(const Track& track, std::vector<const MidiEvent*>& moving) const {
    auto change = changes_.begin();
    auto ahead = ahead_.begin();
    MidiEventCursor cursor(track.events);
    for (u32 index = 0; cursor.next(); ++index) {
        for (; ahead != ahead_.end() && ahead->first == index; ++ahead) {
            if (ahead->second.time != cursor.time) moving.push_back(&ahead->second);
        }
        if (change == changes_.end() || change->first != index) continue;
        if (cursor.isMeta(kMetaEndOfTrack)) return Fail(kContext, "The End of Track stays as it is");
        const auto& event = (change++)->second;
        if (event && event->time != cursor.time) moving.push_back(&*event);
    }
    for (const MidiEvent& event : inserted_) moving.push_back(&event);
    std::stable_sort(moving.begin(), moving.end(),
                     [](const MidiEvent* a, const MidiEvent* b) { return a->time < b->time; });
    return true;
}

bool TrackEdit::apply(Track& track) const {
    std::vector<const MidiEvent*> moving;
    if (!check(track) || !findMoving(track, moving)) return false;

    const Bytes old = std::move(track.events);
    constexpr std::size_t kRoom = 16;
    MidiTrackWriter out(&track, old.size() + kRoom);
    auto next = moving.begin();
    const auto writeUpTo = [&](u64 time) {
        while (next != moving.end() && (*next)->time < time) write(out, **next++);
    };
    constexpr u64 kEver = ~u64{0};
    auto change = changes_.begin();
    auto ahead = ahead_.begin();
    MidiEventCursor cursor(old);
    for (u32 index = 0; cursor.next(); ++index) {
        const bool last = cursor.isMeta(kMetaEndOfTrack);
        writeUpTo(last ? cursor.time + 1 : cursor.time);
        for (; ahead != ahead_.end() && ahead->first == index; ++ahead) {
            if (ahead->second.time == cursor.time) write(out, ahead->second);
        }
        if (last) writeUpTo(kEver);
        out.time = cursor.time;
        if (change == changes_.end() || change->first != index) {
            out.copy(cursor);
            continue;
        }
        const auto& event = (change++)->second;
        if (event && event->time == cursor.time) write(out, *event);
    }
    writeUpTo(kEver);
    out.finish();
    return true;
}

void TrackEditSession::cancel() {
    track_.events = before_;
    track_.Recount();
}

namespace {

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

} // namespace

bool parseHex(std::string_view text, Bytes& bytes) {
    bytes.clear();
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ') {
            ++at;
            continue;
        }
        const std::size_t end = std::min(text.find(' ', at), text.size());
        const std::size_t digits = end - at;
        if ((digits % 2 != 0 && digits != 1) ||
            !std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at),
                         text.begin() + static_cast<std::ptrdiff_t>(end), isHexDigit)) {
            return Fail(kContext, "Malformed Hex value!");
        }
        for (const std::size_t width = std::min<std::size_t>(digits, 2); at < end; at += width) {
            u8 byte = 0;
            std::from_chars(text.data() + at, text.data() + at + width, byte, 16);
            bytes.push_back(static_cast<std::byte>(byte));
        }
    }
    return true;
}

std::string hexText(ByteSpan bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::byte b : bytes)
        fmt::format_to(std::back_inserter(text), "{:02X}", std::to_integer<u8>(b));
    return text;
}

MetaForm metaForm(u8 type) {
    if (type >= kMetaText && type <= kMetaCuePoint) return MetaForm::Text;
    constexpr u8 kNumbers[] = {kMetaSequenceNumber, kMetaChannelPrefix, kMetaChannelGroup, kMetaTempo};
    const bool number = std::find(std::begin(kNumbers), std::end(kNumbers), type) != std::end(kNumbers);
    return number ? MetaForm::Number : MetaForm::Hex;
}

Bytes newMetaPayload(u8 type) {
    const MetaKind* kind = metaKind(type);
    return Bytes(kind ? kind->size : 0);
}

bool parseMetaValue(u8 type, std::string_view value, Bytes& payload) {
    switch (metaForm(type)) {
        case MetaForm::Text: {
            const ByteSpan text = bytesOf(value);
            payload.assign(text.begin(), text.end());
            return true;
        }
        case MetaForm::Hex:
            return parseHex(value, payload);
        case MetaForm::Number:
            break;
    }
    payload = newMetaPayload(type);
    u32 number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size() || number >> (8 * payload.size()) != 0)
        return Fail(kContext, "\"{}\" is no number of {} bytes", value, payload.size());
    for (std::size_t i = payload.size(); i-- > 0; number >>= 8) payload[i] = static_cast<std::byte>(number);
    return true;
}

} // namespace kv
