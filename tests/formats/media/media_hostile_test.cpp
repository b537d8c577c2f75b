#include "formats/framework/format_table.h"
#include "media_test.h"

namespace kv {
namespace {

class MediaHostile : public test::MediaTest {
protected:
    /// Reads whatever can be read of a file; says whether it was taken for one.
    bool read(ByteSpan bytes, const std::string& name) {
        if (!import(bytes, name)) return false;
        for (Wave& wave : store().all<Wave>()) {
            EXPECT_LE(wave.frames, 1U << 22) << "as many as a small file can hold";
            wave.LoadData();
        }
        return true;
    }
};

TEST_F(MediaHostile, LyingBoxes) {
    ASSERT_TRUE(makeTones(2500, 8000, 1));
    ASSERT_TRUE(ffmpeg("-i a.wav -fflags +bitexact -c:a aac s.m4a"));
    const Bytes whole = test::readFile(folder / "s.m4a");
    // Every box and every count of its tables in turn.
    const std::string_view text = textOf(whole);
    for (std::size_t at = text.find("moov") - 4; at + 4 <= whole.size(); at += 2) {
        for (const u32 lie : {0U, 1U, 7U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
            ByteWriter bytes;
            bytes.bytes(whole).patchU32be(at, lie);
            read(bytes.view(), "s.m4a");
        }
    }
}

TEST_F(MediaHostile, AListOfFilesIsNone) {
    ASSERT_TRUE(makeTones(2500, 8000, 1));
    ASSERT_TRUE(ffmpeg("-i a.wav b.mov"));
    EXPECT_FALSE(import(bytesOf("ffconcat version 1.0\nfile b.mov\n"), "list.mp4"));
    EXPECT_FALSE(import(bytesOf("#EXTM3U\n#EXTINF:1,\nb.mov\n"), "list.mkv"));
}

} // namespace
} // namespace kv
