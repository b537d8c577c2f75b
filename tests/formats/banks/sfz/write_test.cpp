#include <fmt/format.h>

#include "formats/banks/sfz/sfz_mapping.h"
#include "formats/banks/sfz/sfz_region_text.h"
#include "sfz_test.h"

namespace kv {
namespace {

using test::SfzTest;

constexpr const char* kSame = "rgc:audio SFZ (samples in same folder)";
constexpr const char* kSub = "rgc:audio SFZ (samples in sub-folder)";

class SfzWriteTest : public SfzTest {
protected:
    SfzWriteTest() { store().Create<Collection>(folder / "made.x"); }
    Wave& addWave(const char* name) {
        Wave& wave = *store().Create<Wave>(kNextFreeNumber, nullptr, name, false);
        wave.frames = kFrames;
        wave.sourceFile = kMemoryOnly;
        wave.reloadable = false;
        EXPECT_TRUE(wave.samples16.allocate(kFrames));
        for (u32 i = 0; i < kFrames; ++i) wave.samples16.data()[i] = static_cast<i16>(i * 7);
        return wave;
    }
    /// An instrument of one region.
    Instrument& addInstrument(const Wave& wave, const char* name = "made") {
        Instrument& made = *store().Create<Instrument>(kNextFreeNumber, numberOf(wave.id()), 1U, name);
        regions().back()->articulation.enabled = true;
        return made;
    }
    bool write(Item& item, const char* row = kSame, const std::string& name = "out.sfz") {
        space.diagnostics.clear();
        return Export(rowOf(row), folder / name, &item, kAnyFormat, 0, false);
    }
    std::string text(const std::string& name = "out.sfz") {
        return std::string(textOf(test::readFile(folder / name)));
    }
    /// The opcode lines of one region without line ends, joined by "|".
    static std::string linesOf(const Region& region, bool alone = true) {
        std::string all = sfzRegionText(region, {"p", *RegionWave(region), region.articulation, alone});
        EXPECT_TRUE(all.starts_with(" sample=p\r\n") && all.ends_with("\r\n"));
        all = all.substr(11);
        for (std::size_t at = all.find("\r\n"); at != all.npos; at = all.find("\r\n"))
            all.replace(at, 2, "|");
        return all;
    }
};

TEST_F(SfzWriteTest, WritesEachGroupWhenItHasSomethingToSay) {
    struct Case {
        void (*set)(Region& r, Articulation& a, SampleParams& p);
        std::string_view lines;
    };
    using R = Region;
    using A = Articulation;
    using P = SampleParams;
    const Case cases[] = {
        {[](R&, A&, P&) {}, " loop_mode=no_loop|"},
        {[](R& r, A&, P&) { r.keyLow = 3; }, " lokey=3 hikey=127| loop_mode=no_loop|"},
        {[](R& r, A&, P&) { r.velHigh = 3; }, " lovel=0 hivel=3| loop_mode=no_loop|"},
        {[](R& r, A&, P&) { r.trigger = 1; }, " trigger=release| loop_mode=no_loop|"},
        {[](R& r, A&, P&) { r.keyGroup = 2; }, " group=2 off_by=2| loop_mode=no_loop|"},
        {[](R& r, A&, P&) { r.pedalUp = 0; }, " locc64=64 hicc64=127| loop_mode=no_loop|"},
        {[](R& r, A&, P&) { r.pedalDown = 0; }, " locc64=0 hicc64=63| loop_mode=no_loop|"},
        {[](R&, A&, P& p) { p.startOffset = 5, p.endOffset = -100; },
         " offset=5 end=900| loop_mode=no_loop|"},
        {[](R&, A&, P& p) { p.loopFlags = 1, p.loopStart = 9.5, p.loopEnd = 90; },
         " loop_mode=loop_continuous loop_start=10 loop_end=90|"},
        {[](R&, A&, P& p) { p.loopFlags = 9, p.loopEnd = 90; },
         " loop_mode=loop_sustain loop_start=0 loop_end=90|"},
        {[](R&, A& a, P&) { a.eg1Release = 40; }, " loop_mode=one_shot| ampeg_release=40|"},
        {[](R&, A& a, P& p) { p.rootKey = 61, a.keyToPitch = 0.5F; },
         " loop_mode=no_loop| pitch_keycenter=61 pitch_keytrack=50|"},
        {[](R&, A& a, P& p) { p.fineTune = -50, a.masterTune = 2; },
         " loop_mode=no_loop| transpose=1 tune=50|"},
        {[](R&, A& a, P&) { a.pitchBendRange = 99; }, " loop_mode=no_loop| bend_up=9600 bend_down=-9600|"},
        {[](R&, A& a, P&) {
             a.eg2ToPitch = -1, a.eg2Hold = 1, a.eg2Decay = 4, a.eg2Sustain = 0.25F, a.eg2Release = 2;
         },
         " loop_mode=no_loop| pitcheg_start=100 pitcheg_hold=1 pitcheg_decay=3 pitcheg_sustain=25 "
         "pitcheg_release=0.5 pitcheg_depth=-100|"},
        {[](R&, A& a, P&) { a.aftertouchToLfo2Pitch = 1, a.lfo2Ramp = 2; },
         " loop_mode=no_loop| pitchlfo_freq=5 pitchlfo_fade=2 pitchlfo_depthchanaft=100 "
         "pitchlfo_depthpolyaft=100|"},
        {[](R&, A& a, P&) {
             a.filterEnable = true, a.filterType = 9, a.filterResonance = 96, a.keyToCutoff = 12.8F;
         },
         " loop_mode=no_loop| fil_type=brf_4p cutoff=8000 resonance=40 fil_keytrack=10 fil_keycenter=0|"},
        {[](R&, A& a, P&) { a.eg2ToCutoff = 1, a.eg2Attack = 200; },
         " loop_mode=no_loop| fileg_attack=100 fileg_depth=100|"},
        {[](R&, A& a, P&) { a.lfo1ToCutoff = 1, a.lfo1Delay = 0.5F; },
         " loop_mode=no_loop| fillfo_freq=5 fillfo_delay=0.5 fillfo_depth=100|"},
        {[](R&, A& a, P& p) {
             p.gainDb = -3, a.panDefault = -1, a.velToVolume = 48, a.aftertouchToVolume = 2;
         },
         " loop_mode=no_loop| volume=-3 pan=-100 amp_veltrack=50 gain_cc129=2 gain_cc130=2|"},
        {[](R&, A& a, P&) { a.eg1Delay = 1, a.eg1Attack = 2, a.eg1Hold = 3; },
         " loop_mode=no_loop| ampeg_delay=1 ampeg_attack=2 ampeg_hold=3|"},
        {[](R&, A& a, P&) { a.lfo1ToVolume = 96; }, " loop_mode=no_loop| amplfo_freq=5 amplfo_depth=10|"},
        {[](R&, A& a, P&) { a.reverbDefault = 0.07F, a.chorusDefault = 1; },
         " loop_mode=no_loop| effect1=7 effect2=100|"},
    };
    const Wave& wave = addWave("w");
    addInstrument(wave);
    Region& region = *regions()[0];
    for (const Case& c : cases) {
        region.keyLow = region.velLow = region.trigger = region.keyGroup = 0;
        region.keyHigh = region.velHigh = 127;
        region.pedalUp = region.pedalDown = 1;
        region.params = SampleParams();
        region.params.override = true;
        region.articulation = Articulation();
        c.set(region, region.articulation, region.params);
        EXPECT_EQ(linesOf(region), c.lines);
    }
    region.params = SampleParams();
    EXPECT_NE(linesOf(region, false).find(" pitch_keycenter=60|"), std::string::npos);
}

/// Each field comes back as it was, if the opcode can say it.
TEST_F(SfzWriteTest, LinkedFieldsComeBack) {
    const Wave& wave = addWave("w");
    addInstrument(wave);
    Region& region = *regions()[0];
    for (const SfzLink& link : sfzLinks()) {
        if (link.opcode.starts_with("eq") || link.opcode == "transpose") continue;
        for (const double share : {0.25, 0.75}) {
            const double most = std::min(link.most, 48.0), least = std::max(link.least, -48.0);
            const auto value = static_cast<f32>((least + (most - least) * share) * link.factor);
            region.articulation = Articulation();
            region.articulation.filterEnable = true;
            region.articulation.*link.field = value;
            std::string text = "<region>\r\n sample=a.wav " + linesOf(region);
            std::replace(text.begin(), text.end(), '|', '\n');
            // Read by hand, as the file has its limits applied when it is imported.
            SfzSection section;
            for (std::size_t at = text.find('='); at != text.npos; at = text.find('=', at + 1)) {
                const std::size_t blank = text.find_last_of(" \n", at);
                const std::size_t end = text.find_first_of(" \n\r", at);
                if (const SfzOpcode* op = findSfzOpcode(text.substr(blank + 1, at - blank - 1)))
                    op->set(section, text.substr(at + 1, end - at - 1));
            }
            Region& back = *store().Create<Region>(kNextFreeNumber);
            sfzReadRegion(section, wave, back);
            EXPECT_NEAR(static_cast<double>(back.articulation.*link.field), static_cast<double>(value),
                        0.51 * link.factor)
                << link.opcode;
        }
    }
}

TEST_F(SfzWriteTest, HeadHoldsTheComment) {
    Instrument& instrument = addInstrument(addWave("w"));
    const std::string rule(77, '/');
    ASSERT_TRUE(write(instrument));
    EXPECT_EQ(text(), rule +
                          "\r\n//// sfz created by Kelvane Studio v11.4\r\n\r\n<group>\r\n\r\n<region>\r\n"
                          " sample=w.wav\r\n loop_mode=no_loop\r\n");
    instrument.comment = "one\r\ntwo\n\nfour";
    ASSERT_TRUE(write(instrument));
    EXPECT_TRUE(text().starts_with(rule + "\r\n//// one\r\n//// two\r\n//// \r\n//// four\r\n\r\n<group>"));
}

TEST_F(SfzWriteTest, NumbersRegionsThatTakeTurns) {
    const u32 wave = numberOf(addWave("w").id());
    Instrument& instrument = *store().Create<Instrument>(kNextFreeNumber, wave, 4U, "made");
    const auto all = regions();
    ASSERT_EQ(all.size(), 4U);
    for (Region* region : all) region->trigger = 2;
    all[1]->velHigh = 60; // no rival of the others
    all[3]->keyHigh = 20; // its middle key is one of the others' keys, but not the other way around
    ASSERT_TRUE(write(instrument));
    std::vector<std::string> turns;
    const std::string all_text = text();
    for (std::size_t at = all_text.find("seq_"); at != std::string::npos; at = all_text.find("seq_", at + 20))
        turns.push_back(all_text.substr(at, all_text.find("\r\n", at) - at));
    EXPECT_EQ(turns, (std::vector<std::string>{"seq_length=2 seq_position=1", "seq_length=2 seq_position=2",
                                               "seq_length=3 seq_position=3"}));
}

TEST_F(SfzWriteTest, SampleFilesGetNamesOfTheirOwn) {
    Wave* waves[] = {&addWave("a=b/c?"), &addWave("A_bc_"), &addWave(" x .wav"), &addWave("long")};
    waves[3]->SetName(std::string(128, 'y'));
    Instrument& instrument = *store().Create<Instrument>(kNextFreeNumber, 0U, 0U, "made");
    for (Wave* wave : waves) {
        Layer* layer = store().Create<Layer>(kNextFreeNumber, numberOf(wave->id()));
        instrument.AddChild(layer->id());
    }
    ASSERT_TRUE(write(instrument)) << failure();
    EXPECT_TRUE(ui.messages.empty());
    ASSERT_TRUE(Import(folder / "out.sfz", true));
    EXPECT_EQ(regions().size(), 4U) << text();
    EXPECT_EQ(store().count(kWaveClass), 4U) << text();
    for (Wave& wave : store().all<Wave>()) {
        ASSERT_TRUE(wave.LoadData());
        EXPECT_EQ(wave.samples16.data()[kFrames - 1], static_cast<i16>((kFrames - 1) * 7));
    }
}

TEST_F(SfzWriteTest, SubFolderStandsBesideTheBank) {
    ASSERT_TRUE(write(addInstrument(addWave("w")), kSub, "my bank.sfz")) << failure();
    EXPECT_TRUE(std::filesystem::exists(folder / "my bank/w.wav"));
    EXPECT_NE(text("my bank.sfz").find(" sample=my bank\\w.wav\r\n"), std::string::npos);
    EXPECT_EQ(read(text("my bank.sfz"), "my bank.sfz").size(), 1U);
}

/// Waves that still are in the files that get replaced must not be read from the new ones.
TEST_F(SfzWriteTest, ReplacesTheFilesThatItReads) {
    addSample("a.wav");
    addSample("b.wav");
    const auto all = read("<region>sample=b.wav key=1<region>sample=a.wav key=2");
    RegionWave(*all[0])->SetName("a"); // taken, so "a 2"
    RegionWave(*all[0])->SetName("b");
    RegionWave(*all[1])->SetName("c");
    RegionWave(*all[0])->SetName("a"); // now the file of the other
    for (int time = 0; time < 2; ++time) ASSERT_TRUE(write(*store().First<Instrument>(), kSame, "test.sfz"));
    ASSERT_TRUE(Import(folder / "test.sfz", true));
    ASSERT_EQ(regions().size(), 2U);
    for (Wave& wave : store().all<Wave>()) {
        ASSERT_TRUE(wave.LoadData()) << failure();
        EXPECT_EQ(wave.frames, kFrames);
        EXPECT_EQ(wave.samples16.data()[500], static_cast<i16>(500 * 31));
    }
}

TEST_F(SfzWriteTest, WritesAWaveAsAnInstrument) {
    Wave& wave = addWave("solo");
    wave.params.rootKey = 50;
    wave.params.override = true;
    ASSERT_TRUE(write(wave)) << failure();
    EXPECT_EQ(store().count(kInstrumentClass), 0U) << "it was for the writing only";
    EXPECT_EQ(effectiveParams(*read(text(), "out.sfz").at(0)).rootKey, 50);
}

TEST_F(SfzWriteTest, RefusesWhatItCantWrite) {
    Wave& wave = addWave("w");
    Instrument& instrument = addInstrument(wave);
    EXPECT_FALSE(write(*store().First<Collection>()));
    EXPECT_EQ(failure(), "sfz_Exp: The file format can not save this item");
    EXPECT_FALSE(Export(rowOf(kSame), folder / "o.sfz", &instrument, kCompressed | kMonoBit, 0, false));
    EXPECT_EQ(failure(), "sfz_Exp: This version can't write Ogg Vorbis samples yet");
    // A sample that can't be written is told, and the rest is saved.
    std::filesystem::create_directories(folder / "w.wav");
    EXPECT_TRUE(write(instrument));
    EXPECT_EQ(ui.messages, (std::vector<std::string>{"sfz_Exp: Could not create file"}));
}

TEST_F(SfzWriteTest, TellsWhatIsLost) {
    Instrument& instrument = addInstrument(addWave("w"));
    instrument.patch = 5;
    Articulation& a = regions()[0]->articulation;
    a.eqEnable = true;
    a.lfo1Shape = 2;
    a.lfo1ToVolume = 50;
    a.eg1Sustain = 0;
    a.eg1Release = 1;
    ASSERT_TRUE(write(instrument));
    std::vector<std::string> fields;
    for (const Diagnostic& d : space.diagnostics.entries()) {
        if (d.severity == Severity::Loss) fields.push_back(d.field);
    }
    EXPECT_EQ(fields,
              (std::vector<std::string>{"eg1Release", "eqEnable", "lfo1Shape", "patch", "amplfo_depth"}));
}

} // namespace
} // namespace kv
