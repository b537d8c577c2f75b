// Which row of the format table a file belongs to.
#pragma once

#include <filesystem>
#include <string>

#include "base/file_context.h"
#include "formats/framework/format_table.h"

namespace kv {

/// Scores every row that reads by the table, built or not, against the file's first 32 KB and its name.
/// Answers the best row, the earlier of equals, and how sure that is in percent: 0 for a file of no known
/// format, which row 0 stands for. -1 when no row takes the file. The file's position stays.
int DetectFile(const FormatTable& table, const std::filesystem::path& path, FileContext& file,
               int& confidence);

/// Some row takes the file.
bool CanDetect(const FormatTable& table, const std::filesystem::path& path);

/// Name of a file's format, for a dialog; empty for a file that can't be opened.
struct FileDescription {
    std::string text;
    int confidence = 0; ///< percent
};
FileDescription DescribeFile(const FormatTable& table, const std::filesystem::path& path);

} // namespace kv
