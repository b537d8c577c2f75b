// A second file beside the first: merged into it, or taken for its waves.
#include "formats/banks/soundfont/test_bank.h"
#include "formats/framework/collection_files.h"
#include "model/instrument.h"
#include "model/store.h"

namespace kv {
namespace {

using test::FormatTest;
using test::TestBank;

class SecondFile : public FormatTest {
protected:
    SecondFile() {
        TestBank bank = TestBank::simple({}, {{{{53, 0}}}});
        test::writeFile(folder / "one.sf2", bank.build());
        bank.points.assign(1000, 77);
        bank.samples[0].name = "s";
        bank.samples.push_back({"T", 500, 900, 500, 900});
        bank.presets[0].name = "Q";
        test::writeFile(folder / "two.sf2", bank.build());
    }
};

TEST_F(SecondFile, IsMergedBehindTheFirst) {
    ASSERT_TRUE(Import(folder / "one.sf2", true));
    ASSERT_TRUE(OpenMerged(folder / "two.sf2")) << failure();
    EXPECT_EQ(store().First<Collection>()->fileName, folder / "one.sf2");
    std::vector<std::pair<std::string, u32>> instruments;
    for (const Instrument& i : store().all<Instrument>()) instruments.emplace_back(i.name().str(), i.patch);
    EXPECT_EQ(instruments, (std::vector<std::pair<std::string, u32>>{{"P", 0}, {"Q", 1}}));
    EXPECT_EQ(store().count(kWaveClass), 3U);
    for (const Region& region : store().all<Region>()) EXPECT_TRUE(RegionWave(region));
    EXPECT_EQ(ui.statuses.back(), "Done: Merged files.");

    EXPECT_FALSE(OpenMerged(folder / "three.sf2"));
    EXPECT_EQ(failure(), "Import: Could not open file");
    EXPECT_EQ(store().count(kInstrumentClass), 2U) << "all is as it was";
    EXPECT_EQ(store().pushedDepth(), 0U);
}

TEST_F(SecondFile, GivesItsWavesByName) {
    ASSERT_TRUE(Import(folder / "one.sf2", true));
    const ItemId before = store().First<Wave>()->id();
    ASSERT_TRUE(ReplaceWaves(folder / "two.sf2"));
    EXPECT_EQ(ui.statuses.back(), "Replaced 1 waveform");
    ASSERT_EQ(store().count(kWaveClass), 1U);
    Wave& wave = *store().First<Wave>();
    EXPECT_EQ(wave.id(), before);
    EXPECT_EQ(RegionWave(*store().First<Region>()), &wave);
    ASSERT_TRUE(wave.LoadData());
    EXPECT_EQ(GetInt16Data(wave)[0], 77);
    EXPECT_EQ(store().First<Instrument>()->name(), "P");

    wave.SetName("of no other");
    ASSERT_TRUE(ReplaceWaves(folder / "two.sf2"));
    EXPECT_EQ(ui.statuses.back(), "No waveform replaced");
    EXPECT_EQ(GetInt16Data(wave)[0], 77);
}

} // namespace
} // namespace kv
