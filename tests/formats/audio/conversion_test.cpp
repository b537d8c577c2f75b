// The drivers, with the formats that are built.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "formats/format_test.h"
#include "formats/framework/format_table.h"
#include "model/instrument.h"
#include "model/song.h"

namespace kv {
namespace {

class Drivers : public test::FormatTest {
protected:
    const std::vector<i16> samples = std::vector<i16>(500, 1234);
};

TEST_F(Drivers, ChooseTheFormatThatLosesNothing) {
    Wave* wave = import(wavWith(samples));
    constexpr u32 kBoth = kMonoBit | kStereoBit;
    struct Case {
        u32 preferred, rowMask, wanted;
        bool perWave;
        u32 code;
        bool open; ///< left to each wave
    };
    const Case cases[] = {
        {kPcm16, kPcm8 | kPcm24, kAnyFormat, false, kPcm24, false},
        {kPcm16, kPcm8, kAnyFormat, false, kPcm8, false},
        {kFloat32, kPcm8 | kMuLaw, kAnyFormat, false, kPcm8, false},
        {kFloat32, kPcm24 | kPcm32, kAnyFormat, false, kPcm32, false},
        {kPcm24, kPcm16 | kFloat32, kAnyFormat, false, kFloat32, false},
        {kPcm24, kPcm16 | kPcm8, kAnyFormat, false, kPcm16, false},
        {kMuLaw, kPcm16 | kPcm8, kAnyFormat, false, kPcm16, false},
        {kMuLaw, kPcm16 | kPcm8, kAnyFormat, true, 0, true},
        {kPcm16, kPcm16 | kPcm24, kPcm24 | kBoth, false, kPcm24, false},
        {kPcm16, kPcm16 | kPcm24, kALaw | kBoth, false, kPcm16, false}, // what it can't write isn't heard
        {kPcm16, 0, kAnyFormat, false, 0, false},
    };
    for (const Case& c : cases) {
        wave->preferredFormat = c.preferred;
        FormatRow row{"x", "X", RowUse::Write, kWaveClass, c.rowMask | kBoth};
        row.perWaveFormats = c.perWave;
        const FormatChoice choice = chooseFormat(row, *wave, c.wanted, false);
        EXPECT_EQ(choice.word & kCodeMask, c.code) << std::hex << c.preferred << " in " << c.rowMask;
        EXPECT_EQ(choice.perWave, c.open);
    }
    const Song* song = store().Create<Song>(kNextFreeNumber);
    const FormatRow row{"x", "X", RowUse::Write, kWaveClass, kPcm16 | kPcm24 | kBoth};
    EXPECT_EQ(chooseFormat(row, *song, kAnyFormat, true).word & kCodeMask, kPcm24);
    const FormatRow mono{"x", "X", RowUse::Write, kWaveClass, kPcm16 | kMonoBit};
    EXPECT_EQ(chooseFormat(mono, *wave, kPcm16 | kStereoBit, false).word & kBoth, kMonoBit);
}

TEST_F(Drivers, FailuresHaveTheirMessages) {
    Wave* wave = import(wavWith(samples));
    EXPECT_FALSE(Export(rowOf("Wave-64"), folder / "o", nullptr, kAnyFormat, 0, false));
    EXPECT_EQ(failure(), "Export: No item selected");
    EXPECT_FALSE(Export(0, folder / "o", wave, kAnyFormat, 0, false));
    EXPECT_EQ(failure(), "Export: Invalid export format selected");
    EXPECT_FALSE(Export(rowOf("Wave-64"), folder / "no" / "o", wave, kAnyFormat, 0, false));
    EXPECT_EQ(failure(), "Export: Could not create file");
    Wave* empty = store().Create<Wave>(kNextFreeNumber, nullptr, "empty");
    EXPECT_FALSE(Export(rowOf("Wave-64"), folder / "o", empty, kAnyFormat, 0, false));
    EXPECT_EQ(failure(), "Export: Empty item - nothing to save");
    EXPECT_FALSE(std::filesystem::exists(folder / "o"));
    EXPECT_TRUE(Export(rowOf("Wave-64"), folder / "o", empty, kAnyFormat, 0, true)) << failure();
    EXPECT_FALSE(Import(folder / "missing", true));
    EXPECT_EQ(failure(), "Import: Could not open file");
    wave = store().First<Wave>();
    wave->locked = true;
    EXPECT_FALSE(Import(folder / "test.wav", true));
    EXPECT_EQ(failure(),
              "Import: Can't open a new file while something is still open for editing or playing");
    EXPECT_EQ(store().First<Wave>(), wave);
    wave->locked = false;
    test::writeFile(folder / "a.gig", bytesOf(std::string_view("RIFF\4\0\0\0DLS ", 12)));
    EXPECT_FALSE(Import(folder / "a.gig", false));
    EXPECT_NE(space.error.message.find("can't read them yet"), std::string::npos);
}

TEST_F(Drivers, AFailedExportLeavesTheOldFileWhole) {
    Wave* wave = import(wavWith(std::vector<i16>(100000, 5)));
    test::writeFile(folder / "old.w64", bytesOf("old"));
    // A full disk, as the process sees it.
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{50000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    EXPECT_FALSE(SaveItemAs(folder / "old.w64", wave, rowOf("Wave-64"), kAnyFormat, 0, false));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(space.error.message, "Writing to file failed");
    EXPECT_EQ(textOf(test::readFile(folder / "old.w64")), "old");
    EXPECT_EQ(ui.statuses.back(), "Failed: Save failed.");
    ui.cancel = true;
    EXPECT_FALSE(SaveItemAs(folder / "old.w64", wave, rowOf("Wave-64"), kPcm24, 0, false));
    EXPECT_EQ(textOf(test::readFile(folder / "old.w64")), "old");
    EXPECT_EQ(folder.fileCount(), 2U);
}

TEST_F(Drivers, SavingOverTheSourceKeepsTheSamples) {
    Wave* wave = import(wavWith(samples));
    ASSERT_TRUE(SaveItemAs(folder / "test.wav", wave, rowOf("Microsoft wave"), kPcm24 | kMonoBit, 0, false))
        << failure();
    EXPECT_TRUE(wave->resident());
    EXPECT_FALSE(wave->reloadable);
    ASSERT_TRUE(Import(folder / "test.wav", false));
    EXPECT_EQ(store().First<Wave>()->preferredFormat, kPcm24);
    ASSERT_TRUE(store().First<Wave>()->LoadData());
    EXPECT_EQ(GetInt16Data(*store().First<Wave>())[499], 1234);
}

TEST_F(Drivers, FileNamesAreClean) {
    const std::pair<const char*, const char*> cases[] = {
        {"kick", "kick"},
        {"kick.wav", "kick"},
        {"kick.v2", "kick.v2"},
        {"*/a/b", "a_b"},
        {"a\"b", "a'b"},
        {"", "noname"},
        {"***", "noname"},
        {"a\x7F<b>?", "a__b__"},
        {"..", ".."},
        {".wav", ".wav"},
        {"Ton \xC3\xA4.SF2", "Ton \xC3\xA4"},
    };
    for (const auto& [name, wanted] : cases) EXPECT_EQ(fileNameFor(name), wanted) << name;
}

TEST_F(Drivers, SaveAllBuildsNames) {
    import(wavWith(samples));
    store().First<Wave>()->SetName("A/1");
    for (const char* name : {"A:1", "B"}) {
        store().Create<Wave>(*store().First<Wave>(), kNextFreeNumber, name);
    }
    struct Case {
        NameMode mode;
        bool subDirs;
        std::vector<std::string> wanted;
    };
    const Case cases[] = {
        {NameMode::Number, false, {"base - 00.w64", "base - 01.w64", "base - 02.w64"}},
        {NameMode::BaseName, false, {"base - A_1.w64", "base - A_1 2.w64", "base - B.w64"}},
        {NameMode::Name, false, {"A_1.w64", "A_1 2.w64", "B.w64"}},
        {NameMode::Source, false, {"test.w64", "test 2.w64", "test 3.w64"}},
        {NameMode::Name, true, {"A_1/A_1.w64", "A_1 2/A_1 2.w64", "B/B.w64"}},
    };
    for (const Case& c : cases) {
        const test::TempFolder out;
        SaveAllJob job;
        job.base = {out / "base.w64", rowOf("Wave-64")};
        job.mode = c.mode;
        job.subDirs = c.subDirs;
        SaveAllResult result;
        ASSERT_TRUE(SaveAll(job, result)) << failure();
        EXPECT_EQ(result.saved, 3);
        EXPECT_EQ(out.fileCount(), 3U);
        for (const std::string& name : c.wanted) EXPECT_TRUE(std::filesystem::exists(out / name)) << name;
        EXPECT_EQ(ui.statuses.back(), "Done: Saved 3 files.");
    }
    EXPECT_FALSE(store().First<Wave>()->resident()); // one at a time, and none stays
}

TEST_F(Drivers, SaveAllAsksForFilesThatExist) {
    import(wavWith(samples));
    store().First<Wave>()->SetName("A");
    store().Create<Wave>(*store().First<Wave>(), kNextFreeNumber, "B");
    SaveAllJob job;
    job.base = {folder / "base.w64", rowOf("Wave-64")};
    const auto run = [&](std::vector<int> answers) {
        test::writeFile(folder / "A.w64", bytesOf("old"));
        ui.answers = std::move(answers);
        SaveAllResult result;
        EXPECT_TRUE(SaveAll(job, result));
        return result;
    };
    EXPECT_EQ(run({1, 0}).saved, 1); // skipped
    EXPECT_EQ(textOf(test::readFile(folder / "A.w64")), "old");
    EXPECT_EQ(run({0, 0}).saved, 2);
    EXPECT_NE(textOf(test::readFile(folder / "A.w64")), "old");
    EXPECT_TRUE(run({3}).cancelled);
    EXPECT_EQ(ui.statuses.back(), "Failed: Save all cancelled after 0 files.");
    EXPECT_EQ(ui.questions.back(), "A");
}

TEST_F(Drivers, SaveAllSaysWhenThereIsNothing) {
    import(wavWith(samples));
    store().Delete(store().First<Wave>());
    SaveAllJob job;
    job.base = {folder / "base.w64", rowOf("Wave-64")};
    SaveAllResult result;
    EXPECT_FALSE(SaveAll(job, result));
    EXPECT_EQ(failure(), "Save all in multiple files: No waveforms to save!");
}

TEST_F(Drivers, AWaveTakesOverTheSamplesOfAFile) {
    import(wavWith(std::vector<i16>(50, 7)), "new.wav");
    Wave* wave = import(wavWith(samples));
    wave->params.loopFlags = kLooped;
    wave->params.loopStart = 10;
    wave->params.loopEnd = 40;
    ASSERT_TRUE(ReplaceWaveFromFile(*wave, folder / "new.wav")) << failure();
    EXPECT_EQ(store().First<Wave>(), wave);
    EXPECT_EQ(store().count(kWaveClass), 1U);
    EXPECT_EQ(wave->frames, 50U);
    EXPECT_EQ(wave->samples16.span()[49], 7);
    EXPECT_FALSE(wave->reloadable);
    EXPECT_TRUE(wave->params.looped()); // a file without a loop leaves the old one alone
    EXPECT_EQ(wave->params.loopEnd, 40);
    EXPECT_FALSE(ReplaceWaveFromFile(*wave, folder / "missing"));
    EXPECT_EQ(wave->samples16.span()[49], 7);
    test::writeFile(folder / "empty.w64", {});
    EXPECT_FALSE(ReplaceWaveFromFile(*wave, folder / "empty.w64"));
    EXPECT_EQ(failure(), "ReplaceWaveFromFile: Missing data in wave file?");
    EXPECT_EQ(store().pushedDepth(), 0U);
}

TEST_F(Drivers, TextLines) {
    Bytes text;
    for (const char c : std::string("one\r\nsecond\n\nlast")) text.push_back(static_cast<std::byte>(c));
    FileContext file;
    file.source = std::make_shared<MemorySource>(std::move(text));
    std::string line;
    EXPECT_TRUE(ReadTextLine(file, line, 100));
    EXPECT_EQ(line, "one");
    EXPECT_TRUE(ReadTextLine(file, line, 3));
    EXPECT_EQ(line, "sec");
    EXPECT_TRUE(ReadTextLine(file, line, 100));
    EXPECT_EQ(line, "ond");
    EXPECT_FALSE(ReadTextLine(file, line, 100)); // an empty line
    EXPECT_TRUE(ReadTextLine(file, line, 100));
    EXPECT_EQ(line, "last");
    EXPECT_FALSE(ReadTextLine(file, line, 100));
    MemorySink sink;
    file.sink = &sink;
    WriteTextLine(file, "x");
    EXPECT_EQ(textOf(sink.view()), "x\r\n");
}

TEST_F(Drivers, InstrumentsAreSortedByPatchAfterAnImport) {
    static constexpr FormatRow kRows[] = {
        {"bank", "Bank", RowUse::Read, kCollectionClass, 0, 0, detectAlways2,
         [](Collection&, FileContext&, u32) {
             Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr, "w");
             wave->frames = 10;
             for (const u32 patch : {9U, 3U, 3U}) {
                 store().Create<Instrument>(kNextFreeNumber, numberOf(wave->id()), 1U)->patch = patch;
             }
             return true;
         }}};
    const FormatTable table(kRows);
    space.formats = &table;
    test::writeFile(folder / "a.bank", {});
    ASSERT_TRUE(Import(folder / "a.bank", true)) << failure();
    std::vector<u32> patches;
    for (const Instrument& instrument : store().all<Instrument>()) patches.push_back(instrument.patch);
    EXPECT_EQ(patches, (std::vector<u32>{3, 4, 9}));
}

} // namespace
} // namespace kv
