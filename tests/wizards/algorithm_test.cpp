#include "wizards/algorithm.h"

#include <gmock/gmock.h>

#include <set>

#include "model/workspace.h"
#include "wizards/algorithm_table.h"

namespace kv {
namespace {

TEST(Algorithms, TheTableMakesSense) {
    std::set<std::string> slugs;
    for (const Algorithm& algorithm : algorithms()) {
        SCOPED_TRACE(algorithm.name);
        EXPECT_TRUE(slugs.insert(slugOf(algorithm)).second);
        std::set<std::string_view> names;
        for (const Parameter& parameter : algorithm.parameters) {
            SCOPED_TRACE(parameter.slug);
            EXPECT_TRUE(names.insert(parameter.slug).second);
            if (parameter.kind == ParameterKind::Number || parameter.kind == ParameterKind::Integer) {
                EXPECT_LE(parameter.least, parameter.initial);
                EXPECT_GE(parameter.most, parameter.initial);
            }
            EXPECT_EQ(parameter.kind == ParameterKind::Choice, !parameter.choices.empty());
            EXPECT_TRUE(parameter.turnsOn.empty() || names.contains(parameter.turnsOn));
        }
    }
    EXPECT_THAT(slugs, testing::IsSupersetOf({"transpose-notes", "trim-start-and-or-length",
                                              "fix-compatibility-issues-improve-portability"}));
}

constexpr Choice kColours[] = {{"red", "Red"}, {"blue", "Blue"}};
constexpr Parameter kParameters[] = {
    {.kind = ParameterKind::Number,
     .slug = "level",
     .label = "Level:",
     .unit = "dB",
     .least = -10,
     .most = 10},
    {.kind = ParameterKind::Integer,
     .slug = "count",
     .label = "Count:",
     .initial = 1,
     .most = 5,
     .refusal = "No!"},
    {.kind = ParameterKind::Switch, .slug = "fast", .label = "Fast"},
    {.kind = ParameterKind::Choice, .slug = "colour", .label = "Colour:", .initial = 1, .choices = kColours},
    {.kind = ParameterKind::Text, .slug = "text", .label = "Text:", .initialText = "x"},
    {.kind = ParameterKind::Integer, .slug = "speed", .label = "Speed:", .most = 9, .turnsOn = "fast"},
};
constexpr Algorithm kKnown[] = {
    {AlgorithmKind::Midi, "Paint & wash", kParameters, [](AlgorithmRun&) { return true; }}};

TEST(Algorithms, CallsAreRead) {
    const Workspace space;
    struct Case {
        std::string_view text;
        f64 level;
        int count;
        bool fast;
        std::size_t colour;
        std::string_view words;
        int speed;
    };
    const Case cases[] = {
        {"paint-wash", 0, 1, false, 1, "x", 0},
        {"paint-wash:", 0, 1, false, 1, "x", 0},
        {"paint-wash:level=-2.5,count=5,fast,colour=red,text=a=b", -2.5, 5, true, 0, "a=b", 0},
        {"paint-wash:text=\"a, b\",fast=off", 0, 1, false, 1, "a, b", 0},
        {"paint-wash:speed=3", 0, 1, true, 1, "x", 3},
        {"paint-wash:text=", 0, 1, false, 1, "", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const std::optional<AlgorithmCall> call = parseAlgorithmCall(c.text, kKnown);
        ASSERT_TRUE(call);
        EXPECT_EQ(call->values.number("level"), c.level);
        EXPECT_EQ(call->values.integer("count"), c.count);
        EXPECT_EQ(call->values.on("fast"), c.fast);
        EXPECT_EQ(call->values.choice("colour"), c.colour);
        EXPECT_EQ(call->values.text("text"), c.words);
        EXPECT_EQ(call->values.integer("speed"), c.speed);
    }
}

TEST(Algorithms, WrongCallsAreRefused) {
    Workspace space;
    const WorkspaceScope scope(space);
    struct Case {
        std::string_view text, message;
    };
    const Case cases[] = {
        {"paint", "\"paint\" is no algorithm; `kelvane algorithms` lists them"},
        {"paint-wash:size=1",
         "\"size\" is no parameter of \"Paint & wash\"; there are level, count, fast, colour, text, speed"},
        {"paint-wash:level=10.1", "\"10.1\" is no value for level: a number from -10 to 10"},
        {"paint-wash:level=nan", "\"nan\" is no value for level: a number from -10 to 10"},
        {"paint-wash:level=", "\"\" is no value for level: a number from -10 to 10"},
        {"paint-wash:count=1.5", "No!"},
        {"paint-wash:speed=x", "\"x\" is no value for speed: a whole number from 0 to 9"},
        {"paint-wash:fast=maybe", "\"maybe\" is no value for fast: 0 or 1"},
        {"paint-wash:colour=green", "\"green\" is no value for colour: one of red, blue"},
    };
    for (const Case& c : cases) {
        EXPECT_FALSE(parseAlgorithmCall(c.text, kKnown)) << c.text;
        EXPECT_EQ(space.error.message, c.message);
    }
}

} // namespace
} // namespace kv
