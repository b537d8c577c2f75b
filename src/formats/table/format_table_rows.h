// The one table that names every format.
#pragma once

#include <span>

#include "formats/framework/format_row.h"

namespace kv {

/// All rows, in order: the catch-all, then by extension.
std::span<const FormatRow> formatRows();

} // namespace kv
