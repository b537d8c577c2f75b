#include "formats/framework/parameter_sets.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"

namespace kv {
namespace {

/// The switches by index, "1" for on.
struct Row {
    std::string_view name;
    std::string_view switches;
};
// clang-format off
constexpr Row kSets[] = {
    {"All parameters supported by Kelvane Studio", "111111111111111111111111111111111"},
    {"Akai S1000-series set (.P)", "100110110110101100011101110110000"},
    {"Akai S3000-series set (.P)", "100110111111101100011101110100000"},
    {"DLS level 1 melodic instruments (.DLS)", "010000000110100000000100000000001"},
    {"DLS level 2 set (.DLS)", "110100110110111111111100000000001"},
    {"DLS level 2+ set (compat with DirectX 8+)", "110100110110111111101100001000001"},
    {"GigaStudio set (.GIG)", "100100110010101100000001100000101"},
    {"Gravis UltraSound GF1 set (.PAT)", "000111110000001000000000000000000"},
    {"Korg Trinity (.PCG)", "101000001110101100011011000111101"},
    {"Korg Triton (.PCG)", "101000011111101100011011000111101"},
    {"Korg Kronos (.PCG)", "101000011111111110011011000111111"},
    {"Kurzweil K2000-series set (.KRZ)", "101001111111111100011001000011010"},
    {"SoundFont 2.0 set (.SF2)", "100100110100111110010000110000001"},
    {"SoundFont 2.1 set (.SF2)", "100100110111111111011101110110001"},
    {"TurtleBeach WaveFront set (.WFB/P/D)", "101011011000100000000011110100001"},
    {"Yamaha Motif / Motif ES set (.W2V/.W7V)", "101000011111111110011111000111011"},
    {"Yamaha Motif XS / Motif XF set (.X0V/.X3V)", "101000011111111110011111000111111"},
    {"Yamaha Tyros 2/3 normal voice set (.TVN/.UVN)", "101000011111111110011010000101011"},
    {"Minimal parameter set for portability", "000000000000000000000000000000000"},
};
// clang-format on
static_assert(std::size(kSets) == 19);
static_assert(std::all_of(std::begin(kSets), std::end(kSets),
                          [](const Row& row) { return row.switches.size() == kSwitchCount; }));

} // namespace

std::size_t namedParameterSets() {
    return std::size(kSets);
}

std::string_view parameterSetName(std::size_t index) {
    return kSets[index].name;
}

std::string_view parameterSetName(const ParameterSet& set) {
    const std::string switches = parameterSetText(set);
    const auto row = std::find_if(std::begin(kSets), std::end(kSets),
                                  [&](const Row& r) { return r.switches == switches; });
    return row == std::end(kSets) ? kCustomSet : row->name;
}

std::string parameterSetText(const ParameterSet& set) {
    std::string text;
    for (const u8 s : set.switches) text += s != 0 ? '1' : '0';
    return text;
}

std::optional<ParameterSet> parameterSetOf(std::string_view text) {
    const auto row = std::find_if(std::begin(kSets), std::end(kSets),
                                  [&](const Row& r) { return equalIgnoringCase(r.name, text); });
    if (row != std::end(kSets)) text = row->switches;
    if (text.size() != kSwitchCount || text.find_first_not_of("01") != std::string_view::npos) return {};
    ParameterSet set;
    std::transform(text.begin(), text.end(), set.switches.begin(),
                   [](char c) { return static_cast<u8>(c - '0'); });
    return set;
}

} // namespace kv
