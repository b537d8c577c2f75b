// The one table that names every file format, in its fixed order: row numbers are stored in settings.
#pragma once

#include <span>

#include "formats/framework/format_table.h"

namespace kv {

std::span<const FormatRow> formatRows();
/// The queries over `formatRows()`.
const FormatTable& formatTable();

} // namespace kv
