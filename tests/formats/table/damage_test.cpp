// Every seed of the import fuzzer, cut off and changed: in little time and memory each gives its message or
// what can be read of it. The sanitizers watch.
#include <sys/mman.h>
#include <unistd.h>

#include <random>

#include "formats/format_test.h"
#include "formats/framework/detection.h"
#include "places.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

class Damage : public test::FormatTest, public testing::WithParamInterface<std::string> {
protected:
    Damage() : file_(::memfd_create("damaged", 0)) {} // many small files are slow on a disk
    ~Damage() override { ::close(file_); }

    /// Imports, loads and exports whatever comes of the bytes; a refusal has its reason.
    void tryAll(ByteSpan bytes, int row) {
        ASSERT_EQ(::ftruncate(file_, 0), 0);
        ASSERT_EQ(::pwrite(file_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        space.error = {};
        if (!Import("/proc/self/fd/" + std::to_string(file_), false, row)) {
            EXPECT_FALSE(space.error.message.empty());
            return;
        }
        for (Wave& wave : store().all<Wave>()) {
            EXPECT_TRUE(wave.channels == 1 || wave.channels == 2);
            if (wave.frames > 100'000) continue; // silence of a few bytes may be long
            if (wave.LoadData()) {
                EXPECT_EQ(std::max(wave.samples16.size(), wave.samplesFloat.size()), wave.sampleCount());
            }
            FreeData(wave, true);
            MemorySink sink;
            ExportTo(sink, rowOf("Microsoft wave"), "-", &wave, kPcm16 | kMonoBit | kStereoBit, 0, true);
        }
    }

private:
    int file_;
};

TEST_P(Damage, DoesNoHarm) {
    const fs::path seed = fs::path(KV_SOURCE_DIR "/fuzz/seeds/import") / GetParam();
    FileContext file;
    file.source = openFileSource(seed);
    ASSERT_TRUE(file.source);
    int confidence = 0;
    const int row = DetectFile(formatTable(), seed, file, confidence);
    const Bytes good = test::readFile(seed);

    for (std::size_t size = 0; size < good.size(); size += size < 200 ? 1 : 1 + good.size() / 150)
        tryAll(ByteSpan(good).first(size), row);
    std::mt19937 random(7);
    for (int round = 0; round < 250; ++round) {
        // One to four bytes of the head or of anywhere: all ones, zero, or anything.
        Bytes bad = good;
        const std::size_t reach = round % 2 == 0 ? std::min<std::size_t>(bad.size(), 120) : bad.size();
        const std::size_t at = random() % reach;
        const auto kind = random() % 3;
        for (std::size_t i = at; i < std::min(bad.size(), at + 1 + random() % 4); ++i)
            bad[i] = static_cast<std::byte>(kind == 0 ? 0xFF : kind == 1 ? 0 : random());
        tryAll(bad, row);
    }
}

std::vector<std::string> seeds() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(KV_SOURCE_DIR "/fuzz/seeds/import"))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Of, Damage, testing::ValuesIn(seeds()), [](const auto& seed) {
    std::string name = seed.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<u8>(c)); }, '_');
    return name;
});

} // namespace
} // namespace kv
