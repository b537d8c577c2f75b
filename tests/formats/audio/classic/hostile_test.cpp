// Files of all classic formats that are cut off or lie: in bounded time and memory each gives a message or
// what can be read of it. The sanitizers watch.
#include <random>

#include "formats/audio/classic/classic_test.h"
#include "places.h"

namespace kv {
namespace {

class ClassicHostile : public test::ClassicTest {
protected:
    void tryAll(ByteSpan bytes, const std::string& name) {
        Wave* wave = import(bytes, name);
        if (!wave) return;
        EXPECT_LE(wave->channels, 2U);
        if (wave->LoadData()) {
            EXPECT_EQ(GetInt16Data(*wave).size(), wave->sampleCount());
        }
        FreeData(*wave, false);
        if (wave->frames > 100'000) return; // silence of a few bytes may be long
        MemorySink sink;
        ExportTo(sink, rowOf("SoundBlaster voice"), "-", wave, kPcm8 | kBoth, 0, true);
    }
    /// Each seed of the import fuzzer that this module reads, by its extension.
    std::vector<std::filesystem::path> seeds() {
        const std::set<std::string> ours{".avr", ".dwd", ".hcom", ".iff", ".maud", ".sd",
                                         ".sd2", ".smp", ".voc",  ".w01", ".w02"};
        std::vector<std::filesystem::path> found;
        for (const auto& entry : std::filesystem::directory_iterator(KV_SOURCE_DIR "/fuzz/seeds/import")) {
            if (ours.contains(entry.path().extension().string())) found.push_back(entry.path());
        }
        return found;
    }
};

TEST_F(ClassicHostile, TruncationAtEveryByte) {
    ASSERT_GE(seeds().size(), 12U);
    for (const std::filesystem::path& seed : seeds()) {
        SCOPED_TRACE(seed);
        const Bytes good = test::readFile(seed);
        const std::string name = "cut" + seed.extension().string();
        ASSERT_TRUE(import(good, name)) << failure();
        const std::size_t step = good.size() > 600   ? 13
                                 : good.size() > 200 ? 3
                                                     : 1; // long headers are mostly empty
        for (std::size_t n = 0; n < good.size(); n += step) tryAll(ByteSpan(good).first(n), name);
    }
}

TEST_F(ClassicHostile, LyingFields) {
    std::mt19937 random(7);
    for (const std::filesystem::path& seed : seeds()) {
        SCOPED_TRACE(seed);
        const Bytes good = test::readFile(seed);
        const std::string name = "lie" + seed.extension().string();
        for (std::size_t round = 0; round < 60; ++round) {
            Bytes bad = good;
            // Four bytes of the first hundred, or of anywhere: all ones, zero, or anything.
            const std::size_t at =
                random() % (round % 2 == 0 ? std::min<std::size_t>(bad.size(), 100) : bad.size());
            const auto kind = random() % 3;
            for (std::size_t i = at; i < std::min(bad.size(), at + 1 + random() % 4); ++i)
                bad[i] = static_cast<std::byte>(kind == 0 ? 0xFF : kind == 1 ? 0 : random());
            tryAll(bad, name);
        }
    }
}

TEST_F(ClassicHostile, SilenceWithoutEndIsBounded) {
    ByteWriter out;
    out.text("Creative Voice File\x1A").u16le(26).u16le(0x010A).u16le(0x1129);
    out.u8le(1).u16le(3).u8le(0).u8le(6).u8le(0).u8le(0x80);
    for (int i = 0; i < 100'000; ++i) out.u8le(3).u16le(3).u8le(0).u16le(0xFFFF).u8le(6);
    Wave* wave = import(out.view(), "a.voc");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->frames, (1U << 25) + 1);
}

TEST_F(ClassicHostile, TreesThatRunInCirclesEnd) {
    ByteWriter out;
    out.text("HCOM").u32be(1000).u32be(0).u32be(0).u32be(1).u16be(2);
    out.u16be(1).u16be(1).u16be(0).u16be(0).u8le(0).u8le(0x90).fill(4000, 0x5A);
    Wave* wave = import(out.view(), "a.hcom");
    ASSERT_TRUE(wave);
    const std::vector<i16> samples = samplesOf(*wave);
    EXPECT_EQ(samples.size(), 1000U);
    EXPECT_EQ(samples[999], 128);
}

} // namespace
} // namespace kv
