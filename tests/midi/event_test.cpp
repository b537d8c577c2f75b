// Events as texts, and changes of single ones.
#include "midi/midi_event_text.h"
#include "midi_test.h"

namespace kv {
namespace {

using test::bytes;
using test::notes;
using Lines = std::vector<std::string>;

class Events : public test::MidiTest {
protected:
    /// A row with bars between its cells.
    static std::string line(const EventRow& row) {
        return row.ticks + "|" + row.channel + "|" + row.event + "|" + row.parameters;
    }
    std::string firstLine(const Bytes& event) {
        EventRows rows(*addTrack(*addSong(), event));
        EventRow row;
        return rows.next(row) ? line(row) : "";
    }
};

TEST_F(Events, Rows) {
    const struct {
        Bytes event;
        const char* row;
    } cases[] = {
        {bytes({0x81, 0, 0x82, 60, 64}), "128|3|Note Off|C4, 64"},
        {bytes({0, 0x9F, 1, 2}), "0|16|Note On|C#-1, 2"},
        {bytes({0, 0xA0, 127, 3}), "0|1|Poly Press|G9, 3"},
        {bytes({0, 0xB0, 8, 9}), "0|1|Control Chg|Balance, 9"},
        {bytes({0, 0xB0, 40, 9}), "0|1|Control Chg|CC40, 9"},
        {bytes({0, 0xB0, 127, 0}), "0|1|Control Chg|Polyphonic, 0"},
        {bytes({0, 0xC0, 77}), "0|1|Program Chg|77"},
        {bytes({0, 0xD0, 77}), "0|1|Ch Pressure|"},
        {bytes({0, 0xE0, 0, 0x40}), "0|1|Pitch Bend|0.00000"},
        {bytes({0, 0xE0, 0, 0}), "0|1|Pitch Bend|-1.00000"},
        {bytes({0, 0xF8}), "0|||"},
        {bytes({0, 0xF0, 5, 0x7E, 0x7F, 9, 1, 0xF7}), "0||SysEx|<GM Reset: GM1>"},
        {bytes({0, 0xF0, 5, 0x7E, 0x7F, 9, 4, 0xF7}), "0||SysEx|<GM Reset: >"},
        {bytes({0, 0xF0, 5, 0x7E, 0x7F, 6, 0x1A, 0xF7}), "0||SysEx|<GM message  6, 1A>"},
        {bytes({0, 0xF0, 6, 0x7E, 0x7F, 6, 1, 0, 0xF7}), "0||SysEx|<GM message  6, 6 Bytes>"},
        {bytes({0, 0xF0, 4, 0x7E, 0x7F, 9, 1}), "0||SysEx|<Manuf: 7Eh, 4 Bytes>"},
        {bytes({0, 0xF7, 1, 0x7F}), "0||SysEx Cont|<GM realtime, 1 Bytes>"},
        {bytes({0, 0xF0, 8, 0x41, 0x10, 0x42, 0x12, 0x40, 5, 0x15, 2}),
         "0||SysEx|<Roland GS, Part 5 mode=2>"},
        {bytes({0, 0xF0, 8, 0x41, 0x10, 0x42, 0x12, 0x40, 16, 0x15, 2}), "0||SysEx|<Roland GS, 8 Bytes>"},
        {bytes({0, 0xF0, 7, 0x41, 0x10, 0x42, 0x12, 0x40, 5, 0x15}), "0||SysEx|<Manuf: 41h, 7 Bytes>"},
        {bytes({0, 0xF0, 7, 0x43, 0x10, 0x4C, 0, 0, 0, 0}), "0||SysEx|<Yamaha XG, 7 Bytes>"},
        {bytes({0, 0xF0, 0}), "0||SysEx|<Manuf:  0h, 0 Bytes>"},
        {bytes({0, 0xFF, 0, 2, 1, 2}), "0||Meta event|Sequence no: 258"},
        {bytes({0, 0xFF, 5, 3, 'B', 0xE9, '!'}), "0||Meta event|Lyric: B\u00E9!"},
        {bytes({0, 0xFF, 0x20, 1, 9}), "0||Meta event|Channel prefix: 9"},
        {bytes({0, 0xFF, 0x2F, 0}), "0||Meta event|End of Track"},
        {bytes({0, 0xFF, 0x51, 3, 0x07, 0xA1, 0x20}), "0||Meta event|Tempo: 500.00000 ms/4th (120 bpm)"},
        {bytes({0, 0xFF, 0x51, 0}), "0||Meta event|Tempo: 0.00000 ms/4th"},
        {bytes({0, 0xFF, 0x54, 5, 1, 2, 3, 4, 5}), "0||Meta event|SMPTE Offset: 1:2:3:4:5"},
        {bytes({0, 0xFF, 0x58, 4, 6, 3, 36, 8}),
         "0||Meta event|Time signature: 6/8, 36 ticks/click, 8 (32/4)"},
        {bytes({0, 0xFF, 0x58, 4, 6, 255, 36, 8}),
         "0||Meta event|Time signature: 6/0, 36 ticks/click, 8 (32/4)"},
        {bytes({0, 0xFF, 0x59, 2, 0xFD, 1}), "0||Meta event|Key signature: 3 flats minor"},
        {bytes({0, 0xFF, 0x59, 2, 2, 0}), "0||Meta event|Key signature: 2 sharps major"},
        {bytes({0, 0xFF, 0x59, 2, 0, 0}), "0||Meta event|Key signature: C major"},
        {bytes({0, 0xFF, 0x7F, 2, 0, 0}), "0||Meta event|Seq. specific: <2 Bytes>"},
        {bytes({0, 0xFF, 0x60, 1, 0}), "0||Meta event|<id 96>: <1 Bytes>"},
    };
    for (const auto& c : cases) EXPECT_EQ(firstLine(c.event), c.row);

    settings().app.bShowNoteNames = false;
    EXPECT_EQ(firstLine(bytes({0, 0x90, 60, 1})), "0|1|Note On|60, 1");
}

TEST_F(Events, LongListsAndRepeatedCells) {
    Bytes events = bytes({0, 0xC0, 5, 0, 0xD0, 1});
    while (events.size() < EventRows::kWindowBytes - 1) {
        for (const int b : {0, 0xC0, 7}) events.push_back(static_cast<std::byte>(b));
    }
    const Track* track = addTrack(*addSong(), events); // 65536 bytes
    EventRow row;
    Lines lines;
    for (EventRows rows(*track, EventRows::kWindowBytes); rows.next(row);) lines.push_back(line(row));
    EXPECT_EQ(lines[1], "0|1|Ch Pressure|5") << "repeats the cell above";
    EXPECT_EQ(lines.back(), "0|1|Program Chg|7");

    events.insert(events.end(), events.begin(), events.begin() + 3);
    track = addTrack(*addSong(), events);
    std::size_t count = 0, all = 0;
    for (EventRows rows(*track, EventRows::kWindowBytes); rows.next(row);) ++count;
    EXPECT_EQ(line(row), "<more>|...|...|Only first 64KB of data are shown!");
    for (EventRows rows(*track); rows.next(row);) ++all;
    EXPECT_EQ(all, track->eventCount);
    EXPECT_LE(count, all + 1);
}

TEST_F(Events, SheetTexts) {
    Song& song = *addSong(1, 96);
    EXPECT_EQ(songSheetText(song), "-  0 tracks, 96 ticks/4th, 0 events, 0 Bytes  -");
    const Track* track = addTrack(song, {"0 note-on 1 1"});
    song.Recount();
    song.division = static_cast<i16>(0xE728);
    EXPECT_EQ(songSheetText(song), "-  1 track, 40 ticks/frame, -24 frames/s, 2 events, 8 Bytes  -");
    EXPECT_EQ(trackSheetText(*track), "2 events, 8 Bytes");
}

TEST_F(Events, NotationGoesBothWays) {
    for (const std::string text :
         {"480 note-on ch=1 60 100", "0 note-off ch=16 0 127", "1 poly-press ch=2 1 2",
          "1 control ch=3 7 100", "1 program ch=4 5", "1 pressure ch=5 6", "1 bend ch=6 -8192",
          "1 bend ch=6 8191", "1 bend ch=6 0", "0 sysex 7E7F0901F7", "0 sysex-cont 01F7",
          "0 meta tempo 500000", "0 meta text 'a b  c'", "0 meta sequence-no 258",
          "0 meta time-signature 04021808", "0 meta seq-specific", "0 meta 96 0102"}) {
        MidiEvent event;
        ASSERT_TRUE(parseMidiEvent(text, event)) << text << ": " << space.error.message;
        Track* track = addTrack(*addSong(), Bytes());
        TrackEdit edit;
        edit.insert(event);
        ASSERT_TRUE(edit.apply(*track));
        EXPECT_EQ(notes(*track), (Lines{text}));
    }
    MidiEvent event;
    ASSERT_TRUE(parseMidiEvent("  5   note-on  60 1", event));
    EXPECT_EQ(event.channel, 0) << "channel 1 goes without saying";
    ASSERT_TRUE(parseMidiEvent("0 meta time-signature", event));
    EXPECT_EQ(event.payload, Bytes(4)) << "a new event is zeros in its natural size";
    const struct {
        const char* text;
        const char* message;
    } bad[] = {
        {"", "\"\" is no time in ticks, which goes from 0 to 268435455"},
        {"268435456 program 1", "\"268435456\" is no time in ticks, which goes from 0 to 268435455"},
        {"1 note-on ch=17 1 1", "\"17\" is no channel, which goes from 1 to 16"},
        {"1 note-on 128 1", "\"128\" is no value, which goes from 0 to 127"},
        {"1 note-on 1", "\"\" is no second value, which goes from 0 to 127"},
        {"1 program 1 2", "\"2\" is too much"},
        {"1 bend 8192", "\"8192\" is no pitch bend, which goes from -8192 to 8191"},
        {"1 sysex 7E7", "Malformed Hex value!"},
        {"1 meta 128", "\"128\" is no meta type, which goes from 0 to 127"},
        {"1 meta tempo 16777216", "\"16777216\" is no number of 3 bytes"},
    };
    for (const auto& c : bad) {
        EXPECT_FALSE(parseMidiEvent(c.text, event)) << c.text;
        EXPECT_EQ(space.error.message, c.message);
    }
}

TEST_F(Events, HexValues) {
    const struct {
        const char* text;
        std::optional<Bytes> expected;
    } cases[] = {
        {"", Bytes()},           {" 7e 7F", bytes({0x7E, 0x7F})}, {"7E7F 9 01 ", bytes({0x7E, 0x7F, 9, 1})},
        {"F", bytes({15})},      {"7E7", std::nullopt},           {"0x12", std::nullopt},
        {"12,34", std::nullopt}, {"1\t2", std::nullopt},
    };
    for (const auto& c : cases) {
        Bytes result;
        EXPECT_EQ(parseHex(c.text, result), c.expected.has_value()) << c.text;
        EXPECT_EQ(result, c.expected.value_or(result)) << c.text;
    }
}

class Edit : public Events {
protected:
    MidiEvent event(std::string_view text) {
        MidiEvent parsed;
        EXPECT_TRUE(parseMidiEvent(text, parsed)) << text;
        return parsed;
    }
    Track* track = addTrack(*addSong(), {"10 note-on 1 1", "10 note-on 2 2", "20 note-on 3 3"}, 30);
    TrackEdit edit;
};

TEST_F(Edit, ManyChangesAtOnceGoByTheOldIndexes) {
    edit.modify(0, event("10 note-on ch=5 9 9")); // keeps its place
    edit.modify(1, event("25 note-on 2 2"));      // moves behind the next
    edit.remove(2);
    edit.insert(event("10 program 1"));    // behind those of its time
    edit.insert(event("10 program 2"), 0); // ahead of the one it was inserted at
    edit.insert(event("99 program 3"));    // the end moves on
    ASSERT_TRUE(edit.apply(*track));
    EXPECT_EQ(notes(*track), (Lines{"10 program ch=1 2", "10 note-on ch=5 9 9", "10 program ch=1 1",
                                    "25 note-on ch=1 2 2", "99 program ch=1 3", "99 meta end-of-track"}));
    EXPECT_EQ(track->eventCount, 6U);
    EXPECT_EQ(track->dataSize, track->events.size());
}

TEST_F(Edit, WhatCanNotBeDoneLeavesTheTrack) {
    const Bytes before = track->events;
    const auto refused = [&](const TrackEdit& change, std::string_view message) {
        EXPECT_FALSE(change.apply(*track));
        EXPECT_EQ(space.error.message, message);
        EXPECT_EQ(track->events, before);
    };
    TrackEdit changes[5];
    changes[0].remove(3);
    refused(changes[0], "The End of Track stays as it is");
    changes[1].modify(3, event("30 program 1"));
    refused(changes[1], "The End of Track stays as it is");
    changes[2].insert(event("0 meta end-of-track"));
    refused(changes[2], "Sorry, you can't set an 'End of Track' manually!");
    changes[3].remove(4);
    refused(changes[3], "Please select an event in the event list first");
    MidiEvent odd = event("0 program 1");
    odd.status = 0xF8;
    changes[4].insert(odd);
    refused(changes[4], "There is no such event");
}

TEST_F(Edit, CancelRestores) {
    const Bytes before = track->events;
    TrackEditSession session(*track);
    edit.remove(0);
    ASSERT_TRUE(edit.apply(*track));
    EXPECT_EQ(track->eventCount, 3U);
    session.cancel();
    EXPECT_EQ(track->events, before);
    EXPECT_EQ(track->eventCount, 4U);
}

} // namespace
} // namespace kv
