// The list of formats as a document, written from the table.
#pragma once

#include <span>
#include <string>

#include "formats/framework/format_row.h"

namespace kv {

/// Markdown: an introduction, totals and one line for each row.
std::string formatsDocument(std::span<const FormatRow> rows);

} // namespace kv
