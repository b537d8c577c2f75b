#include <map>

#include "places.h"
#include "sfz_test.h"

namespace kv {
namespace {

using test::SfzTest;

/// Banks of another player's tests, with what it reads out of them.
TEST_F(SfzTest, ReadsTheCorpus) {
    const std::filesystem::path corpus = std::filesystem::path(KV_CORPUS_DIR) / "sfz" / "sfizz" / "TestFiles";
    if (!std::filesystem::exists(corpus)) GTEST_SKIP() << "no corpus at " << corpus;
    struct Case {
        const char* file;
        std::size_t regions, waves;
    };
    const Case cases[] = {
        {"Regions/regions_one.sfz", 1, 1},
        {"Regions/regions_many.sfz", 3, 3},
        {"Includes/multiple_includes.sfz", 2, 2},
        {"Includes/multiple_includes_with_comments.sfz", 2, 2},
        {"Includes/root_subdir_win.sfz", 1, 1},
        {"Includes/root_recursive.sfz", 2, 2},
        {"Includes/root_loop.sfz", 2, 2},
        {"SpecificBugs/win_backslashes.sfz", 1, 1},
        {"SpecificBugs/MeatBassPizz/Programs/pizz.sfz", 4, 4},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(Import(corpus / c.file, true)) << c.file << ": " << failure();
        EXPECT_EQ(regions().size(), c.regions) << c.file;
        EXPECT_EQ(store().count(kWaveClass), c.waves) << c.file;
        for (Wave& wave : store().all<Wave>()) EXPECT_TRUE(wave.LoadData()) << c.file << ": " << failure();
    }
}

} // namespace
} // namespace kv
