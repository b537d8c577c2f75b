// Files that are broken on purpose. The sanitizers watch.
#include <random>

#include "formats/audio/chunked/chunked_test.h"

namespace kv {
namespace {

class HostileChunks : public test::FormatTest {
protected:
    /// A file with one of everything.
    Bytes rich(const std::string& name, u32 wanted) {
        Wave* wave = import(wavWith(std::vector<i16>(50, 77)));
        wave->params.loopFlags = kLooped;
        wave->params.loopEnd = 40;
        wave->artist = "artist";
        wave->comments = "text";
        wave->cuePoints = {{5, 7, "label", "note"}, {9, 0, "b", {}}};
        return test::readFile(exportAs(name, wanted));
    }
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
        for (const char* row : {"Audio interchange", "Apple CoreAudio", "Sun/NeXT/DEC audio"}) {
            MemorySink sink;
            ExportTo(sink, rowOf(row), "-", wave, kPcm16 | kMonoBit | kStereoBit, 0, true);
            EXPECT_LE(sink.position(), 8 * bytes.size() + 4096);
        }
    }
    struct File {
        std::string name;
        u32 wanted;
    };
    const File files[4] = {{"a.aif", kPcm16 | kMonoBit},
                           {"b.aif", kFloat32 | kMonoBit},
                           {"c.caf", kPcm24 | kMonoBit},
                           {"d.au", kALaw | kMonoBit}};
};

TEST_F(HostileChunks, TruncationAtEveryByte) {
    for (const File& file : files) {
        const Bytes good = rich(file.name, file.wanted);
        for (std::size_t n = 0; n < good.size(); ++n) tryAll(ByteSpan(good).first(n), file.name);
    }
}

TEST_F(HostileChunks, ChangedBytes) {
    std::mt19937 random(7);
    for (const File& file : files) {
        const Bytes good = rich(file.name, file.wanted);
        for (int round = 0; round < 300; ++round) {
            Bytes bad = good;
            constexpr u8 kValues[] = {0, 1, 0x7F, 0x80, 0xFF};
            for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
                const u8 value = random() % 2 != 0 ? kValues[random() % 5] : static_cast<u8>(random());
                bad[4 + random() % (bad.size() - 4)] = std::byte{value};
            }
            tryAll(bad, file.name);
        }
    }
}

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
            tryAll(test::aiff(chunks.view(), "AIFC"), "a.aif");
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
