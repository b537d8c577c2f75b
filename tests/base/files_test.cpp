#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "base/byte_sink.h"
#include "base/byte_source.h"
#include "test_support.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

class Files : public testing::Test {
protected:
    std::string textIn(const fs::path& path) { return std::string(textOf(test::readFile(path))); }
    std::size_t entries() {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()));
    }
    test::TempFolder folder;
};

TEST_F(Files, SourceReadsEqualThePlainBytes) {
    Bytes bytes(200'001);
    std::mt19937 random(1);
    for (std::byte& b : bytes) b = static_cast<std::byte>(random());
    test::writeFile(folder / "f", bytes);
    const auto source = openFileSource(folder / "f");
    ASSERT_TRUE(source);
    EXPECT_EQ(source->size(), bytes.size());
    for (int i = 0; i < 3000; ++i) {
        const std::size_t at = random() % 210'000;
        Bytes got(random() % 3 == 0 ? random() % 70'000 : random() % 100);
        const std::size_t wanted = at >= bytes.size() ? 0 : std::min(got.size(), bytes.size() - at);
        ASSERT_EQ(source->readAt(at, got), wanted);
        ASSERT_TRUE(std::equal(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(wanted),
                               bytes.begin() + static_cast<std::ptrdiff_t>(std::min(at, bytes.size()))));
    }
    EXPECT_EQ(source->readAt(~u64{0}, bytes), 0U);
}

TEST_F(Files, AFileThatShrinksGivesLess) {
    test::writeFile(folder / "f", Bytes(100'000));
    const auto source = openFileSource(folder / "f");
    fs::resize_file(folder / "f", 10);
    Bytes got(50'000);
    EXPECT_EQ(source->readAt(0, got), 10U);
    EXPECT_EQ(source->readAt(5, std::span(got).first(50)), 5U);
    EXPECT_EQ(source->readAt(50'000, std::span(got).first(50)), 0U);
}

TEST_F(Files, OnlyFilesAreOpened) {
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (const fs::path& path :
         {folder.path(), folder / "pipe", folder / "missing", fs::path("/dev/zero"), fs::path("")}) {
        EXPECT_FALSE(openFileSource(path)) << path;
    }
}

TEST_F(Files, RangesAreCutToTheWhole) {
    const auto whole = std::make_shared<MemorySource>(bytesOf("0123456789"));
    RangeSource range(whole, 4, 100);
    EXPECT_EQ(range.size(), 6U);
    Bytes got(10);
    EXPECT_EQ(range.readAt(2, got), 4U);
    EXPECT_EQ(textOf(got).substr(0, 4), "6789");
    EXPECT_EQ(RangeSource(whole, ~u64{0}, ~u64{0}).size(), 0U);
    EXPECT_EQ(RangeSource(whole, 2, 3).readAt(0, got), 3U);
}

TEST_F(Files, NothingShowsBeforeTheCommit) {
    test::writeFile(folder / "f", bytesOf("old"));
    {
        const auto save = SaveFile::create(folder / "f");
        ASSERT_TRUE(save->write(bytesOf("new")));
        EXPECT_EQ(textIn(folder / "f"), "old");
    }
    EXPECT_EQ(textIn(folder / "f"), "old");
    EXPECT_EQ(entries(), 1U);
    const auto save = SaveFile::create(folder / "f");
    ASSERT_TRUE(save->write(bytesOf("new text")));
    ASSERT_TRUE(save->patch(4, bytesOf("TEXT")));
    EXPECT_EQ(save->position(), 8U);
    ASSERT_TRUE(save->commit());
    EXPECT_FALSE(save->commit());
    EXPECT_EQ(textIn(folder / "f"), "new TEXT");
    EXPECT_EQ(entries(), 1U);
}

TEST_F(Files, RightsAndLinksStay) {
    test::writeFile(folder / "f", bytesOf("old"));
    fs::permissions(folder / "f", fs::perms(0640));
    fs::create_symlink("f", folder / "link");
    const auto save = SaveFile::create(folder / "link");
    ASSERT_TRUE(save->write(bytesOf("new")) && save->commit());
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
    EXPECT_EQ(textIn(folder / "f"), "new");
    EXPECT_EQ(fs::status(folder / "f").permissions(), fs::perms(0640));
}

TEST_F(Files, PlacesThatCanNotBeWritten) {
    EXPECT_FALSE(SaveFile::create(folder / "no" / "f"));
    EXPECT_FALSE(SaveFile::create(folder.path()));
    const auto null = SaveFile::create("/dev/null");
    ASSERT_TRUE(null);
    EXPECT_TRUE(null->write(bytesOf("x")) && null->commit());
    const auto full = SaveFile::create("/dev/full");
    ASSERT_TRUE(full);
    EXPECT_FALSE(full->write(bytesOf("x")));
    if (::geteuid() == 0) GTEST_SKIP() << "as root every folder can be written";
    fs::permissions(folder.path(), fs::perms(0500));
    EXPECT_FALSE(SaveFile::create(folder / "f"));
    fs::permissions(folder.path(), fs::perms(0700));
}

TEST_F(Files, AFullDiskIsNoticed) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    test::writeFile(folder / "f", bytesOf("old"));
    const auto save = SaveFile::create(folder / "f");
    const bool written = save->write(Bytes(5000));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_FALSE(written);
    EXPECT_EQ(textIn(folder / "f"), "old");
}

TEST_F(Files, MemoryAndStreams) {
    MemorySink sink;
    EXPECT_TRUE(sink.write(bytesOf("abc")) && sink.patch(1, bytesOf("X")));
    EXPECT_FALSE(sink.patch(3, bytesOf("X")));
    EXPECT_FALSE(sink.patch(~u64{0}, bytesOf("X")));
    EXPECT_EQ(textOf(sink.view()), "aXc");
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    StreamSink stream(ends[1]);
    EXPECT_TRUE(stream.write(bytesOf("abc")));
    EXPECT_FALSE(stream.patch(0, bytesOf("X")));
    ::close(ends[0]);
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_FALSE(stream.write(bytesOf("abc")));
    ::close(ends[1]);
}

} // namespace
} // namespace kv
