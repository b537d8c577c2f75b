#include "samples/text_codec.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

TEST(TextCodec, AnsiGoesThereAndBack) {
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    EXPECT_EQ(AnsiToUtf8("\x80\x99\x81"), "\xE2\x82\xAC\xE2\x84\xA2\xC2\x81");
    EXPECT_TRUE(isUtf8(AnsiToUtf8(all)));
    EXPECT_EQ(Utf8ToWide(AnsiToUtf8(all)), AnsiToWide(all));
    // Best fit does not lead back to 0x80..0x9F; all else comes back as it was.
    const std::string back = Utf8ToAnsi(AnsiToUtf8(all));
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto c = static_cast<u8>(all[i]);
        if (c >= 0x80 && c <= 0x9F) continue;
        EXPECT_EQ(back[i], all[i]) << i;
    }
}

TEST(TextCodec, NarrowsByBestFit) {
    const std::pair<const char*, const char*> cases[] = {
        {"\xE2\x82\xAC", "E"}, {"\xE2\x80\x99", "'"},      {"\xE2\x80\x9C\xE2\x80\x9D", "\"\""},
        {"\xC4\x80", "\xC4"},  {"\xC5\xBE", "z"},          {"\xE2\x80\xA6", "."},
        {"\xE6\x97\xA5", "?"}, {"\xF0\x9F\x8E\xB9", "?"},  {"\xCB\x86", "^"},
        {"\xC5\x81", "L"},     {"caf\xC3\xA9", "caf\xE9"},
    };
    for (const auto& [utf8, ansi] : cases) EXPECT_EQ(Utf8ToAnsi(utf8), ansi) << utf8;
    EXPECT_EQ(WideToAnsi(u"a\xD83C\xDFB9"
                         u"b"),
              "a?b");
    EXPECT_EQ(WideToAnsi(u"a\xD83C"), "a"); // a lone surrogate ends the text
}

TEST(TextCodec, MalformedBytesKeepTheirValue) {
    EXPECT_EQ(Utf8ToWide("a\xC3"
                         "b\xFF"),
              u"a\u00C3b\u00FF");
    EXPECT_EQ(Utf8ToWide("\xE2\x82"), u"\u00E2\u0082");
    EXPECT_EQ(WideToUtf8(Utf8ToWide("\xF0\x9F\x8E\xB9")), "\xF0\x9F\x8E\xB9");
}

TEST(TextCodec, StoredTextIsToldApart) {
    const auto read = [](std::string_view stored) { return textFromBytes(bytesOf(stored)); };
    EXPECT_EQ(read("Gr\xC3\xBC\xC3\x9F"
                   "e"),
              "Gr\xC3\xBC\xC3\x9F"
              "e");
    EXPECT_EQ(read("Gr\xFC\xDF"
                   "e"),
              "Gr\xC3\xBC\xC3\x9F"
              "e");
    EXPECT_EQ(read("abc\xC0"), "abc\xC3\x80"); // cut short, so no UTF-8
    EXPECT_EQ(read(std::string_view("a\0b", 3)), "a");
    EXPECT_EQ(read(std::string_view("\xFF\xFEh\0i\0\0\0x\0", 10)), "hi");
    EXPECT_EQ(read(std::string_view("\xFE\xFF\0h\0i\0", 7)), "hi");
    EXPECT_EQ(read("\xFF\xFE"), "");
    EXPECT_EQ(read(""), "");
}

TEST(TextCodec, PartsOfPaths) {
    const std::pair<std::string_view, std::string_view> extensions[] = {
        {"a.wav", ".wav"}, {"a.b/c", ""},       {"C:\\x.y\\z", ""}, {"a..", ""},
        {"..", ""},        {"a.tar.gz", ".gz"}, {".x", ".x"},       {"a.", "."},
    };
    for (const auto& [path, wanted] : extensions) EXPECT_EQ(path.substr(FileExtension(path)), wanted) << path;
    EXPECT_EQ(FileNamePart("C:\\a/b:c.wav"), "c.wav");
    const std::pair<const char*, i32> numbers[] = {{"12", 12}, {"a -7b", -7}, {"-+8", 8},
                                                   {"x", 42},  {"", 42},      {"99999999999", 2147483647}};
    for (const auto& [text, wanted] : numbers) EXPECT_EQ(WideToInt(text, 42), wanted) << text;
}

} // namespace
} // namespace kv
