#include "model/song.h"

#include <fmt/format.h>

#include <algorithm>

#include "model/midi_event_cursor.h"
#include "model/store.h"

namespace kv {

Song::Song(Store& owner, ItemId request, std::string_view text) : Item(owner, kClass, request) {
    SetName(text);
}

Song::Song(Store& owner, const Song& source, ItemId request) : Item(owner, kClass, request) {
    copyItemFields(source);
    SetName(source.name(), false);
    smfFormat = source.smfFormat;
    division = source.division;
    eventCount = source.eventCount;
    artist = source.artist;
    engineer = source.engineer;
    copyright = source.copyright;
    product = source.product;
    comments = source.comments;
    for (const ItemId child : source.childIds) {
        if (const Track* track = owner.Find<Track>(child)) {
            AddChild(owner.Create<Track>(*track, kNextFreeNumber)->id());
        }
    }
}

Song::~Song() {
    deleteChildren();
}

void Song::FixUp() {
    Item::FixUp();
    if (division <= 0) division = 24; // takes in the negative SMPTE form
    SumTracks();
}

void Song::Recount() {
    for (const ItemId id : childIds) {
        if (Track* track = store().Find<Track>(id)) track->Recount();
    }
    SumTracks();
}

void Song::SumTracks() {
    dataSize = 0;
    eventCount = 0;
    for (const ItemId id : childIds) {
        const Track* track = store().Find<Track>(id);
        if (!track) continue;
        dataSize += track->dataSize;
        eventCount += track->eventCount;
    }
}

std::string Song::Describe() const {
    std::string text = fmt::format("MIDI song with {} track{} ({} events)", childIds.size(),
                                   childIds.size() == 1 ? ' ' : 's', eventCount);
    if (!artist.empty()) text += fmt::format(" by {}", artist.view());
    return text;
}

Track::Track(Store& owner, ItemId request, std::string_view text) : Item(owner, kClass, request) {
    SetName(text);
}

Track::Track(Store& owner, const Track& source, ItemId request) : Item(owner, kClass, request) {
    copyItemFields(source);
    SetName(source.name());
    events = source.events;
    eventCount = source.eventCount;
    channelGroup = source.channelGroup;
}

void Track::Recount() {
    dataSize = events.size();
    eventCount = countMidiEvents(events);
}

void Track::FixUp() {
    Recount();
}

std::string Track::Describe() const {
    return fmt::format("Midi track of {} events ({} Bytes)", eventCount, dataSize);
}

int SongChannelCount(const Song& song) {
    int highest = 0;
    for (const ItemId id : song.childIds) {
        if (const Track* track = song.store().Find<Track>(id))
            highest = std::max<int>(highest, track->channelGroup);
    }
    return highest + 1;
}

} // namespace kv
