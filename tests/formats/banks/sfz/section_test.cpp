#include <gtest/gtest.h>

#include <set>

#include "formats/banks/sfz/sfz_mapping.h"
#include "formats/banks/sfz/sfz_section.h"
#include "model/articulation.h"

namespace kv {
namespace {

TEST(SfzSection, ReadsKeysByNumberAndName) {
    struct Case {
        std::string_view text;
        int key;
    };
    constexpr u8 kKept = 99;
    const Case cases[] = {
        {"60", 60},   {"0", 0},     {"127", 127},  {"128", 127}, {"-1", 0},   {"+5", 5},   {"1e99999", 127},
        {"c4", 60},   {"C4", 60},   {"c#4", 61},   {"Db4", 61},  {"bb3", 58}, {"b3", 59},  {"cb4", 59},
        {"c-1", 0},   {"g9", 127},  {"g#9", 127},  {"c-12", 0},  {"a", 69},   {"bb", 70},  {"c", 60},
        {"h4", 60},   {"none", 60}, {"x#1", 60},   {"cb-1", 0},  {"e#", 65},  {"", kKept}, {"#", kKept},
        {"60.9", 60}, {"nan", 60},  {"12abc", 12},
    };
    for (const Case& c : cases) EXPECT_EQ(sfzKey(c.text, kKept), c.key) << c.text;
}

TEST(SfzSection, SaturatesNumbersAndSkipsBadOnes) {
    struct Case {
        std::string_view opcode, value;
        double stored;
    };
    const Case cases[] = {
        {"tune", "12.7", 12},
        {"tune", "-99999999999", -2147483648.0},
        {"tune", "junk", 0},
        {"tune", "", 0},
        {"lovel", "300", 127},
        {"lovel", "-5", 0},
        {"volume", "-6.5dB", -6.5},
        {"volume", "inf", 0},
        {"volume", "nan", 0},
        {"pan", "1e99", 1e30},
        {"cutoff", "-1e999", -1e30},
        {"ampeg_sustain", "x", 100},
        {"offby", "3", 3},
        {"loopend", "7", 7},
        {"amplfo_depth_oncc1", "2", 2},
        {"resonance", "1e-9999", 0},
    };
    for (const Case& c : cases) {
        SfzSection section;
        const SfzOpcode* opcode = findSfzOpcode(c.opcode);
        ASSERT_TRUE(opcode) << c.opcode;
        opcode->set(section, c.value);
        EXPECT_FLOAT_EQ(static_cast<float>(opcode->get(section)), static_cast<float>(c.stored))
            << c.opcode << "=" << c.value;
    }
    EXPECT_FALSE(findSfzOpcode("Tune"));
    EXPECT_FALSE(findSfzOpcode("key "));
}

TEST(SfzSection, EachOpcodeHasAMemberOfItsOwn) {
    std::set<std::string_view> names;
    for (const SfzOpcode& opcode : sfzOpcodes()) {
        EXPECT_TRUE(names.insert(opcode.name).second) << opcode.name;
        SfzSection section;
        opcode.set(section, "7");
        int changed = 0;
        for (const SfzOpcode& other : sfzOpcodes()) changed += other.get(section) != other.get(SfzSection());
        const bool text = std::holds_alternative<std::string SfzSection::*>(opcode.place);
        EXPECT_EQ(changed, text ? 0 : 1) << opcode.name;
    }
}

TEST(SfzMapping, ConvertsEnvelopes) {
    struct Case {
        SfzEg eg;
        bool oneShot;
        float delay, attack, hold, decay, sustain, release;
    };
    // In both: delay, (start,) attack, hold, decay, sustain, release.
    const Case cases[] = {
        {{}, false, 0, 0, 0, 0, 1, 0},
        {{1, 0, 2, 3, 4, 50, 5}, false, 1, 2, 3, 8, 0.5F, 10},
        {{1, 10, 2, 3, 4, 100, 5}, false, 1, 2, 3, 4, 1, 5},
        {{1, 50, 2, 0, 0, 100, 0}, false, 0, 3, 0, 0, 1, 0},
        {{1, 89.9F, 2, 4, 0, 100, 0}, false, 0, 3, 4, 0, 1, 0},
        {{1, 90, 2, 4, 0, 100, 0}, false, 0, 0, 7, 0, 1, 0},
        {{0, 0, 0, 0, 4, 0, 5}, false, 0, 0, 0, 4, 0, 5},
        {{1, 0, 2, 3, 4, 50, 5}, true, 1, 2, 3, 0, 1, 40},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        Articulation a;
        sfzReadEg(c.eg, c.oneShot, kSfzEg1, a);
        EXPECT_FLOAT_EQ(a.eg1Delay, c.delay) << i;
        EXPECT_FLOAT_EQ(a.eg1Attack, c.attack) << i;
        EXPECT_FLOAT_EQ(a.eg1Hold, c.hold) << i;
        EXPECT_FLOAT_EQ(a.eg1Decay, c.decay) << i;
        EXPECT_FLOAT_EQ(a.eg1Sustain, c.sustain) << i;
        EXPECT_FLOAT_EQ(a.eg1Release, c.release) << i;
    }
}

} // namespace
} // namespace kv
