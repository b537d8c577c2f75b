#include "base/text.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

TEST(Text, IsCutBehindAWholeCharacter) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"abcdef", "abc"},
        {"\xC3\xA4\xC3\xB6\xC3\xBC!", "\xC3\xA4\xC3\xB6\xC3\xBC"},
        {"\xF0\x9F\x8E\xB9"
         "bcd",
         "\xF0\x9F\x8E\xB9"
         "bc"},
        {"\xE2\x82", "\xE2\x82"},             // cut short: two characters of one byte
        {"\xFF\xFE\xFD\xFC", "\xFF\xFE\xFD"}, // no UTF-8: bytes
        {"a\xC3"
         "bc",
         "a\xC3"
         "b"},
        {std::string_view("a\0b", 3), "a"},
        {"", ""},
    };
    for (const auto& [given, wanted] : cases) EXPECT_EQ(Text<3>(given).view(), wanted);
}

TEST(Text, ComparesIgnoringCase) {
    EXPECT_TRUE(equalIgnoringCase("ABCxyz", "abcXYZ"));
    EXPECT_FALSE(equalIgnoringCase("abc", "abcd"));
    EXPECT_FALSE(equalIgnoringCase("[", "{"));
    EXPECT_LT(compareIgnoringCase("ab", "ABC"), 0);
    EXPECT_GT(compareIgnoringCase("b", "AZ"), 0);
    EXPECT_EQ(compareIgnoringCase("Kick", "kICK"), 0);
    EXPECT_EQ(toUpper("a\xC3\xA4z1"), "A\xC3\xA4Z1");
}

} // namespace
} // namespace kv
