#include "batch/batch_job.h"

#include <gmock/gmock.h>

#include "batch/batch_names.h"
#include "formats/table/format_table_rows.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

using testing::HasSubstr;

class BatchJobTest : public testing::Test {
protected:
    BatchJobTest() { space.formats = &formatTable(); }
    BatchOutput output(std::string_view text, BatchMode mode = BatchMode::Waves) {
        BatchOutput out;
        EXPECT_TRUE(readOutput(text, mode, out)) << text << ": " << space.error.message;
        return out;
    }
    Workspace space;
    WorkspaceScope scope{space};
};

TEST_F(BatchJobTest, OutputsAreRowsThatHoldWhatTheModeSaves) {
    EXPECT_EQ(formatTable().RowDescription(output("wav").row), "Microsoft wave");
    EXPECT_EQ(formatTable().RowDescription(output("dls", BatchMode::Collections).row),
              "DownLoadable Sounds level 2");
    const BatchOutput mono = output("wav,data=PCM 24-bit,channels=mono");
    EXPECT_EQ(mono.format, kPcm24 | kMonoBit);
    EXPECT_EQ(outputText(mono), "Microsoft wave,data=PCM 24-bit,channels=mono");
    EXPECT_EQ(outputText(output("wav")), "Microsoft wave");

    struct Bad {
        const char* text;
        BatchMode mode;
    };
    for (const Bad& bad :
         {Bad{"nonsense", BatchMode::Waves}, Bad{"mid", BatchMode::Waves}, Bad{"wav", BatchMode::Songs},
          Bad{"wav,data=PCM 99-bit", BatchMode::Waves}, Bad{"sf2,channels=stereo", BatchMode::Collections},
          Bad{"wav,bit-rate=-1", BatchMode::Waves}, Bad{"", BatchMode::Waves}}) {
        BatchOutput out;
        EXPECT_FALSE(readOutput(bad.text, bad.mode, out)) << bad.text;
    }
}

TEST_F(BatchJobTest, AJobFileKeepsEverything) {
    BatchJobFile file;
    BatchJob& job = file.job;
    job.mode = BatchMode::Instruments;
    job.outputs = {output("sf2", job.mode), output("sfz,data=PCM 24-bit", job.mode)};
    job.outputDir = "/out \"quoted\"\\ \xC3\xA4";
    for (const BatchOption& option : batchOptions()) {
        std::visit(
            [&](auto member) {
                using T = std::remove_reference_t<decltype(job.*member)>;
                if constexpr (std::is_same_v<T, bool>)
                    job.*member = !(job.*member);
                else
                    job.*member =
                        static_cast<T>(job.*member + 1 <= option.most ? job.*member + 1 : option.least);
            },
            option.member);
    }
    job.silenceThreshold = 0.1F;
    job.thresholdInDb = false;
    job.algorithms = {"remove-dc-offset", "search-and-replace-text-in-names:search=a,replace=\"b,c\""};
    job.plugins = {{"amp", "gain=3"}};
    file.inputs = {"/a", "b c"};
    const std::string text = jobFileText(file);
    BatchJobFile back;
    ASSERT_TRUE(parseJobFile(text, back)) << space.error.message << "\n" << text;
    EXPECT_EQ(jobFileText(back), text);
    EXPECT_EQ(back.job.outputDir, job.outputDir);
    EXPECT_EQ(back.job.plugins.front().settings, "gain=3");
    EXPECT_EQ(fingerprint(back.job), fingerprint(job));
    back.job.overwriteAll = !back.job.overwriteAll;
    EXPECT_EQ(fingerprint(back.job), fingerprint(job)) << "makes the same of each file";
    back.job.normalize = !back.job.normalize;
    EXPECT_NE(fingerprint(back.job), fingerprint(job));
}

TEST_F(BatchJobTest, WhatAJobFileDoesNotKnowIsRefused) {
    for (const char* text :
         {"mode = \"wave\"", "mode = 1", "colour = 1", "colour = \"red\"", "resample-quality = 9",
          "resample-rate = 0", "normalize = 1", "outputs = \"wav\"", "outputs = [1]",
          "outputs = [\"nonsense\"]", "silence-threshold = \"loud\"", "silence-threshold = \"200%\"",
          "effects = [{settings = \"x\"}]", "algorithms = 3", "mode = ", "\xFF"}) {
        BatchJobFile file;
        EXPECT_FALSE(parseJobFile(text, file)) << text;
        EXPECT_FALSE(space.error.message.empty());
    }
}

TEST_F(BatchJobTest, LevelsAreReadInAllUnits) {
    struct Case {
        const char* text;
        f32 level;
    };
    for (const Case& c : {Case{"1%", 0.01F}, Case{"-40dB", 0.01F}, Case{"0.01", 0.01F}, Case{"0 dB", 1}})
        if (f32 level = -1; readLevel(c.text, level))
            EXPECT_NEAR(level, c.level, 1e-6F) << c.text;
        else
            ADD_FAILURE() << c.text;
    EXPECT_EQ(levelText(0.01F, true), "-40dB");
    EXPECT_EQ(levelText(0.01F, false), "1%");
    EXPECT_EQ(levelText(0, true), "0%") << "has no decibels";
}

TEST_F(BatchJobTest, JobsThatCannotRunAreRefused) {
    BatchJob job;
    EXPECT_FALSE(checkJob(job));
    job.outputs = {output("wav")};
    EXPECT_FALSE(checkJob(job));
    EXPECT_EQ(space.error.message, "Please select an output directory first!");
    job.sameDirAsSource = true;
    EXPECT_TRUE(checkJob(job));
    job.algorithms = {"no-such-thing"};
    EXPECT_FALSE(checkJob(job));
    job.algorithms.clear();
    job.splitStereo = job.mergeStereo = true;
    EXPECT_FALSE(checkJob(job));
    job.splitStereo = false;
    job.outputs.resize(6, job.outputs.front());
    EXPECT_FALSE(checkJob(job));
}

TEST_F(BatchJobTest, FoldersOfTheSourceAreKeptByLevels) {
    struct Case {
        bool keepSubdirs, keepTree;
        i32 levels;
        u32 depth;
        const char* kept;
    };
    for (const Case& c :
         {Case{true, false, 1, 0, "c"}, Case{true, false, -1, 0, "b/c"}, Case{true, false, 0, 0, ""},
          Case{true, false, 9, 0, "a/b/c"}, Case{true, false, -9, 0, ""}, Case{false, false, 1, 0, ""},
          Case{false, true, 1, 2, "b/c"}, Case{true, true, 1, 0, ""}}) {
        BatchJob job;
        job.keepSubdirs = c.keepSubdirs;
        job.keepTree = c.keepTree;
        job.pathLevels = c.levels;
        EXPECT_EQ(keptFolders(job, "/a/b/c/x.wav", c.depth), c.kept) << c.levels << " " << c.depth;
    }
}

TEST_F(BatchJobTest, FoldersOfOutputsAreNamedByFormat) {
    BatchOutput out = output("wav,data=PCM 24-bit,channels=mono");
    EXPECT_EQ(outputFolderName(out), "Microsoft wave - PCM 24-bit - Mono");
    EXPECT_EQ(outputFolderName(output("wav")), "Microsoft wave");
    out = {out.row, kCompressed | kStereoBit, 128};
    EXPECT_EQ(outputFolderName(out), "Microsoft wave - 128 kbps - Stereo");
    out.bitRate = 22.5F;
    EXPECT_THAT(outputFolderName(out), HasSubstr(" - 22.5 kbps"));
    out.bitRate = 13.25F;
    EXPECT_THAT(outputFolderName(out), HasSubstr(" - 13.25 kbps"));

    BatchJob job;
    job.outputDir = "/out";
    job.outputs = {output("wav")};
    EXPECT_EQ(targetFolder(job, job.outputs[0], "/a/b/x.wav", 0), "/out/");
    job.outputs.push_back(output("w64"));
    EXPECT_EQ(targetFolder(job, job.outputs[1], "/a/b/x.wav", 0), "/out/Wave-64");
    job.sameDirAsSource = true;
    EXPECT_EQ(targetFolder(job, job.outputs[1], "/a/b/x.wav", 0), "/a/b/Wave-64");
    EXPECT_EQ(targetFile("/o", "stem", "Piano: C/4", out), "/o/stem - Piano_ C_4.wav");
    EXPECT_LT(targetFile("/o", std::string(300, 'x'), std::string(300, 'y'), out).filename().string().size(),
              256U);
}

} // namespace
} // namespace kv
