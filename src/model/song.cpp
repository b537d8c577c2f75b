#include "model/song.h"

#include <fmt/format.h>

#include <algorithm>

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
    eventCount = 0;
    for (const ItemId id : childIds) {
        if (const Track* track = store().Find<Track>(id)) eventCount += track->eventCount;
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

namespace {

/// A variable length quantity of at most 4 bytes.
u32 variableLength(ByteCursor& in) {
    u32 value = 0;
    for (int i = 0; i < 4; ++i) {
        const u8 byte = in.u8le();
        value = value << 7 | (byte & 0x7F);
        if (byte < 0x80) break;
    }
    return value;
}

u32 countEvents(ByteSpan events) {
    ByteCursor in(events);
    u32 count = 0;
    u8 running = 0;
    while (in.left() > 0) {
        variableLength(in);
        if (in.left() == 0) break;
        u8 status = running;
        if (std::to_integer<u8>(events[static_cast<std::size_t>(in.offset())]) >= 0x80) status = in.u8le();
        if (status < 0x80) {
            in.skip(1); // a data byte that nothing explains
            continue;
        }
        if (status < 0xF0) {
            running = status;
            in.skip((status & 0xE0) == 0xC0 ? 1 : 2);
        } else if (status == 0xF0 || status == 0xF7 || status == 0xFF) {
            if (status == 0xFF) in.skip(1);
            in.skip(variableLength(in));
        }
        if (!in.ok()) break;
        ++count;
    }
    return count;
}

} // namespace

void Track::FixUp() {
    dataSize = events.size();
    eventCount = countEvents(events);
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
