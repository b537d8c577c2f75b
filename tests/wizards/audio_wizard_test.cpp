#include "wizards/audio_wizard.h"

#include <gmock/gmock.h>

#include "audio_fixture.h"
#include "model/song.h"

namespace kv {
namespace {

using test::AudioFixture;
using testing::HasSubstr;

class AudioWizardTest : public AudioFixture {
protected:
    AlgorithmCall callOf(std::string_view text) { return parseAlgorithmCall(text, algorithms()).value(); }
    static bool offers(const WizardItems& items, std::string_view name) {
        for (const Algorithm* algorithm : offeredAlgorithms(items)) {
            if (algorithm->name == name) return true;
        }
        return false;
    }
    WizardItems items;
};

TEST_F(AudioWizardTest, ARunNeedsWavesAndTellsWhichItTakes) {
    EXPECT_FALSE(chooseWaves({}, items));
    EXPECT_THAT(ui.messages.back(), HasSubstr("You need to load at least one waveform"));
    Item* a = addWaveWith({1, 2, 3});
    Item* b = addWaveWith({4, 5});
    Item* song = store().Create<Song>(kNextFreeNumber);
    const std::vector<std::vector<Item*>> selections{{}, {song}, {a, song}};
    for (const std::vector<Item*>& selected : selections) {
        ASSERT_TRUE(chooseWaves(selected, items));
        EXPECT_TRUE(items.allWaves);
        EXPECT_EQ(items.items.size(), 2U);
        EXPECT_THAT(ui.messages.back(), HasSubstr("No waveforms selected"));
    }
    ui.messages.clear();
    Item* const selected[] = {b};
    ASSERT_TRUE(chooseWaves(selected, items));
    EXPECT_FALSE(items.allWaves);
    EXPECT_TRUE(ui.messages.empty());
    EXPECT_FALSE(offers(items, "Convert to mono"));
    EXPECT_FALSE(offers(items, "Cross-fade loop"));
    EXPECT_TRUE(offers(items, "Convert to stereo"));
}

TEST_F(AudioWizardTest, TheRangeIsThatOfASingleWave) {
    Wave* wave = addWaveWith({1, 2, 3, 4, 5});
    Item* const one[] = {wave};
    ASSERT_TRUE(chooseWaves(one, items));
    EXPECT_FALSE(items.rangeOn);
    EXPECT_EQ(items.rangeTo, 5U);
    wave->selStart = 1;
    wave->selEnd = 9;
    ASSERT_TRUE(chooseWaves(one, items));
    EXPECT_TRUE(items.rangeOn);
    EXPECT_EQ(items.rangeFrom, 1U);
    EXPECT_EQ(items.rangeTo, 5U);

    struct Case {
        i64 from, to;
        u32 oneFrom, oneTo, manyFrom, manyTo;
    };
    WizardItems many = items;
    many.items.push_back(addWaveWith({1}));
    for (const Case& c : {Case{-3, -1, 0, 0, 0, 0}, Case{2, 4, 2, 4, 2, 4}, Case{5, 99, 0, 5, 5, 99},
                          Case{4, 1LL << 40, 4, 5, 4, 0xFFFFFFFF}}) {
        setTypedRange(items, c.from, c.to);
        EXPECT_EQ(std::pair(items.rangeFrom, items.rangeTo), std::pair(c.oneFrom, c.oneTo)) << c.from;
        setTypedRange(many, c.from, c.to);
        EXPECT_EQ(std::pair(many.rangeFrom, many.rangeTo), std::pair(c.manyFrom, c.manyTo)) << c.from;
    }
}

TEST_F(AudioWizardTest, TheLastRunIsRepeatedWithItsRangeAndValues) {
    Wave* wave = addWaveWith(std::vector<i16>(10, 1000));
    Item* const one[] = {wave};
    ASSERT_TRUE(chooseWaves(one, items));
    EXPECT_EQ(repeatLast(items), nullptr);
    setTypedRange(items, 4, 8);
    items.rangeOn = true;
    const AlgorithmCall call = callOf("adjust-volume:by=6.5");
    EXPECT_EQ(wizardTitle(items, *call.algorithm),
              "Audio processing wizard - Adjust volume - " + wave->name().str());
    ASSERT_TRUE(runAndRemember(call, items, said));

    Wave* shorter = addWaveWith(std::vector<i16>(6, 1000));
    Item* const other[] = {shorter};
    ASSERT_TRUE(chooseWaves(other, items));
    const Algorithm* last = repeatLast(items);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->name, "Adjust volume");
    EXPECT_EQ(lastCallOf(*last).values.number("by"), 6.5);
    EXPECT_TRUE(items.rangeOn);
    EXPECT_EQ(std::pair(items.rangeFrom, items.rangeTo), std::pair(4U, 6U)) << "no wider than the wave";
    EXPECT_EQ(shorter->selEnd, 6);

    ASSERT_TRUE(chooseWaves(one, items));
    ASSERT_TRUE(runAndRemember(callOf("reverse-audio-within-selection"), {{wave}}, said));
    ASSERT_NE(repeatLast(items), nullptr);
    EXPECT_EQ(wave->selStart, -1) << "it had no range";
}

TEST_F(AudioWizardTest, EveryCallComesBackFromItsText) {
    for (const Algorithm& algorithm : algorithms()) {
        AlgorithmCall call{&algorithm, ParameterValues(algorithm)};
        for (const Parameter& parameter : algorithm.parameters) {
            const bool text = parameter.kind == ParameterKind::Text || parameter.kind == ParameterKind::Wave;
            const bool flag = parameter.kind == ParameterKind::Switch;
            const std::string_view other = parameter.initial != 0 ? "0" : "1";
            if (!text && !flag) continue;
            ASSERT_TRUE(call.values.set(parameter.slug, text ? "a \"quoted\", one" : other));
        }
        const std::optional<AlgorithmCall> back = parseAlgorithmCall(textOf(call), algorithms());
        ASSERT_TRUE(back) << textOf(call) << space.error.message;
        for (const Parameter& parameter : algorithm.parameters)
            EXPECT_EQ(back->values.textOf(parameter.slug), call.values.textOf(parameter.slug))
                << textOf(call) << " " << parameter.slug;
    }
}

} // namespace
} // namespace kv
