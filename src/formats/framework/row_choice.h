// Rows of the format table as the command line names them.
#pragma once

#include <string_view>

#include "formats/framework/format_row.h"

namespace kv {

/// The row that a number, an extension or a description names, among those that read or write by the
/// table; rows that are built come before others of the same extension. -1 when there is none.
int chooseRow(std::string_view text, RowUse use);

} // namespace kv
