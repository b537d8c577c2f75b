#include "formats/table/format_table_rows.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "formats/table/formats_doc.h"
#include "model/item_id.h"
#include "places.h"
#include "samples/data_format.h"

namespace kv {
namespace {

// Settings hold row numbers, so a row that moves breaks them. One anchor in each stretch of the table.
TEST(FormatTableRows, StandWhereTheyAlwaysStood) {
    const std::pair<int, std::pair<const char*, const char*>> anchors[] = {
        {0, {"*", "Unrecognized"}},
        {1, {"32", "Raw Yamaha DX7 voice"}},
        {60, {"dls", "DownLoadable Sounds"}},
        {64, {"dls", "DownLoadable Sounds level 2++"}},
        {116, {"fzv", "Casio FZ-1 voice dump"}},
        {156, {"g726-5", "G.726 5-bit ADPCM - Little Endian"}},
        {186, {"ins", "Cakewalk instrument definition"}},
        {230, {"mod", "Tracker module"}},
        {293, {"pcg", "Korg New Kronos bank"}},
        {349, {"sf2", "SoundFont v2 bank"}},
        {396, {"txt", "Ascii text parameter descriptions"}},
        {440, {"wav", "Microsoft wave"}},
        {474, {"yadpcm", "Raw Yamaha 4-bit ADPCM"}},
    };
    for (const auto& [row, names] : anchors) {
        EXPECT_EQ(formatTable().RowExtension(row), names.first) << row;
        EXPECT_EQ(formatTable().RowDescription(row), names.second) << row;
    }
}

TEST(FormatTableRows, AreDistinctAndWellFormed) {
    std::set<std::tuple<std::string_view, std::string_view, RowUse>> seen;
    u32 knownCodes = 0x0C000000;
    for (u32 code = 1; code <= 0x02000000; code <<= 1) {
        if (FormatCodeInfo(code, nullptr, nullptr)) knownCodes |= code;
    }
    for (const FormatRow& row : formatRows()) {
        EXPECT_TRUE(seen.insert({row.extension, row.description, row.use}).second) << row.description;
        EXPECT_EQ(row.extension, toLower(row.extension));
        EXPECT_FALSE(row.extension.empty() || row.description.empty());
        EXPECT_NE(row.typeFlags, 0u) << row.description;
        EXPECT_EQ(row.dataMask & ~knownCodes, 0u) << row.description;
        const bool holdsSamples = (row.dataMask & 0x01FFFFFF) != 0;
        EXPECT_EQ(holdsSamples, (row.dataMask & 0x0C000000) != 0) << row.description;
    }
}

TEST(FormatTableRows, DocumentIsUpToDate) {
    std::ifstream file(KV_SOURCE_DIR "/docs/formats.md", std::ios::binary);
    std::ostringstream committed;
    committed << file.rdbuf();
    EXPECT_TRUE(committed.str() == formatsDocument(formatRows())) << "run kelvane-formats-doc";
}

TEST(FormatTableRows, DocumentTellsBuiltFromPlanned) {
    const FormatRow rows[] = {{.extension = "a",
                               .description = "First",
                               .use = RowUse::ReadWrite,
                               .typeFlags = kInstrumentClass | kWaveClass,
                               .dataMask = 0x4000005,
                               .importFn = [](Collection&, FileContext&, u32) { return true; }},
                              {.extension = "b", .description = "Second", .typeFlags = kAllClasses}};
    const std::string text = formatsDocument(rows);
    EXPECT_NE(text.find("| 0 | `a` | First | **yes** | planned | instrument, waveform | "
                        "PCM 8-bit, PCM 16-bit, mono |\n"
                        "| 1 | `b` | Second | planned |  | any item |  |\n"),
              text.npos)
        << text;
}

} // namespace
} // namespace kv
