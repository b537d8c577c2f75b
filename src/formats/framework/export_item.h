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

/// What is wanted of the data format of an item: all that `wanted` allows, but a bank that holds waves of
/// more than 16 bits is written in 24 where nobody chose.
u32 keepingBits(const FormatRow& row, const Item& item, u32 wanted);

/// Remembers what is written beside the items, as long as many are exported that don't change meanwhile.
class WrittenSamplesScope {
public:
    WrittenSamplesScope();
    ~WrittenSamplesScope();
    WrittenSamplesScope(const WrittenSamplesScope&) = delete;
    WrittenSamplesScope& operator=(const WrittenSamplesScope&) = delete;
};

} // namespace kv
