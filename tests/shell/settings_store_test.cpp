#include "shell/settings_store.h"

#include <set>

#include "base/run_context.h"
#include "samples/toml_text.h"
#include "test_support.h"

namespace kv {
namespace {

class Settings : public testing::Test {
protected:
    std::string load(std::string_view text) {
        test::writeFile(file, bytesOf(text));
        return LoadSettings(file, settings).complaint;
    }
    test::TempFolder folder;
    const std::filesystem::path file = folder / "sub" / "settings.toml";
    AppSettings settings;
    void SetUp() override { std::filesystem::create_directories(file.parent_path()); }
};

TEST_F(Settings, EveryValueIsSavedAndLoaded) {
    EXPECT_EQ(settingInfos().size(), 85U);
    std::set<std::string_view> names;
    for (const SettingInfo& info : settingInfos()) {
        EXPECT_TRUE(names.insert(info.name).second) << info.name;
        const std::string before = settingText(settings, info.name);
        std::string other = info.kind == "flag"       ? (before == "true" ? "false" : "true")
                            : info.kind == "integer"  ? (info.name == "app.cOctMidC" ? "3" : "1234567")
                            : info.kind == "text"     ? "C:\\a \"b\" \xC3\xA4"
                            : info.kind == "list"     ? "[ '/a', '/b' ]"
                            : info.kind == "switches" ? std::string(33, '0')
                                                      : before;
        if (info.kind == "array") other.replace(other.find_first_of("0123456789"), 1, "7");
        ASSERT_TRUE(setSetting(settings, info.name, other)) << info.name << " " << runContext().error.message;
        EXPECT_NE(settingText(settings, info.name), before) << info.name;
    }
    ASSERT_TRUE(SaveSettings(folder / "new" / "s.toml", settings));
    AppSettings again;
    const SettingsLoad loaded = LoadSettings(folder / "new" / "s.toml", again);
    EXPECT_EQ(loaded.complaint, "");
    EXPECT_FALSE(loaded.firstRun);
    for (const SettingInfo& info : settingInfos()) {
        if (info.name == "mid2wav.wszGMBank") continue; // a file that isn't there gives way
        EXPECT_EQ(settingText(again, info.name), settingText(settings, info.name)) << info.name;
        ASSERT_TRUE(resetSetting(again, info.name));
        EXPECT_EQ(settingText(again, info.name), settingText(AppSettings(), info.name)) << info.name;
    }
}

TEST_F(Settings, StartWithNothingStored) {
    const SettingsLoad loaded = LoadSettings(file, settings);
    EXPECT_TRUE(loaded.firstRun);
    EXPECT_EQ(loaded.complaint, "");
    EXPECT_EQ(settings.sall.iMode, 212);
    EXPECT_EQ(settings.mt.acVKeys, "ZSXDCVGBHNJMQ2W3ER5T6Y7UI9O0P");
}

TEST_F(Settings, DamageLeavesTheDefaultsAndSaysSoOnce) {
    EXPECT_NE(load("load = [ bConfirm").find("is damaged (line 1"), std::string::npos);
    EXPECT_FALSE(settings.load.bConfirm);
    ASSERT_TRUE(SaveSettings(file, settings)); // what was damaged is kept beside
    EXPECT_EQ(textOf(test::readFile(file.native() + ".damaged")), "load = [ bConfirm");
    const std::string complaint = load(
        "pset = [1, 0]\n[load]\nbConfirm = 'yes'\nbAutoBid2Fwd = false\n[app]\ncOctMidC = 300\niPaneSplit = "
        "100\n"
        "awColWidths = [1, 2, 3, 4, 5, 70000]\nLastFilesA = ['a', 3]\n");
    EXPECT_NE(complaint.find("app.LastFilesA, app.awColWidths, app.cOctMidC, load.bConfirm, pset"),
              std::string::npos)
        << complaint;
    EXPECT_FALSE(settings.load.bAutoBid2Fwd); // what is sound counts
    EXPECT_EQ(settings.app.iPaneSplit, 221);
    EXPECT_EQ(settings.app.cOctMidC, 4);
    EXPECT_EQ(settings.app.awColWidths[0], 160);
    EXPECT_EQ(settings.pset, ParameterSet());
    EXPECT_EQ(load("load = 3\n"), ""); // a value where a group is expected: nothing of the group is there
    EXPECT_EQ(load(std::string(3000, '[')).empty(), false);
}

TEST_F(Settings, TheParserSeesAsciiAlone) {
    struct Case {
        const char* text;
        const char* ascii; ///< "refused": with the line
        std::size_t line;
    };
    const Case cases[] = {
        {"\xC3\xA4 = 1", "refused", 1},
        {"# \xC3\xA4!\na = '\xC3\xA4' # \xC3\xA4", "# !\na = \"\\U000000E4\" # ", 0},
        {"a = \"\\\"\xC3\xA4\"", "a = \"\\\"\\U000000E4\"", 0},
        {"a = '\"\\\xF0\x9F\x8E\xB9'", "a = \"\\\"\\\\\\U0001F3B9\"", 0},
        {"a = '''\xC3\xA4''''", "a = \"\"\"\\U000000E4'\"\"\"", 0},
        {"a = '\\'\xC3\xA4", "refused", 1}, // no escapes in single quotes
        {"a = \"not closed\n\xC3\xA4", "refused", 2},
        {"a = 'not UTF-8 \xE4'", "refused", 1},
        {"a = [\"b\",\n6\"x\"]", "refused", 2}, // a quote inside of a word
    };
    for (const Case& c : cases) {
        std::size_t line = 9;
        EXPECT_EQ(asciiToml(c.text, line).value_or("refused"), c.ascii) << c.text;
        EXPECT_EQ(line, c.line) << c.text;
    }
}

TEST_F(Settings, TextsOfNoEncodingDoNotSpoilTheFile) {
    settings.app.szVSTPaths = "/caf\xE9";
    settings.app.LastFilesA = {"/\xFF.wav"};
    ASSERT_TRUE(SaveSettings(file, settings));
    AppSettings again;
    EXPECT_EQ(LoadSettings(file, again).complaint, "");
    EXPECT_EQ(again.app.szVSTPaths, "/caf\xC3\xA9");
}

TEST_F(Settings, ValuesOfOtherVersionsStay) {
    EXPECT_EQ(load("future = 1\n[app]\nnew = 'x'\n"), "");
    ASSERT_TRUE(SaveSettings(file, settings));
    const std::string text(textOf(test::readFile(file)));
    EXPECT_NE(text.find("future = 1"), std::string::npos);
    EXPECT_NE(text.find("new = 'x'"), std::string::npos);
    EXPECT_EQ(folder.fileCount(), 1U);
}

TEST_F(Settings, UnfitTextsAreRefused) {
    const std::pair<const char*, const char*> cases[] = {
        {"load.bConfirm", "maybe"},
        {"app.iPaneSplit", "1.5"},
        {"app.iPaneSplit", "99999999999"},
        {"app.cOctMidC", "128"},
        {"pset", "101"},
        {"app.awColWidths", "[1]"},
        {"no.such", "1"},
        {"load.bConfirm", "true\ny = 1"},
    };
    for (const auto& [name, text] : cases)
        EXPECT_FALSE(setSetting(settings, name, text)) << name << " " << text;
    EXPECT_EQ(runContext().error.context, "Settings");
    EXPECT_TRUE(setSetting(settings, "mt.acVKeys", std::string(50, 'Q')));
    EXPECT_EQ(settings.mt.acVKeys.size(), 36U);
    EXPECT_TRUE(setSetting(settings, "load.bConfirm", "1"));
    EXPECT_TRUE(settings.load.bConfirm);
}

} // namespace
} // namespace kv
