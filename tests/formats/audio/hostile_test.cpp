// Files that are broken on purpose: each gives its message or what can be read of it, in little time and
// memory. The sanitizers watch.
#include <sys/stat.h>

#include "formats/format_test.h"

namespace kv {
namespace {

using test::addChunk;

class Hostile : public test::FormatTest {
protected:
    /// Imports, loads and exports whatever comes of it.
    void tryAll(ByteSpan bytes, const std::string& name) {
        Wave* wave = import(bytes, name);
        if (!wave) return;
        EXPECT_LE(wave->channels, 2U);
        if (wave->LoadData()) {
            EXPECT_EQ(wave->samples16 ? wave->samples16.size() : wave->samplesFloat.size(),
                      wave->sampleCount());
        }
        FreeData(*wave, false);
        MemorySink sink;
        ExportTo(sink, rowOf("Microsoft wave"), "-", wave, kPcm16 | kMonoBit | kStereoBit, 0, true);
        EXPECT_LE(sink.position(), 4 * bytes.size() + 4096);
    }
};

TEST_F(Hostile, ListsNestedAMillionDeep) {
    ByteWriter deep;
    constexpr std::size_t kDepth = 1'000'000;
    for (std::size_t i = 0; i < kDepth; ++i) {
        deep.text("LIST").u32le(static_cast<u32>((kDepth - i) * 12 - 8)).text(i % 2 != 0 ? "INFO" : "abcd");
    }
    tryAll(wavWith(std::vector<i16>(10, 1), deep.view()), "deep.wav");
    EXPECT_EQ(store().First<Wave>()->frames, 10U);
}

TEST_F(Hostile, CountsBeyondTheFile) {
    ByteWriter more;
    addChunk(more, "cue ", ByteWriter().u32le(0xFFFFFFFF).fill(48).take());
    addChunk(more, "smpl", ByteWriter().fill(28).u32le(0xFFFFFFFF).u32le(28).fill(24).take());
    addChunk(more, "labl", {});
    addChunk(more, "inst", Bytes(3));
    addChunk(more, "mesa", Bytes(140));
    tryAll(wavWith(std::vector<i16>(10, 1), more.view()), "counts.wav");
    EXPECT_EQ(store().First<Wave>()->cuePoints.size(), 2U);
}

TEST_F(Hostile, WhatIsNoFile) {
    EXPECT_FALSE(Import(folder.path(), true));
    EXPECT_EQ(failure(), "Import: Could not open file");
    for (const char* device : {"/dev/zero", "/dev/null", "/dev/tty"})
        EXPECT_FALSE(Import(device, true)) << device;
    ASSERT_EQ(::mkfifo((folder / "pipe.wav").c_str(), 0600), 0);
    EXPECT_FALSE(Import(folder / "pipe.wav", true));
    EXPECT_FALSE(Import(folder / "missing.wav", true));
    EXPECT_FALSE(Import(std::string(5000, 'x'), true));
}

TEST_F(Hostile, FilesThatChangeBetweenOpeningAndLoading) {
    Wave* wave = import(wavWith(std::vector<i16>(5000, 3)));
    std::filesystem::resize_file(folder / "test.wav", 100);
    MemorySink sink;
    EXPECT_FALSE(ExportTo(sink, rowOf("Microsoft wave"), "-", wave, kPcm24 | kMonoBit, 0, false));
    EXPECT_EQ(failure(), "gen_ImpWave: Reading from file failed");
    std::filesystem::remove(folder / "test.wav");
    EXPECT_FALSE(wave->LoadData());
    EXPECT_EQ(failure(), "Read wave-data from disk: Could not open file");
}

TEST_F(Hostile, NamesThatAreNoText) {
    ByteWriter info, list;
    info.text("INFO");
    std::string name = "\x01\x02/..\xFF\xFE\xC0*:?\"";
    addChunk(info, "INAM", bytesOf(name));
    addChunk(list, "LIST", info.view());
    ASSERT_TRUE(import(wavWith(std::vector<i16>(10, 1), list.view())));
    SaveAllJob job;
    job.base = {folder / "base.w64", rowOf("Wave-64")};
    SaveAllResult result;
    ASSERT_TRUE(SaveAll(job, result)) << failure();
    EXPECT_EQ(result.saved, 1);
    EXPECT_EQ(folder.fileCount(), 2U); // nothing outside the folder
}

} // namespace
} // namespace kv
