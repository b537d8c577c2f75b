#include <fmt/format.h>

#include "formats/banks/sfz/sfz_mapping.h"
#include "places.h"
#include "sfz_test.h"

namespace kv {
namespace {

using test::SfzTest;

TEST_F(SfzTest, SectionsInheritFromTheOnesAbove) {
    addSample("a.wav");
    struct Case {
        std::string_view text;
        std::vector<int> lovel;
    };
    const Case cases[] = {
        {"<group>sample=a.wav lovel=1<region>key=1<region>key=2 lovel=2<region>key=3", {1, 2, 1}},
        {"<group>sample=a.wav lovel=1<region>key=1<group><region>sample=a.wav key=2", {1, 0}},
        {"<global>sample=a.wav lovel=5<group>lovel=6<region>key=1<group><region>key=2", {6, 5}},
        {"<global>sample=a.wav lovel=5<region>key=1", {5}},
        {"<global>lovel=5<master>sample=a.wav lovel=7<group>key=1<region><master>lovel=8<region>key=2 "
         "sample=a.wav<global><region>key=3 sample=a.wav",
         {7, 8, 5}},
        {"<region>key=1", {}},
        {"lovel=3 <region>sample=a.wav", {0}},
        {"<region>sample=a.wav<effects>lovel=9<curve>lovel=9<what>lovel=9", {0}},
    };
    for (const Case& c : cases) {
        std::vector<int> found;
        for (const Region* region : read(c.text)) found.push_back(region->velLow);
        EXPECT_EQ(found, c.lovel) << c.text;
    }
}

TEST_F(SfzTest, ReadsRangesAndSelection) {
    addSample("a.wav");
    struct Case {
        std::string_view opcodes;
        int keyLow, keyHigh, root, trigger, group, pedalUp, pedalDown;
    };
    const Case cases[] = {
        {"", 0, 127, 60, 0, 0, 1, 1},
        {"key=c4", 60, 60, 60, 0, 0, 1, 1},
        {"lokey=c3 hikey=e3 pitch_keycenter=d3", 48, 52, 50, 0, 0, 1, 1},
        {"trigger=release", 0, 127, 60, 1, 0, 1, 1},
        {"trigger=first seq_length=2", 0, 127, 60, 2, 0, 1, 1},
        {"trigger=release seq_length=2", 0, 127, 60, 1, 0, 1, 1},
        {"off_by=16", 0, 127, 60, 0, 1, 1, 1},
        {"group=3 off_by=16", 0, 127, 60, 0, 3, 1, 1},
        {"offby=-2147483648", 0, 127, 60, 0, 7, 1, 1},
        {"locc64=64", 0, 127, 60, 0, 0, 0, 1},
        {"hicc64=63", 0, 127, 60, 0, 0, 1, 0},
    };
    for (const Case& c : cases) {
        const auto all = read(fmt::format("<region> sample=a.wav {}", c.opcodes));
        ASSERT_EQ(all.size(), 1U) << c.opcodes;
        const Region& r = *all[0];
        EXPECT_EQ(std::tuple(r.keyLow, r.keyHigh, effectiveParams(r).rootKey, r.trigger, r.keyGroup,
                             r.pedalUp, r.pedalDown),
                  std::tuple(c.keyLow, c.keyHigh, c.root, c.trigger, c.group, c.pedalUp, c.pedalDown))
            << c.opcodes;
    }
}

TEST_F(SfzTest, DropsKeyOffsetsWhereTheControlSectionEnds) {
    addSample("a.wav");
    const auto all = read("<control>note_offset=12 octave_offset=1<region> lokey=60 sample=a.wav");
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0]->keyLow, 60);
    EXPECT_EQ(told("note_offset"), "ignored 1 time: dropped where the section ends\n");
}

TEST_F(SfzTest, ReadsPlayingParameters) {
    ByteWriter smpl;
    smpl.u32le(0).u32le(0).u32le(0).u32le(70).fill(12).u32le(1).u32le(0);
    smpl.u32le(0).u32le(0).u32le(100).u32le(199).u32le(0).u32le(0);
    ByteWriter chunks;
    test::addChunk(chunks, "smpl", smpl.view());
    addSample("a.wav", chunks.view());
    struct Case {
        std::string_view opcodes;
        int root;
        double gain;
        int flags;
        double start, end;
        int startOffset, endOffset;
    };
    const Case cases[] = {
        {"", 60, 0, kLooped, 100, 200, 0, 0}, // the file's loop, but not its key
        {"loop_mode=no_loop", 60, 0, 0, 100, 200, 0, 0},
        {"loop_mode=loop_sustain loop_start=0 loop_end=50", 60, 0, kLooped | kLoopUntilRelease, 0, 50, 0, 0},
        {"loopmode=loop_continuous loopstart=10 loopend=5000", 60, 0, kLooped, 10, kFrames, 0, 0},
        {"offset=5 end=900", 60, 0, kLooped, 100, 200, 5, -100},
        {"end=99999", 60, 0, kLooped, 100, 200, 0, 0},
        {"volume=-3 amp_keytrack=0.5 amp_keycenter=58", 60, -2, kLooped, 100, 200, 0, 0},
        {"tune=150", 59, 0, kLooped, 100, 200, 0, 0}, // whole semitones move the key
    };
    for (const Case& c : cases) {
        const auto all = read(fmt::format("<region> sample=a.wav {}", c.opcodes));
        ASSERT_EQ(all.size(), 1U) << c.opcodes;
        const SampleParams p = effectiveParams(*all[0]);
        EXPECT_EQ(std::tuple(p.loopFlags, p.loopStart, p.loopEnd, p.startOffset, p.endOffset),
                  std::tuple(c.flags, c.start, c.end, c.startOffset, c.endOffset))
            << c.opcodes;
        EXPECT_NEAR(static_cast<double>(p.gainDb), c.gain, 1e-4) << c.opcodes;
        EXPECT_EQ(p.rootKey, c.root) << c.opcodes;
    }
}

TEST_F(SfzTest, ReadsEachLinkedOpcode) {
    Wave& wave = *store().Create<Wave>(kNextFreeNumber, nullptr, "w");
    for (const SfzLink& link : sfzLinks()) {
        for (const std::string_view name : {link.opcode, link.twin}) {
            if (name.empty()) continue;
            SfzSection section;
            section.cutoff = 1000; // else there is no resonance
            findSfzOpcode(name)->set(section, "-12");
            Region& region = *store().Create<Region>(kNextFreeNumber);
            sfzReadRegion(section, wave, region);
            EXPECT_NEAR(static_cast<double>(region.articulation.*link.field), -12 * link.factor, 1e-4)
                << name;
        }
    }
}

TEST_F(SfzTest, ChoosesTheModulatorsThatDoMore) {
    addSample("a.wav");
    struct Case {
        std::string_view opcodes;
        float attack, frequency;
    };
    const std::string common =
        "<region> sample=a.wav pitcheg_attack=1 fileg_attack=2 fillfo_freq=3 "
        "amplfo_freq=4 pitchlfo_freq=5 ";
    const Case cases[] = {
        {"", 1, 3},
        {"pitcheg_depth=100 fileg_depth=-100", 1, 3},
        {"pitcheg_depth=100 fileg_depth=-101", 2, 3},
        {"amplfo_depth=1", 1, 4},
        {"amplfo_depth=1 fillfo_depth=-2", 1, 3},
        {"amplfo_depthcc1=2 fillfo_depthcc1=1", 1, 4},
        {"amplfo_depthcc1=2 fillfo_depth_oncc1=1 fillfo_depthchanaft=-1", 1, 3},
    };
    for (const Case& c : cases) {
        const auto all = read(common + std::string(c.opcodes));
        ASSERT_EQ(all.size(), 1U);
        const Articulation& a = all[0]->articulation;
        EXPECT_EQ(std::tuple(a.eg2Attack, a.lfo1Frequency, a.lfo2Frequency),
                  std::tuple(c.attack, c.frequency, 5.0F))
            << c.opcodes;
    }
}

TEST_F(SfzTest, ReadsFilters) {
    addSample("a.wav");
    struct Case {
        std::string_view opcodes;
        bool enabled;
        int type;
        float cutoff;
    };
    const Case cases[] = {
        {"fil_type=lpf_2p", false, 1, 8000},
        {"cutoff=500", true, 1, 500},
        {"cutoff=500 fil_type=lpf_1p", true, 0, 500},
        {"cutoff=500 filtype=LPF_6P", true, 2, 500},
        {"cutoff=500 fil_type=hpf_1p", true, 3, 500},
        {"cutoff=500 fil_type=hpf_2p", true, 4, 500},
        {"cutoff=500 fil_type=hpf_4p", true, 5, 500},
        {"cutoff=500 fil_type=bpf_1p", true, 6, 500},
        {"cutoff=500 fil_type=bpf_4p", true, 7, 500},
        {"cutoff=500 fil_type=brf_2p", true, 8, 500},
        {"cutoff=500 fil_type=brf_6p", true, 9, 500},
        {"cutoff=500 fil_type=apf_1p", false, 1, 500},
        {"cutoff=500 fil_type=comb", false, 1, 500},
        {"cutoff=500 fil_type=x", true, 1, 500},
        {"cutoff=800 fil_keytrack=100 fil_keycenter=12", true, 1, 400},
        {"cutoff=800 fil_keytrack=100 fil_keycenter=0", true, 1, 800},
        {"cutoff=800 fil_keytrack=-1e30 fil_keycenter=127", true, 1, 24000},
    };
    for (const Case& c : cases) {
        const auto all = read(fmt::format("<region> sample=a.wav {}", c.opcodes));
        ASSERT_EQ(all.size(), 1U);
        const Articulation& a = all[0]->articulation;
        EXPECT_EQ(std::tuple(a.filterEnable, a.filterType, a.filterCutoff),
                  std::tuple(c.enabled, c.type, c.cutoff))
            << c.opcodes;
        EXPECT_FALSE(a.eqEnable);
    }
    const auto peak = read("<region> sample=a.wav cutoff=500 resonance=6 fil_type=pkf_2p");
    EXPECT_TRUE(peak[0]->articulation.eqEnable && !peak[0]->articulation.filterEnable);
    EXPECT_FLOAT_EQ(peak[0]->articulation.eqLoFreq, 500);
    EXPECT_FLOAT_EQ(peak[0]->articulation.eqLoGain, 6);
}

TEST_F(SfzTest, PlacesRegionsInTheFirstFreeLayer) {
    addSample("a.wav");
    read("<group>sample=a.wav<region>hikey=60<region>lokey=60<region>lokey=61<region>key=70");
    std::vector<std::size_t> sizes;
    for (const Layer& layer : store().all<Layer>()) sizes.push_back(layer.childIds.size());
    EXPECT_EQ(sizes, (std::vector<std::size_t>{2, 1, 1}));
}

TEST_F(SfzTest, FindsSamplesWhereverTheyMayBe) {
    addSample("Sub Folder/Kick.wav");
    addSample("x.wav");
    struct Case {
        std::string_view text, name;
    };
    const Case cases[] = {
        {"<region>sample=Sub Folder/Kick.wav", "Kick"},
        {"<region>sample=Sub Folder\\Kick.wav", "Kick"},
        {"<region>sample=sub folder\\KICK.WAV key=1", "KICK"},
        {"<region>sample=.\\sub folder\\..\\X.wav", "X"},
        {"<control>default_path=sub folder\\<region>sample=kick.wav", "kick"},
        {"<control>default_path=Sub Folder/K<region>sample=ick.wav", "ick"},
        {"<control>default_path=nowhere/<region>sample=x.wav", "x"},
    };
    for (const Case& c : cases) {
        const auto all = read(c.text);
        ASSERT_EQ(all.size(), 1U) << c.text;
        EXPECT_EQ(RegionWave(*all[0])->name(), c.name) << c.text;
        EXPECT_EQ(told("sample"), "") << c.text;
        EXPECT_TRUE(RegionWave(*all[0])->LoadData() && RegionWave(*all[0])->frames == kFrames);
    }
    EXPECT_EQ(read("<group>sample=x.wav<region>key=1<region>key=2 sample=X.wav").size(), 2U);
    EXPECT_EQ(store().count(kWaveClass), 1U) << "one file is one wave";
}

TEST_F(SfzTest, TellsOfSamplesThatItCantRead) {
    test::writeFile(folder / "broken.wav", bytesOf("RIFF"));
    test::writeFile(folder / "a.aiff", bytesOf("FORM"));
    addSample("bank/in.wav");
    addSample("out.wav");
    EXPECT_TRUE(read("<region>sample=*sine<region>sample=no such.wav<region>sample=broken.wav"
                     "<region>sample=a.aiff<group>sample=no such.wav<region><region>")
                    .empty());
    EXPECT_EQ(told("sample"),
              "*sine: a generator of the player has no samples\n"
              "no such.wav: not found\n"
              "broken.wav: No wave data found!\n"
              "a.aiff: Not an AIFF file\n");
    EXPECT_EQ(read("<region>sample=../out.wav<region>sample=in.wav", "bank/b.sfz").size(), 2U);
    EXPECT_EQ(told("sample"), "../out.wav: outside of the bank's folder\n");
}

TEST_F(SfzTest, ReadsAiffSamples) {
    std::filesystem::copy_file(KV_SOURCE_DIR "/fuzz/seeds/import/rich.aif", folder / "a.aif");
    const auto all = read("<region>sample=a.aif");
    ASSERT_EQ(all.size(), 1U) << told("sample");
    Wave* wave = RegionWave(*all[0]);
    EXPECT_EQ(wave->name(), "a");
    EXPECT_TRUE(wave->params.looped()) << "as the file says";
    EXPECT_TRUE(wave->frames > 0 && wave->LoadData()) << failure();
}

TEST_F(SfzTest, ReadsPackedSamples) {
    const std::filesystem::path data = std::filesystem::path(KV_SOURCE_DIR) / "tests" / "data" / "packed";
    std::filesystem::copy_file(data / "stereo16.flac", folder / "a.flac");
    std::filesystem::copy_file(data / "mono.ogg", folder / "b.ogg");
    const auto all = read("<region>sample=a.flac key=1<region>sample=b.ogg key=2");
    if (told("sample").find("could not be opened") != std::string::npos) GTEST_SKIP() << told("sample");
    ASSERT_EQ(all.size(), 2U) << told("sample");
    for (const Region* region : all) {
        Wave* wave = RegionWave(*region);
        EXPECT_EQ(wave->frames, 3000U);
        EXPECT_TRUE(wave->LoadData()) << failure();
    }
    EXPECT_EQ(RegionWave(*all[0])->channels, 2U);
}

TEST_F(SfzTest, LeavesTheBlockToAWaveThatOneRegionPlays) {
    addSample("a.wav");
    addSample("b.wav");
    const auto all = read(
        "<group>sample=a.wav pitch_keycenter=50<region>key=1 pitch_keycenter=50"
        "<region>key=2 pitch_keycenter=40<region>key=3 sample=b.wav");
    ASSERT_EQ(all.size(), 3U);
    EXPECT_TRUE(all[0]->params.override && all[1]->params.override);
    EXPECT_FALSE(all[2]->params.override);
    EXPECT_EQ(RegionWave(*all[2])->params.rootKey, 3);
    EXPECT_TRUE(read("<region>sample=a.wav key=50 offset=1")[0]->params.override);
}

TEST_F(SfzTest, TakesTheCommentAtTheTop) {
    const std::string rule(80, '-');
    read("//// one\r\n//two\r\n<region>\r\n//three");
    EXPECT_EQ(store().count(kInstrumentClass), 0U); // without regions nothing stays
    addSample("a.wav");
    const auto commentOf = [&](const std::string& head) {
        read(head + "\n<region>sample=a.wav // behind");
        return store().First<Instrument>()->comment.str();
    };
    EXPECT_EQ(commentOf("////////\n//// one\r\n//two"), "one\ntwo");
    EXPECT_EQ(commentOf("// one\n// " + rule + "\n// two"), "one");
    EXPECT_EQ(commentOf("// one\n// " + rule.substr(1) + "\n// two"), "one\n" + rule.substr(1) + "\ntwo");
    EXPECT_EQ(commentOf("// " + std::string(1 << 20, 'x')).size(), 1500U);
}

TEST_F(SfzTest, IncludesFilesAndReplacesNames) {
    addSample("a.wav");
    std::filesystem::create_directories(folder / "Inc");
    test::writeFile(folder / "Inc/One.sfz",
                    bytesOf("#define $K 5\n#include \"inc\\two.sfz\"\n<region>key=3$K"));
    test::writeFile(folder / "Inc/two.sfz",
                    bytesOf("<group>sample=$Name.wav hi$V=1$K\n#include \"inc/one.sfz\""));
    const auto all =
        read("#define $N no\n#define $Name a\n#define $V vel\n#include \"inc/one.sfz\"\n#include \"gone\"");
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(std::tuple(all[0]->keyLow, all[0]->velHigh), std::tuple(35, 15));
    EXPECT_EQ(told("#include"), "a file can't include itself: inc/one.sfz\nnot found: gone\n");
}

TEST_F(SfzTest, CountsWhatItIgnores) {
    addSample("a.wav");
    read(
        "<region>sample=a.wav xfin_lokey=1 ampeg_dynamic=1 my=1\n<region>sample=a.wav my=2 eq1_vel2gain=3 "
        "Key=5"
        "<middle>\n<region>sample=a.wav bend_down=-100");
    EXPECT_EQ(told("my"), "ignored 2 times\n");
    EXPECT_EQ(told("Key"), "ignored 1 time\n");
    EXPECT_EQ(told("xfin_lokey"), "ignored 1 time: regions have no crossfades\n");
    EXPECT_EQ(told("ampeg_dynamic"), "ignored 1 time: envelopes are set when a key is struck\n");
    EXPECT_EQ(told("eq1_vel2gain").substr(0, 14), "ignored 1 time");
    EXPECT_EQ(told("<middle>").substr(0, 14), "ignored 1 time");
    EXPECT_EQ(told("bend_down").substr(0, 14), "ignored 1 time");
}

TEST_F(SfzTest, BoundsWhatHostileTextsAskFor) {
    addSample("a.wav");
    // More layers on one key than there are places.
    std::string text = "<group>sample=a.wav";
    for (int i = 0; i < 5000; ++i) text += "<region>";
    EXPECT_EQ(read(text).size(), 4096U);
    EXPECT_EQ(told("region"), "904 too many were left out\n");
    // Includes that double at each depth, and a text that includes itself by another spelling.
    for (int i = 0; i < 20; ++i) {
        const std::string line = fmt::format("#include \"{}.sfz\"\n", i + 1);
        test::writeFile(folder / fmt::format("{}.sfz", i), bytesOf(line + line));
    }
    read("#include \"0.sfz\"\n<region>sample=a.wav");
    EXPECT_EQ(regions().size(), 1U);
    EXPECT_FALSE(told("#include").empty());
    // Values that grow when they are replaced.
    std::string grows = "#define $a " + std::string(300, 'x') + "\n<region>sample=a.wav my=";
    for (int i = 0; i < 100'000; ++i) grows += "$a";
    EXPECT_EQ(read(grows).size(), 1U);
}

} // namespace
} // namespace kv
