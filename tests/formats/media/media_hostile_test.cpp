#include <random>

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
    Bytes smallFile(const std::string& name, const std::string& options) {
        EXPECT_TRUE(ffmpeg("-i a.wav -fflags +bitexact " + options + " " + name)) << name;
        return test::readFile(folder / name);
    }
    /// File names and how they are made.
    static constexpr std::pair<const char*, const char*> kFiles[] = {
        {"s.m4a", "-c:a aac"},           {"l.m4a", "-c:a alac"}, {"s.mka", "-c:a libvorbis"},
        {"s.avi", "-c:a adpcm_ima_wav"}, {"s.mpg", "-c:a mp2"},  {"s.wma", "-c:a wmav2"},
        {"s.aac", "-c:a aac"},
    };
};

TEST_F(MediaHostile, CutAnywhere) {
    ASSERT_TRUE(makeTones(2500, 8000, 1));
    for (const auto& [name, options] : kFiles) {
        SCOPED_TRACE(name);
        const std::string resampled = std::string(name).ends_with("mpg") ? " -ar 44100" : "";
        const Bytes whole = smallFile(name, options + resampled);
        EXPECT_TRUE(read(whole, name)) << failure();
        for (std::size_t size = 0; size < whole.size(); size += 1 + whole.size() / 100)
            read(ByteSpan(whole).first(size), name);
    }
}

TEST_F(MediaHostile, AnyBytesWrong) {
    ASSERT_TRUE(makeTones(2500, 8000, 1));
    std::minstd_rand random(1);
    for (const auto& [name, options] : kFiles) {
        SCOPED_TRACE(name);
        const std::string resampled = std::string(name).ends_with("mpg") ? " -ar 44100" : "";
        const Bytes whole = smallFile(name, options + resampled);
        for (int i = 0; i < 80; ++i) {
            Bytes bytes = whole;
            for (int n = 0; n < 5; ++n) bytes[random() % bytes.size()] = static_cast<std::byte>(random());
            read(bytes, name);
        }
    }
}

TEST_F(MediaHostile, LyingBoxes) {
    ASSERT_TRUE(makeTones(2500, 8000, 1));
    const Bytes whole = smallFile("s.m4a", "-c:a aac");
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
