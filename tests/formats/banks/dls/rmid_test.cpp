#include <gmock/gmock.h>

#include "formats/framework/collection_files.h"
#include "model/song.h"
#include "test_dls.h"

namespace kv {
namespace {

using namespace test;

/// A song of one track with a note.
Bytes smf(u8 key = 60) {
    ByteWriter track;
    track.u8le(0)
        .u8le(0x90)
        .u8le(key)
        .u8le(100)
        .u8le(96)
        .u8le(0x80)
        .u8le(key)
        .u8le(0)
        .u8le(0)
        .u8le(0xFF)
        .u8le(0x2F)
        .u8le(0);
    ByteWriter out;
    out.text("MThd").u32be(6).u16be(0).u16be(1).u16be(96).text("MTrk").u32be(static_cast<u32>(track.size()));
    return out.bytes(track.view()).take();
}
Bytes rmid(std::initializer_list<Bytes> parts) {
    return riff(join(parts), "RIFF", "RMID");
}
Bytes textChunk(std::string_view id, std::string_view text) {
    return chunk(id, ByteWriter().text(text).fill(1));
}
Bytes smallBank() {
    return dls({list("lins", {list("ins ", {insh(), list("lrgn", {list("rgn ", {rgnh(0, 127), wlnk(0)})})})}),
                ptbl({0}), pool({wave(10)})});
}

class Rmid : public FormatTest {
protected:
    bool read(const Bytes& bytes) {
        writeFile(folder / "song.rmi", bytes);
        return Import(folder / "song.rmi", true);
    }
    bool write(Item& item, std::string_view row, const std::string& name = "out.rmi") {
        return Export(rowOf(row), folder / name, &item, kAnyFormat, 0, false);
    }
};

TEST_F(Rmid, ReadsSongTextsAndBank) {
    const Bytes info = list("INFO", {textChunk("IART", "Ann"), textChunk("ICMT", std::string(2000, 'x')),
                                     textChunk("ICOP", "mine"), textChunk("IENG", "Bob"),
                                     textChunk("INAM", "Tune"), textChunk("IPRD", "Album")});
    ASSERT_TRUE(read(rmid({textChunk("IART", "too early"), chunk("data", smf()), info, smallBank()})));
    const Song& song = *store().First<Song>();
    EXPECT_EQ(song.name(), "Tune");
    EXPECT_EQ(song.artist, "Ann");
    EXPECT_EQ(song.comments.view().size(), 128U);
    EXPECT_EQ(song.copyright, "mine");
    EXPECT_EQ(song.engineer, "Bob");
    EXPECT_EQ(song.product, "Album");
    EXPECT_EQ(store().count(kInstrumentClass), 1U);
    EXPECT_EQ(store().First<Wave>()->frames, 10U);
    ASSERT_TRUE(store().First<Wave>()->LoadData());

    const auto display = [](u32 kind) { return chunk("DISP", ByteWriter().u32le(kind).text("Shown")); };
    ASSERT_TRUE(read(rmid({chunk("data", smf()), display(1)})));
    EXPECT_EQ(store().First<Song>()->name(), "Shown");
    ASSERT_TRUE(read(rmid({chunk("data", smf()), display(8)})));
    EXPECT_EQ(store().First<Song>()->name(), "song");
}

TEST_F(Rmid, RefusesOrBoundsOddForms) {
    EXPECT_FALSE(read(rmid({chunk("data", Bytes(20))})));
    EXPECT_EQ(failure(), "mid_Parse: Invalid or corrupt Midi file");
    EXPECT_FALSE(read(rmid({})));
    EXPECT_EQ(failure(), "rmid_Imp: Invalid or corrupt Midi file");
    // Forms within forms, and lists within lists.
    Bytes nested = rmid({chunk("data", smf())});
    for (int i = 0; i < 200; ++i)
        nested = dls({chunk("LKF1", list("lRMI", {rmid({chunk("data", smf()), nested})}))});
    ASSERT_TRUE(read(rmid({chunk("data", smf()), nested})));
    EXPECT_LT(store().count(kSongClass), 10U);
    nested = chunk("data", smf());
    for (int i = 0; i < 1000; ++i) nested = list("x   ", {nested});
    read(rmid({nested}));
    const Bytes whole = rmid({chunk("data", smf()), list("INFO", {textChunk("INAM", "Tune")}), smallBank()});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        read(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    }
}

TEST_F(Rmid, WritesWhatItReads) {
    const Bytes info = list("INFO", {textChunk("INAM", "Tune"), textChunk("IART", "Ann")});
    ASSERT_TRUE(read(rmid({chunk("data", smf()), info, smallBank()})));
    store().First<Instrument>()->patch = 5;
    struct Case {
        const char* row;
        std::size_t instruments;
    };
    for (const Case& c :
         {Case{"RIFF-MIDI w no instruments", 0}, Case{"RIFF-MIDI w DLS level 1 instruments", 1},
          Case{"RIFF-MIDI w DLS level 2 instruments", 1}}) {
        SCOPED_TRACE(c.row);
        ASSERT_TRUE(write(*store().First<Song>(), c.row)) << failure();
        const Bytes first = readFile(folder / "out.rmi");
        EXPECT_EQ(ByteCursor(ByteSpan(first).subspan(4)).u32le(), first.size() - 8)
            << "the size is the file's";
        const std::size_t songAt = 20;
        EXPECT_TRUE(std::ranges::equal(ByteSpan(first).subspan(songAt, smf().size()), smf()));
        ASSERT_TRUE(read(first)) << failure();
        EXPECT_EQ(store().First<Song>()->name(), "Tune");
        EXPECT_EQ(store().First<Song>()->artist, "Ann");
        EXPECT_EQ(store().count(kInstrumentClass), c.instruments);
        ASSERT_TRUE(write(*store().First<Song>(), c.row, "again.rmi"));
        EXPECT_EQ(readFile(folder / "again.rmi"), first);
        if (c.instruments == 0) {
            ASSERT_TRUE(read(rmid({chunk("data", smf()), info, smallBank()})));
        }
    }
    Track* track = store().First<Track>();
    ASSERT_TRUE(write(*track, "RIFF-MIDI w no instruments"));
    ASSERT_TRUE(read(readFile(folder / "out.rmi")));
    EXPECT_EQ(store().count(kTrackClass), 1U);
    ASSERT_TRUE(read(rmid({chunk("data", smf()), smallBank()})));
    EXPECT_FALSE(write(*store().First<Collection>(), "RIFF-MIDI w no instruments"));
    EXPECT_EQ(failure(), "rmid_Exp: The file format can not save this item");
}

TEST_F(Rmid, BanksOfOurOwnKeepSongs) {
    ASSERT_TRUE(read(rmid({chunk("data", smf(60)), list("INFO", {textChunk("INAM", "One")}), smallBank()})));
    ASSERT_TRUE(Export(rowOf("DownLoadable Sounds level 2++"), folder / "bank.dls",
                       store().First<Collection>(), kAnyFormat, 0, false))
        << failure();
    ASSERT_TRUE(Import(folder / "bank.dls", true)) << failure();
    ASSERT_EQ(store().count(kSongClass), 1U);
    EXPECT_EQ(store().First<Song>()->name(), "One");
    EXPECT_EQ(store().First<Track>()->eventCount, 3U);
    EXPECT_EQ(store().count(kInstrumentClass), 1U);
}

} // namespace
} // namespace kv
