// Effects over samples and waves: channels, delays, ranges, and what is refused.
#include <gmock/gmock.h>

#include "model/wave_data.h"
#include "model/workspace_test.h"
#include "plugins/run_effects.h"
#include "wizards/algorithm_table.h"

namespace kv {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Effects : public test::WorkspaceTest {
protected:
    static void SetUpTestSuite() {
        ::setenv("LADSPA_PATH", KV_PLUGINS "/ladspa", 1);
        ::setenv("LV2_PATH", KV_PLUGINS "/lv2", 1);
    }
    static void TearDownTestSuite() {
        ::unsetenv("LADSPA_PATH");
        ::unsetenv("LV2_PATH");
    }

    static std::vector<f32> process(std::string_view name, std::vector<f32> in, u32 channels,
                                    std::string_view settings = {}, Tail tail = Tail::Cut) {
        std::optional<Effect> effect = createEffect(name, 44100, EffectKind::Ladspa);
        SampleBuffer<f32> out;
        if (!effect || !effect->setParameters(settings) || !effect->process(in, channels, tail, out))
            return {};
        return {out.span().begin(), out.span().end()};
    }
    std::string message() const { return space.error.message; }
};

TEST_F(Effects, FindsByIdNameOrLabel) {
    for (const char* name : {"ladspa:ladspa_effects:gain", "Late gain", "late GAIN", "Gain"})
        EXPECT_TRUE(createEffect(name, 44100, EffectKind::Ladspa)) << name;
    const struct {
        const char *name, *message;
    } kRefused[] = {
        {"fuzz", "There is no LADSPA effect \"fuzz\"; `kelvane plugins` lists them"},
        {"", "There is no LADSPA effect \"\"; `kelvane plugins` lists them"},
        {"Twin", "\"Twin\" names several effects: ladspa:ladspa_effects:twin1, ladspa:ladspa_effects:twin2"},
    };
    for (const auto& [name, text] : kRefused) {
        EXPECT_FALSE(createEffect(name, 44100, EffectKind::Ladspa));
        EXPECT_EQ(message(), text);
    }
    EXPECT_FALSE(createEffect("gain", 4'000'000'000U, EffectKind::Ladspa));
}

TEST_F(Effects, TakesSettings) {
    std::optional<Effect> effect = createEffect("hinted", 96000, EffectKind::Ladspa);
    ASSERT_TRUE(effect);
    EXPECT_FLOAT_EQ(effect->info().parameters[0].maximum, 960); // by the rate of the wave
    EXPECT_TRUE(effect->setParameters("  cutoff=900 mode=3\tmix=1e6 "));
    EXPECT_TRUE(effect->setParameters(""));
    const struct {
        const char *settings, *message;
    } kRefused[] = {
        {"depth=1",
         "\"Hinted\" has no parameter \"depth\"; `kelvane plugins \"ladspa:ladspa_effects:hinted\"` lists "
         "them"},
        {"cutoff", "\"cutoff\" is no setting as SYMBOL=NUMBER"},
        {"cutoff=high", "\"cutoff=high\" is no setting as SYMBOL=NUMBER"},
        {"cutoff=nan", "\"cutoff=nan\" is no setting as SYMBOL=NUMBER"},
        {"mix=inf", "\"mix=inf\" is no setting as SYMBOL=NUMBER"},
        {"cutoff=1000", "\"cutoff\" must be a number from 9.6 to 960"},
    };
    for (const auto& [settings, text] : kRefused) {
        EXPECT_FALSE(effect->setParameters(settings));
        EXPECT_EQ(message(), text);
    }
}

// The effect is 100 frames late and says so; blocks of any length come out in place.
TEST_F(Effects, TakesTheDelayBack) {
    for (const std::size_t frames : {1U, 100U, 923U, 924U, 1024U, 1025U, 5000U}) {
        std::vector<f32> in(frames);
        for (std::size_t i = 0; i < frames; ++i) in[i] = static_cast<f32>(i + 1);
        std::vector<f32> out = process("gain", in, 1, "gain_x=0.5");
        ASSERT_EQ(out.size(), frames);
        for (f32& x : out) x *= 2;
        EXPECT_EQ(out, in) << frames;
    }
    EXPECT_TRUE(process("gain", {}, 1).empty());
    EXPECT_THAT(process("gain", {std::numeric_limits<f32>::quiet_NaN(), 1}, 1), ElementsAre(0, 1));
}

TEST_F(Effects, KeepsTheChannelsOfTheWave) {
    EXPECT_THAT(process("gain", {1, 2, 3, 4}, 2), ElementsAre(1, 2, 3, 4)); // a run for each channel
    EXPECT_THAT(process("gain", {1, 2, 3, 4, 5, 6}, 3), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(process("swap", {1, 2, 3, 4}, 2), ElementsAre(2, 0.5F, 4, 1.5F));
    EXPECT_THAT(process("swap", {1, 2}, 1), ElementsAre(0.75F, 1.5F));         // both inputs, the average
    EXPECT_THAT(process("widen", {1, 3, 5, 7}, 2), ElementsAre(2, -2, 6, -6)); // the average in
    EXPECT_THAT(process("widen", {1, 3}, 1), ElementsAre(0, 0));
    EXPECT_TRUE(process("swap", {1, 2, 3}, 3).empty());
}

TEST_F(Effects, KeepTheirWordsOutOfStandardOutput) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(process("nan", {1}, 1).size(), 1U); // says that it starts
    std::puts("ours");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ours\n");
}

TEST_F(Effects, KeepsTheTailWhereWanted) {
    const std::vector<f32> in{0, 1};
    EXPECT_EQ(process("decay", in, 1).size(), 2U);
    const std::vector<f32> out = process("decay", in, 1, {}, Tail::Keep);
    ASSERT_EQ(out.size(), 2U + 15); // down to a step of 16 bits
    EXPECT_EQ(out[4], 0.125F);
    EXPECT_EQ(process("decay", {0, 1, 0, 0}, 2, {}, Tail::Keep).size(), 4U + 2 * 14);
}

TEST_F(Effects, ChangesARangeOfAWave) {
    Wave* wave = addWaveWith({8192, 8192, 8192, 8192});
    const EffectStep steps[] = {{"gain", "gain_x=2"}, {"gain", "gain_x=0.25"}};
    ASSERT_TRUE(runEffects(*wave, steps, Tail::Keep, 1, 3)) << message();
    EXPECT_THAT(wave->samplesFloat.span(), ElementsAre(0.25F, 0.125F, 0.125F, 0.25F));
    EXPECT_FALSE(wave->samples16);
    EXPECT_FALSE(wave->reloadable);
    EXPECT_EQ(wave->frames, 4U);
    const EffectStep decay[] = {{"decay"}};
    ASSERT_TRUE(runEffects(*wave, decay, Tail::Keep, 2));
    EXPECT_EQ(wave->frames, 4U + 13);
    EXPECT_EQ(wave->samplesFloat.size(), 4U + 13);
    EXPECT_EQ(wave->samplesFloat.span()[4], 0.125F);
    EXPECT_TRUE(runEffects(*wave, decay, Tail::Cut, 100, 200)); // nothing there
}

TEST_F(Effects, LeavesTheWaveWhenOneFails) {
    Wave* wave = addWaveWith(std::vector<i16>(3000, 100));
    const struct {
        EffectStep second;
        const char* message;
    } kCases[] = {
        {{"nan"}, "\"No numbers\" gave samples that are no numbers"},
        {{"fuzz"}, "There is no effect \"fuzz\"; `kelvane plugins` lists them"},
        {{"gain", "gain_x=5"}, "\"gain_x\" must be a number from 0 to 4"},
    };
    for (const auto& [second, text] : kCases) {
        const EffectStep steps[] = {{"gain", "gain_x=2"}, second};
        EXPECT_FALSE(runEffects(*wave, steps));
        EXPECT_EQ(message(), text);
        EXPECT_EQ(wave->samples16.span()[0], 100);
        EXPECT_FALSE(wave->samplesFloat);
    }
    ui.cancel = true;
    const EffectStep steps[] = {{"gain"}};
    EXPECT_FALSE(runEffects(*wave, steps));
    EXPECT_EQ(message(), "Cancelled");
}

TEST_F(Effects, HaveARowOfTheAlgorithms) {
    Wave* wave = addWaveWith({8192, 8192});
    const auto run = [&](std::string_view call) {
        const std::optional<AlgorithmCall> parsed = parseAlgorithmCall(call, algorithms());
        std::string said;
        return parsed && runAlgorithm(*parsed, {{wave}, true, 1, 2}, said);
    };
    EXPECT_TRUE(run("dx-plug-in-effects:effect=Late gain,settings=gain_x=2")) << message();
    EXPECT_THAT(wave->samplesFloat.span(), ElementsAre(0.25F, 0.5F));
    EXPECT_FALSE(run("dx-plug-in-effects"));
    EXPECT_THAT(message(), HasSubstr("`kelvane plugins`"));
    EXPECT_FALSE(run("vst-plug-in-effects:effect=Late gain")); // of the other kind
}

} // namespace
} // namespace kv
