// Questions to the table of all formats. Rows are numbered from 0; -1 stands for no row.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "formats/framework/format_row.h"

namespace kv {

class FormatTable {
public:
    /// The rows must outlive the table.
    explicit FormatTable(std::span<const FormatRow> rows);

    int size() const { return static_cast<int>(rows_.size()); }
    /// Null for a bad number.
    const FormatRow* row(int number) const;
    std::span<const FormatRow> rows() const { return rows_; }

    /// From `row` on, moves `row` to the next one that can be read (or written); false at the end. The
    /// caller steps `row` on between calls.
    bool EnumImportRows(int& row) const;
    bool EnumExportRows(int& row) const;
    /// A bit rate that the row's writer offers, in kbit/s, and its label; 0 at the end of the list.
    f32 FormatOption(int row, int index, std::string* label = nullptr) const;
    /// The row can be written and holds items of some class of the mask.
    bool RowCanExport(int row, u32 classMask) const;

    /// By exact description, among rows that can be written (or read).
    int RowByDescription(std::string_view description) const;
    int RowByImportDescription(std::string_view description) const;
    /// The first row that can be written, holds a class of the mask and has the extension, ignoring case
    /// and a leading point.
    int RowByExtension(std::string_view extension, u32 classMask) const;
    /// The first row that can be read (or written) by what stands behind the path's last ".".
    int ImportRowForPath(const std::filesystem::path& path) const;
    int ExportRowForPath(const std::filesystem::path& path) const;

    /// "<none>" for a bad number.
    std::string_view RowDescription(int row) const;
    /// Empty for a bad number.
    std::string_view RowExtension(int row) const;
    /// Some row has this extension, ignoring case.
    bool knowsExtension(std::string_view extension) const;

    /// For detection: rows that read by the table and whose extension matches `extension` in upper case.
    void rowsForExtension(std::string_view extension, std::vector<int>& matches) const;
    /// For detection: rows that read and whose detection looks at the file, in table order.
    std::span<const int> rowsThatLook() const { return looking_; }

private:
    std::span<const FormatRow> rows_;
    std::unordered_map<std::string, std::vector<int>> byExtension_; ///< upper case, readable rows
    std::vector<int> wildcards_;                                    ///< readable rows with "?" or "*"
    std::vector<int> looking_;
    std::unordered_set<std::string> extensions_; ///< lower case, all rows
};

/// Matches an extension with a row's pattern: "?" is any one character, "*" any rest, case ignored.
bool extensionMatches(std::string_view pattern, std::string_view extension);

/// One entry of a save dialog's "Data format:" list.
struct DataFormatChoice {
    std::string label;
    u32 value = 0; ///< a mask of codes, or an index of `FormatOption` with bit 30 set
};
inline constexpr u32 kRateIndexBit = 0x40000000;
struct DataFormatChoices {
    std::vector<DataFormatChoice> entries;
    std::size_t selected = 0;
};
/// What a save dialog offers for a row. `lastFormat` and `lastRate` are the user's last choice.
DataFormatChoices dataFormatChoices(const FormatTable& table, int row, bool autoAllowed, u32 lastFormat,
                                    f32 lastRate);

} // namespace kv
