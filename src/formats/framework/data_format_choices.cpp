#include "formats/framework/data_format_choices.h"

#include <bit>

#include "samples/data_format.h"

namespace kv {
namespace {

/// `code` is what the user chose last, or the delta form of it where `mask` hasn't the plain one.
bool standsFor(u32 code, u32 last, u32 mask) {
    if (code == last) return true;
    if (last == kCodeMask) return false; // "Auto" was no choice of a code
    if (code == kDeltaPcm8)
        return (last & kPcm8) != 0 && (mask & (kPcm8 | kDeltaPcm16 | kByteDeltaPcm16)) == 0;
    return (code == kDeltaPcm16 || code == kByteDeltaPcm16) && (last & kPcm16) != 0;
}

/// Adds one entry for each bit rate of the row's writer and selects the last one used; false without rates.
bool addBitRates(const FormatTable& table, int row, f32 lastBitRate, DataFormatChoices& list) {
    f32 bitRate = 0;
    std::string label;
    int index = 0;
    for (; table.FormatOption(row, index, bitRate, &label); ++index) {
        list.entries.push_back({label, static_cast<u32>(index) | kBitRateIndexFlag});
        const bool first = list.selected < 0 && bitRate >= lastBitRate;
        if (first || bitRate == lastBitRate) list.selected = static_cast<int>(list.entries.size()) - 1;
    }
    return index > 0;
}

} // namespace

DataFormatChoices dataFormatChoices(const FormatTable& table, int row, bool autoAllowed, u32 lastFormat,
                                    f32 lastBitRate) {
    DataFormatChoices list;
    const FormatRow* found = table.row(row);
    if (!found) return list;
    const u32 mask = found->dataMask & kCodeMask;
    const u32 last = lastFormat & kCodeMask;
    const bool withAuto = std::popcount(mask) > 1 && (autoAllowed || found->perWaveFormats);
    if (withAuto) {
        list.entries.push_back({"Auto", kAutoDataFormat});
        list.selected = 0;
    }

    const bool defaults = !withAuto && last != kCompressed;
    bool matched = false; // of several codes that stand for the last choice the first is taken
    for (u32 code = 1; code <= kCodeMask; code <<= 1) {
        std::string_view name;
        if ((mask & code) == 0 || !FormatCodeInfo(code, &name, nullptr)) continue;
        if (code == kCompressed && addBitRates(table, row, lastBitRate, list)) continue;
        list.entries.push_back({std::string(name), code});
        const bool matches = !matched && standsFor(code, last, mask);
        const bool isDefault = defaults && !matched && (list.selected < 0 || code == kPcm16);
        if (matches || isDefault) list.selected = static_cast<int>(list.entries.size()) - 1;
        matched = matched || matches;
    }
    if (list.selected < 0) list.selected = static_cast<int>(list.entries.size()) - 1;
    return list;
}

} // namespace kv
