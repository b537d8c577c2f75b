// Events, tracks and songs as lists and sheets show them.
#pragma once

#include <string>

#include "model/app_settings.h"
#include "model/midi_event_cursor.h"
#include "model/song.h"

namespace kv {

/// One row of an event list; the columns are called "Ticks", "Ch", "Event" and "Parameters".
struct EventRow {
    std::string ticks, channel, event, parameters;
};

/// Reads a track as rows, one after the other.
class EventRows {
public:
    static constexpr std::size_t kWindowBytes = 65536;
    static constexpr std::size_t kNoLimit = static_cast<std::size_t>(-1);

    /// `limit`: bytes of the track that are shown; a last row says if there are more. The track must stay
    /// as it is while its rows are read.
    explicit EventRows(const Track& track, std::size_t limit = kNoLimit);

    /// Fills in the next row; false at the end.
    bool next(EventRow& row);
    /// The event of the last row, unless that says that there are more.
    const MidiEventCursor& event() const { return cursor_; }

private:
    const AppSettings& settings_;
    MidiEventCursor cursor_;
    bool more_;
    std::string parameters_; ///< stay where an event has none of its own to show
};

/// The parameters of an event. Empty for channel pressure and for events without a name.
std::string eventParameters(const MidiEventCursor& event, const AppSettings& settings);

/// "-  2 tracks, 96 ticks/4th, 17 events, 123 Bytes  -"
std::string songSheetText(const Song& song);
/// "17 events, 123 Bytes"
std::string trackSheetText(const Track& track);

} // namespace kv
