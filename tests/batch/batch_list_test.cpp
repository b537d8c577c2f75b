#include "batch/batch_list.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <set>

#include "base/run_context.h"
#include "test_support.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;
using test::writeFile;
using testing::ElementsAre;

class BatchListTest : public testing::Test {
protected:
    BatchListTest() {
        for (const char* name : {"b.wav", "a.wav", "x/c.wav", "x/y/d.aif", "out/old.wav"}) {
            fs::create_directories((folder / name).parent_path());
            writeFile(folder / name, {});
        }
    }
    /// Paths below the folder, with "+" where a file was found by walking, and its depth.
    std::vector<std::string> entries() const {
        std::vector<std::string> all;
        for (std::size_t i = 0; i < list.size(); ++i) {
            const BatchList::Entry entry = list.at(i);
            all.push_back(fs::path(entry.path).lexically_relative(folder.path()).string() +
                          (entry.scanned ? "+" + std::to_string(entry.treeDepth) : ""));
        }
        return all;
    }
    TempFolder folder;
    BatchList list;
};

TEST_F(BatchListTest, FoldersAreWalkedInOrderOfNames) {
    list.leaveOut(folder / "out");
    fs::create_directory_symlink(folder.path(), folder / "x/loop");
    ::mkfifo((folder / "x/pipe.wav").c_str(), 0600);
    ASSERT_TRUE(list.add(folder.path().string()));
    EXPECT_THAT(entries(), ElementsAre("a.wav+0", "b.wav+0", "x/c.wav+1", "x/y/d.aif+2"));
    EXPECT_THAT(list.roots(), ElementsAre(folder.path()));
}

TEST_F(BatchListTest, NamedFilesNeedNotExist) {
    writeFile(folder / "list.txt",
              bytesOf((folder / "b.wav").string() + "\r\n\n" + (folder / "no.wav").string()));
    ASSERT_TRUE(list.add((folder / "none.wav").string()));
    ASSERT_TRUE(list.add((folder / "?.wav").string()));
    ASSERT_TRUE(list.add("@" + (folder / "list.txt").string()));
    EXPECT_THAT(entries(), ElementsAre("none.wav", "a.wav", "b.wav", "b.wav", "no.wav"));
    EXPECT_FALSE(list.add("@" + (folder / "missing.txt").string()));
    EXPECT_FALSE(list.add("@" + (folder / "x").string()));
}

TEST_F(BatchListTest, ShardsPartTheListAndKeepStemsTogether) {
    std::multiset<std::string> joined;
    std::vector<std::size_t> sizes;
    for (u32 shard = 0; shard < 4; ++shard) {
        BatchList part;
        for (int i = 0; i < 1000; ++i) {
            part.add("/samples/" + std::to_string(i) + ".wav");
            part.add("/samples/" + std::to_string(i) + ".aif");
        }
        part.keepShard(shard, 4);
        std::set<std::string> stems;
        for (std::size_t i = 0; i < part.size(); ++i) {
            joined.emplace(part.at(i).path);
            stems.insert(fs::path(part.at(i).path).stem());
        }
        EXPECT_EQ(stems.size() * 2, part.size());
        sizes.push_back(part.size());
    }
    EXPECT_EQ(joined.size(), 2000U);
    EXPECT_EQ(std::set<std::string>(joined.begin(), joined.end()).size(), 2000U);
    for (const std::size_t size : sizes) EXPECT_NEAR(static_cast<double>(size), 500, 100);
}

TEST_F(BatchListTest, PathsAreFoundWithAllTheirEntries) {
    for (const char* path : {"/c", "/a", "/b", "/a"}) list.add(path);
    list.indexPaths();
    EXPECT_THAT(list.find("/a"), ElementsAre(1U, 3U));
    EXPECT_THAT(list.find("/c"), ElementsAre(0U));
    EXPECT_THAT(list.find("/d"), ElementsAre());
}

} // namespace
} // namespace kv
