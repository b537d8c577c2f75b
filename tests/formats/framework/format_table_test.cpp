#include "formats/framework/format_table.h"

#include <gtest/gtest.h>

#include <utility>

#include "model/item_id.h"

namespace kv {
namespace {

bool import(Collection&, FileContext&, u32) {
    return true;
}
bool save(Item&, FileContext&, u32, u32, bool, f32) {
    return true;
}
f32 rates(int index, u32 subType, std::string* label) {
    if (label) *label = "rate " + std::to_string(index);
    return index < static_cast<int>(subType) ? 64.f * static_cast<f32>(index + 1) : 0.f;
}

constexpr auto R = RowUse::Read, W = RowUse::Write, RW = RowUse::ReadWrite;
constexpr FormatRow kRows[] = {
    {"*", "Anything", R, kWaveClass, 0, 0, detectAlways2, import},
    {"wav", "Unbuilt", RW, kWaveClass, 0x4},
    {"wav", "Wave", RW, kWaveClass, 0x5, 0, nullptr, import, save},
    {"dls", "Bank", R, kCollectionClass, 0, 0, nullptr, import},
    {"dls", "Bank 1", W, kCollectionClass | kInstrumentClass, 0x5, 1, nullptr, nullptr, save},
    {"ogg", "Stream", W, kWaveClass, 0x1000000, 2, nullptr, nullptr, save, false, rates, true},
};

TEST(FormatTable, ListsBuiltRowsOnly) {
    const FormatTable table(kRows);
    std::string_view extension, description;
    u32 flags = 0, mask = 0;
    bool perWave = false;
    std::vector<int> readers, writers;
    for (int row = 0; table.EnumImportRows(row, extension, description, flags); ++row) {
        readers.push_back(row);
        EXPECT_EQ(description, kRows[row].description);
        EXPECT_EQ(flags, kRows[row].typeFlags);
    }
    for (int row = 0; table.EnumExportRows(row, extension, description, flags, mask, perWave); ++row) {
        writers.push_back(row);
        EXPECT_EQ(extension, kRows[row].extension);
        EXPECT_EQ(mask, kRows[row].dataMask);
        EXPECT_EQ(perWave, row == 5);
    }
    EXPECT_EQ(readers, (std::vector{0, 2, 3}));
    EXPECT_EQ(writers, (std::vector{2, 4, 5}));

    int row = -5; // a bad start is the first row, one behind the last ends the list
    EXPECT_TRUE(table.EnumImportRows(row, extension, description, flags));
    EXPECT_EQ(row, 0);
    row = 100;
    EXPECT_FALSE(table.EnumImportRows(row, extension, description, flags));
    EXPECT_EQ(row, 100);
}

TEST(FormatTable, FindsRows) {
    const FormatTable table(kRows);
    EXPECT_EQ(table.RowByDescription("Wave"), 2);
    EXPECT_EQ(table.RowByDescription("wave"), -1);
    EXPECT_EQ(table.RowByDescription("Unbuilt"), -1);
    EXPECT_EQ(table.RowByDescription("Bank"), -1);
    EXPECT_EQ(table.RowByImportDescription("Bank"), 3);
    EXPECT_EQ(table.RowByImportDescription("Bank 1"), -1);

    const std::pair<const char*, int> extensions[] = {{"wav", 2},  {"WAV", 2}, {".Wav", 2}, {"..wav", -1},
                                                      {"", -1},    {".", -1},  {"wa", -1},  {"wave", -1},
                                                      {"dls", -1}, {"*", -1}};
    for (const auto& [extension, row] : extensions) {
        EXPECT_EQ(table.RowByExtension(extension, kWaveClass), row) << extension;
    }
    EXPECT_EQ(table.RowByExtension("dls", kInstrumentClass), 4);

    const std::pair<const char*, std::pair<int, int>> paths[] = {
        {"/a/kick.WAV", {2, 2}}, {"a.b/x.dls", {3, 4}}, {"wav", {2, 2}},
        {"x.wav.", {-1, -1}},    {"a.wav/x", {-1, -1}}, {"", {-1, -1}}};
    for (const auto& [path, rows] : paths) {
        EXPECT_EQ(table.ImportRowForPath(path), rows.first) << path;
        EXPECT_EQ(table.ExportRowForPath(path), rows.second) << path;
    }
}

TEST(FormatTable, AnswersForBadRows) {
    const FormatTable table(kRows);
    f32 bitRate = 0;
    for (const int bad : {-1, -1000000, 6, 1000000}) {
        EXPECT_EQ(table.row(bad), nullptr);
        EXPECT_EQ(table.RowDescription(bad), "<none>");
        EXPECT_EQ(table.RowExtension(bad), "");
        EXPECT_FALSE(table.RowCanExport(bad, kAllClasses));
        EXPECT_FALSE(table.FormatOption(bad, 0, bitRate));
    }
    EXPECT_EQ(table.RowDescription(4), "Bank 1");
    EXPECT_EQ(table.RowExtension(0), "*");
    EXPECT_TRUE(table.RowCanExport(4, kInstrumentClass));
    EXPECT_FALSE(table.RowCanExport(4, kWaveClass));
    EXPECT_FALSE(table.RowCanExport(3, kAllClasses)); // reads only
}

TEST(FormatTable, BitRatesEndAtTheFirstZero) {
    const FormatTable table(kRows);
    f32 bitRate = 0;
    std::string label;
    ASSERT_TRUE(table.FormatOption(5, 1, bitRate, &label));
    EXPECT_EQ(bitRate, 128.f);
    EXPECT_EQ(label, "rate 1");
    EXPECT_FALSE(table.FormatOption(5, 2, bitRate));
    EXPECT_FALSE(table.FormatOption(2, 0, bitRate));
}

} // namespace
} // namespace kv
