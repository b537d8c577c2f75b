#include "formats/framework/data_format_choices.h"

#include <gtest/gtest.h>

namespace kv {
namespace {

f32 rates(int index, u32, std::string* label) {
    constexpr f32 kRates[] = {64, 128, 192, 0};
    if (label) *label = std::to_string(static_cast<int>(kRates[index])) + " kbit/s";
    return kRates[index];
}
f32 noRates(int, u32, std::string*) {
    return 0;
}

struct Case {
    const char* name;
    u32 mask;
    bool autoAllowed;
    bool perWave;
    OptionsFn options;
    u32 lastFormat;
    f32 lastBitRate;
    std::vector<std::string> labels;
    int selected;
};

class DataFormatChoicesOf : public testing::TestWithParam<Case> {};

TEST_P(DataFormatChoicesOf, ListsAndSelects) {
    const Case& c = GetParam();
    const FormatRow rows[] = {{.extension = "x",
                               .description = "x",
                               .use = RowUse::Write,
                               .dataMask = c.mask,
                               .optionsFn = c.options,
                               .perWaveFormats = c.perWave}};
    const FormatTable table(rows);
    const DataFormatChoices choices = dataFormatChoices(table, 0, c.autoAllowed, c.lastFormat, c.lastBitRate);
    std::vector<std::string> labels;
    for (const DataFormatChoice& entry : choices.entries) labels.push_back(entry.label);
    EXPECT_EQ(labels, c.labels);
    EXPECT_EQ(choices.selected, c.selected);
}

const std::vector<std::string> kPcm = {"PCM 8-bit", "PCM 16-bit", "PCM 24-bit"};
const std::vector<std::string> kAutoPcm = {"Auto", "PCM 8-bit", "PCM 16-bit", "PCM 24-bit"};
const std::vector<std::string> kDeltas = {"Delta PCM 8-bit", "Delta PCM 16-bit"};
const std::vector<std::string> kStreams = {"PCM 16-bit", "64 kbit/s", "128 kbit/s", "192 kbit/s"};
const std::vector<std::string> kRatesOnly = {"64 kbit/s", "128 kbit/s", "192 kbit/s"};

INSTANTIATE_TEST_SUITE_P(
    Row, DataFormatChoicesOf,
    testing::Values(
        Case{"NoData", 0, true, true, nullptr, 4, 0, {}, -1},
        Case{"OneCodeHasNoAuto", 0xC000004, true, true, nullptr, 0, 0, {"PCM 16-bit"}, 0},
        Case{"Default16Bit", 0xC000015, false, false, nullptr, 0, 0, kPcm, 1},
        Case{"DefaultFirst", 0xC000011, false, false, nullptr, 0, 0, {"PCM 8-bit", "PCM 24-bit"}, 0},
        Case{"LastChoice", 0xC000015, false, false, nullptr, 0xC000010, 0, kPcm, 2},
        Case{"LastChoiceBefore16Bit", 0xC000015, false, false, nullptr, 0x4000001, 0, kPcm, 0},
        Case{"AutoAllowed", 0xC000015, true, false, nullptr, 0, 0, kAutoPcm, 0},
        Case{"AutoPerWave", 0xC000015, false, true, nullptr, 0, 0, kAutoPcm, 0},
        Case{"AutoGivesWay", 0xC000015, true, false, nullptr, 0x8000010, 0, kAutoPcm, 3},
        Case{"AutoAgain",
             0xC018000,
             true,
             false,
             nullptr,
             kAutoDataFormat,
             0,
             {"Auto", "Delta PCM 8-bit", "Delta PCM 16-bit"},
             0},
        Case{"UnknownCodesLeftOut", 0xC200001, false, false, nullptr, 0, 0, {"PCM 8-bit"}, 0},
        Case{"Delta16For16Bit", 0x4018000, false, false, nullptr, 4, 0, kDeltas, 1},
        Case{"Delta8OnlyWithoutDelta16", 0x4018000, false, false, nullptr, 1, 0, kDeltas, 0},
        Case{"Delta8For8Bit",
             0x4108000,
             true,
             false,
             nullptr,
             1,
             0,
             {"Auto", "Delta PCM 8-bit", "Ascii text"},
             1},
        Case{"PlainBeforeDelta",
             0x4010004,
             true,
             false,
             nullptr,
             4,
             0,
             {"Auto", "PCM 16-bit", "Delta PCM 16-bit"},
             1},
        Case{"RatesDefaultTo16Bit", 0xD000004, false, false, rates, 0, 0, kStreams, 0},
        Case{"RatesLastEqual", 0xD000004, false, false, rates, 0x1000000, 128, kStreams, 2},
        Case{"RatesLastNext", 0xD000004, false, false, rates, 0x1000000, 100, kStreams, 2},
        Case{"RatesAboveAllTakeLast", 0xD000004, false, false, rates, 0x1000000, 320, kStreams, 3},
        Case{"RatesOnlyFirst", 0xD000000, true, false, rates, 4, 0, kRatesOnly, 0},
        Case{"NoRates", 0xD000000, true, false, noRates, 4, 0, {"Compressed"}, 0}),
    [](const auto& p) { return std::string(p.param.name); });

TEST(DataFormatChoices, ValuesAreCodesOrRateIndexes) {
    const FormatRow rows[] = {{.extension = "x",
                               .description = "x",
                               .use = RowUse::Write,
                               .dataMask = 0xD000014,
                               .optionsFn = rates}};
    const auto entries = dataFormatChoices(FormatTable(rows), 0, true, 0, 0).entries;
    const u32 expected[] = {0x0FFFFFFF, 0x4, 0x10, 0x40000000, 0x40000001, 0x40000002};
    ASSERT_EQ(entries.size(), std::size(expected));
    for (std::size_t i = 0; i < entries.size(); ++i) EXPECT_EQ(entries[i].value, expected[i]);
    EXPECT_TRUE(dataFormatChoices(FormatTable(rows), -1, true, 0, 0).entries.empty());
}

} // namespace
} // namespace kv
