// MIDI songs and their tracks.
#pragma once

#include <vector>

#include "base/bytes.h"
#include "model/item.h"

namespace kv {

class Song final : public Item {
public:
    static constexpr u32 kClass = kSongClass;

    Song(Store& store, ItemId request, std::string_view name = {});
    /// A deep copy.
    Song(Store& store, const Song& source, ItemId request);
    ~Song() override;

    u16 smfFormat = 1;
    /// Ticks per quarter note; negative: frames per second as a negative number in the high byte, ticks
    /// per frame in the low byte.
    i16 division = 24;
    u32 eventCount = 0;
    Text<128> artist, engineer, copyright, product, comments;

    void FixUp() override;
    /// Counts the events and bytes of the tracks, and of the song.
    void Recount();
    /// The same from counts of the tracks that are right already.
    void SumTracks();
    std::string Describe() const override;
};

class Track final : public Item {
public:
    static constexpr u32 kClass = kTrackClass;

    Track(Store& store, ItemId request, std::string_view name = {});
    Track(Store& store, const Track& source, ItemId request);

    Bytes events; ///< Standard MIDI File track data, walked by a `MidiEventCursor`
    u32 eventCount = 0;
    u8 channelGroup = 0; ///< MIDI port

    void FixUp() override;
    /// Counts the events and bytes.
    void Recount();
    std::string Describe() const override;
};

/// The highest channel group of the song's tracks plus 1.
int SongChannelCount(const Song& song);

} // namespace kv
