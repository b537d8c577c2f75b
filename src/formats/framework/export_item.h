// The parts of an export, for drivers that do many in a row.
#pragma once

#include <filesystem>

#include "base/byte_sink.h"
#include "formats/framework/format_row.h"

namespace kv {

/// The row when it can write and there is an item; null with the error pair set else.
const FormatRow* exportRow(int row, const Item* item);
/// Fixes the store up for the export of an item.
void fixUpForExport(const Item& item);
/// Exports an item of a store that is fixed up.
bool exportItem(ByteSink& sink, const FormatRow& row, const std::filesystem::path& path, Item* item,
                u32 wantedFormat, f32 bitRate, bool allowEmpty);
bool exportToFile(const FormatRow& row, const std::filesystem::path& path, Item* item, u32 wantedFormat,
                  f32 bitRate, bool allowEmpty);

} // namespace kv
