#include <gtest/gtest.h>

#include "samples/speakers.h"
#include "samples/tag_set.h"

namespace kv {
namespace {

TEST(Speakers, HaveNamesAndLayouts) {
    EXPECT_EQ(SpeakerName(0x8, false), "low-frequency");
    EXPECT_EQ(SpeakerName(0x20000, true), "trr");
    EXPECT_EQ(SpeakerName(0x3, false), "unknown");
    EXPECT_EQ(SpeakerName(0x40000, true), "x");
    const std::pair<u32, u32> masks[] = {{1, 4},      {2, 3},        {7, 0x70F},   {10, 0x2D03F},
                                         {11, 0x7FF}, {12, 0x2D63F}, {13, 0x1FFF}, {40, 0xFFFFFFFF}};
    for (const auto& [channels, mask] : masks) EXPECT_EQ(DefaultChannelMask(channels), mask) << channels;
    EXPECT_EQ(NthSpeaker(2, 0x3F), 0x4U);
    EXPECT_EQ(NthSpeaker(0, 0x130), 0x10U);
    EXPECT_EQ(NthSpeaker(3, 0x130), 0U);
    EXPECT_EQ(NthSpeaker(0, 0xFFFC0000), 0U);
}

TEST(KvTagSet, ServesEachEncoding) {
    KvTagSet tags(kSourceTags);
    tags.SetTextAnsi(5, " \x01Gr\xFC\x02n\n! \x7F ");
    EXPECT_EQ(tags.GetTextUtf8(5), "Gr\xC3\xBC n\n!  "); // the last character is no blank until it is cleaned
    EXPECT_EQ(tags.GetTextWide(5), u"Gr\u00FC n\n!  ");
    tags.SetTextAuto(3, bytesOf("abc\xC0"));
    EXPECT_EQ(tags.GetTextAnsi(3), "abc\xC0");
    tags.SetTextAuto(3, bytesOf("\xE2\x82\xAC"));
    EXPECT_EQ(tags.GetTextAnsi(3), "E");
    tags.SetTextWide(27, u"x");
    EXPECT_FALSE(tags.GetTextUtf8(27));
    EXPECT_FALSE(tags.GetTextUtf8(0));
    EXPECT_EQ(tagName(20), "EBU R 128 programme loudness");
    EXPECT_EQ(tagName(27), "Unknown");
}

TEST(KvTagSet, ListsCues) {
    KvTagSet tags(kSourceTags);
    AddCueText(tags, 1, "Intro, slow");
    AddCueText(tags, 22, "say \"hi\"");
    const std::string list = tags.GetTextUtf8(24).value();
    EXPECT_EQ(list, "1=\"Intro, slow\",22=\"say hi\"");
    EXPECT_EQ(ParseCueText(list, 0, 100)->text, "Intro, slow");
    EXPECT_EQ(ParseCueText(list, 1, 3)->text, "say");
    EXPECT_EQ(ParseCueText(list, 1, 3)->id, 22U);
    EXPECT_FALSE(ParseCueText(list, 2, 3));
    EXPECT_EQ(ParseCueText(" 7=plain,8", 0, 9)->text, "plain");
    EXPECT_EQ(ParseCueText("7=plain, 8", 1, 9)->id, 8U);
    EXPECT_FALSE(ParseCueText("", 0, 9));
}

} // namespace
} // namespace kv
