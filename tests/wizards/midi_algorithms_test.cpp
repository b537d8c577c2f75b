#include <gmock/gmock.h>

#include "midi/midi_process.h"
#include "midi/midi_test.h"
#include "midi/song_summary.h"
#include "midi/tempo_map.h"
#include "wizards/algorithm_table.h"

namespace kv {
namespace {

using test::notes;
using testing::ElementsAre;
using testing::ElementsAreArray;

class MidiAlgorithms : public test::MidiTest {
protected:
    bool run(std::string_view text) {
        const std::optional<AlgorithmCall> call = parseAlgorithmCall(text, algorithms());
        std::string said;
        return call && runAlgorithm(*call, {{store().First<Collection>()}}, said);
    }
    bool runOn(Item* item, std::string_view text) {
        const std::optional<AlgorithmCall> call = parseAlgorithmCall(text, algorithms());
        std::string said;
        return call && runAlgorithm(*call, {{item}}, said);
    }
};

TEST_F(MidiAlgorithms, ChangeTheEventsOfATrack) {
    struct Case {
        const char* algorithm;
        std::initializer_list<std::string_view> before;
        std::vector<std::string> after;
    };
    const Case cases[] = {
        {"transpose-notes:semitones=3",
         {"0 note-on ch=1 60 1", "5 poly-press ch=1 60 9", "6 note-on ch=10 36 1", "9 note-on ch=1 125 1",
          "10 note-off ch=1 60 0"},
         {"0 note-on ch=1 63 1", "5 poly-press ch=1 63 9", "6 note-on ch=10 36 1", "10 note-off ch=1 63 0",
          "10 meta end-of-track"}},
        {"transpose-notes:semitones=-40,exclude-drums=0",
         {"0 note-on ch=10 36 1", "4 note-on ch=10 40 1"},
         {"4 note-on ch=10 0 1", "4 meta end-of-track"}},
        {"filter-midi-messages:sysex,meta",
         {"0 meta track-name 'kept'", "1 meta tempo 500000", "2 meta text 'gone'", "3 sysex F7",
          "4 sysex-cont 01", "5 pressure ch=1 4", "6 sysex F7"},
         {"0 meta track-name 'kept'", "1 meta tempo 500000", "5 pressure ch=1 4", "6 meta end-of-track"}},
        {"filter-midi-messages:aftertouch,from=2,to=3",
         {"0 pressure ch=1 4", "1 poly-press ch=1 4 4", "2 control ch=1 7 7", "3 control ch=2 7 7",
          "4 program ch=3 1", "5 control ch=4 7 7"},
         {"2 control ch=1 7 7", "5 control ch=4 7 7", "5 meta end-of-track"}},
        // A bank without its other half gets one, at its time, unless one is to come.
        {"fix-compatibility-issues-improve-portability:programs=0",
         {"0 control ch=1 0 1", "1 program ch=1 5", "2 control ch=1 0 2", "3 control ch=1 32 0",
          "4 program ch=1 6", "5 control ch=1 0 3", "6 program ch=2 1", "7 control ch=1 32 4",
          "8 control ch=1 0 5", "9 program ch=1 7"},
         {"0 control ch=1 0 1", "0 control ch=1 32 0", "1 program ch=1 5", "2 control ch=1 0 2",
          "3 control ch=1 32 0", "4 program ch=1 6", "5 control ch=1 0 3", "6 program ch=2 1",
          "7 control ch=1 32 4", "8 control ch=1 0 5", "9 program ch=1 7", "9 meta end-of-track"}},
        {"fix-compatibility-issues-improve-portability:bank-lsb=0,remove-sysex,note-offs",
         {"0 sysex F7", "1 note-on ch=1 60 0", "2 note-on ch=1 60 1", "3 note-on ch=2 60 1",
          "4 program ch=3 1", "5 note-on ch=3 60 1", "6 note-on ch=1 61 1"},
         {"1 note-off ch=1 60 0", "2 program ch=1 0", "2 note-on ch=1 60 1", "3 program ch=2 0",
          "3 note-on ch=2 60 1", "4 program ch=3 1", "5 note-on ch=3 60 1", "6 note-on ch=1 61 1",
          "6 meta end-of-track"}},
        {"fix-compatibility-issues-improve-portability",
         {"0 meta text 'a'"},
         {"0 meta text 'a'", "0 meta end-of-track"}},
        {"replace-note-on-with-velocity-0-with-note-off",
         {"0 note-on ch=1 60 1", "1 note-on ch=1 60 0"},
         {"0 note-on ch=1 60 1", "1 note-off ch=1 60 0", "1 meta end-of-track"}},
        {"compact-midi-file-size:note-offs=0",
         {"0 control ch=1 7 100", "1 control ch=1 7 100", "2 control ch=2 7 100", "3 program ch=1 1",
          "4 program ch=1 1", "5 control ch=1 0 1", "6 program ch=1 1", "7 pressure ch=1 5",
          "8 pressure ch=1 5", "9 bend ch=1 0", "10 bend ch=1 0"},
         {"0 control ch=1 7 100", "2 control ch=2 7 100", "3 program ch=1 1", "5 control ch=1 0 1",
          "6 program ch=1 1", "7 pressure ch=1 5", "9 bend ch=1 0", "10 bend ch=1 0",
          "10 meta end-of-track"}},
        // What sets a registered parameter works each time; resets make all values unknown.
        {"compact-midi-file-size:note-offs=0",
         {"0 control ch=1 101 0", "0 control ch=1 100 0", "0 control ch=1 6 2", "1 control ch=1 99 1",
          "2 control ch=1 101 0", "3 control ch=1 6 2", "4 control ch=1 6 2", "5 control ch=1 7 9",
          "6 control ch=1 121 0", "7 control ch=1 7 9", "8 sysex 7E7F0901F7", "9 control ch=1 7 9"},
         {"0 control ch=1 101 0", "0 control ch=1 100 0", "0 control ch=1 6 2", "1 control ch=1 99 1",
          "2 control ch=1 101 0", "3 control ch=1 6 2", "4 control ch=1 6 2", "5 control ch=1 7 9",
          "6 control ch=1 121 0", "7 control ch=1 7 9", "8 sysex 7E7F0901F7", "9 control ch=1 7 9",
          "9 meta end-of-track"}},
        // Key pressure ends with its note.
        {"compact-midi-file-size",
         {"0 note-on ch=1 60 1", "1 poly-press ch=1 60 5", "2 poly-press ch=1 60 5", "3 note-off ch=1 60 64",
          "4 note-on ch=1 60 1", "5 poly-press ch=1 60 5"},
         {"0 note-on ch=1 60 1", "1 poly-press ch=1 60 5", "3 note-on ch=1 60 0", "4 note-on ch=1 60 1",
          "5 poly-press ch=1 60 5", "5 meta end-of-track"}},
        // 96 ticks are half a second.
        {"trim-start-and-or-length:start=0.5,length=1",
         {"0 meta track-name 'n'", "0 note-on ch=1 60 1", "40 meta marker 'gone'", "50 control ch=1 7 9",
          "60 note-on ch=1 64 1", "100 note-off ch=1 60 0", "110 note-off ch=1 64 0", "150 note-on ch=1 67 1",
          "151 note-on ch=1 67 1", "200 meta marker 'here'", "288 note-on ch=1 70 1",
          "300 note-off ch=1 67 0"},
         {"0 meta track-name 'n'", "0 control ch=1 7 9", "54 note-on ch=1 67 1", "55 note-on ch=1 67 1",
          "104 meta marker 'here'", "192 note-off ch=1 67 0", "192 note-off ch=1 67 0",
          "192 meta end-of-track"}},
        {"trim-start-and-or-length:to-first-note",
         {"5 program ch=1 3", "50 note-on ch=1 60 0", "96 note-on ch=1 60 1", "100 note-on ch=1 60 0"},
         {"0 program ch=1 3", "0 note-on ch=1 60 1", "4 note-on ch=1 60 0", "4 meta end-of-track"}},
        {"trim-start-and-or-length:start=-3",
         {"5 note-on ch=1 60 1"},
         {"5 note-on ch=1 60 1", "5 note-off ch=1 60 0", "5 meta end-of-track"}},
        {"trim-start-and-or-length:start=1000",
         {"5 note-on ch=1 60 1", "6 control ch=1 7 1"},
         {"0 control ch=1 7 1", "0 meta end-of-track"}},
        {"change-tick-rate:to=48",
         {"0 note-on ch=1 60 1", "96 note-off ch=1 60 0"},
         {"0 note-on ch=1 60 1", "48 note-off ch=1 60 0", "48 meta end-of-track"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.algorithm);
        Song* song = addSong();
        Track* track = addTrack(*song, c.before);
        ASSERT_TRUE(run(c.algorithm)) << space.error.message;
        EXPECT_THAT(notes(*track), ElementsAreArray(c.after));
        EXPECT_EQ(track->eventCount, c.after.size());
        EXPECT_EQ(song->eventCount, c.after.size());
        store().Delete(song);
    }
}

TEST_F(MidiAlgorithms, WorkOnWhatIsChosen) {
    Song* song = addSong();
    Track* first = addTrack(*song, {"0 note-on ch=1 60 1"});
    Track* second = addTrack(*song, {"0 note-on ch=2 60 1"});
    ASSERT_TRUE(runOn(second, "transpose-notes:semitones=1"));
    EXPECT_EQ(notes(*first)[0], "0 note-on ch=1 60 1");
    EXPECT_EQ(notes(*second)[0], "0 note-on ch=2 61 1");
    ASSERT_TRUE(runOn(song, "transpose-notes:semitones=1"));
    EXPECT_EQ(notes(*first)[0], "0 note-on ch=1 61 1");
    EXPECT_EQ(notes(*second)[0], "0 note-on ch=2 62 1");
}

TEST_F(MidiAlgorithms, CompactingKnowsWhatOtherTracksPlay) {
    Song* song = addSong();
    Track* first = addTrack(
        *song, {"0 control ch=1 7 1", "9 control ch=1 7 1", "9 control ch=2 7 1", "10 control ch=2 7 1"});
    addTrack(*song, {"5 control ch=1 7 2"});
    ASSERT_TRUE(run("compact-midi-file-size"));
    EXPECT_THAT(notes(*first), ElementsAre("0 control ch=1 7 1", "9 control ch=1 7 1", "9 control ch=2 7 1",
                                           "10 meta end-of-track"));
    song->Recount();
    const u64 before = song->dataSize;
    ASSERT_TRUE(run("compact-midi-file-size:merge-tracks"));
    EXPECT_EQ(song->smfFormat, 0);
    ASSERT_EQ(song->childIds.size(), 1U);
    const std::size_t after = store().Find<Track>(song->childIds[0])->events.size();
    EXPECT_EQ(ui.statuses.back(), "MIDI compacting saved " + std::to_string(before - after) + " Bytes");
}

TEST_F(MidiAlgorithms, TrimmingGoesByTheWholeSongsTempo) {
    Song* song = addSong();
    addTrack(*song, {"0 meta tempo 1000000", "96 meta tempo 250000"}); // one second, then a quarter
    Track* track = addTrack(*song, {"96 note-on ch=1 60 1", "192 note-off ch=1 60 0"});
    const TempoMap tempo(*song);
    EXPECT_DOUBLE_EQ(tempo.secondsAt(192), 1.25);
    for (const u64 tick : {0U, 50U, 96U, 150U, 4000U}) EXPECT_EQ(tempo.tickAt(tempo.secondsAt(tick)), tick);
    ASSERT_TRUE(run("trim-start-and-or-length:to-first-note,length=0.125"));
    EXPECT_THAT(notes(*track),
                ElementsAre("0 note-on ch=1 60 1", "48 note-off ch=1 60 0", "48 meta end-of-track"));
    EXPECT_DOUBLE_EQ(summarize(*song).seconds, 0.125);
}

TEST_F(MidiAlgorithms, FixingFallsBackToBankZero) {
    Song* song = addSong();
    Track* track = addTrack(*song, {"0 control ch=1 0 3", "0 control ch=1 32 2", "1 program ch=1 5",
                                    "2 control ch=1 0 7", "3 program ch=1 6", "4 program ch=1 7"});
    MidiFixes fixes;
    fixes.holdsPatch = [](u32 patch) { return patch == (5U | 2U << 7 | 3U << 14); };
    fixCompatibility(*track, fixes);
    EXPECT_THAT(notes(*track), ElementsAre("0 control ch=1 0 3", "0 control ch=1 32 2", "1 program ch=1 5",
                                           "2 control ch=1 0 0", "3 program ch=1 6", "4 program ch=1 7",
                                           "4 meta end-of-track"));
}

TEST_F(MidiAlgorithms, RefuseWhatMakesNoSense) {
    EXPECT_FALSE(run("transpose-notes")) << "there is no song";
    Song* song = addSong();
    addTrack(*song, {"0 note-on ch=1 60 1"});
    struct Case {
        const char *algorithm, *message;
    };
    const Case cases[] = {
        {"transpose-notes:semitones=128",
         "The transpose value must be in the range of -127..127 semi-tones!"},
        {"filter-midi-messages:to=17", "Invalid channel range"},
        {"filter-midi-messages:from=3,to=2", "Invalid channel range"},
        {"trim-start-and-or-length:length=0", "The crop length must be larger than 0!"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(run(c.algorithm)) << c.algorithm;
        EXPECT_EQ(space.error.message, c.message);
    }
    song->smfFormat = 2;
    EXPECT_FALSE(run("convert-midi-format:to=0"));
    EXPECT_EQ(space.error.message, "Can't convert this midi format to format 0");
}

TEST_F(MidiAlgorithms, EmptyAndCutTracksStayInOnePiece) {
    Song* song = addSong();
    Track* empty = addTrack(*song, Bytes());
    Track* cut = addTrack(*song, test::bytes({0, 0x90, 60, 1, 5, 0x90, 60}));
    for (const Algorithm& algorithm : algorithms()) {
        if (algorithm.kind != AlgorithmKind::Midi || slugOf(algorithm) == "convert-midi-format") continue;
        EXPECT_TRUE(run(slugOf(algorithm)));
        EXPECT_TRUE(empty->events.empty());
        EXPECT_THAT(notes(*cut), testing::Contains("0 note-on ch=1 60 1")) << algorithm.name;
    }
}

} // namespace
} // namespace kv
