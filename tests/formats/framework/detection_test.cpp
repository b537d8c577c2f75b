#include "formats/framework/detection.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "base/text.h"

namespace kv {
namespace {

constexpr auto R = RowUse::Read, W = RowUse::Write;

/// The sub-type's low digit where the file starts with its second byte.
int firstByte(ByteSpan start, u32 subType, u64) {
    return !start.empty() && start[0] == static_cast<std::byte>(subType >> 8) ? static_cast<int>(subType & 15)
                                                                              : 0;
}

constexpr FormatRow kRows[] = {
    {"*", "Unrecognized", R, 0, 0, 0, detectAlways2},
    {"out", "Written", W, 0, 0, 0, nullptr},
    {"sig", "Signature", R, 0, 0, 'S' << 8 | 6, firstByte},
    {"weak", "Weak", R, 0, 0, 'W' << 8 | 4, firstByte},
    {"raw", "Raw", R, 0, 0, 0, detectAlways2},
    {"raw", "Raw again", R, 0, 0, 0, detectAlways2},
    {"t??", "Tape", R, 0, 0, 'T' << 8 | 6, firstByte},
    {"new", "Unknown signature", R, 0, 0, 0, nullptr},
    {"sig", "Same signature", R, 0, 0, 'S' << 8 | 6, firstByte},
};

struct Case {
    const char* path;
    const char* start;
    int row;
    int confidence;
};

TEST(Detection, ScoresNameAndSignature) {
    const FormatTable table(kRows);
    const Case cases[] = {
        {"/a/x.sig", "S", 2, 100},  // both, and the earlier of two equal rows
        {"x.SIG", "S", 2, 100},     //
        {"x.sig", "?", 0, 0},       // the name alone loses to the catch-all
        {"x.foo", "S", 2, 66},      // the signature alone
        {"x.raw", "S", 2, 66},      // a signature beats a headerless format
        {"x.weak", "W", 3, 77},     //
        {"x.foo", "W", 0, 0},       // ties with the catch-all, which stands first
        {"x.raw", "W", 4, 55},      // 5 against 4
        {"x.raw", "?", 4, 55},      //
        {"x.raw", "", 4, 55},       // an empty file
        {"x.foo", "", 0, 0},        //
        {"x.t01", "T", 6, 100},     // "?" is one character
        {"x.t0", "T", 6, 66},       // not none
        {"x.t012", "T", 6, 66},     // nor two
        {"sig", "S", 2, 100},       // without a point the whole path counts
        {"x.sig/y", "S", 2, 66},    //
        {"x.", "", 0, 0},           //
        {"x.new", "?", 0, 0},       // read by the table, but no signature is known
        {"x.out", "?", 0, 0},       // written only
        {"x.r\xC3\xA4w", "", 0, 0}, //
        {"", "", 0, 0},             //
    };
    for (const Case& c : cases) {
        int confidence = -1;
        const std::string_view start = c.start;
        EXPECT_EQ(DetectBytes(table, c.path, bytesOf(start), start.size(), confidence), c.row) << c.path;
        EXPECT_EQ(confidence, c.confidence) << c.path << " " << c.start;
    }
}

TEST(Detection, WithoutACatchAllNothingMayFit) {
    const FormatTable table{std::span(kRows).subspan(1)};
    int confidence = -1;
    EXPECT_EQ(DetectBytes(table, "x.foo", {}, 0, confidence), -1);
    EXPECT_EQ(confidence, 0);
    EXPECT_EQ(DetectBytes(FormatTable({}), "x.foo", {}, 0, confidence), -1);
}

/// The rule written out over the rows, with nothing prepared.
int naiveDetection(std::span<const FormatRow> rows, std::string extension, ByteSpan start, int& confidence) {
    extension = toUpper(extension.substr(0, 64));
    extension.push_back('\0');
    int best = -1, chosen = -1;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (!rows[i].reads()) continue;
        std::string pattern = toUpper(rows[i].extension);
        pattern.push_back('\0');
        bool passed = false;
        for (std::size_t k = 0;; ++k) {
            if (pattern[k] == '*') passed = true;
            if (pattern[k] == '*') break;
            const bool anyCharacter = pattern[k] == '?' && extension[k] != '\0';
            if (!anyCharacter && pattern[k] != extension[k]) break;
            if (pattern[k] == '\0') passed = true;
            if (pattern[k] == '\0') break;
        }
        int score = passed ? i == 0 ? 2 : 3 : 0;
        if (rows[i].detectFn) score += rows[i].detectFn(start, rows[i].subType, start.size());
        if (score <= best) continue;
        best = score;
        chosen = static_cast<int>(i);
    }
    confidence = 0;
    if (best <= 2 && (chosen < 0 || !rows[static_cast<std::size_t>(chosen)].extension.starts_with('*')))
        return -1;
    if (chosen > 0) confidence = (best <= 2 ? 0 : best) * 100 / 9;
    return chosen;
}

TEST(Detection, EqualsThePlainRuleOnRandomTables) {
    std::mt19937 random(7);
    const auto upTo = [&](unsigned limit) { return static_cast<unsigned>(random() % (limit + 1)); };
    const std::string_view patterns[] = {"*", "a", "A", "ab", "?", "a?", "??", "a*", "", "?b", "*a"};
    const std::string_view extensions[] = {"", "a", "b", "ab", "AB", "abc", "*", "?"};
    for (int round = 0; round < 20000; ++round) {
        std::vector<FormatRow> rows(upTo(6));
        for (FormatRow& row : rows) {
            row.extension = patterns[upTo(10)];
            row.use = static_cast<RowUse>(1 + upTo(2));
            row.subType = upTo(1) << 8 | upTo(6);
            row.detectFn = upTo(3) == 0 ? nullptr : firstByte;
        }
        const std::byte first{static_cast<unsigned char>(upTo(1))};
        const ByteSpan start(&first, upTo(1));
        const std::string extension(extensions[upTo(7)]);
        int expected = -1, confidence = -1;
        const int row = naiveDetection(rows, extension, start, expected);
        ASSERT_EQ(DetectBytes(FormatTable(rows), "x." + extension, start, start.size(), confidence), row);
        ASSERT_EQ(confidence, expected);
    }
}

TEST(Detection, LooksAtTheExtensionsFirst64Characters) {
    const std::string longest(64, 'x');
    const FormatRow rows[] = {{"*", "", R, 0, 0, 0, detectAlways2}, {longest, "", R, 0, 0, 0, detectAlways2}};
    int confidence = 0;
    EXPECT_EQ(DetectBytes(FormatTable(rows), "f." + longest + "yz", {}, 0, confidence), 1);
}

int wholeBuffer(ByteSpan start, u32, u64 fileSize) {
    return start.size() == kDetectionBytes && fileSize == kDetectionBytes + 1 ? 6 : 0;
}

TEST(Detection, ReadsTheStartAndLeavesThePosition) {
    const FormatRow rows[] = {{"*", "", R, 0, 0, 0, detectAlways2}, {"x", "", R, 0, 0, 0, wholeBuffer}};
    FileContext file;
    file.source = std::make_shared<MemorySource>(Bytes(kDetectionBytes + 1));
    file.position = 5;
    int confidence = 0;
    EXPECT_EQ(DetectFile(FormatTable(rows), "f", file, confidence), 1);
    EXPECT_EQ(file.position, 5u);
    FileContext closed;
    EXPECT_EQ(DetectFile(FormatTable(rows), "f", closed, confidence), 0);
}

TEST(Detection, DescribesFiles) {
    const FormatTable table(kRows), strict{std::span(kRows).subspan(2)};
    const auto file = [](const char* name, std::string_view text) {
        const auto path = std::filesystem::path(testing::TempDir()) / name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    };
    const auto known = file("described.sig", "S"), unknown = file("described.foo", "?");
    const auto missing = std::filesystem::path(testing::TempDir()) / "missing.sig";
    const TypeNameLookup name = [](std::string_view extension) {
        return extension == "foo" ? std::string(79, 'n') + "\xC3\xA4" : std::string();
    };
    std::string text;
    int confidence = -1;
    DescribeFile(table, known, text, confidence, name);
    EXPECT_EQ(text, "Signature");
    EXPECT_EQ(confidence, 100);
    DescribeFile(table, unknown, text, confidence);
    EXPECT_EQ(text, "Unrecognized");
    EXPECT_EQ(confidence, 0);
    DescribeFile(strict, unknown, text, confidence);
    EXPECT_EQ(text, "Unknown file type");
    DescribeFile(table, unknown, text, confidence, name);
    EXPECT_EQ(text, std::string(79, 'n')); // 80 bytes would cut the last letter
    DescribeFile(table, missing, text, confidence, name);
    EXPECT_EQ(text, "");
    EXPECT_EQ(confidence, 0);

    EXPECT_TRUE(CanDetect(table, unknown));
    EXPECT_FALSE(CanDetect(strict, unknown));
    EXPECT_FALSE(CanDetect(table, missing));
}

} // namespace
} // namespace kv
