#include "batch/batch_run.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <map>
#include <thread>

#include "base/sandbox.h"
#include "batch/batch_report.h"
#include "formats/format_test.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::FormatTest;
using test::readFile;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;

class BatchRunTest : public FormatTest {
protected:
    BatchRunTest() {
        job.outputs.emplace_back();
        EXPECT_TRUE(readOutput("w64", job.mode, job.outputs.back()));
        job.outputDir = folder / "out";
        settings.workers = 2;
        settings.timeout = 60s;
        settings.tell = [this](std::string_view text) { told.emplace_back(text); };
        fs::create_directories(folder / "in");
    }
    void makeWaves(int count) {
        for (int i = 0; i < count; ++i) {
            const i16 samples[] = {static_cast<i16>(i), 1, 2, 3};
            writeFile(folder / "in" / ("w" + std::to_string(i) + ".wav"), wavWith(samples));
        }
    }
    bool run(const std::vector<std::string>& inputs) {
        BatchList list;
        list.leaveOut(job.outputDir);
        for (const std::string& input : inputs) EXPECT_TRUE(list.add(folder / input));
        counts = {};
        told.clear();
        return runBatchProcesses(job, list, settings, counts);
    }
    /// What stands in the output folder.
    std::map<std::string, Bytes> written() const {
        std::map<std::string, Bytes> files;
        for (const auto& entry : fs::recursive_directory_iterator(job.outputDir)) {
            if (entry.is_regular_file())
                files[entry.path().lexically_relative(job.outputDir)] = readFile(entry.path());
        }
        return files;
    }
    std::vector<std::string> reported(const char* name) const {
        std::vector<std::string> lines;
        readReport(folder / name, [&](const ReportEntry& entry, std::string_view) {
            constexpr const char* kNames[] = {"done", "skipped", "failed"};
            lines.push_back(fs::path(entry.head.input).filename().string() + " " +
                            kNames[static_cast<int>(entry.result.status)]);
        });
        return lines;
    }
    BatchJob job;
    BatchRunSettings settings;
    BatchCounts counts;
    std::vector<std::string> told;
};

TEST_F(BatchRunTest, TheResultIsTheSameWithAnyNumberOfProcesses) {
    makeWaves(30);
    writeFile(folder / "in/w3.aif", bytesOf("no sound"));
    writeFile(folder / "in/w4.w64", readFile(folder / "in/w5.wav")); // wants the name of w4.wav
    writeFile(folder / "in/bad.wav", bytesOf("RIFF\xFF\xFF\xFF\xFFWAVEfmt "));
    std::map<std::string, Bytes> first;
    std::vector<std::string> firstReport;
    for (const unsigned workers : {1U, 2U, 8U}) {
        fs::remove_all(job.outputDir);
        settings.workers = workers;
        settings.report = folder / "r.jsonl";
        ASSERT_TRUE(run({"in"})) << failure();
        EXPECT_EQ(counts.saved, 30U);
        EXPECT_EQ(counts.failed, 2U);
        EXPECT_EQ(counts.skipped, 1U);
        EXPECT_EQ(told.size(), 2U);
        if (workers == 1) {
            first = written();
            firstReport = reported("r.jsonl");
        }
        EXPECT_EQ(written(), first);
        EXPECT_EQ(reported("r.jsonl"), firstReport);
    }
    EXPECT_EQ(firstReport[0], "bad.wav failed");
    EXPECT_EQ(firstReport.size(), 33U);
}

TEST_F(BatchRunTest, ResumingDoesWhatIsLeftAndNoMore) {
    makeWaves(9);
    settings.report = folder / "r.jsonl";
    int files = 0;
    settings.goOn = [&] { return files < 3; };
    settings.progress = [&](const BatchCounts&, u64) { ++files; };
    settings.workers = 1;
    ASSERT_TRUE(run({"in"}));
    EXPECT_TRUE(counts.cancelled);
    EXPECT_GE(reported("r.jsonl").size(), 3U);
    EXPECT_LT(reported("r.jsonl").size(), 8U);

    // One result is gone, one input has changed, and one output was left by a file in hand.
    fs::remove(job.outputDir / "w0.w64");
    const i16 other[] = {9, 9};
    writeFile(folder / "in/w1.wav", wavWith(other));
    const fs::file_time_type untouched = fs::last_write_time(job.outputDir / "w2.w64");
    {
        std::ofstream report(folder / "r.jsonl", std::ios::app);
        ReportHead head;
        head.index = 8;
        head.input = folder / "in/w8.wav";
        head.job = fingerprint(job);
        head.begun = stateOf(folder / "r.jsonl").changed;
        report << startedLine(head) << "{\"cut";
        writeFile(job.outputDir / "w8.w64", bytesOf("half"));
    }
    settings.goOn = nullptr;
    settings.resume = settings.report;
    ASSERT_TRUE(run({"in"})) << failure();
    EXPECT_EQ(counts.files, 9U);
    EXPECT_EQ(counts.failed, 0U) << testing::PrintToString(told);
    EXPECT_EQ(fs::last_write_time(job.outputDir / "w2.w64"), untouched);
    EXPECT_EQ(reported("r.jsonl").size(), 9U);
    const std::map<std::string, Bytes> resumed = written();
    fs::remove_all(job.outputDir);
    settings.resume.clear();
    ASSERT_TRUE(run({"in"}));
    EXPECT_EQ(written(), resumed);
}

TEST_F(BatchRunTest, AnotherJobDoesNotGoOnWithTheReportOfThis) {
    makeWaves(2);
    settings.report = settings.resume = folder / "r.jsonl"; // none yet
    ASSERT_TRUE(run({"in"}));
    std::this_thread::sleep_for(100ms); // beyond what the file system's clock is behind
    job.normalize = true;
    ASSERT_TRUE(run({"in"}));
    EXPECT_EQ(counts.failed, 2U) << "the outputs are those of another job";
    settings.existing = ReplaceAnswer::Kind::Rename;
    ASSERT_TRUE(run({"in"}));
    EXPECT_TRUE(fs::exists(job.outputDir / "w0 2.w64"));
}

TEST_F(BatchRunTest, CrashesAndHangsCostTheirFiles) {
    makeWaves(5);
    settings.timeout = 500ms;
    settings.report = folder / "r.jsonl";
    settings.open = [](const std::string& path) {
        if (path.ends_with("w1.wav")) ::_exit(3);
        if (path.ends_with("w3.wav")) ::pause();
        return Import(path, false);
    };
    ASSERT_TRUE(run({"in"}));
    EXPECT_THAT(reported("r.jsonl"),
                ElementsAre("w0.wav done", "w1.wav failed", "w2.wav done", "w3.wav failed", "w4.wav done"));
    EXPECT_EQ(told.size(), 2U);
    EXPECT_EQ(written().size(), 3U);
}

TEST_F(BatchRunTest, ADryRunTellsInOrderAndWritesNothing) {
    makeWaves(4);
    settings.dryRun = true;
    settings.workers = 4;
    ASSERT_TRUE(run({"in"}));
    ASSERT_EQ(told.size(), 4U);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_THAT(told[i],
                    HasSubstr("w" + std::to_string(i) + ".wav -> " + (job.outputDir / "w").string()));
    EXPECT_FALSE(fs::exists(job.outputDir));
}

TEST_F(BatchRunTest, NothingToDoIsAFailure) {
    EXPECT_FALSE(run({}));
    EXPECT_EQ(space.error.message, "You must add at least one file before you go on!");
    makeWaves(1);
    writeFile(folder / "file", {});
    job.outputDir = folder / "file/out";
    EXPECT_FALSE(run({"in"}));
    EXPECT_EQ(space.error.message, "Error: Couldn't create output directory!");
}

/// Runs a check in a process that has entered the sandbox.
template <class Check>
bool holdsInside(const Sandbox& sandbox, Check check) {
    const pid_t process = ::fork();
    if (process == 0) ::_exit(sandbox.enter() && check() ? 0 : 1);
    int status = 1;
    ::waitpid(process, &status, 0);
    return status == 0;
}

TEST_F(BatchRunTest, TheSandboxLeavesInputsAndOutputsOnly) {
    makeWaves(1);
    fs::create_directories(folder / "out");
    writeFile(folder / "secret", bytesOf("x"));
    const std::vector<fs::path> readable{folder / "in"}, writable{folder / "out"};
    const Sandbox sandbox(readable, writable);
    EXPECT_TRUE(holdsInside(sandbox, [] { return ::fork() < 0; }));
    EXPECT_TRUE(holdsInside(sandbox, [] { return ::socket(AF_INET, SOCK_STREAM, 0) < 0; }));
    EXPECT_TRUE(holdsInside(sandbox, [] { return ::execl("/bin/true", "true", nullptr) < 0; }));
    if (!sandbox.limitsFiles()) GTEST_SKIP() << "this kernel can't limit files";
    EXPECT_TRUE(holdsInside(sandbox, [&] { return openFileSource(folder / "in/w0.wav") != nullptr; }));
    EXPECT_TRUE(holdsInside(sandbox, [&] { return !openFileSource(folder / "secret"); }));
    EXPECT_TRUE(holdsInside(sandbox, [&] { return !openFileSource("/etc/passwd"); }));
    EXPECT_TRUE(holdsInside(sandbox, [&] { return !SaveFile::create(folder / "in/new"); }));
    EXPECT_TRUE(holdsInside(sandbox, [&] {
        const auto file = SaveFile::create(folder / "out/sub.new");
        return file && file->write(bytesOf("x")) && file->commit();
    }));
}

} // namespace
} // namespace kv
