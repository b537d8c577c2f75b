#include "midi/midi_track.h"

#include <algorithm>
#include <deque>
#include <string>

#include "midi/midi_track_writer.h"
#include "model/store.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

bool isBlank(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<u8>(c) <= ' '; });
}

} // namespace

void scanTimeZero(Track& track, Song* song) {
    bool named = false, grouped = false, copyrighted = song == nullptr;
    ByteSpan name;
    MidiEventCursor event(track.events);
    while (!(named && grouped && copyrighted) && event.next() && event.time == 0 &&
           !event.isMeta(kMetaEndOfTrack)) {
        if (event.status != kMeta) continue;
        if (event.channel == kMetaChannelGroup && !grouped && event.length > 0) {
            track.channelGroup = event.byteAt(0);
            grouped = true;
        } else if (event.channel == kMetaCopyright && !copyrighted) {
            song->copyright = textFromBytes(event.body());
            copyrighted = true;
        } else if ((event.channel == kMetaText || event.channel == kMetaTrackName) && !named) {
            if (!isBlank(textOf(event.body()))) name = event.body();
            named = event.channel == kMetaTrackName;
        }
    }
    const std::string text = textFromBytes(name);
    if (!isBlank(text)) track.SetName(text);
}

bool extractTempoMap(Track& track) {
    const Bytes whole = std::move(track.events);
    MidiTrackWriter out(&track);
    MidiEventCursor event(whole);
    while (event.next() && !event.isMeta(kMetaEndOfTrack)) {
        if (!event.isMeta(kMetaTempo) && !event.isMeta(kMetaTimeSignature)) continue;
        out.time = event.time;
        out.copy(event);
    }
    out.time = event.time;
    out.endOfTrack();
    out.finish();
    return track.eventCount > 1;
}

Bytes tempoMapOf(const Track& track) {
    Track* copy = track.store().Create<Track>(track, kNextFreeNumber);
    const bool any = extractTempoMap(*copy);
    Bytes events = any ? std::move(copy->events) : Bytes();
    copy->store().Delete(copy);
    return events;
}

bool isTempoMap(const Track& track) {
    bool hasTempo = false;
    MidiEventCursor event(track.events);
    while (event.next()) {
        if (event.status != kMeta || event.time != 0) return false;
        if (event.channel == kMetaEndOfTrack) break;
        hasTempo |= event.channel == kMetaTempo;
    }
    return hasTempo;
}

ByteSpan timeZeroPrefix(const Track& track) {
    MidiEventCursor event(track.events);
    const std::byte* end = event.position;
    while (event.next() && event.time == 0 && event.status == kMeta && event.channel != kMetaEndOfTrack) {
        end = event.position;
    }
    return {track.events.data(), end};
}

void copyTimeZeroPrefix(Track& target, const Track& source) {
    const ByteSpan prefix = timeZeroPrefix(source);
    if (prefix.empty()) return;
    Bytes joined;
    joined.reserve(prefix.size() + target.events.size());
    joined.insert(joined.end(), prefix.begin(), prefix.end());
    joined.insert(joined.end(), target.events.begin(), target.events.end());
    target.events = std::move(joined);
    target.Recount();
}

void extractChannels(const Track& source, const ChannelTracks& targets) {
    constexpr int kNoPrefix = -1;
    std::deque<MidiTrackWriter> writers; // they can't move
    for (Track* target : targets) writers.emplace_back(target);
    const auto write = [&](std::size_t index, const MidiEventCursor& event) {
        writers[index].time = event.time;
        writers[index].copy(event);
    };

    int prefix = kNoPrefix;
    MidiEventCursor event(source.events);
    while (event.next() && !event.isMeta(kMetaEndOfTrack)) {
        if (event.isChannelMessage()) {
            write(event.channel + std::size_t{1}, event);
        } else if (event.isMeta(kMetaChannelPrefix)) {
            if (event.length > 0) prefix = event.byteAt(0);
        } else if (event.status == kMeta) {
            const std::size_t index = static_cast<std::size_t>(prefix + 1);
            if (event.channel != kMetaChannelGroup && index < writers.size()) write(index, event);
            prefix = kNoPrefix;
        } else if (hasPayload(event.status)) {
            write(0, event);
            prefix = kNoPrefix; // it was this event's
        }
    }
    for (MidiTrackWriter& writer : writers) {
        writer.time = event.time;
        writer.endOfTrack();
        writer.finish();
    }
}

} // namespace kv
