#include "formats/table/formats_doc.h"

#include <fmt/format.h>

#include <iterator>
#include <utility>
#include <vector>

#include "formats/framework/data_format_choices.h"
#include "model/item_id.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::pair<u32, std::string_view> kClassNames[] = {
    {kCollectionClass, "collection"}, {kSongClass, "song"},     {kTrackClass, "track"},
    {kInstrumentClass, "instrument"}, {kLayerClass, "layer"},   {kRegionClass, "region"},
    {kSynthModelClass, "synthesis"},  {kWaveClass, "waveform"},
};

std::string joined(const std::vector<std::string_view>& names) {
    return fmt::format("{}", fmt::join(names, ", "));
}

std::string classesOf(const FormatRow& row) {
    if (row.typeFlags == kAllClasses) return "any item";
    std::vector<std::string_view> names;
    for (const auto& [bit, name] : kClassNames) {
        if ((row.typeFlags & bit) != 0) names.push_back(name);
    }
    return joined(names);
}

std::string dataFormatsOf(const FormatRow& row) {
    std::vector<std::string_view> names;
    for (u32 code = 1; code <= kCodeMask; code <<= 1) {
        std::string_view name;
        if ((row.dataMask & code) != 0 && FormatCodeInfo(code, &name, nullptr)) names.push_back(name);
    }
    const bool mono = (row.dataMask & kMonoBit) != 0;
    const bool stereo = (row.dataMask & kStereoBit) != 0;
    if (mono || stereo) names.push_back(mono && stereo ? "mono or stereo" : mono ? "mono" : "stereo");
    return joined(names);
}

std::string_view state(bool has, bool built) {
    return !has ? "" : built ? "**yes**" : "planned";
}

struct Totals {
    int reads = 0, writes = 0, readsBuilt = 0, writesBuilt = 0, signatures = 0;
};

Totals totalsOf(std::span<const FormatRow> rows) {
    Totals totals;
    for (const FormatRow& row : rows) {
        totals.reads += row.reads();
        totals.writes += row.writes();
        totals.readsBuilt += row.importFn != nullptr;
        totals.writesBuilt += row.exportFn != nullptr;
        totals.signatures += row.detectFn && row.detectFn != detectAlways2;
    }
    return totals;
}

constexpr std::string_view kIntroduction = R"(# File formats

Written by `kelvane-formats-doc` from the format table; don't edit it by hand.

A row is one format under one extension. "?" in an extension stands for any one character. **yes** means
that the reader or writer is built, "planned" that the table has a place for it. The data formats are what
the writer can store; the classes are the items that a file of the format holds.
)";

} // namespace

std::string formatsDocument(std::span<const FormatRow> rows) {
    std::string text(kIntroduction);
    const auto out = std::back_inserter(text);
    const Totals totals = totalsOf(rows);
    fmt::format_to(out, "\n| | rows | built |\n|---|---|---|\n");
    fmt::format_to(out, "| all | {} | |\n", rows.size());
    fmt::format_to(out, "| read | {} | {} |\n", totals.reads, totals.readsBuilt);
    fmt::format_to(out, "| written | {} | {} |\n", totals.writes, totals.writesBuilt);
    fmt::format_to(out, "| told by a signature | {} | |\n", totals.signatures);
    fmt::format_to(out,
                   "\n| row | extension | description | reads | writes | classes | data formats |\n"
                   "|---|---|---|---|---|---|---|\n");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const FormatRow& row = rows[i];
        fmt::format_to(out, "| {} | `{}` | {} | {} | {} | {} | {} |\n", i, row.extension, row.description,
                       state(row.reads(), row.importFn != nullptr),
                       state(row.writes(), row.exportFn != nullptr), classesOf(row), dataFormatsOf(row));
    }
    return text;
}

} // namespace kv
