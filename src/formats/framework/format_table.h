// Queries over a table of format rows. Rows are named by their number, which settings store; -1 is none.
// The lists offer only rows whose function is built; detection goes by what the table says.
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"
#include "formats/framework/format_row.h"

namespace kv {

/// The part of a path behind its last point, the whole path without one. No case is changed.
std::string_view pathExtension(const std::filesystem::path& path);

class FormatTable {
public:
    /// The rows must outlive the table.
    explicit FormatTable(std::span<const FormatRow> rows);

    std::span<const FormatRow> rows() const { return rows_; }
    int size() const { return static_cast<int>(rows_.size()); }
    /// Null for a bad row number.
    const FormatRow* row(int number) const;

    /// From `row` on, finds the next row that can be imported and moves `row` to it; false at the end. The
    /// caller raises `row` by one between calls.
    bool EnumImportRows(int& row, std::string_view& extension, std::string_view& description,
                        u32& typeFlags) const;
    /// The same for rows that can be exported.
    bool EnumExportRows(int& row, std::string_view& extension, std::string_view& description, u32& typeFlags,
                        u32& dataMask, bool& perWave) const;
    /// The bit rate `index` (kbit/s) that the row's writer offers, with its label; false past the last one,
    /// and for a row without options.
    bool FormatOption(int row, int index, f32& bitRate, std::string* label = nullptr) const;
    /// The row writes an item of one of the classes in `classMask`.
    bool RowCanExport(int row, u32 classMask) const;

    int RowByDescription(std::string_view text) const;       ///< exact, rows that export
    int RowByImportDescription(std::string_view text) const; ///< exact, rows that import
    /// The first exporting row with this extension, with or without the point, whose classes meet
    /// `classMask`.
    int RowByExtension(std::string_view extension, u32 classMask) const;
    int ImportRowForPath(const std::filesystem::path& path) const;
    int ExportRowForPath(const std::filesystem::path& path) const;
    std::string_view RowDescription(int row) const; ///< "<none>" for a bad row
    std::string_view RowExtension(int row) const;   ///< empty for a bad row
    /// Some row has this extension, built or not, ignoring case.
    bool knowsExtension(std::string_view extension) const;

    /// What detection needs of a row that reads, in table order.
    struct Probe {
        int row;
        DetectFn detect; ///< null: no signature known
        u32 subType;
        std::string pattern; ///< extension, upper case
    };
    std::span<const Probe> probes() const { return probes_; }

private:
    std::span<const FormatRow> rows_;
    std::vector<Probe> probes_;
};

} // namespace kv
