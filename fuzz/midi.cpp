// Any bytes as a Standard MIDI File: what is read is written again, converted, summed up, listed and edited.
#include <algorithm>
#include <set>
#include <string>

#include "formats/songs/smf.h"
#include "midi/midi_event_text.h"
#include "midi/midi_notation.h"
#include "midi/midi_song.h"
#include "midi/midi_track.h"
#include "midi/midi_track_writer.h"
#include "midi/song_summary.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/workspace.h"
#include "require.h"

namespace {

using namespace kv;
using fuzz::require;

Song* read(ByteSpan bytes) {
    store().DeleteAllItems();
    FileContext file;
    file.source = std::make_shared<MemorySource>(bytes);
    Song* song = nullptr;
    const bool done = mid_Parse(file, song, 0, bytes.size(),
                                *store().Create<Collection>(std::filesystem::path("fuzz.mid")));
    require(done == (song != nullptr), "a song or a failure");
    return song;
}

Bytes written(const Item& item, int group) {
    SmfPlan plan;
    MemorySink sink;
    FileContext file;
    file.sink = &sink;
    require(plan.make(item, group, "fuzz") && plan.write(file), "what was read can be written");
    require(plan.size() == sink.view().size(), "in the size that was told");
    return sink.take();
}

/// Channel messages with their times, up to where the merger stops.
std::multiset<std::string> notes(const Song& song) {
    std::multiset<std::string> all;
    for (const Track* track : tracksOf(song)) {
        MidiEventCursor event(track->events);
        while (event.next() && event.time < kMidiLengthLimit && !event.isMeta(kMetaEndOfTrack)) {
            if (event.isChannelMessage()) all.insert(midiNotation(event));
        }
    }
    return all;
}

void list(const Song& song) {
    songSheetText(song);
    require(summarize(song).seconds >= 0, "a length");
    for (const Track* track : tracksOf(song)) {
        u32 rows = 0;
        EventRow row;
        EventRows all(*track);
        for (; all.next(row); ++rows) {
            MidiEvent event;
            const std::string text = midiNotation(all.event());
            if (all.event().isChannelMessage() && all.event().time <= kMidiLengthLimit)
                require(parseMidiEvent(text, event), "the notation of a channel message can be read");
        }
        require(rows == track->eventCount, "as many rows as events");
        for (EventRows window(*track, EventRows::kWindowBytes); window.next(row);) {
        }
        isTempoMap(*track);
        tempoMapOf(*track);
    }
}

/// Rewrites the track with its first, middle and last events changed, by what the bytes say.
void edit(Track& track, ByteSpan bytes) {
    if (track.eventCount == 0) return;
    const u32 middle = track.eventCount / 2;
    TrackEdit change;
    MidiEvent event;
    const std::string text(textOf(bytes.first(std::min<std::size_t>(bytes.size(), 64))));
    parseMidiEvent(text, event);
    change.insert(event);
    change.insert(event, middle);
    change.modify(0, event);
    change.remove(track.eventCount - 1);
    const u32 before = track.eventCount;
    if (change.apply(track)) require(track.eventCount == before + 1, "events counted");
    require(track.eventCount == countMidiEvents(track.events), "the writer counts as the cursor does");
}

void convert(Song& song) {
    const auto before = notes(song);
    const bool oneTrack = song.childIds.size() <= 1;
    if (song.smfFormat > 1 || !changeFileFormat(song, 0)) return;
    if (oneTrack || song.smfFormat == 1) require(notes(song) == before, "all notes in one track");
    const auto merged = notes(song);
    require(changeFileFormat(song, 1), "what was merged can be split");
    require(notes(song) == merged, "all notes in the tracks of their channels");
    u32 events = 0;
    for (const Track* track : tracksOf(song)) events += countMidiEvents(track->events);
    require(events == song.eventCount, "events counted");
    changeTickRate(song, song.division == 7 ? 8 : 7);
    changeTickRate(song, 32767);
    require(notes(song).size() <= merged.size(), "a rate makes no notes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Workspace space;
    const WorkspaceScope scope(space);
    const ByteSpan bytes = std::as_bytes(std::span(data, size));
    Song* song = read(bytes);
    if (!song) return 0;
    if (store().count(kSongClass) == 1) {
        const Bytes first = written(*song, SmfPlan::kAllGroups);
        written(*song, 0);
        written(*song, 1);
        for (const Track* track : tracksOf(*song)) written(*track, SmfPlan::kAllGroups);
        song = read(first);
        require(song && written(*song, SmfPlan::kAllGroups) == first, "the second writing equals the first");
    }
    FixUpAll(kAllClasses);
    for (const Song& one : store().all<Song>()) list(one);
    convert(*song);
    list(*song);
    for (Track* track : tracksOf(*song)) edit(*track, bytes);
    return 0;
}
