#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "midi/midi_edit.h"
#include "midi/midi_notation.h"
#include "midi/midi_song.h"
#include "model/collection.h"
#include "model/workspace.h"
#include "test_support.h"

namespace kv::test {

inline Bytes bytes(std::initializer_list<int> values) {
    Bytes result;
    for (const int v : values) result.push_back(static_cast<std::byte>(v));
    return result;
}

/// The events of a track in the notation of the command line.
inline std::vector<std::string> notes(const Track& track) {
    std::vector<std::string> all;
    MidiEventCursor event(track.events);
    while (event.next()) all.push_back(midiNotation(event));
    return all;
}

class MidiTest : public testing::Test {
protected:
    MidiTest() {
        space.ui = &ui;
        store().Create<Collection>("/music/suite.mid");
    }
    Song* addSong(u16 format = 1, i16 division = 96) {
        Song* song = store().Create<Song>(kNextFreeNumber, "suite");
        song->smfFormat = format;
        song->division = division;
        return song;
    }
    Track* addTrack(Song& song, Bytes events, std::string_view name = "Track 01") {
        Track* track = store().Create<Track>(kNextFreeNumber, name);
        track->events = std::move(events);
        track->Recount();
        song.AddChild(track->id());
        return track;
    }
    /// A track of events in the notation.
    Track* addTrack(Song& song, std::initializer_list<std::string_view> events, u64 length = 0) {
        Track* track = addTrack(song, Bytes());
        TrackEdit edit;
        for (const std::string_view text : events) {
            MidiEvent event;
            EXPECT_TRUE(parseMidiEvent(text, event)) << text << ": " << space.error.message;
            edit.insert(event);
        }
        EXPECT_TRUE(edit.apply(*track));
        MidiEventCursor last(track->events);
        while (last.next()) {
        }
        const Bytes end =
            bytes({static_cast<int>(length > last.time ? length - last.time : 0), 0xFF, 0x2F, 0});
        track->events.insert(track->events.end(), end.begin(), end.end());
        track->Recount();
        return track;
    }

    ScriptedUi ui;
    Workspace space;
    WorkspaceScope scope{space};
};

} // namespace kv::test
