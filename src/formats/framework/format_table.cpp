#include "formats/framework/format_table.h"

#include <algorithm>

#include "base/text.h"

namespace kv {
namespace {

constexpr bool imports(const FormatRow& row) {
    return row.importFn != nullptr;
}
constexpr bool exports(const FormatRow& row) {
    return row.exportFn != nullptr;
}

/// The first row from `from` on that `wanted` accepts; -1 for none.
template <class Predicate>
int findRow(std::span<const FormatRow> rows, int from, Predicate wanted) {
    const std::size_t start = std::min(static_cast<std::size_t>(std::max(from, 0)), rows.size());
    const auto found = std::find_if(rows.begin() + static_cast<std::ptrdiff_t>(start), rows.end(), wanted);
    return found == rows.end() ? -1 : static_cast<int>(found - rows.begin());
}

} // namespace

std::string_view pathExtension(const std::filesystem::path& path) {
    const std::string_view whole = path.native();
    return whole.substr(whole.rfind('.') + 1); // without a point: from 0
}

FormatTable::FormatTable(std::span<const FormatRow> rows) : rows_(rows) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const FormatRow& row = rows[i];
        if (!row.reads()) continue;
        probes_.push_back({static_cast<int>(i), row.detectFn, row.subType, toUpper(row.extension)});
    }
}

const FormatRow* FormatTable::row(int number) const {
    return number >= 0 && static_cast<std::size_t>(number) < rows_.size()
               ? &rows_[static_cast<std::size_t>(number)]
               : nullptr;
}

bool FormatTable::EnumImportRows(int& row, std::string_view& extension, std::string_view& description,
                                 u32& typeFlags) const {
    const int found = findRow(rows_, row, imports);
    if (found < 0) return false;
    const FormatRow& next = *this->row(row = found);
    extension = next.extension;
    description = next.description;
    typeFlags = next.typeFlags;
    return true;
}

bool FormatTable::EnumExportRows(int& row, std::string_view& extension, std::string_view& description,
                                 u32& typeFlags, u32& dataMask, bool& perWave) const {
    const int found = findRow(rows_, row, exports);
    if (found < 0) return false;
    const FormatRow& next = *this->row(row = found);
    extension = next.extension;
    description = next.description;
    typeFlags = next.typeFlags;
    dataMask = next.dataMask;
    perWave = next.perWaveFormats;
    return true;
}

bool FormatTable::FormatOption(int row, int index, f32& bitRate, std::string* label) const {
    const FormatRow* found = this->row(row);
    if (!found || !found->optionsFn) return false;
    bitRate = found->optionsFn(index, found->subType, label);
    return bitRate > 0;
}

bool FormatTable::RowCanExport(int row, u32 classMask) const {
    const FormatRow* found = this->row(row);
    return found && exports(*found) && (found->typeFlags & classMask) != 0;
}

int FormatTable::RowByDescription(std::string_view text) const {
    return findRow(rows_, 0, [&](const FormatRow& row) { return exports(row) && row.description == text; });
}

int FormatTable::RowByImportDescription(std::string_view text) const {
    return findRow(rows_, 0, [&](const FormatRow& row) { return imports(row) && row.description == text; });
}

int FormatTable::RowByExtension(std::string_view extension, u32 classMask) const {
    if (extension.starts_with('.')) extension.remove_prefix(1);
    if (extension.empty()) return -1;
    return findRow(rows_, 0, [&](const FormatRow& row) {
        return exports(row) && (row.typeFlags & classMask) != 0 &&
               equalIgnoringCase(row.extension, extension);
    });
}

int FormatTable::ImportRowForPath(const std::filesystem::path& path) const {
    const std::string_view extension = pathExtension(path);
    return findRow(rows_, 0, [&](const FormatRow& row) {
        return imports(row) && equalIgnoringCase(row.extension, extension);
    });
}

int FormatTable::ExportRowForPath(const std::filesystem::path& path) const {
    const std::string_view extension = pathExtension(path);
    return findRow(rows_, 0, [&](const FormatRow& row) {
        return exports(row) && equalIgnoringCase(row.extension, extension);
    });
}

std::string_view FormatTable::RowDescription(int row) const {
    const FormatRow* found = this->row(row);
    return found ? found->description : "<none>";
}

std::string_view FormatTable::RowExtension(int row) const {
    const FormatRow* found = this->row(row);
    return found ? found->extension : "";
}

bool FormatTable::knowsExtension(std::string_view extension) const {
    return std::any_of(rows_.begin(), rows_.end(),
                       [&](const FormatRow& row) { return equalIgnoringCase(row.extension, extension); });
}

} // namespace kv
