// Files that are broken on purpose. The sanitizers watch.
#include <random>

#include "formats/audio/chunked/chunked_test.h"

namespace kv {
namespace {

using HostileChunks = test::FormatTest;

/// Compression types whose packets have any contents and any number of channels.
TEST_F(HostileChunks, Packets) {
    std::mt19937 random(8);
    for (const char* compression : {"ima4", "GSM ", "G722"}) {
        for (const int channels : {1, 2, 3, 1024, 1025, 65535}) {
            Bytes data(random() % 3000);
            for (std::byte& b : data) b = static_cast<std::byte>(random());
            ByteWriter chunks;
            test::addBigChunk(chunks, "COMM",
                              test::comm(static_cast<u16>(channels), static_cast<u32>(random() % 100), 16,
                                         8000, compression));
            test::addBigChunk(chunks, "SSND", test::ssnd(data));
            Wave* wave = import(test::aiff(chunks.view(), "AIFC"), "a.aif");
            if (wave && wave->LoadData()) {
                EXPECT_EQ(wave->samples16.size(), wave->sampleCount());
            }
        }
    }
}

TEST_F(HostileChunks, ManyMarkersTakeLittleTime) {
    ByteWriter chunks, marks, notes;
    marks.u16be(65535);
    notes.u16be(65535);
    for (u32 i = 1; i <= 65535; ++i) {
        marks.u16be(static_cast<u16>(i)).u32be(i).fill(2);
        notes.u32be(0).u16be(static_cast<u16>(65536 - i)).u16be(2).text("ab");
    }
    test::addBigChunk(chunks, "COMM", test::comm(1, 1, 16));
    test::addBigChunk(chunks, "MARK", marks.view());
    test::addBigChunk(chunks, "COMT", notes.view());
    test::addBigChunk(chunks, "SSND", test::ssnd(Bytes(2)));
    Wave* wave = import(test::aiff(chunks.view()), "a.aif");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->cuePoints.size(), 65535U);
    wave->params.loopFlags = kLooped;
    wave->params.loopEnd = 1;
    exportAs("b.aif");
    EXPECT_EQ(space.diagnostics.entries().size(), 1U); // no room for all of them
}

} // namespace
} // namespace kv
