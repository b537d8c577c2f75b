// LV2 effects, where lilv is installed.
#include <gmock/gmock.h>

#include "model/workspace_test.h"
#include "plugins/effect.h"

namespace kv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Lv2 : public test::WorkspaceTest {
protected:
    void SetUp() override {
        ::setenv("LV2_PATH", KV_PLUGINS "/lv2", 1);
        list = installedEffects(EffectKind::Lv2);
        if (!list->problems.empty()) GTEST_SKIP() << list->problems[0];
    }
    void TearDown() override { ::unsetenv("LV2_PATH"); }

    std::shared_ptr<const EffectList> list;
};

TEST_F(Lv2, ListsBundles) {
    ASSERT_EQ(list->effects.size(), 2U); // by name
    EXPECT_EQ(list->effects[0].id, "urn:kelvane:test:demanding");
    EXPECT_EQ(list->effects[0].needs, "worker#schedule");
    EXPECT_FALSE(createEffect("Demanding", 44100));
    EXPECT_EQ(space.error.message, "\"Demanding\" needs what isn't offered here: worker#schedule");
    const EffectInfo& gain = list->effects[1];
    EXPECT_THAT(gain.needs, IsEmpty());
    EXPECT_THAT(gain.inputs, ElementsAre(0)); // not the optional one
    EXPECT_EQ(gain.latencyPort, 3);
    ASSERT_EQ(gain.parameters.size(), 1U);
    const EffectParameter& parameter = gain.parameters[0];
    EXPECT_EQ(parameter.symbol, "gain");
    EXPECT_EQ(parameter.minimum, 0.5F);
    EXPECT_EQ(parameter.maximum, 4);
    EXPECT_EQ(parameter.defaultValue, 2);
    EXPECT_TRUE(parameter.logarithmic);
    ASSERT_EQ(parameter.scalePoints.size(), 2U);
    EXPECT_EQ(parameter.scalePoints[0].label, "As is");
}

// The effect is silent when its ports or options aren't as they must be, and has another value of its own.
TEST_F(Lv2, RunsEffects) {
    std::optional<Effect> effect = createEffect("urn:kelvane:test:gain", 44100);
    ASSERT_TRUE(effect) << space.error.message;
    EXPECT_TRUE(createEffect("LV2 gain", 44100, EffectKind::Lv2));
    const std::vector<f32> in{1, 2, 3, 4};
    SampleBuffer<f32> out;
    ASSERT_TRUE(effect->process(in, 1, Tail::Cut, out)) << space.error.message;
    EXPECT_THAT(out.span(), ElementsAre(3, 6, 9, 12)); // by the state of the bundle
    ASSERT_TRUE(effect->setParameters("gain=0.5"));
    ASSERT_TRUE(effect->process(in, 2, Tail::Cut, out));
    EXPECT_THAT(out.span(), ElementsAre(0.5F, 1, 1.5F, 2));
}

} // namespace
} // namespace kv
