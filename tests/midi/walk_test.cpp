// Reading and writing the bytes of a track.
#include "midi/midi_event_text.h"
#include "midi/midi_track.h"
#include "midi/midi_track_writer.h"
#include "midi_test.h"

namespace kv {
namespace {

using test::bytes;
using test::notes;
using Lines = std::vector<std::string>;

class Walk : public test::MidiTest {};

TEST_F(Walk, ReadsWhateverATrackHolds) {
    const struct {
        const char* what;
        Bytes events;
        Lines expected;
    } cases[] = {
        {"nothing", {}, {}},
        {"running status", bytes({0, 0x91, 60, 1, 5, 61, 2}), {"0 note-on ch=2 60 1", "5 note-on ch=2 61 2"}},
        {"running status goes on behind meta and SysEx",
         bytes({0, 0xC2, 5, 0, 0xFF, 1, 1, 'x', 0, 6, 0, 0xF0, 1, 0xF7, 0, 7}),
         {"0 program ch=3 5", "0 meta text 'x'", "0 program ch=3 6", "0 sysex F7", "0 program ch=3 7"}},
        {"bodyless system messages",
         bytes({1, 0xF1, 1, 0xF8, 1, 0xFE, 1, 0xD0, 9}),
         {"", "", "", "4 pressure ch=1 9"}},
        {"data bytes keep 7 bits", bytes({0, 0xE0, 0x80, 0xC0}), {"0 bend ch=1 0"}},
        {"a fourth length byte ends the quantity",
         bytes({0xFF, 0xFF, 0xFF, 0xFF, 0x90, 1, 2}),
         {"268435455 note-on ch=1 1 2"}},
        {"data bytes that nothing explains count their time",
         bytes({3, 60, 4, 0x90, 60, 1}),
         {"7 note-on ch=1 60 1"}},
        {"cut in a delta time", bytes({0, 0xC0, 1, 0x81}), {"0 program ch=1 1"}},
        {"cut in a message", bytes({0, 0xC0, 1, 0, 0x90, 60}), {"0 program ch=1 1"}},
        {"cut behind a meta status", bytes({0, 0xFF}), {}},
        {"cut in a meta length", bytes({0, 0xFF, 1, 0x81}), {}},
        {"a payload beyond the end", bytes({0, 0xF0, 2, 1}), {}},
        {"the longest payload beyond the end", bytes({0, 0xFF, 1, 0xFF, 0xFF, 0xFF, 0x7F}), {}},
    };
    for (const auto& c : cases) {
        Track* track = addTrack(*addSong(), c.events);
        EXPECT_EQ(notes(*track), c.expected) << c.what;
        EXPECT_EQ(track->eventCount, c.expected.size()) << c.what;
    }
}

TEST_F(Walk, WritesAndCountsAlike) {
    const Bytes longText(20000, std::byte{'x'});
    const auto writeAll = [&](MidiTrackWriter& out) {
        out.channelOr = 3;
        for (const u64 delta :
             {0ULL, 127ULL, 128ULL, 16383ULL, 16384ULL, 0x1FFFFFULL, 0x200000ULL, 0x1FFFFFFFULL}) {
            out.time += delta;
            out.channelMessage(kNoteOn, 0, 60, 100);
        }
        for (const std::size_t size : {0U, 127U, 128U, 20000U}) {
            out.meta(kMetaText, ByteSpan(longText).first(size));
            out.sysEx(kSysExMore, ByteSpan(longText).first(size));
            out.channelMessage(kNoteOn, 0, 60, 100);
        }
        out.time = 0; // the past counts as now
        out.channelMessage(kProgramChange, 0, 1, 99);
        out.endOfTrack();
        out.finish();
    };
    Track* track = addTrack(*addSong(), Bytes());
    MidiTrackWriter counting(nullptr), writing(track);
    writeAll(counting);
    writeAll(writing);
    EXPECT_EQ(counting.countedBytes(), track->events.size());
    EXPECT_EQ(writing.countedBytes(), track->events.size());
    const Lines all = notes(*track);
    EXPECT_EQ(all.size(), track->eventCount);
    EXPECT_EQ(all[0], "0 note-on ch=4 60 100");
    EXPECT_EQ(all[7], fmt::format("{} note-on ch=4 60 100", 0x3FFFFF + 0x4000 + 0x3FFF + 255 + 0x0FFFFFFF));
    EXPECT_TRUE(all.back().ends_with("meta end-of-track"));
    // Delta times of 1, 1, 2, 2, 3, 3, 4 and 4 bytes, one status byte and two data bytes for each of 8 notes;
    // then the first meta event's delta time makes up for what the last one could not hold.
    EXPECT_EQ(std::to_integer<int>(track->events[20 + 1 + 16 + 4]), 0xFF);
}

TEST_F(Walk, TakesNameGroupAndCopyrightFromTimeZero) {
    const struct {
        std::initializer_list<std::string_view> events;
        std::string name, copyright;
        int group;
    } cases[] = {
        {{"0 meta text 'a'", "0 meta text 'b'"}, "b", "", 0},
        {{"0 meta text 'a'", "0 meta track-name 'n'", "0 meta text 'b'", "0 meta track-name 'm'"},
         "n",
         "",
         0},
        {{"0 note-on 1 1", "0 meta track-name 'n'", "0 meta copyright '(c)'", "0 meta copyright 'x'"},
         "n",
         "(c)",
         0},
        {{"0 meta channel-group 3", "0 meta channel-group 4"}, "Track 01", "", 3},
        {{"0 meta 33 ", "1 meta track-name 'late'", "1 meta channel-group 2"}, "Track 01", "", 0},
        {{"0 meta track-name '  '", "0 meta text 'b'"}, "Track 01", "", 0},
    };
    for (const auto& c : cases) {
        Song* song = addSong();
        Track* track = addTrack(*song, c.events);
        scanTimeZero(*track, song);
        EXPECT_EQ(track->name(), c.name);
        EXPECT_EQ(song->copyright, c.copyright);
        EXPECT_EQ(track->channelGroup, c.group);
        scanTimeZero(*track);
    }
    Track* ended = addTrack(*addSong(), bytes({0, 0xFF, 0x2F, 0, 0, 0xFF, 3, 1, 'x'}));
    scanTimeZero(*ended);
    EXPECT_EQ(ended->name(), "Track 01");
    Track* latin = addTrack(*addSong(), bytes({0, 0xFF, 3, 2, 'B', 0xE9}));
    scanTimeZero(*latin);
    EXPECT_EQ(latin->name(), "B\u00E9");
}

TEST_F(Walk, TempoMaps) {
    const struct {
        std::initializer_list<std::string_view> events;
        Lines map;
        bool any, only;
    } cases[] = {
        {{"0 meta text 'x'", "10 meta tempo 400000", "10 note-on 1 1", "40 meta time-signature 04021808"},
         {"10 meta tempo 400000", "40 meta time-signature 04021808", "50 meta end-of-track"},
         true,
         false},
        {{"7 note-on 1 1"}, {"50 meta end-of-track"}, false, false},
        {{"0 meta tempo 400000"}, {"0 meta tempo 400000", "50 meta end-of-track"}, true, false},
        {{"0 meta text 'x'"}, {"50 meta end-of-track"}, false, false},
    };
    for (const auto& c : cases) {
        Track* track = addTrack(*addSong(), c.events, 50);
        EXPECT_EQ(isTempoMap(*track), c.only);
        EXPECT_EQ(tempoMapOf(*track).empty(), !c.any);
        EXPECT_EQ(extractTempoMap(*track), c.any);
        EXPECT_EQ(notes(*track), c.map);
        EXPECT_EQ(track->eventCount, c.map.size());
    }
    Song& song = *addSong();
    const Track* tempo = addTrack(song, {"0 meta tempo 1", "0 meta text 'x'"});
    EXPECT_TRUE(isTempoMap(*tempo));
    EXPECT_TRUE(isTempoMap(*addTrack(song, bytes({0, 0xFF, 0x51, 0})))) << "without End of Track";
    EXPECT_FALSE(isTempoMap(*addTrack(song, {"0 sysex F7", "0 meta tempo 1"})));

    Track* target = addTrack(song, {"0 meta text 'y'", "4 note-on 1 1"});
    copyTimeZeroPrefix(*target, *tempo);
    EXPECT_EQ(notes(*target), (Lines{"0 meta tempo 1", "0 meta text 'x'", "0 meta text 'y'",
                                     "4 note-on ch=1 1 1", "4 meta end-of-track"}));
    EXPECT_EQ(target->eventCount, 5U);
    const Bytes before = target->events;
    copyTimeZeroPrefix(*target, *addTrack(song, {"1 meta text 'x'"}));
    EXPECT_EQ(target->events, before);
}

} // namespace
} // namespace kv
