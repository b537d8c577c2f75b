#include "formats/framework/format_table.h"

#include <algorithm>
#include <bit>

#include "base/text.h"
#include "samples/data_format.h"

namespace kv {
namespace {

std::string_view withoutPoint(std::string_view extension) {
    return extension.starts_with('.') ? extension.substr(1) : extension;
}

/// What stands behind the last ".", the whole path if there is none.
std::string_view behindPoint(std::string_view path) {
    const std::size_t point = path.rfind('.');
    return point == std::string_view::npos ? path : path.substr(point + 1);
}

} // namespace

bool extensionMatches(std::string_view pattern, std::string_view extension) {
    for (std::size_t i = 0;; ++i) {
        if (i < pattern.size() && pattern[i] == '*') return true;
        if (i == pattern.size() || i == extension.size()) return pattern.size() == extension.size();
        if (pattern[i] != '?' && !equalIgnoringCase(pattern.substr(i, 1), extension.substr(i, 1)))
            return false;
    }
}

FormatTable::FormatTable(std::span<const FormatRow> rows) : rows_(rows) {
    for (int i = 0; i < size(); ++i) {
        const FormatRow& each = *row(i);
        extensions_.insert(toLower(each.extension));
        if (!each.reads()) continue;
        const bool wild = each.extension.find_first_of("?*") != std::string_view::npos;
        if (wild)
            wildcards_.push_back(i);
        else
            byExtension_[toUpper(each.extension)].push_back(i);
        if (each.detectFn && each.detectFn != detectAlways2) looking_.push_back(i);
    }
}

const FormatRow* FormatTable::row(int number) const {
    return number >= 0 && number < size() ? &rows_[static_cast<std::size_t>(number)] : nullptr;
}

namespace {

template <class Test>
int firstRow(const FormatTable& table, int from, Test test) {
    for (int i = std::max(from, 0); i < table.size(); ++i) {
        if (test(*table.row(i))) return i;
    }
    return -1;
}

bool canImport(const FormatRow& row) {
    return row.importFn != nullptr;
}
bool canExport(const FormatRow& row) {
    return row.exportFn != nullptr;
}

} // namespace

bool FormatTable::EnumImportRows(int& number) const {
    number = firstRow(*this, number, canImport);
    return number >= 0;
}

bool FormatTable::EnumExportRows(int& number) const {
    number = firstRow(*this, number, canExport);
    return number >= 0;
}

f32 FormatTable::FormatOption(int number, int index, std::string* label) const {
    const FormatRow* each = row(number);
    return each && each->optionsFn ? each->optionsFn(index, each->subType, label) : 0.0F;
}

bool FormatTable::RowCanExport(int number, u32 classMask) const {
    const FormatRow* each = row(number);
    return each && each->exportFn && (each->typeFlags & classMask) != 0;
}

int FormatTable::RowByDescription(std::string_view description) const {
    return firstRow(*this, 0,
                    [&](const FormatRow& r) { return canExport(r) && r.description == description; });
}

int FormatTable::RowByImportDescription(std::string_view description) const {
    return firstRow(*this, 0,
                    [&](const FormatRow& r) { return canImport(r) && r.description == description; });
}

int FormatTable::RowByExtension(std::string_view extension, u32 classMask) const {
    extension = withoutPoint(extension);
    if (extension.empty()) return -1;
    return firstRow(*this, 0, [&](const FormatRow& r) {
        return canExport(r) && (r.typeFlags & classMask) != 0 && equalIgnoringCase(r.extension, extension);
    });
}

int FormatTable::ImportRowForPath(const std::filesystem::path& path) const {
    const std::string_view extension = behindPoint(path.native());
    return firstRow(*this, 0, [&](const FormatRow& r) {
        return canImport(r) && equalIgnoringCase(r.extension, extension);
    });
}

int FormatTable::ExportRowForPath(const std::filesystem::path& path) const {
    const std::string_view extension = behindPoint(path.native());
    return firstRow(*this, 0, [&](const FormatRow& r) {
        return canExport(r) && equalIgnoringCase(r.extension, extension);
    });
}

std::string_view FormatTable::RowDescription(int number) const {
    const FormatRow* each = row(number);
    return each ? each->description : "<none>";
}

std::string_view FormatTable::RowExtension(int number) const {
    const FormatRow* each = row(number);
    return each ? each->extension : std::string_view();
}

bool FormatTable::knowsExtension(std::string_view extension) const {
    return extensions_.contains(toLower(extension));
}

void FormatTable::rowsForExtension(std::string_view extension, std::vector<int>& matches) const {
    const auto found = byExtension_.find(toUpper(extension));
    if (found != byExtension_.end()) matches = found->second;
    for (const int i : wildcards_) {
        if (extensionMatches(row(i)->extension, extension)) matches.push_back(i);
    }
}

// ---- The list of a save dialog

namespace {

/// The code listed stands for the last choice, if not by itself then as the delta form of its kin.
bool standsFor(u32 code, u32 last, u32 mask) {
    last &= kCodeMask;
    if (code == last) return true;
    if (code == kDeltaPcm8)
        return (last & kPcm8) != 0 && (mask & (kPcm8 | kDeltaPcm16 | kByteDeltaPcm16)) == 0;
    return (code == kDeltaPcm16 || code == kByteDeltaPcm16) && (last & kPcm16) != 0 && (mask & kPcm16) == 0;
}

} // namespace

DataFormatChoices dataFormatChoices(const FormatTable& table, int number, bool autoAllowed, u32 lastFormat,
                                    f32 lastRate) {
    constexpr u32 kAny = 0xFFFFFFF;
    DataFormatChoices list;
    const FormatRow* row = table.row(number);
    if (!row) return list;
    const u32 codes = row->dataMask & kCodeMask;
    const bool withAuto = std::popcount(codes) > 1 && (autoAllowed || row->perWaveFormats);
    if (withAuto) list.entries.push_back({"Auto", kAny});
    bool selected = withAuto;
    const auto select = [&](std::size_t entry) {
        list.selected = entry;
        selected = true;
    };
    for (u32 code = 1; code < kMonoBit; code <<= 1) {
        std::string_view name;
        if ((codes & code) == 0 || !FormatCodeInfo(code, &name, nullptr)) continue;
        if (code == kCompressed) {
            for (int index = 0;; ++index) {
                std::string label;
                const f32 rate = table.FormatOption(number, index, &label);
                if (!(rate > 0)) {
                    if (index == 0) list.entries.push_back({"Compressed", kCompressed});
                    break;
                }
                list.entries.push_back({label, static_cast<u32>(index) | kRateIndexBit});
                if (rate == lastRate || (!selected && rate >= lastRate)) select(list.entries.size() - 1);
            }
            continue;
        }
        list.entries.push_back({std::string(name), code});
        const std::size_t entry = list.entries.size() - 1;
        const bool first = !withAuto && entry == 0;
        const bool sixteen = !withAuto && code == kPcm16 && (lastFormat & kCodeMask) != kCompressed;
        if (standsFor(code, lastFormat, codes) || first || (sixteen && !(codes & lastFormat & kCodeMask)))
            select(entry);
    }
    if (!selected && !list.entries.empty()) list.selected = list.entries.size() - 1;
    return list;
}

} // namespace kv
