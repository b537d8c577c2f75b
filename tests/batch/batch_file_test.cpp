#include "batch/batch_file.h"

#include <gmock/gmock.h>

#include "formats/format_test.h"
#include "model/instrument.h"
#include "model/song.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using test::FormatTest;
using test::readFile;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

class BatchFileTest : public FormatTest {
protected:
    BatchFileTest() { job.outputDir = folder / "out"; }
    void addOutput(std::string_view text) {
        job.outputs.emplace_back();
        ASSERT_TRUE(readOutput(text, job.mode, job.outputs.back())) << failure();
    }
    /// A file of samples that rise from silence.
    std::string makeWave(const std::string& name, std::size_t frames = 100) {
        std::vector<i16> samples(frames);
        for (std::size_t i = frames / 4; i < frames; ++i) samples[i] = static_cast<i16>(i * 10);
        writeFile(folder / name, wavWith(samples));
        return folder / name;
    }
    /// A bank of two instruments that play a wave each.
    std::string makeBank(const std::string& name) {
        Wave* wave = import(readFile(makeWave("tone.wav")));
        store().Create<Wave>(*wave, kNextFreeNumber, "second");
        for (Wave& each : store().all<Wave>())
            store().Create<Instrument>(kNextFreeNumber, numberOf(each.id()), 1U, each.name());
        const int row = formatTable().RowByExtension(fs::path(name).extension().string(), kCollectionClass);
        EXPECT_TRUE(Export(row, folder / name, store().First<Collection>(), kAnyFormat, 0, true))
            << failure();
        return folder / name;
    }
    BatchResult convert(const std::string& path, bool scanned = false) {
        BatchInput input;
        input.path = path;
        input.scanned = scanned;
        return convertBatchFile(job, input, hooks, cancelled);
    }
    std::vector<std::string> names(const BatchResult& result) const {
        std::vector<std::string> all;
        for (const BatchResult::Output& output : result.outputs)
            all.push_back(fs::path(output.path).lexically_relative(job.outputDir));
        return all;
    }
    BatchJob job;
    BatchHooks hooks;
    bool cancelled = false;
};

TEST_F(BatchFileTest, AWaveBecomesAFileOfEachFormat) {
    addOutput("wav,data=PCM 24-bit");
    addOutput("w64");
    Wave* kept = store().Create<Wave>(kNextFreeNumber, nullptr, "open in the window");
    const BatchResult result = convert(makeWave("tone.wav"));
    EXPECT_EQ(result.status, BatchStatus::Done) << result.error.message;
    EXPECT_THAT(names(result), ElementsAre("Microsoft wave - PCM 24-bit/tone.wav", "Wave-64/tone.w64"));
    EXPECT_EQ(result.outputs[1].bytes, fs::file_size(result.outputs[1].path));
    EXPECT_EQ(store().First<Wave>(), kept);
    EXPECT_EQ(store().count(kWaveClass), 1U);
    EXPECT_EQ(store().pushedDepth(), 0U);
}

TEST_F(BatchFileTest, ItemsOfAFileAreNamedBehindIt) {
    const std::string bank = makeBank("bank.sf2");
    addOutput("wav");
    EXPECT_THAT(names(convert(bank)), ElementsAre("bank - test.wav", "bank - second.wav"));
    job.mode = BatchMode::Instruments;
    job.outputs.clear();
    addOutput("sfz");
    EXPECT_THAT(names(convert(bank)), ElementsAre("bank - test.sfz", "bank - second.sfz"));
    job.mode = BatchMode::Collections;
    job.outputs.clear();
    addOutput("dls");
    EXPECT_THAT(names(convert(bank)), ElementsAre("bank.dls"));
}

TEST_F(BatchFileTest, AWaveFileIsAnInstrumentWhereOneIsWanted) {
    job.mode = BatchMode::Instruments;
    addOutput("sf2");
    const BatchResult result = convert(makeWave("tone.wav"));
    EXPECT_THAT(names(result), ElementsAre("tone.sf2")) << result.error.message;
    ASSERT_TRUE(Import(result.outputs[0].path, false));
    EXPECT_EQ(store().count(kInstrumentClass), 1U);
    EXPECT_EQ(store().count(kWaveClass), 1U);
}

TEST_F(BatchFileTest, WhatAFileLacksIsAFailureOrPassedOver) {
    writeFile(folder / "text.wav", bytesOf("no wave at all"));
    struct Case {
        BatchMode mode;
        const char* output;
        const char* input;
        const char* message;
    };
    makeWave("tone.wav");
    for (const Case& c : {
             Case{BatchMode::Waves, "wav", "missing.wav", "Could not open file"},
             Case{BatchMode::Waves, "wav", "text.wav", "Not detected as any supported file type"},
             Case{BatchMode::Collections, "sf2", "tone.wav", "This file doesn't contain any instruments"},
             Case{BatchMode::Songs, "mid", "tone.wav",
                  "This file doesn't appear to contain any MIDI-like data."},
         }) {
        job.mode = c.mode;
        job.outputs.clear();
        addOutput(c.output);
        BatchResult result = convert(folder / c.input);
        EXPECT_EQ(result.status, BatchStatus::Failed);
        EXPECT_EQ(result.error.message, c.message);
        result = convert(folder / c.input, true);
        const bool missing = std::string_view(c.input) == "missing.wav";
        EXPECT_EQ(result.status, missing ? BatchStatus::Failed : BatchStatus::Skipped) << c.input;
        EXPECT_EQ(missing ? result.error.message : result.reason, c.message);
    }
    EXPECT_EQ(store().pushedDepth(), 0U);
}

TEST_F(BatchFileTest, WavesAreProcessedInTheGivenOrder) {
    addOutput("wav");
    job.resample = true;
    job.resampleRate = 22050;
    job.trimStart = job.normalize = true;
    job.algorithms = {"invert-sign-throughout-selection"};
    const BatchResult result = convert(makeWave("tone.wav", 4000));
    ASSERT_EQ(result.status, BatchStatus::Done) << result.error.message;
    ASSERT_TRUE(Import(result.outputs[0].path, false));
    Wave& wave = *store().First<Wave>();
    EXPECT_EQ(wave.sampleRate, 22050U);
    EXPECT_NEAR(wave.frames, 1500, 30) << "the silent quarter is gone";
    ASSERT_TRUE(wave.LoadData());
    const std::span<i16> samples = GetInt16Data(wave);
    EXPECT_LT(*std::min_element(samples.begin(), samples.end()), -32000);
}

TEST_F(BatchFileTest, AlgorithmsWithNothingToDoArePassedOver) {
    addOutput("wav");
    job.algorithms = {"convert-to-mono", "cross-fade-loop", "invert-sign-throughout-selection"};
    const BatchResult result = convert(makeWave("tone.wav"));
    ASSERT_EQ(result.status, BatchStatus::Done) << result.error.message;
    ASSERT_TRUE(Import(result.outputs[0].path, false));
    ASSERT_TRUE(store().First<Wave>()->LoadData());
    EXPECT_EQ(GetInt16Data(*store().First<Wave>())[99], -990);
}

TEST_F(BatchFileTest, DownsamplingOnlyLeavesLowerRatesAlone) {
    addOutput("wav");
    job.resample = job.onlyDownsample = true;
    job.resampleRate = 48000;
    const BatchResult result = convert(makeWave("tone.wav"));
    ASSERT_TRUE(Import(result.outputs.at(0).path, false));
    EXPECT_EQ(store().First<Wave>()->sampleRate, 44100U);
}

TEST_F(BatchFileTest, OutputsThatExistAreAskedAbout) {
    addOutput("wav");
    const std::string input = makeWave("tone.wav");
    ASSERT_EQ(convert(input).outputs.size(), 1U);
    const fs::path target = folder / "out/tone.wav";
    const auto answer = [&](ReplaceAnswer::Kind kind, fs::path name = {}) {
        writeFile(target, bytesOf("old"));
        cancelled = job.overwriteAll = false;
        hooks.onExisting = [=](const fs::path&) { return ReplaceAnswer{kind, name}; };
        const BatchResult result = convert(input);
        return std::pair(result.status, names(result).size());
    };
    const auto isOld = [&] { return readFile(target).size() == 3; };
    using Kind = ReplaceAnswer::Kind;
    EXPECT_EQ(answer(Kind::Skip), std::pair(BatchStatus::Done, std::size_t{0}));
    EXPECT_TRUE(isOld());
    EXPECT_EQ(answer(Kind::Fail).first, BatchStatus::Failed);
    EXPECT_TRUE(isOld());
    EXPECT_EQ(answer(Kind::Rename, folder / "out/new.wav").second, 1U);
    EXPECT_TRUE(isOld());
    EXPECT_TRUE(fs::exists(folder / "out/new.wav"));
    EXPECT_EQ(answer(Kind::Rename).second, 0U) << "the choice of a name was cancelled";
    EXPECT_EQ(answer(Kind::Cancel).second, 0U);
    EXPECT_TRUE(cancelled);
    EXPECT_EQ(answer(Kind::Replace).second, 1U);
    EXPECT_FALSE(isOld());
    EXPECT_EQ(answer(Kind::ReplaceAll).second, 1U);
    EXPECT_TRUE(job.overwriteAll) << "for the rest of the run";
}

TEST_F(BatchFileTest, NoFileIsMadeOfItself) {
    addOutput("wav");
    job.sameDirAsSource = job.overwriteAll = true;
    const std::string input = makeWave("tone.wav");
    const Bytes before = readFile(input);
    EXPECT_EQ(convert(input).status, BatchStatus::Failed);
    EXPECT_EQ(readFile(input), before);
}

TEST_F(BatchFileTest, ANameThatIsTakenIsAFailure) {
    addOutput("wav");
    hooks.awaitTurn = [] { return std::string("/other/tone.aif"); };
    BatchInput input;
    input.path = makeWave("tone.wav");
    EXPECT_EQ(convertBatchFile(job, input, hooks, cancelled).status, BatchStatus::Done);
    input.contended = true;
    const BatchResult result = convertBatchFile(job, input, hooks, cancelled);
    EXPECT_THAT(result.error.message, HasSubstr("/other/tone.aif"));
}

TEST_F(BatchFileTest, SongsTakeTheBankBesideThem) {
    makeBank("song.sf2");
    ByteWriter midi;
    midi.text("MThd").u32be(6).u16be(0).u16be(1).u16be(96).text("MTrk").u32be(12);
    midi.bytes(std::as_bytes(std::span("\0\x90\x3C\x40\x60\x80\x3C\x40\0\xFF\x2F", 12)));
    writeFile(folder / "song.mid", midi.view());
    job.mode = BatchMode::Songs;
    job.outputs.emplace_back();
    ASSERT_TRUE(readOutput("RIFF-MIDI w DLS level 2 instruments", job.mode, job.outputs.back()));
    for (const bool merged : {false, true}) {
        job.autoMergeSongs = merged;
        job.overwriteAll = true;
        const BatchResult result = convert(folder / "song.mid");
        ASSERT_EQ(result.outputs.size(), 1U) << result.error.message;
        ASSERT_TRUE(Import(result.outputs[0].path, false));
        EXPECT_EQ(store().count(kInstrumentClass), merged ? 2U : 0U);
        EXPECT_EQ(store().count(kSongClass), 1U);
    }

    job.autoMergeSongs = false;
    const BatchInput inputs[] = {{folder / "song.mid"}, {folder / "song.mid"}};
    ui.answers = {0};
    runBatch(job, inputs, hooks);
    EXPECT_THAT(ui.questions, ElementsAre("Auto-merge songs with DLS and SF2 files?")) << "once in a run";
    EXPECT_TRUE(job.autoMergeSongs);
}

TEST_F(BatchFileTest, ARunTellsWhatItSaved) {
    addOutput("wav");
    for (int i = 0; i < 3; ++i) makeWave("w" + std::to_string(i) + ".wav");
    const auto run = [&](std::vector<std::string> paths) {
        std::vector<BatchInput> inputs;
        for (const std::string& path : paths) inputs.push_back({folder / path});
        job.overwriteAll = true;
        ui.statuses.clear();
        runBatch(job, inputs, hooks);
        return ui.statuses.back();
    };
    EXPECT_EQ(run({"w0.wav"}), "Done: File saved successfully!");
    EXPECT_EQ(run({"w0.wav", "w1.wav", "none.wav"}), "Done: Saved 2 files in a batch!");
    EXPECT_EQ(ui.messages.size(), 1U);
    EXPECT_EQ(run({"none.wav"}), "Done: Nothing saved...");
    job.outputs.resize(5, job.outputs.front());
    job.separateSubdirs = false;
    EXPECT_EQ(run({"w0.wav"}), "Done: Saved 5 files in a batch!");
    ui.cancel = true;
    EXPECT_EQ(run({"w0.wav"}), "Failed: Cancelled after 0 files");
}

} // namespace
} // namespace kv
