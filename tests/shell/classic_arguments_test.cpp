#include "shell/classic_arguments.h"

#include <gtest/gtest.h>

#include "model/app_settings.h"
#include "shell/last_list.h"

namespace kv {
namespace {

using Kind = ClassicStep::Kind;

TEST(CommandLine, IsSplitAtBlanksOutsideQuotes) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"", {}},
        {"a  b", {"a", "b"}},
        {"\"C:\\my files\\a.wav\" -AP", {"C:\\my files\\a.wav", "-AP"}},
        {"\"a\"b", {"a", "b"}}, // a closing quote ends the argument
        {"x\"y z\" w", {"xy z", "w"}},
        {"\"\" a", {"", "a"}},
        {"\"open end", {"open end"}},
    };
    for (const auto& [line, wanted] : cases) EXPECT_EQ(splitCommandLine(line), wanted) << line;
}

TEST(ClassicScan, AnswersWhatToDo) {
    struct Step {
        Kind kind;
        u32 flags;
        std::string argument;
    };
    struct Case {
        std::vector<std::string> arguments;
        std::vector<Step> steps;
    };
    const u32 once = kAutoPlay | kPlayOnce;
    const Case cases[] = {
        {{"Studio.exe"}, {}},
        {{"a.wav", "-AP", "b.wav"}, {{Kind::Play, kAutoPlay, "b.wav"}}}, // what stands before isn't played
        {{"-nowin", "a.wav"}, {{Kind::Play, once | kNoWindow, "a.wav"}}},
        {{"/ONCE", "-DELETE", "a.wav"}, {{Kind::Play, once | kDeletePlayed, "a.wav"}}},
        {{"-batch", "a.wav"}, {{Kind::RunBatch, 0, ""}}},
        {{"/BATCH"}, {{Kind::RunBatch, 0, ""}}},
        {{"-UNINSTALL", "-AP", "a.wav"},
         {{Kind::ShowUsage, 0, "-UNINSTALL"}, {Kind::Play, kAutoPlay, "a.wav"}}},
        {{"-NOMSG", "-AP", "notes.exe.txt", "a.wav"},
         {{Kind::SilenceBoxes, 0, ""}, {Kind::Play, kAutoPlay, "a.wav"}}},
    };
    for (const Case& c : cases) {
        ClassicScan scan(c.arguments);
        for (const Step& wanted : c.steps) {
            const ClassicStep step = scan.next();
            EXPECT_EQ(step.kind, wanted.kind) << c.arguments[0];
            EXPECT_EQ(step.flags, wanted.flags) << c.arguments[0];
            EXPECT_EQ(step.argument, wanted.argument);
        }
        const bool batch = !c.steps.empty() && c.steps.back().kind == Kind::RunBatch; // ends the scan
        if (!batch) {
            EXPECT_EQ(scan.next().kind, Kind::Done);
        }
    }
}

TEST(ClassicScan, LoopsUntilTheUserStops) {
    ClassicScan scan({"-LOOP", "a.wav"});
    for (int i = 0; i < 5; ++i) EXPECT_EQ(scan.next().argument, "a.wav");
    scan.stop();
    EXPECT_EQ(scan.next().kind, Kind::Done);
}

TEST(ClassicFiles, AreAllButOptionsAndTheProgram) {
    EXPECT_EQ(classicFiles({"Studio.exe", "a.wav", "-AP", "/x", "b.exe.wav", "c"}),
              (std::vector<std::string>{"a.wav", "c"}));
}

TEST(LastList, KeepsTheNewestInFront) {
    std::vector<std::string> list;
    for (int i = 0; i < 17; ++i) LastListAdd(list, "/f" + std::to_string(i), kLastFiles);
    EXPECT_EQ(list.size(), 16U);
    EXPECT_EQ(list.front(), "/f16");
    EXPECT_EQ(list.back(), "/f1");
    LastListAdd(list, "/F5", kLastFiles);
    EXPECT_EQ(list.front(), "/F5");
    EXPECT_EQ(list.size(), 16U);
    LastListAdd(list, "/f5", kLastFiles);
    EXPECT_EQ(list.front(), "/F5"); // at the front already: nothing changes
    LastListAdd(list, "/f5", kLastFiles, true);
    EXPECT_EQ(list.size(), 15U);
    LastListAdd(list, std::string(2000, 'x'), kLastFiles);
    EXPECT_EQ(list.front().size(), 780U);
    LastListAdd(list, std::string(500, 'y'), kLastFiles);
    EXPECT_EQ(list.size(), 1U); // the block holds no more
}

TEST(LastList, NotesFilesAndFolders) {
    AppSettings settings;
    NoteFileUsed(settings, "/music/a.wav", true, true);
    NoteFileUsed(settings, "/music/b.wav", true, true);
    NoteFileUsed(settings, "/other/c.wav", false, true);
    EXPECT_EQ(settings.app.LastFilesA, (std::vector<std::string>{"/music/b.wav", "/music/a.wav"}));
    EXPECT_EQ(settings.app.LastPathsA, (std::vector<std::string>{"/other", "/music"}));
}

} // namespace
} // namespace kv
