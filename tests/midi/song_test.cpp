// Changes of a whole song.
#include <map>
#include <random>

#include "midi/song_summary.h"
#include "midi_test.h"

namespace kv {
namespace {

using test::bytes;
using test::notes;
using Lines = std::vector<std::string>;

class SongChange : public test::MidiTest {
protected:
    Lines merged(Song& song) {
        Track* track = kvGetFormat0Track(song);
        return track ? notes(*track) : Lines{space.error.context + ": " + space.error.message};
    }
};

TEST_F(SongChange, MergesByTimeThenTrack) {
    Song& song = *addSong();
    addTrack(song,
             {"0 meta track-name 'dropped'", "0 meta tempo 500000", "10 note-on ch=1 1 1", "20 sysex F7"});
    addTrack(song, {"0 meta track-name 'second'", "0 meta channel-prefix 4", "10 note-on ch=2 2 2",
                    "10 note-on ch=3 3 3", "15 sysex 01", "15 meta text 't'"});
    addTrack(song, {"0 meta track-name 'dropped'", "10 meta text 'no channel'", "10 sysex-cont 02"}, 99);
    EXPECT_EQ(merged(song), (Lines{"0 meta tempo 500000", "0 meta channel-prefix 1",
                                   "0 meta track-name 'second'", "10 note-on ch=1 1 1", "10 note-on ch=2 2 2",
                                   "10 note-on ch=3 3 3", "10 meta text 'no channel'", "10 sysex-cont 02",
                                   "15 meta channel-prefix 2", "15 sysex 01", "15 meta channel-prefix 2",
                                   "15 meta text 't'", "20 sysex F7", "99 meta end-of-track"}));
}

TEST_F(SongChange, MergeOfUnusualSongs) {
    EXPECT_EQ(merged(*addSong(1)), (Lines{"0 meta end-of-track"}));
    EXPECT_EQ(merged(*addSong(2)),
              (Lines{"kvGetFormat0Track(): Can't convert this midi format to format 0"}));
    EXPECT_EQ(merged(*addSong(0)), (Lines{"kvGetFormat0Track(): The song has no track"}));

    Song& late = *addSong();
    // The second event of the first track lies at the limit, the third behind it.
    addTrack(late, bytes({0xFF, 0xFF, 0xFF, 0x7E, 0x90, 1, 1, 1, 2, 2, 1, 3, 3}));
    addTrack(late, {"5 note-on ch=2 4 4"});
    EXPECT_EQ(merged(late),
              (Lines{"5 note-on ch=2 4 4", "268435454 note-on ch=1 1 1", "268435454 meta end-of-track"}));
    EXPECT_EQ(space.diagnostics.entries().size(), 1U);

    Song& bare = *addSong();
    addTrack(bare, bytes({0, 0xF8, 1, 0x90, 1, 1, 0, 0xF6, 0, 2, 2})); // no End of Track, running status
    const Track* track = kvGetFormat0Track(bare);
    EXPECT_EQ(track->events, bytes({0, 0xF8, 1, 0x90, 1, 1, 0, 0xF6, 0, 0x90, 2, 2, 0, 0xFF, 0x2F, 0}));
}

/// Notes of a song with their times, as a multiset by channel.
std::multiset<std::string> channelMessages(const Song& song) {
    std::multiset<std::string> all;
    for (const Track* track : tracksOf(song)) {
        MidiEventCursor event(track->events);
        while (event.next()) {
            if (event.isChannelMessage()) all.insert(midiNotation(event));
        }
    }
    return all;
}

TEST_F(SongChange, NotesSurviveFormat0AndBack) {
    std::mt19937 random(7);
    Song& song = *addSong();
    for (int t = 0; t < 200; ++t) {
        TrackEdit edit;
        for (int i = 0; i < 50; ++i) {
            MidiEvent event;
            event.time = random() % 4000;
            event.status = i % 7 == 0 ? u8{kMeta} : static_cast<u8>(kNoteOff + 16 * (random() % 7));
            event.channel = event.status == kMeta ? u8{kMetaText} : static_cast<u8>(t % 16);
            event.data1 = static_cast<u8>(random() % 128);
            event.data2 = static_cast<u8>(random() % 128);
            edit.insert(event);
        }
        Track* track = addTrack(song, bytes({0, 0xFF, 0x2F, 0}));
        ASSERT_TRUE(edit.apply(*track));
    }
    const auto before = channelMessages(song);
    ASSERT_TRUE(changeFileFormat(song, 0));
    EXPECT_EQ(song.childIds.size(), 1U);
    EXPECT_EQ(song.smfFormat, 0);
    EXPECT_EQ(tracksOf(song)[0]->name(), "Combined track");
    EXPECT_EQ(channelMessages(song), before);
    ASSERT_TRUE(changeFileFormat(song, 1));
    EXPECT_EQ(song.childIds.size(), 17U) << "a control track and one for each channel";
    EXPECT_EQ(channelMessages(song), before);
    EXPECT_TRUE(changeFileFormat(song, 2));
    EXPECT_EQ(song.smfFormat, 1);
}

TEST_F(SongChange, ChannelsBecomeTracks) {
    Song& song = *addSong(0);
    addTrack(song,
             {"0 meta copyright '(c) me'", "0 meta channel-group 2", "0 meta channel-prefix 2",
              "0 meta track-name 'Lead'", "0 meta text 'global'", "0 meta channel-prefix 2", "0 sysex 01",
              "0 meta tempo 500000", "5 note-on ch=3 60 1", "9 note-on ch=3 60 0"},
             20);
    ASSERT_TRUE(changeFileFormat(song, 1));
    const std::vector<Track*> tracks = tracksOf(song);
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(song.copyright, "(c) me");
    EXPECT_EQ(tracks[0]->name(), "global") << "a text at time zero";
    EXPECT_EQ(notes(*tracks[0]), (Lines{"0 meta copyright '(c) me'", "0 meta text 'global'", "0 sysex 01",
                                        "0 meta tempo 500000", "20 meta end-of-track"}));
    EXPECT_EQ(tracks[1]->name(), "Lead");
    EXPECT_EQ(notes(*tracks[1]), (Lines{"0 meta track-name 'Lead'", "5 note-on ch=3 60 1",
                                        "9 note-on ch=3 60 0", "20 meta end-of-track"}));

    Song& plain = *addSong(0);
    addTrack(plain, {"5 note-on ch=3 60 1"});
    ASSERT_TRUE(changeFileFormat(plain, 1));
    ASSERT_EQ(plain.childIds.size(), 1U) << "nothing for a control track";
    EXPECT_EQ(tracksOf(plain)[0]->name(), "Track 3");
}

TEST_F(SongChange, Format2IsSplit) {
    Song& song = *addSong(2, 48);
    song.artist = "A";
    addTrack(song, {"0 meta tempo 300000"});
    addTrack(song, {"3 note-on 1 1"})->SetName("Track 02");
    addTrack(song, {"3 note-on 2 2"})->SetName("Verse");
    addTrack(song, {"0 meta tempo 200000"})->SetName("Own tempo");
    const Song* first = splitFormat2(song);
    std::map<std::string, Lines> made;
    for (const Song& one : store().all<Song>()) {
        EXPECT_EQ(one.smfFormat, 0);
        EXPECT_EQ(one.division, 48);
        EXPECT_EQ(one.artist, "A");
        ASSERT_EQ(one.childIds.size(), 1U);
        made[one.name().str() + "/" + tracksOf(one)[0]->name().str()] = notes(*tracksOf(one)[0]);
    }
    EXPECT_EQ(first->name(), "suite 1");
    EXPECT_EQ(
        made,
        (std::map<std::string, Lines>{
            {"suite 1/Pattern Track", {"0 meta tempo 300000", "3 note-on ch=1 1 1", "3 meta end-of-track"}},
            {"Verse/Verse", {"0 meta tempo 300000", "3 note-on ch=1 2 2", "3 meta end-of-track"}},
            {"Own tempo/Own tempo", {"0 meta tempo 200000", "0 meta end-of-track"}}}));
    EXPECT_EQ(store().count(kTrackClass), 3U);

    Song& single = *addSong(2);
    addTrack(single, {"3 note-on 1 1"});
    EXPECT_EQ(splitFormat2(single), &single);
    EXPECT_EQ(single.smfFormat, 0);
}

TEST_F(SongChange, ALongTempoMapIsNotCopiedWithoutEnd) {
    Song& song = *addSong(2);
    Bytes tempo;
    for (int i = 0; i < 100000; ++i) {
        const Bytes one = bytes({0, 0xFF, 0x51, 3, 7, 0xA1, 0x20});
        tempo.insert(tempo.end(), one.begin(), one.end());
    }
    addTrack(song, tempo);
    for (int i = 0; i < 1000; ++i) addTrack(song, bytes({0, 0xC0, 1, 0, 2}));
    splitFormat2(song);
    u64 total = 0;
    for (const Song& one : store().all<Song>()) total += one.dataSize;
    EXPECT_LT(total, 10 * tempo.size());
    EXPECT_FALSE(space.diagnostics.entries().empty());
}

TEST_F(SongChange, TickRateKeepsRoundingErrorsSmall) {
    Song& song = *addSong(1, 96);
    Bytes events;
    for (int i = 0; i < 1000; ++i) {
        const Bytes one = bytes({1, 0x90, 60, 1});
        events.insert(events.end(), one.begin(), one.end());
    }
    Track* track = addTrack(song, events);
    EXPECT_TRUE(changeTickRate(song, 40));
    EXPECT_EQ(song.division, 40);
    EXPECT_EQ(track->eventCount, 1000U);
    MidiEventCursor event(track->events);
    for (u64 i = 1; event.next(); ++i) {
        ASSERT_LE(event.time, (i * 40 + 48) / 96);
        ASSERT_GE(event.time * 96 + 48, i * 40);
    }
    const Bytes before = track->events;
    EXPECT_TRUE(changeTickRate(song, 40));
    EXPECT_TRUE(changeTickRate(song, 0));
    EXPECT_FALSE(changeTickRate(song, 40000)) << "more than a song can hold";
    EXPECT_EQ(track->events, before);
}

TEST_F(SongChange, SummaryTellsLengthAndWhatPlays) {
    Song& song = *addSong(1, 100);
    addTrack(song, {"0 meta tempo 1000000", "200 meta tempo 250000"});
    Track* port1 = addTrack(song,
                            {"0 control 0 1", "0 control 32 2", "0 program 5", "0 note-on 60 1",
                             "50 note-on 60 0", "100 meta tempo 500000"},
                            220);
    port1->channelGroup = 1;
    addTrack(song, {"1 note-on ch=10 35 1", "2 note-on ch=10 36 1"});
    const SongSummary summary = summarize(song);
    EXPECT_EQ(summary.ticks, 220U);
    EXPECT_DOUBLE_EQ(summary.seconds, 1 + 0.5 + 0.05); // 100 ticks each at 1 s and 0.5 s, 20 at 0.25 s
    EXPECT_EQ(summary.notes, 3U);
    ASSERT_EQ(summary.channels.size(), 2U);
    EXPECT_EQ(summary.channels[0].channel, 9);
    EXPECT_EQ(summary.channels[0].notes, 2U);
    EXPECT_EQ(summary.channels[1].port, 1);
    EXPECT_EQ(summary.channels[1].programs, (std::set<u32>{1 << 14 | 2 << 7 | 5}));

    song.division = static_cast<i16>(0xE728); // 25 frames of 40 ticks
    EXPECT_DOUBLE_EQ(summarize(song).seconds, 0.22);
    song.division = 0;
    EXPECT_GT(summarize(song).seconds, 0);
}

} // namespace
} // namespace kv
