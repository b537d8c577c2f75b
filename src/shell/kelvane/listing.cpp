// `kelvane formats` and `kelvane detect`, and how failures and warnings are printed.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "formats/framework/detection.h"
#include "formats/framework/format_table.h"
#include "model/store.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "shell/kelvane/commands.h"

namespace kv {
namespace {

using Json = nlohmann::ordered_json;

std::string dump(const Json& json) {
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

/// The names of a row's classes, in enumeration order.
std::vector<std::string> classNames(u32 typeFlags) {
    std::vector<std::string> names;
    for (const ItemClass& each : itemClasses()) {
        if ((typeFlags & each.bit) != 0) names.emplace_back(each.word);
    }
    return names;
}

std::vector<std::string> dataNames(u32 dataMask) {
    std::vector<std::string> names;
    for (u32 code = 1; code < kMonoBit; code <<= 1) {
        std::string_view name;
        if ((dataMask & code) != 0 && FormatCodeInfo(code, &name, nullptr)) names.emplace_back(name);
    }
    return names;
}

std::string_view builtMark(bool use, bool built) {
    return !use ? "-" : built ? "yes" : "no";
}

} // namespace

int runFormats(const FormatsOptions& options) {
    const FormatTable& formats = *workspace().formats;
    Json list = Json::array();
    if (!options.json) {
        fmt::print(
            "Row Extension     Description                                     Read  Write  (\"no\": known, "
            "not built yet)\n");
    }
    for (int i = 0; i < formats.size(); ++i) {
        const FormatRow& row = *formats.row(i);
        if (options.importOnly && !row.reads()) continue;
        if (options.exportOnly && !row.writes()) continue;
        if (!options.json) {
            fmt::print("{:>3} {:<13} {:<47} {:<5} {}\n", i, row.extension, row.description,
                       builtMark(row.reads(), row.importFn), builtMark(row.writes(), row.exportFn));
            continue;
        }
        list.push_back({{"row", i},
                        {"extension", std::string(row.extension)},
                        {"description", std::string(row.description)},
                        {"reads", row.reads()},
                        {"writes", row.writes()},
                        {"readBuilt", row.importFn != nullptr},
                        {"writeBuilt", row.exportFn != nullptr},
                        {"typeFlags", row.typeFlags},
                        {"classes", classNames(row.typeFlags)},
                        {"dataMask", row.dataMask},
                        {"dataFormats", dataNames(row.dataMask)},
                        {"subType", row.subType},
                        {"perWaveFormats", row.perWaveFormats}});
    }
    if (options.json) fmt::print("{}\n", dump(list));
    return kDone;
}

int runDetect(const DetectOptions& options) {
    const FormatTable& formats = *workspace().formats;
    Json list = Json::array();
    std::size_t failed = 0;
    std::string out;
    for (const std::string& path : options.paths) {
        FileContext file;
        file.path = path;
        file.source = openFileSource(path);
        if (!file.source) {
            ++failed;
            fmt::print(stderr, "{}: Could not open file\n", path);
            continue;
        }
        int confidence = 0;
        const int number = DetectFile(formats, path, file, confidence);
        const FormatRow* row = formats.row(number);
        if (options.json) {
            list.push_back({{"path", path},
                            {"description", row ? std::string(row->description) : "Unknown file type"},
                            {"confidence", confidence},
                            {"row", number}});
        } else {
            out += fmt::format("{}: {} ({} %, row {})\n", path, row ? row->description : "Unknown file type",
                               confidence, number);
        }
    }
    if (options.json) out = dump(list) + "\n";
    fmt::print("{}", out);
    return failed == 0 ? kDone : failed < options.paths.size() ? kSomeFailed : kFailed;
}

int reportFailure() {
    const ErrorPair& error = workspace().error;
    fmt::print(stderr, "{}: {}\n", error.context, error.message);
    return kFailed;
}

void printDiagnostics(std::size_t most) {
    const auto& entries = workspace().diagnostics.entries();
    for (std::size_t i = 0; i < std::min(most, entries.size()); ++i) {
        const Diagnostic& d = entries[i];
        const std::string_view word = d.severity == Severity::Loss   ? "lost"
                                      : d.severity == Severity::Note ? "note"
                                                                     : "warning";
        const std::string place = d.offset > 0 ? fmt::format(" (at byte {})", d.offset) : std::string();
        fmt::print(stderr, "{}: {}{}{}: {}{}\n", word, d.item, d.item.empty() ? "" : ": ", d.field, d.text,
                   place);
    }
    if (entries.size() > most) fmt::print(stderr, "... and {} more\n", entries.size() - most);
}

} // namespace kv
