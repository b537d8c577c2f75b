// Real files of other programs, when they are there: every sample equal to what an independent decoder
// gives, and all facts kept when they are written again.
#include <cstdio>
#include <cstdlib>

#include "formats/format_test.h"
#include "places.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

class Corpus : public test::FormatTest {
protected:
    static std::vector<fs::path> waves() {
        std::vector<fs::path> paths;
        std::error_code none;
        for (const auto& entry : fs::recursive_directory_iterator(fs::path(KV_CORPUS_DIR) / "wav", none)) {
            if (entry.is_regular_file()) paths.push_back(entry.path());
        }
        return paths;
    }
    static bool isCoded(const Wave& wave) { return wave.bits < 8; }
    /// 16-bit little-endian samples of a file as sox decodes them.
    static Bytes soxSamples(const fs::path& path) {
        const std::string command = "sox -D '" + path.string() + "' -t s16 - 2>/dev/null";
        Bytes bytes;
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            std::byte buffer[65536];
            while (const std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe))
                bytes.insert(bytes.end(), buffer, buffer + n);
            ::pclose(pipe);
        }
        return bytes;
    }
};

TEST_F(Corpus, SamplesEqualThoseOfAnIndependentDecoder) {
    if (waves().empty()) GTEST_SKIP() << "no corpus at " KV_CORPUS_DIR;
    if (std::system("command -v sox >/dev/null") != 0) GTEST_SKIP() << "sox is not installed";
    int compared = 0;
    for (const fs::path& path : waves()) {
        if (!Import(path, false)) continue;
        Wave* wave = store().First<Wave>();
        // 8 bits come in by a rule of ours, and sox rounds what is longer than 16 bits in its own way.
        if (wave->preferredFormat != kPcm16 && wave->preferredFormat != kMuLaw &&
            wave->preferredFormat != kALaw && !isCoded(*wave))
            continue;
        const Bytes theirs = soxSamples(path);
        if (theirs.empty() || !space.diagnostics.entries().empty()) {
            space.diagnostics.clear(); // more than two channels
            continue;
        }
        MemorySink sink;
        ASSERT_TRUE(ExportTo(sink, rowOf("Signed words (16-bit) - Little Endian"), "-", wave,
                             kPcm16 | kMonoBit | kStereoBit, 0, false))
            << path << failure();
        // sox doesn't cut what fills a last block up.
        EXPECT_TRUE(
            (sink.view().size() == theirs.size() || (isCoded(*wave) && sink.view().size() < theirs.size())) &&
            std::equal(sink.view().begin(), sink.view().end(), theirs.begin()))
            << path;
        ++compared;
    }
    EXPECT_GT(compared, 10);
}

TEST_F(Corpus, SecondWritingIsEqualToTheByte) {
    if (waves().empty()) GTEST_SKIP() << "no corpus at " KV_CORPUS_DIR;
    for (const fs::path& path : waves()) {
        for (const char* extension : {"wav", "w64"}) {
            space.wavFact = 0; // as in a process of its own
            if (!Import(path, false) || isCoded(*store().First<Wave>())) continue; // which loses each time
            const SampleParams params = store().First<Wave>()->params;
            const std::vector<CuePoint> cues = store().First<Wave>()->cuePoints;
            const fs::path first = exportAs(std::string("first.") + extension);
            ASSERT_TRUE(Import(first, false)) << path << failure();
            if (extension == std::string("wav")) {
                EXPECT_EQ(store().First<Wave>()->cuePoints, cues) << path;
                EXPECT_EQ(store().First<Wave>()->params.rootKey, params.rootKey) << path;
                EXPECT_EQ(store().First<Wave>()->params.loopFlags, params.loopFlags) << path;
            }
            const fs::path second = exportAs(std::string("second.") + extension);
            EXPECT_EQ(test::readFile(first), test::readFile(second)) << path;
        }
    }
}

} // namespace
} // namespace kv
