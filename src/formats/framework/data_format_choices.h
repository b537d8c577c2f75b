// The "Data format:" list of a save dialog: what sample data a row's writer can store.
#pragma once

#include <string>
#include <vector>

#include "formats/framework/format_table.h"

namespace kv {

inline constexpr u32 kAutoDataFormat = 0x0FFFFFFF;   ///< the value of the choice "Auto"
inline constexpr u32 kBitRateIndexFlag = 0x40000000; ///< the value is this OR the index of a bit rate

struct DataFormatChoice {
    std::string label;
    u32 value = 0; ///< one data format code, `kAutoDataFormat`, or a bit rate's index with its flag
};

struct DataFormatChoices {
    std::vector<DataFormatChoice> entries;
    int selected = -1; ///< -1 only for a row that stores no sample data
};

/// The choices for a row and the one to show first. `lastFormat` is the data format word of the last choice,
/// `lastBitRate` its rate in kbit/s, 0 when it was none.
DataFormatChoices dataFormatChoices(const FormatTable& table, int row, bool autoAllowed, u32 lastFormat,
                                    f32 lastBitRate);

} // namespace kv
