#include "batch/batch_report.h"

#include <gmock/gmock.h>

#include "test_support.h"

namespace kv {
namespace {

using test::readFile;
using test::TempFolder;
using test::writeFile;
using testing::ElementsAre;

std::string textIn(const std::filesystem::path& path) {
    return std::string(textOf(readFile(path)));
}

ReportHead headOf(u64 index, std::string input) {
    return {index, std::move(input), {100, 5}, 0xABCDEF0123456789, 77, 0.25};
}

TEST(BatchReport, LinesComeBack) {
    BatchResult result;
    result.status = BatchStatus::Failed;
    result.outputs = {{"/out/\xFF.wav", 12}};
    result.error = {"Import", "It said \"no\"\n"};
    result.losses = {"a"};
    result.warnings = {"b", "c"};
    const ReportHead head = headOf(3, "/in/\xE4.wav");
    ReportEntry entry;
    ASSERT_TRUE(parseReportLine(resultLine(head, result), entry));
    EXPECT_EQ(entry.head.input, head.input);
    EXPECT_EQ(entry.head.state, head.state);
    EXPECT_EQ(entry.head.job, head.job);
    EXPECT_EQ(entry.result.outputs.front().path, "/out/\xFF.wav");
    EXPECT_EQ(entry.result.error.message, result.error.message);
    EXPECT_EQ(resultLine(entry.head, entry.result), resultLine(head, result));
    ASSERT_TRUE(parseReportLine(startedLine(head), entry));
    EXPECT_TRUE(entry.started);
    EXPECT_EQ(entry.head.begun, 77);

    for (const char* bad : {"", "{", "[]", "{}", "{\"input\":3}", "{\"input\":\"a\",\"status\":\"lost\"}",
                            "{\"input\":\"a\",\"status\":\"done\",\"outputs\":5}",
                            "{\"input\":\"a\",\"status\":\"done\",\"outputs\":[5]}"})
        EXPECT_FALSE(parseReportLine(bad, entry)) << bad;
}

TEST(BatchReport, TheFileEndsUpInTheOrderOfTheList) {
    const TempFolder folder;
    writeFile(folder / "r.jsonl", bytesOf("old"));
    BatchResult done;
    done.status = BatchStatus::Done;
    ReportFile report;
    ASSERT_TRUE(report.create(folder / "r.jsonl"));
    EXPECT_EQ(textIn(folder / "r.jsonl"), "old") << "until the new one is worth something";
    ASSERT_TRUE(report.appear());
    for (const u64 index : {0U, 2U, 1U, 5U, 3U}) {
        report.addStarted(headOf(index, "/x"));
        report.addResult(index, resultLine(headOf(index, "/x"), done));
    }
    report.addStarted(headOf(4, "/y"));
    std::size_t lines = 0;
    ASSERT_TRUE(readReport(folder / "r.jsonl", [&](const ReportEntry&, std::string_view) { ++lines; }));
    EXPECT_EQ(lines, 11U) << "a run that is cut off here can be resumed";
    ASSERT_TRUE(report.finish());
    std::vector<u64> order;
    readReport(folder / "r.jsonl",
               [&](const ReportEntry& entry, std::string_view) { order.push_back(entry.head.index); });
    EXPECT_THAT(order, ElementsAre(0, 1, 2, 3, 5));
    EXPECT_EQ(folder.fileCount(), 1U);
}

TEST(BatchReport, ReportsOfPartsJoinAndTheLastResultCounts) {
    const TempFolder folder;
    BatchResult failed, done;
    done.status = BatchStatus::Done;
    writeFile(folder / "a", bytesOf(resultLine(headOf(2, "/c"), failed) + resultLine(headOf(0, "/a"), done) +
                                    "{\"cut off"));
    writeFile(folder / "b", bytesOf(resultLine(headOf(1, "/b"), done) + resultLine(headOf(2, "/c"), done) +
                                    startedLine(headOf(3, "/d"))));
    ASSERT_TRUE(mergeReports({folder / "a", folder / "b"}, folder / "all"));
    std::vector<std::string> lines;
    readReport(folder / "all", [&](const ReportEntry& entry, std::string_view) {
        lines.push_back(entry.head.input + (entry.result.status == BatchStatus::Done ? " done" : " failed"));
    });
    EXPECT_THAT(lines, ElementsAre("/a done", "/b done", "/c done"));
    EXPECT_FALSE(mergeReports({folder / "missing"}, folder / "none"));
    EXPECT_FALSE(std::filesystem::exists(folder / "none"));
}

} // namespace
} // namespace kv
