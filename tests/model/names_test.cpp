#include "model/default_name.h"
#include "model/key_name.h"
#include "workspace_test.h"

namespace kv {
namespace {

class Names : public test::WorkspaceTest {};

TEST_F(Names, AreCleaned) {
    const std::pair<std::string, std::string> cases[] = {
        {"  Kick  ", "Kick"},
        {std::string("Snare\0\0", 7), "Snare"},
        {"a\nb\x01"
         "c",
         "a b c"},
        {"\x01\x02 Tom ", "Tom"},
        {"Glocke \xC3\xA4", "Glocke \xC3\xA4"},
    };
    for (const auto& [given, wanted] : cases) {
        Wave* wave = addWave(given);
        EXPECT_EQ(wave->name(), wanted);
        store().Delete(wave);
    }
    EXPECT_EQ(addWave(std::string(300, 'x'))->name().size(), 128U);
}

TEST_F(Names, DefaultsComeFromTheCollection) {
    EXPECT_EQ(addWave("")->name(), "drums");
    EXPECT_EQ(addWave("   ")->name(), "drums 1");
    EXPECT_EQ(addWave("")->name(), "drums 2");
    for (const char* wanted : {"drums: 1st instrument", "drums: 2nd instrument", "drums: 3rd instrument",
                               "drums: 4th instrument"}) {
        EXPECT_EQ(store().Create<Instrument>(kNextFreeNumber)->name(), wanted);
    }
    EXPECT_EQ(store().Create<Song>(kNextFreeNumber)->name(), "MIDI song");
    EXPECT_EQ(store().Create<Track>(kNextFreeNumber)->name(), "MIDI track");
    EXPECT_EQ(store().Create<SynthModel>(kNextFreeNumber)->name(), "synthesis model");
    for (const u32 n : {11U, 12U, 13U, 111U, 112U}) EXPECT_EQ(ordinalEnding(n), "th") << n;
    for (const u32 n : {1U, 21U, 101U}) EXPECT_EQ(ordinalEnding(n), "st") << n;
}

TEST_F(Names, ClashesCountUp) {
    struct Case {
        const char* taken;
        const char* wanted;
    };
    const Case cases[] = {
        {"Bass", "Bass 1"}, {"Bass 1", "Bass 2"},      {"Piano 9", "Piano10"}, {"Lead C#4", "Lead C#4 1"},
        {"A3", "A3 1"},     {"Pad 199", "Pad 200"},    {"H7", "H8"},           {"99", "100"},
        {"x99", "100"},     {"Strings ", "Strings 1"},
    };
    for (const Case& c : cases) {
        store().DeleteAllItems();
        addWave(c.taken);
        EXPECT_EQ(addWave(c.taken)->name(), c.wanted) << c.taken;
    }
    store().DeleteAllItems();
    addWave("kick");
    EXPECT_EQ(addWave("KICK")->name(), "KICK 1");
    const std::string full(128, 'n');
    addWave(full);
    EXPECT_EQ(addWave(full)->name(), std::string(126, 'n') + " 1");
}

TEST_F(Names, OfOneClassOnlyAndFreeAgainAfterDeleting) {
    addWave("Bass");
    EXPECT_EQ(store().Create<Instrument>(kNextFreeNumber, 0U, 0U, "Bass")->name(), "Bass");
    Wave* second = addWave("Bass");
    EXPECT_EQ(addWave("Bass")->name(), "Bass 2");
    store().Delete(second);
    EXPECT_EQ(addWave("Bass")->name(), "Bass 1");
    Wave* same = addWave("Solo");
    same->SetName("Solo");
    EXPECT_EQ(same->name(), "Solo"); // not its own rival
    EXPECT_EQ(store().Create<Track>(kNextFreeNumber, "T")->name(),
              store().Create<Track>(kNextFreeNumber, "T")->name());
}

TEST_F(Names, ThousandsOfOneNameTakeNoQuadraticTime) {
    for (int i = 0; i < 20000; ++i) addWave("sample");
    EXPECT_EQ(addWave("sample")->name(), "sam20000"); // each carry takes the place of a character
}

TEST_F(Names, OfKeys) {
    EXPECT_EQ(KeyName(60), "C4");
    EXPECT_EQ(KeyName(61), "C#4");
    EXPECT_EQ(KeyName(0), "C-1");
    EXPECT_EQ(KeyName(127), "G9");
    EXPECT_EQ(KeyName(128), "-");
    settings().app.cOctMidC = 3;
    EXPECT_EQ(KeyName(60), "C3");
    settings().app.bShowNoteNames = false;
    EXPECT_EQ(KeyName(60), "60");
    EXPECT_NEAR(keyToFrequency(69), 440, 1e-6);
    EXPECT_NEAR(frequencyToKey(880), 81, 1e-9);
}

} // namespace
} // namespace kv
