// The command line as a user sees it: what it prints, what it leaves behind, and its exit status.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <thread>

#include "places.h"
#include "test_support.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string out, err;
};

class Kelvane : public testing::Test {
protected:
    Kelvane() {
        fs::copy_file(fs::path(KV_SOURCE_DIR) / "examples" / "ding-loop.wav", folder / "ding.wav");
        ::setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    }
    Outcome run(const std::string& arguments, const std::string& before = "") {
        const std::string command = "cd '" + folder.path().string() + "' && " + before + " " KV_KELVANE " " +
                                    arguments + " >out.txt 2>err.txt </dev/null";
        const int status = std::system(command.c_str());
        const auto text = [&](const char* name) {
            return std::string(textOf(test::readFile(folder / name)));
        };
        Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, text("out.txt"), text("err.txt")};
        fs::remove(folder / "out.txt");
        fs::remove(folder / "err.txt");
        return outcome;
    }
    nlohmann::json json(const std::string& arguments) { return nlohmann::json::parse(run(arguments).out); }

    test::TempFolder folder;
};

TEST_F(Kelvane, SaysWhoItIs) {
    EXPECT_EQ(run("--version").out, "kelvane 11.4\n");
    for (const char* level : {"--help", "formats --help", "detect --help", "info --help", "convert --help",
                              "settings --help", "settings set --help"}) {
        const Outcome help = run(level);
        EXPECT_EQ(help.status, 0) << level;
        EXPECT_NE(help.out.find("--help"), std::string::npos) << level;
    }
    for (const char* wrong : {"", "nothing", "convert", "convert one", "info", "settings set x", "detect",
                              "convert ding.wav o.w64 --channels five", "settings get no.such"}) {
        EXPECT_EQ(run(wrong).status, 2) << wrong;
    }
}

TEST_F(Kelvane, ListsFormats) {
    EXPECT_EQ(json("formats --json").size(), 475U);
    EXPECT_EQ(json("formats --json --import").size(), 361U);
    EXPECT_EQ(json("formats --json --export").size(), 240U);
    EXPECT_NE(run("formats").out.find("Microsoft wave"), std::string::npos);
}

TEST_F(Kelvane, DetectsAndDescribes) {
    EXPECT_NE(run("detect ding.wav").out.find("Microsoft wave (100 %"), std::string::npos);
    const auto detected = json("detect --json ding.wav");
    EXPECT_EQ(detected[0]["confidence"], 100);
    const auto info = json("info --json ding.wav");
    EXPECT_EQ(info["format"]["description"], "Microsoft wave");
    const auto& wave = info["waves"][0];
    EXPECT_EQ(wave["name"], "Ding");
    EXPECT_EQ(wave["params"]["rootKey"], 69);
    EXPECT_EQ(wave["params"]["loop"]["end"], 25000.0);
    EXPECT_EQ(wave["cuePoints"][0]["label"], "Strike is over");
    EXPECT_EQ(wave["preferredFormat"], "PCM 16-bit");
    EXPECT_EQ(wave["resident"], false);
    EXPECT_FALSE(wave.contains("loudness"));
    EXPECT_NEAR(json("info --json --loudness ding.wav")["waves"][0]["loudness"]["truePeakDbtp"].get<double>(),
                -6, 6);
    EXPECT_NE(run("info --loudness ding.wav").out.find(" LUFS, true peak "), std::string::npos);
    const Outcome missing = run("info nowhere.wav");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "Import: Could not open file\n");
    EXPECT_EQ(run("detect ding.wav nowhere.wav").status, 3);
}

TEST_F(Kelvane, ConvertsAndAsksForForce) {
    EXPECT_EQ(run("convert ding.wav out.wav --data 'PCM 24-bit' --channels stereo").status, 0);
    const auto wave = json("info --json out.wav")["waves"][0];
    EXPECT_EQ(wave["channels"], 2);
    EXPECT_EQ(wave["preferredFormat"], "PCM 24-bit");
    EXPECT_EQ(wave["params"]["loop"]["start"], 20000.0);
    EXPECT_EQ(wave["comments"], "An example with a loop");
    const Outcome again = run("convert ding.wav out.wav");
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.err, "convert: \"out.wav\" exists already; --force replaces it\n");
    EXPECT_EQ(run("-q convert ding.wav out.wav --force").out, "");
    for (const char* wrong :
         {"ding.wav out.foo", "ding.wav out.wav --data 'PCM 13-bit'", "ding.wav out.w64 --data 'GSM 2-bit'",
          "ding.wav ding.wav nofolder", "ding.wav -", "ding.wav out.mid"}) {
        const Outcome outcome = run(std::string("convert ") + wrong);
        EXPECT_NE(outcome.status, 0) << wrong;
        EXPECT_NE(outcome.err.find("convert: "), std::string::npos) << wrong;
    }
    EXPECT_EQ(run("convert ding.wav o2.wav --item wave:2").status, 1);
    EXPECT_EQ(run("convert ding.wav o2.wav --item 'wave:\"ding\"'").status, 0);
}

TEST_F(Kelvane, StreamsToStandardOutput) {
    ASSERT_EQ(run("convert ding.wav file.wav").status, 0);
    const Outcome streamed = run("convert ding.wav - --to wav");
    EXPECT_EQ(streamed.status, 0);
    EXPECT_EQ(streamed.out, std::string(textOf(test::readFile(folder / "file.wav"))));
}

TEST_F(Kelvane, ConvertsManyIntoAFolder) {
    for (const char* name : {"a.wav", "b.wav"}) fs::copy_file(folder / "ding.wav", folder / name);
    fs::create_directory(folder / "sub");
    fs::copy_file(folder / "ding.wav", folder / "sub" / "a.wav");
    test::writeFile(folder / "bad.wav", bytesOf("RIFF....WAVE"));
    const Outcome some = run("convert a.wav bad.wav b.wav sub/a.wav out/ --to w64");
    EXPECT_EQ(some.status, 3);
    EXPECT_NE(some.err.find("bad.wav: wav_Imp: No wave data found!"), std::string::npos) << some.err;
    for (const char* name : {"out/a.w64", "out/b.w64", "out/a 2.w64"})
        EXPECT_TRUE(fs::exists(folder / name)) << name;
    EXPECT_EQ(run("convert bad.wav bad.wav out/ --to w64").status, 1);
    EXPECT_EQ(run("convert a.wav out/ --to w64").status, 1); // stands there already
    EXPECT_EQ(run("convert a.wav out/ --to w64 --force --sub-dirs").status, 0);
    EXPECT_TRUE(fs::exists(folder / "out/a/a.w64"));
    EXPECT_EQ(run("convert a.wav named --to w64 --name-mode name").status, 0);
}

TEST_F(Kelvane, ReadsRawSamplesAsToldTo) {
    test::writeFile(folder / "x.bin", Bytes(1000));
    EXPECT_EQ(run("info x.bin").status, 1);
    EXPECT_EQ(run("info x.bin").err, "Import: Not detected as any supported file type\n");
    const auto wave = json(
        "info --json x.bin --raw-rate 8000 --raw-channels 2 --raw-format 'PCM 24-bit' --raw-big-endian "
        "--raw-offset 100")["waves"][0];
    EXPECT_EQ(wave["frames"], 150);
    EXPECT_EQ(wave["sampleRate"], 8000);
    EXPECT_EQ(wave["dataFormat"], 0x40000010);
    EXPECT_EQ(json("info --json x.bin --as sw --raw-rate 11025")["waves"][0]["sampleRate"], 11025);
    EXPECT_EQ(json("info --json x.bin --as ub")["waves"][0]["frames"], 1000);
}

TEST_F(Kelvane, KeepsSettings) {
    EXPECT_EQ(run("settings get sall.iMode").out, "212\n");
    EXPECT_EQ(run("settings set sall.iMode 210").status, 0);
    EXPECT_EQ(run("settings get sall.iMode").out, "210\n");
    EXPECT_EQ(run("settings get sall.iMode --set sall.iMode=216").out, "216\n");
    EXPECT_EQ(run("settings reset").status, 0);
    EXPECT_EQ(run("settings get sall.iMode").out, "212\n");
    EXPECT_EQ(run("settings set sall.iMode many").status, 1);
    test::writeFile(folder / "bad.toml", bytesOf("x = ["));
    const Outcome damaged = run("settings get sall.iMode --settings bad.toml");
    EXPECT_EQ(damaged.out, "212\n");
    EXPECT_NE(damaged.err.find("is damaged"), std::string::npos);
}

TEST_F(Kelvane, KnowsParameterSets) {
    EXPECT_EQ(run("settings set pset 'SoundFont 2.1 set (.SF2)'").status, 0);
    EXPECT_EQ(run("settings get pset").out, "SoundFont 2.1 set (.SF2)\n");
    EXPECT_EQ(run("settings get 'pset.LFOs: Ramp time'").out, "false\n");
    EXPECT_EQ(run("settings set pset.22 on").status, 0);
    EXPECT_EQ(run("settings get pset").out, "100100110111111111011111110110001\n");
    EXPECT_NE(run("settings pset").out.find("22 on  LFOs: Ramp time\n"), std::string::npos);
    EXPECT_EQ(run("settings set pset 'No such set'").status, 1);
    EXPECT_EQ(run("settings reset pset").status, 0);
    EXPECT_EQ(run("settings get pset").out, "All parameters supported by Kelvane Studio\n");
}

TEST_F(Kelvane, TurnsWavesIntoBanksAndBack) {
    ASSERT_EQ(run("convert ding.wav ding.sf2").status, 0);
    const auto bank = json("info --json ding.sf2");
    const auto& region = bank["instruments"][0]["layers"][0]["regions"][0];
    EXPECT_EQ(region["keyHigh"], 127);
    EXPECT_EQ(region["articulation"]["velToVolume"], 96);
    EXPECT_EQ(bank["waves"][0]["params"]["rootKey"], 69);
    EXPECT_NE(run("info ding.sf2").out.find("articulation: lfo1Frequency"), std::string::npos);

    ASSERT_EQ(
        run("convert ding.sf2 minimal.sf2 --parameter-set 'Minimal parameter set for portability'").status,
        0);
    EXPECT_EQ(run("convert ding.sf2 x.sf2 --parameter-set nothing").status, 2);
    ASSERT_EQ(run("convert ding.sf2 waves/ --to wav").status, 0);
    const auto wave = json("info --json waves/ding.wav")["waves"][0];
    EXPECT_EQ(wave["frames"], 26000);
    EXPECT_EQ(wave["params"]["rootKey"], 69);
    EXPECT_EQ(wave["params"]["loop"]["end"], 25000.0);
}

TEST_F(Kelvane, MergesAndEditsCollections) {
    ASSERT_EQ(run("convert ding.wav ding.sf2").status, 0);
    ASSERT_EQ(run("convert ding.sf2 ding.sf2 both.sf2").status, 0);
    EXPECT_EQ(json("info --json both.sf2")["instruments"].size(), 2U);
    const Outcome edited = run("edit ding.sf2 ding.sf2 -o one.sf2 --do delete-duplicates --do delete-unused");
    EXPECT_EQ(edited.status, 0);
    EXPECT_NE(edited.out.find("Done: Deleted 1 duplicate waveform (51 KB freed)"), std::string::npos)
        << edited.out;
    EXPECT_EQ(json("info --json one.sf2")["waves"].size(), 1U);
    EXPECT_EQ(run("edit ding.sf2 -o two.sf2 --do replace-waves=ding.wav --do unroll-loops").status, 0);
    EXPECT_EQ(run("edit ding.sf2 -o three.sf2 --do nothing").status, 2);
    EXPECT_EQ(run("edit ding.sf2 -o three.sf2 --do replace-waves=none.wav").status, 1);
    EXPECT_FALSE(fs::exists(folder / "three.sf2"));
}

TEST_F(Kelvane, TellsWhatWasLost) {
    ASSERT_EQ(run("convert ding.wav ding.sf2").status, 0);
    EXPECT_EQ(run("convert ding.sf2 same.sf2 --strict").status, 0);
    ASSERT_EQ(run("convert ding.wav both.wav --channels stereo").status, 0);
    const Outcome table = run("convert both.wav both.sf2 --report - --strict");
    EXPECT_EQ(table.status, 4);
    EXPECT_NE(table.out.find("1 channels"), std::string::npos) << table.out;
    ASSERT_EQ(run("convert both.wav both.sf2 --report lost.json --force").status, 0);
    const auto report = nlohmann::json::parse(textOf(test::readFile(folder / "lost.json")));
    EXPECT_EQ(report["lost"], report["losses"].size());
    EXPECT_EQ(report["counts"].value("channels", 0), 1);
    EXPECT_EQ(report["losses"][0]["missing"], false);
}

TEST_F(Kelvane, WritesBanksOfManyKinds) {
    ASSERT_EQ(run("convert ding.wav ding.sf2").status, 0);
    ASSERT_EQ(run("convert ding.sf2 ding.dls").status, 0);
    EXPECT_NE(textOf(test::readFile(folder / "ding.dls")).find("rgn2"), std::string::npos)
        << "the extension stands for level 2";
    ASSERT_EQ(run("convert ding.sf2 one.dls --to \"DownLoadable Sounds level 1\"").status, 0);
    EXPECT_EQ(textOf(test::readFile(folder / "one.dls")).find("rgn2"), std::string::npos);

    // Formats of single instruments are compared with what they came from, too.
    ASSERT_EQ(run("convert ding.sf2 banks/ --to sfz --report lost.json").status, 0);
    EXPECT_EQ(nlohmann::json::parse(textOf(test::readFile(folder / "lost.json")))["lost"], 0);
    EXPECT_EQ(run("convert ding.sf2 strict/ --to sfz --strict").status, 4);
    EXPECT_EQ(json("info --json banks/ding.sfz")["waves"][0]["frames"], 26000);
}

TEST_F(Kelvane, ProcessesWaves) {
    ASSERT_EQ(run("process ding.wav -o half.wav --do trim-waveform-to-selection --range 0:13000").status, 0);
    EXPECT_EQ(json("info --json half.wav")["waves"][0]["frames"], 13000);
    const Outcome told = run("process ding.wav -o same.wav --do statistics");
    EXPECT_NE(told.err.find("Zero crossings: "), std::string::npos);
    EXPECT_EQ(run("process ding.wav -o x.wav --do nonsense").status, 2);
    EXPECT_EQ(run("process ding.wav -o x.wav --do statistics --range 9:3").status, 2);
    EXPECT_EQ(run("process ding.wav -o x.wav --do transpose-notes").status, 1) << "there is no song";
    EXPECT_FALSE(fs::exists(folder / "x.wav"));
    EXPECT_GT(json("algorithms --json").size(), 30U);
    EXPECT_EQ(json("algorithms --json --midi").size(), 8U);
}

TEST_F(Kelvane, DrawsWaves) {
    const auto isPng = [&](const char* name) {
        return textOf(test::readFile(folder / name)).substr(1, 3) == "PNG";
    };
    const Outcome first = run("draw ding.wav -o ding.png");
    if (first.err.find("could not be opened") != std::string::npos) GTEST_SKIP() << first.err;
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_TRUE(isPng("ding.png"));
    EXPECT_EQ(run("draw ding.wav -o ding.png").err,
              "draw: \"ding.png\" exists already; --force replaces it\n");
    const std::string before(textOf(test::readFile(folder / "ding.png")));
    for (const char* kind :
         {"--spectrum", "--spectrogram", "--loop", "--dark", "--range 20:2000", "--size 300x200"}) {
        EXPECT_EQ(run(std::string("draw ding.wav -o ding.png --force ") + kind).status, 0) << kind;
        EXPECT_NE(textOf(test::readFile(folder / "ding.png")), before) << kind;
    }
    EXPECT_EQ(run("draw ding.wav -o - --waveform").out, before);
    EXPECT_EQ(run("draw ding.wav -o two.png --waves wave:1 --waves 'wave:\"Ding\"'").status, 0);
    EXPECT_TRUE(isPng("two - 1.png") && isPng("two - 2.png"));
    EXPECT_EQ(run("draw ding.wav -o all.png --waves all").status, 0);
    EXPECT_TRUE(isPng("all.png"));
    for (const char* wrong :
         {"--size 5", "--size 1200x", "--range 9", "--loop --spectrum", "--loop --range 1:9"})
        EXPECT_EQ(run(std::string("draw ding.wav -o x.png ") + wrong).status, 2) << wrong;
    for (const char* wrong : {"--size 20x20", "--range 26000:", "--waves wave:2", "--waves collection:1"})
        EXPECT_EQ(run(std::string("draw ding.wav -o x.png ") + wrong).status, 1) << wrong;
    EXPECT_EQ(run("draw ding.wav -o - --waves all --waves wave:1").status, 1);
    EXPECT_FALSE(fs::exists(folder / "x.png"));
}

TEST_F(Kelvane, ListsEffects) {
    ::setenv("LADSPA_PATH", "/nowhere", 1);
    ::setenv("LV2_PATH", "/nowhere", 1);
    EXPECT_TRUE(json("plugins --json").empty());
    EXPECT_EQ(run("plugins gverb").status, 1);
    const Outcome unknown = run("process ding.wav -o x.wav --do dx-plug-in-effects:effect=gverb");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "Effect: There is no LADSPA effect \"gverb\"; `kelvane plugins` lists them\n");
    ::unsetenv("LADSPA_PATH");
    ::unsetenv("LV2_PATH");
}

TEST_F(Kelvane, CarriesArticulationFromBankToBank) {
    ASSERT_EQ(run("convert ding.wav ding.sf2").status, 0);
    ASSERT_EQ(run("preset extract ding.sf2 ding.dlsa").status, 0);
    EXPECT_EQ(run("preset extract ding.sf2 ding.dlsa").status, 1) << "it exists";
    EXPECT_EQ(json("preset show --json ding.dlsa")["eg1Sustain"], 1);
    EXPECT_NE(run("preset show ding.dlsa").out.find("lfo1Shape = Triangle\n"), std::string::npos);
    EXPECT_EQ(run("preset show ding.wav").status, 1);
    EXPECT_EQ(run("preset extract ding.sf2 no.dlsa --item wave:1").status, 1);
    ASSERT_EQ(run("preset apply ding.dlsa ding.sf2 again.sf2 --item layer:1").status, 0);
    EXPECT_EQ(test::readFile(folder / "again.sf2"), test::readFile(folder / "ding.sf2"));
}

TEST_F(Kelvane, ListsAndEditsSongs) {
    // Two patterns, with notes at tick 0 and ends at tick 96.
    const std::string track("MTrk\0\0\0\x0B\0\x91\x3C\x40\x60\x3C\0\0\xFF\x2F\0", 19);
    const std::string header("MThd\0\0\0\6\0\1\0\2\0\x60", 14);
    test::writeFile(folder / "song.mid", bytesOf(header + track + track));

    const auto song = json("info --json song.mid")["songs"][0];
    EXPECT_DOUBLE_EQ(song["seconds"], 0.5);
    EXPECT_EQ(song["tracks"].size(), 2U);
    EXPECT_EQ(song["channels"][0]["channel"], 2);
    EXPECT_EQ(song["channels"][0]["notes"], 2);
    EXPECT_NE(run("info song.mid").out.find("length 0.500 s, 2 notes"), std::string::npos);

    EXPECT_EQ(run("midi edit song.mid -o new.mid --track 2 --delete 2 --modify '1 48 note-on ch=3 1 2' "
                  "--insert '0 meta tempo 1000000'")
                  .status,
              0);
    EXPECT_EQ(run("midi events new.mid --track 2 --notation").out,
              "track:2 \"Track 02\": 3 events, 15 Bytes\n1 0 meta tempo 1000000\n2 48 note-on ch=3 1 2\n"
              "3 96 meta end-of-track\n");
    EXPECT_EQ(json("midi events new.mid --json")["tracks"][1]["events"][1]["parameters"], "C#-1, 2");
    EXPECT_EQ(run("midi edit song.mid -o new.mid --track 2 --delete 2").status, 1) << "exists";
    EXPECT_EQ(run("midi edit song.mid -o x.mid --track 1 --insert '0 nothing'").status, 2);
    EXPECT_EQ(run("midi edit song.mid -o x.mid --track 3 --delete 1").status, 1);

    std::string patterns = header + track + track;
    patterns[9] = 2;
    test::writeFile(folder / "patterns.mid", bytesOf(patterns));
    EXPECT_EQ(run("convert song.mid patterns.mid out/ --to mid").status, 0);
    for (const char* name : {"song", "patterns 1", "patterns 2"})
        EXPECT_TRUE(fs::exists(folder / "out" / (std::string(name) + ".mid"))) << name;
    EXPECT_EQ(test::readFile(folder / "out" / "song.mid"), test::readFile(folder / "song.mid"));
}

TEST_F(Kelvane, TellsProgramsOfItsProgress) {
    const Outcome outcome = run("--progress json convert ding.wav o.w64");
    std::istringstream lines(outcome.err);
    int events = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('{')) events += nlohmann::json::parse(line).contains("event") ? 1 : 0;
    }
    EXPECT_GT(events, 2);
}

TEST_F(Kelvane, CleansUpWhenInterrupted) {
    // Output into a pipe that nobody empties, so that the work is sure to be under way.
    ByteWriter big;
    big.fill(30'000'000);
    test::writeFile(folder / "big.sw", big.view());
    const std::string target = (folder / "big.w64").string(), source = (folder / "big.sw").string();
    for (const int number : {SIGINT, SIGKILL}) {
        test::writeFile(target, bytesOf("old"));
        const pid_t child = ::fork();
        if (child == 0) {
            for (int i = 0; i < 1000; ++i) {
                const pid_t one = ::fork();
                if (one == 0)
                    ::execl(KV_KELVANE, "kelvane", "-q", "convert", source.c_str(), target.c_str(), "--force",
                            nullptr);
                int status = 0;
                ::usleep(2000 + 500 * static_cast<unsigned>(i % 20));
                ::kill(one, number);
                ::waitpid(one, &status, 0);
                if (i >= 20) ::_exit(0);
            }
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        // Whole in either case: the old one, or a new one that was complete in time.
        const Bytes left = test::readFile(target);
        EXPECT_TRUE(textOf(left) == "old" || left.size() > 29'000'000) << left.size();
        for (const auto& entry : fs::directory_iterator(folder.path())) {
            EXPECT_EQ(entry.path().filename().string().find(".part"), std::string::npos);
        }
    }
}

} // namespace
} // namespace kv
