// Standard MIDI Files: what is read of odd ones, and what is written of parts of songs.
#include "formats/songs/smf.h"

#include "formats/format_test.h"
#include "midi/midi_song.h"
#include "places.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

const std::string kEnd("\0\xFF\x2F\0", 4);

std::string chunk(std::string_view id, std::string_view body, u32 length) {
    ByteWriter out;
    out.text(id).u32be(length).text(body);
    return std::string(textOf(out.view()));
}
std::string chunk(std::string_view id, std::string_view body) {
    return chunk(id, body, static_cast<u32>(body.size()));
}
std::string header(u16 format, u16 division = 96, u16 tracks = 99) {
    ByteWriter out;
    out.u16be(format).u16be(tracks).u16be(division);
    return chunk("MThd", textOf(out.view()));
}
/// A track of one note.
std::string note(char key, std::string_view before = {}) {
    return chunk("MTrk", std::string(before) + std::string{0, '\x90', key, 64} + kEnd);
}

class Smf : public test::FormatTest {
protected:
    bool importSong(std::string_view file) {
        test::writeFile(folder / "song.mid", bytesOf(file));
        return Import(folder / "song.mid", false, rowOf("Standard MIDI"));
    }
    Song* song() { return store().First<Song>(); }
    std::vector<std::string> trackNames() {
        std::vector<std::string> names;
        for (const Track& track : store().all<Track>()) names.push_back(track.name().str());
        return names;
    }
    /// The file of an item; the failure if there is none.
    std::string written(Item& item, int group = SmfPlan::kAllGroups) {
        SmfPlan plan;
        MemorySink sink;
        FileContext file;
        file.sink = &sink;
        if (!plan.make(item, group, "mid_Exp") || !plan.write(file)) return failure();
        EXPECT_EQ(plan.size(), sink.view().size());
        return std::string(textOf(sink.view()));
    }
};

TEST_F(Smf, TracksAndTheirNames) {
    const std::string text("\0\xFF\1\1t", 5), name("\0\xFF\3\1n", 5);
    const struct {
        const char* what;
        std::string file;
        std::vector<std::string> names;
    } cases[] = {
        {"format 1", header(1) + note(1) + note(2) + note(3), {"Track 01", "Track 02", "Track 03"}},
        {"format 0 with two tracks", header(0) + note(1) + note(2), {"Track 01", "Master Track"}},
        {"a first chunk without events counts",
         header(1) + chunk("MTrk", kEnd) + note(2) + note(3),
         {"Track 01", "Track 02"}},
        {"a later one too", header(1) + note(1) + chunk("MTrk", kEnd) + note(3), {"Track 01", "Track 03"}},
        {"track name over text", header(1) + note(1, text + name + text) + note(2, text), {"n", "t"}},
        {"other chunks", header(1) + chunk("XFIH", "abc") + note(1), {"Track 01"}},
        {"tracks ahead of the header", note(1) + header(1) + note(2), {"Track 01"}},
        {"a long header", chunk("MThd", std::string("\0\1\0\1\0\x60more", 10)) + note(1), {"Track 01"}},
        {"a track cut short",
         header(1) + note(1) + chunk("MTrk", std::string("\0\x90\1\1\0\1", 6), 4000000000),
         {"Track 01", "Track 02"}},
        {"a track cut off", header(1) + note(1) + chunk("MTrk", "", 100), {"Track 01"}},
        {"half a chunk header", header(1) + note(1) + "MTrk\0", {"Track 01"}},
        {"no track", header(1), {}},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(importSong(c.file)) << c.what << ": " << failure();
        EXPECT_EQ(trackNames(), c.names) << c.what;
        ASSERT_NE(song(), nullptr);
        EXPECT_EQ(song()->name(), "song") << c.what;
        EXPECT_EQ(song()->division, 96) << c.what;
        EXPECT_EQ(song()->childIds.size(), c.names.size()) << c.what;
    }
    for (const std::string& file : {std::string(), note(1), std::string("MThd"), chunk("XXXX", header(1))}) {
        EXPECT_FALSE(importSong(file));
        EXPECT_EQ(failure(), "mid_Parse: Invalid or corrupt Midi file");
    }
}

TEST_F(Smf, Format2IsSplit) {
    const std::string tempo("\0\xFF\x51\3\7\xA1\x20", 7);
    ASSERT_TRUE(importSong(header(2) + chunk("MTrk", tempo + kEnd) + note(1) + note(2)));
    EXPECT_EQ(store().count(kSongClass), 2U);
    EXPECT_EQ(song()->name(), "song 1");
    EXPECT_EQ(written(*song()), header(0, 96, 1) + note(1, tempo));
    ASSERT_TRUE(importSong(header(2)));
    EXPECT_EQ(song()->smfFormat, 0);
}

TEST_F(Smf, ManyTracksAndHeadersStayCheap) {
    std::string file = header(1);
    for (int i = 0; i < 10000; ++i) file += note(static_cast<char>(i % 128));
    ASSERT_TRUE(importSong(file));
    EXPECT_EQ(song()->childIds.size(), 10000U);
    ASSERT_TRUE(changeFileFormat(*song(), 0));
    EXPECT_EQ(song()->eventCount, 10001U);

    file.clear();
    for (int i = 0; i < 1000; ++i) file += header(1);
    ASSERT_TRUE(importSong(file));
    EXPECT_EQ(store().count(kSongClass), 1U);
}

TEST_F(Smf, WritesSongsTracksAndGroups) {
    const std::string tempo("\0\xFF\x51\3\7\xA1\x20", 7), port("\0\xFF\x21\1\1", 5);
    const std::string control = chunk("MTrk", tempo + kEnd);
    const std::string whole = header(1, 96, 3) + note(1, tempo) + note(2) + note(3, port);
    ASSERT_TRUE(importSong(whole));
    const std::vector<Track*> tracks = tracksOf(*song());
    EXPECT_EQ(written(*song()), whole);
    EXPECT_EQ(written(*song(), 0), header(1, 96, 2) + note(1, tempo) + note(2));
    EXPECT_EQ(written(*song(), 1), header(1, 96, 2) + control + note(3, port));
    EXPECT_EQ(written(*song(), 2), header(1, 96, 1) + control);
    EXPECT_EQ(written(*tracks[0]), header(0, 96, 1) + note(1, tempo));
    EXPECT_EQ(written(*tracks[1]), header(1, 96, 2) + control + note(2));
    EXPECT_EQ(written(*store().First<Collection>()), "mid_Exp: The file format can not save this item");
    EXPECT_EQ(written(*store().Create<Track>(kNextFreeNumber)), "mid_Exp: Parent song not found");

    ASSERT_TRUE(importSong(header(1) + note(1) + note(2, port))) << "without a tempo map";
    EXPECT_EQ(written(*song(), 1), header(1, 96, 1) + note(2, port));
    ASSERT_TRUE(importSong(header(0) + note(1) + note(2, port))) << "format 0 gets no control track";
    EXPECT_EQ(written(*song(), 1), header(0, 96, 1) + note(2, port));
}

TEST_F(Smf, FrameRatesGiveWayToTicks) {
    ASSERT_TRUE(importSong(header(1, 0xE728) + note(1)));
    EXPECT_EQ(song()->division, 24);
    ASSERT_EQ(space.diagnostics.entries().size(), 1U);
    EXPECT_EQ(space.diagnostics.entries()[0].severity, Severity::Loss);
}

/// Real files of other programs: written as they were read, and no note is lost by a change of format.
TEST_F(Smf, CorpusFilesComeBackEqual) {
    const fs::path corpus = fs::path(KV_CORPUS_DIR) / "midi";
    if (!fs::exists(corpus)) GTEST_SKIP() << "no corpus at " KV_CORPUS_DIR;
    int equal = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file() || !Import(entry.path(), false)) continue;
        if (store().count(kSongClass) != 1) continue; // format 2
        const Bytes original = test::readFile(entry.path());
        const std::string copy = written(*song());
        if (copy == textOf(original)) ++equal;
        ASSERT_TRUE(importSong(copy));
        EXPECT_EQ(written(*song()), copy) << entry.path();
        if (song()->childIds.empty()) continue;
        const u32 events = song()->eventCount;
        ASSERT_TRUE(changeFileFormat(*song(), 0)) << entry.path();
        EXPECT_GT(song()->eventCount, 0U);
        EXPECT_LE(song()->eventCount, 2 * events);
    }
    EXPECT_GT(equal, 5);
}

} // namespace
} // namespace kv
