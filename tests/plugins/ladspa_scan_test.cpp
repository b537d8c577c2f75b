// Asking libraries for their effects: what they say of themselves, and what they may do wrong.
#include "plugins/ladspa_scan.h"

#include <gmock/gmock.h>

#include <cmath>

#include "plugins/effect_wire.h"
#include "test_support.h"

namespace kv {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr std::chrono::seconds kPatience{20};
const std::string kGood = KV_PLUGINS "/ladspa/ladspa_effects.so";
std::string broken(const char* name) {
    return std::string(KV_PLUGINS "/broken/ladspa_") + name + ".so";
}

TEST(LadspaScan, TakesWhatHasOneOrTwoInputsAndOutputs) {
    const EffectList list = scanLadspa(std::vector{kGood}, kPatience);
    EXPECT_TRUE(list.problems.empty());
    std::vector<std::string> ids;
    for (const EffectInfo& effect : list.effects) ids.push_back(effect.id.substr(effect.id.rfind(':') + 1));
    EXPECT_THAT(ids, ElementsAre("gain", "swap", "widen", "nan", "decay", "hinted", "twin1", "twin2"));
    const EffectInfo& gain = list.effects[0];
    EXPECT_EQ(gain.id, "ladspa:ladspa_effects:gain");
    EXPECT_EQ(gain.name, "Late gain");
    EXPECT_EQ(gain.maker, "Kelvane Studio"); // a line feed in it can't break the list
    EXPECT_EQ(gain.latencyPort, 3);
    EXPECT_EQ(list.effects[1].latencyPort, -1);
    EXPECT_THAT(list.effects[2].outputs, ElementsAre(1, 2));
}

TEST(LadspaScan, FollowsTheHintsOfParameters) {
    constexpr f32 kAny = std::numeric_limits<f32>::infinity();
    const EffectList list = scanLadspa(std::vector{kGood}, kPatience);
    const struct {
        const char* symbol;
        f32 minimum, maximum, initial;
        bool toggled, integer, logarithmic;
    } kExpected[] = {
        {"cutoff", 4.41F, 441, 44.1F, false, false, true},
        {"mode", 0, 10, 8, false, true, false}, // 7.5, rounded
        {"mode_port_2", 0, 1, 1, true, false, false},
        {"mix", 3, kAny, 3, false, false, false}, // without a default the bound next to 0
    };
    const std::vector<EffectParameter>& parameters = list.effects[5].parameters;
    ASSERT_EQ(parameters.size(), std::size(kExpected));
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        const auto& [symbol, minimum, maximum, initial, toggled, integer, logarithmic] = kExpected[i];
        SCOPED_TRACE(symbol);
        EXPECT_EQ(parameters[i].symbol, symbol);
        EXPECT_FLOAT_EQ(parameters[i].minimum, minimum);
        EXPECT_FLOAT_EQ(parameters[i].maximum, maximum);
        EXPECT_NEAR(parameters[i].defaultValue, initial, 1e-4);
        EXPECT_EQ(parameters[i].toggled, toggled);
        EXPECT_EQ(parameters[i].integer, integer);
        EXPECT_EQ(parameters[i].logarithmic, logarithmic);
    }
}

TEST(LadspaScan, OutlivesBrokenLibraries) {
    const test::TempFolder folder;
    test::writeFile(folder / "text.so", bytesOf("no library"));
    const std::vector libraries{broken("abort"), (folder / "text.so").string(),
                                broken("hang"),  broken("flood"),
                                kGood,           broken("abort")};
    const EffectList list = scanLadspa(libraries, std::chrono::seconds(2));
    EXPECT_EQ(list.effects.size(), 8U);
    EXPECT_THAT(list.problems,
                ElementsAre(EndsWith("ladspa_abort.so crashed when it was asked for its effects"),
                            HasSubstr("text.so could not be opened: "),
                            EndsWith("ladspa_hang.so did not tell its effects within 2000 ms"),
                            HasSubstr("ladspa_flood.so "),
                            EndsWith("ladspa_abort.so crashed when it was asked for its effects")));
}

TEST(LadspaScan, LooksInTheFoldersOfThePath) {
    ::setenv("LADSPA_PATH", "/nowhere::" KV_PLUGINS "/ladspa:" KV_PLUGINS "/ladspa/", 1);
    const std::vector<std::string> libraries = ladspaLibraries();
    ASSERT_EQ(libraries.size(), 1U);
    EXPECT_THAT(libraries[0], EndsWith("ladspa_effects.so"));
    ::unsetenv("LADSPA_PATH");
}

// What comes through the pipe was written by a process that runs the library's code.
TEST(EffectWire, RefusesWhatIsNoEffect) {
    const EffectInfo effect = scanLadspa(std::vector{kGood}, kPatience).effects[5];
    const std::string packed = packEffect(effect);
    EXPECT_EQ(unpackEffect(packed)->parameters[3].symbol, "mix");
    for (std::size_t length = 0; length < packed.size(); ++length)
        EXPECT_FALSE(unpackEffect(packed.substr(0, length))) << length;
    EXPECT_FALSE(
        unpackEffect("i\x1Fn\x1Fm\x1F"
                     "4294967295\x1F"
                     "0\x1F"));
    EXPECT_FALSE(unpackEffect("i\x1Fn\x1Fm\x1F-1\x1F"));
    EXPECT_EQ(cleanText("Gr\xF6\xDF"
                        "e\x1F\n"),
              "Größe  "); // Windows-1252
}

} // namespace
} // namespace kv
