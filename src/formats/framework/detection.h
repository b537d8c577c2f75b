// Which row of the format table a file belongs to, by its extension and its first bytes.
//
// A row scores 3 for a fitting extension (2 for row 0) plus what its detect function answers: 6 for a
// signature, 4 for a weak one, 2 for what can't be told apart. 9 is certain. The highest score wins, of equal
// ones the earlier row. Row 0, the catch-all, scores 4, so a row needs 5 to beat it.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "base/file_context.h"
#include "formats/framework/format_table.h"

namespace kv {

/// How much of a file's start detection looks at, in bytes.
inline constexpr std::size_t kDetectionBytes = 32768;

/// The row of a file that starts with `start` (at most `kDetectionBytes`) and has `fileSize` bytes, or -1.
/// `confidence` is 0..100 percent, 0 for row 0. Of the path only the extension counts.
int DetectBytes(const FormatTable& table, const std::filesystem::path& path, ByteSpan start, u64 fileSize,
                int& confidence);

/// The same for an open file, whose position stays where it was.
int DetectFile(const FormatTable& table, const std::filesystem::path& path, FileContext& file,
               int& confidence);

/// Opens the file; true when detection finds a row.
bool CanDetect(const FormatTable& table, const std::filesystem::path& path);

/// Asks the platform what files with an extension (without the point) are called; empty when unknown.
using TypeNameLookup = std::function<std::string(std::string_view extension)>;

/// For the preview of a file dialog: the format's name and the confidence in percent. A file of no known
/// format is "Unknown file type" with 0, one that can't be opened gives an empty text and 0. With a
/// confidence of 0 the platform's name, at most 80 bytes of it, takes the text's place where there is one.
void DescribeFile(const FormatTable& table, const std::filesystem::path& path, std::string& text,
                  int& confidence, const TypeNameLookup& platformName = {});

} // namespace kv
