// `kelvane convert`: one input to one output, or all items of the inputs to a folder.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <span>

#include "formats/framework/drivers.h"
#include "formats/framework/export_item.h"
#include "formats/framework/format_table.h"
#include "formats/framework/parameter_sets.h"
#include "formats/framework/row_choice.h"
#include "model/collection.h"
#include "model/song.h"
#include "model/wave.h"
#include "model/wave_cleanup.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/loss_report.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

struct ModeName {
    std::string_view name;
    NameMode mode;
};
constexpr ModeName kModes[] = {
    {"number", NameMode::Number}, {"base-name", NameMode::BaseName}, {"name", NameMode::Name},
    {"source", NameMode::Source}, {"bank", NameMode::Bank},
};

class Conversion {
public:
    Conversion(const ConvertOptions& options, TerminalUi& ui) : options_(options), ui_(ui) {}
    int run();

private:
    bool prepare();
    bool chooseTarget();
    bool canWrite() const;
    bool canReadBack() const;
    bool chooseData();
    bool convert(const std::vector<std::string>& inputs);
    u32 formatFor(const Item& item) const {
        return keepingBits(*workspace().formats->row(row_), item, wanted_);
    }
    bool convertItem(Item& item, const fs::path& path);
    bool convertToStream(Item& item);
    bool convertAll(const std::string& input, std::size_t items);
    void convertSongs(const std::string& input);
    Item* onlyItem(std::size_t& count) const;
    NameMode nameMode(std::size_t items) const;
    bool mayReplace(const fs::path& path) const;
    bool comparesWithOutput() const {
        return (options_.report || options_.strict) && !toStream_ && canReadBack();
    }
    bool report();
    bool anythingLost() const;

    const ConvertOptions& options_;
    TerminalUi& ui_;
    std::vector<std::string> inputs_;
    fs::path output_;
    bool toStream_ = false, toFolder_ = false;
    int row_ = -1;
    u32 wanted_ = kAnyFormat;
    SaveAllResult result_;
    std::vector<Loss> losses_;
    bool told_ = false; ///< a writer told of a loss
};

bool Conversion::mayReplace(const fs::path& path) const {
    std::error_code ignored;
    const bool isFile = fs::is_regular_file(path, ignored);
    return !isFile || options_.force ||
           Fail("convert", "\"{}\" exists already; --force replaces it", path.string());
}

bool Conversion::chooseTarget() {
    if (!options_.to.empty()) {
        row_ = chooseRow(options_.to, RowUse::Write);
        if (row_ < 0) return Fail("convert", "\"{}\" is no format that can be written", options_.to);
    } else {
        if (toStream_ || toFolder_) return Fail("convert", "--to is needed to tell the format");
        row_ = chooseRow(output_.extension().string(), RowUse::Write);
        if (output_.extension().empty() || row_ < 0) {
            return Fail("convert", "\"{}\" names no format that can be written; use --to", output_.string());
        }
    }
    return true;
}

/// The row's writer is there, and can do what is asked of it.
bool Conversion::canWrite() const {
    const FormatRow& row = *workspace().formats->row(row_);
    if (!row.exportFn) {
        return Fail("convert", "\"{}\" files are known, but this version can't write them yet",
                    row.description);
    }
    return !toStream_ || row.streams ||
           Fail("convert", "\"{}\" files can't be written to standard output", row.description);
}

/// Some row reads what this row writes; formats of several kinds have one for reading.
bool Conversion::canReadBack() const {
    const std::span<const FormatRow> rows = workspace().formats->rows();
    const std::string_view extension = workspace().formats->row(row_)->extension;
    return std::any_of(rows.begin(), rows.end(), [&](const FormatRow& row) {
        return row.extension == extension && row.importFn != nullptr;
    });
}

bool Conversion::chooseData() {
    const FormatRow& row = *workspace().formats->row(row_);
    u32 codes = kCodeMask;
    if (options_.data != "auto") {
        codes = FormatCodeByName(options_.data);
        if (codes == 0) return Fail("convert", "\"{}\" is no data format", options_.data);
        if ((row.dataMask & codes) == 0) {
            return Fail("convert", "\"{}\" files can't hold \"{}\"", row.description, options_.data);
        }
    } else if (options_.bitRate > 0 && row.optionsFn) {
        codes = kCompressed; // nothing else has a bit rate
    }
    const u32 channels = options_.channels == "mono"     ? kMonoBit
                         : options_.channels == "stereo" ? kStereoBit
                                                         : kMonoBit | kStereoBit;
    if ((row.dataMask & (kMonoBit | kStereoBit)) != 0 && (row.dataMask & channels) == 0) {
        return Fail("convert", "\"{}\" files can't be {}", row.description, options_.channels);
    }
    wanted_ = codes | channels;
    return true;
}

bool Conversion::prepare() {
    inputs_.assign(options_.paths.begin(), options_.paths.end() - 1);
    output_ = options_.paths.back();
    toStream_ = output_ == "-";
    std::error_code ignored;
    toFolder_ = !toStream_ && (output_.native().ends_with('/') || fs::is_directory(output_, ignored));
    if (!options_.parameterSet.empty()) {
        const std::optional<ParameterSet> set = parameterSetOf(options_.parameterSet);
        if (!set) {
            return Fail("convert", "There is no parameter set \"{}\"; `kelvane settings pset` lists them",
                        options_.parameterSet);
        }
        settings().pset = *set;
    }
    return chooseTarget() && chooseData();
}

/// The item that is saved when no other was asked for: the collection where the format holds one, else the
/// one instrument, wave or song that there is. Null, with their count, for many.
Item* Conversion::onlyItem(std::size_t& count) const {
    const u32 holds = workspace().formats->row(row_)->typeFlags;
    for (const u32 bit : {kCollectionClass, kInstrumentClass, kWaveClass, kSongClass}) {
        count = store().count(bit);
        if ((holds & bit) == 0 || count == 0) continue;
        return count == 1 ? store().FirstItem(bit) : nullptr;
    }
    count = 0;
    return nullptr;
}

NameMode Conversion::nameMode(std::size_t items) const {
    for (const ModeName& row : kModes) {
        if (row.name == options_.nameMode) return row.mode;
    }
    // A file that holds one thing keeps its name; the items of a named output are named after it.
    if (items == 1) return NameMode::Source;
    return toFolder_ ? static_cast<NameMode>(settings().sall.iMode) : NameMode::BaseName;
}

bool Conversion::convertToStream(Item& item) {
    StreamSink sink(STDOUT_FILENO);
    return ExportTo(sink, row_, "-", &item, formatFor(item), options_.bitRate, false);
}

bool Conversion::convertItem(Item& item, const fs::path& path) {
    if (!mayReplace(path)) return false;
    const Snapshot before = comparesWithOutput() ? takeSnapshot(item) : Snapshot();
    if (!SaveItemAs(path, &item, row_, formatFor(item), options_.bitRate, false)) return false;
    ++result_.saved;
    const bool whole = classOf(item.id()) == kCollectionClass;
    return !comparesWithOutput() || findLosses(before, whole, path, losses_);
}

bool Conversion::convertAll(const std::string& input, std::size_t items) {
    const FormatRow& row = *workspace().formats->row(row_);
    SaveAllJob job;
    job.base = {output_, row_, wanted_, options_.bitRate};
    if (toFolder_) {
        std::error_code failed;
        fs::create_directories(output_, failed);
        job.base.path = output_ / fmt::format("{}.{}", fs::path(input).stem().string(), row.extension);
    }
    job.mode = nameMode(items);
    job.subDirs = options_.subDirs || settings().sall.bSubDirs;
    job.onExisting = [this](const fs::path& path, const Item&) {
        if (mayReplace(path)) return ExistingFile::Overwrite;
        reportFailure();
        ++result_.failed;
        return ExistingFile::Skip;
    };
    if (comparesWithOutput()) {
        job.onSaved = [this](const fs::path& path, const Item& item) {
            if (!findLosses(takeSnapshot(item), false, path, losses_)) reportFailure();
        };
    }
    return SaveAll(job, result_);
}

/// Saves every song: "save all" knows none. In a folder a single one is named after its input; two of one
/// name get numbers.
void Conversion::convertSongs(const std::string& input) {
    const FormatRow& row = *workspace().formats->row(row_);
    const fs::path folder = toFolder_ ? output_ : output_.parent_path();
    std::error_code failed;
    if (toFolder_) fs::create_directories(folder, failed);
    const bool only = store().count(kSongClass) == 1;
    fixUpForExport(*store().First<Song>());
    for (Song& song : store().all<Song>()) {
        std::string name = only ? fs::path(input).stem().string() : fileNameFor(song.name());
        if (!toFolder_) name = fmt::format("{} - {}", output_.stem().string(), name);
        fs::path path = folder / fmt::format("{}.{}", name, row.extension);
        for (int n = 1; result_.written.contains(path); ++n)
            path = folder / fmt::format("{} {}.{}", name, n, row.extension);
        if (mayReplace(path) && exportToFile(row, path, &song, wanted_, options_.bitRate, false)) {
            result_.written.insert(path);
            ++result_.saved;
        } else {
            reportFailure();
            ++result_.failed;
        }
    }
    PostStatus(fmt::format("Done: Saved {} files.", result_.saved));
}

/// Converts what the inputs hold together.
bool Conversion::convert(const std::vector<std::string>& inputs) {
    const std::string& input = inputs[0];
    workspace().wavFact = 0; // each input is converted as if it were the only one
    if (!openInputs(inputs, options_.input, ui_)) return false;
    if (options_.change && !options_.change()) return false;
    // Plain waves go to a format of instruments as instruments that play one each.
    const u32 holds = workspace().formats->row(row_)->typeFlags;
    if ((holds & kCollectionClass) != 0 && (holds & kInstrumentClass) != 0 && options_.item.empty() &&
        store().count(kInstrumentClass) == 0 && store().count(kWaveClass) > 0) {
        AutoCreateInstruments();
    }
    std::size_t items = 1;
    Item* item = options_.item.empty() ? onlyItem(items) : selectItem(options_.item);
    if (!options_.item.empty() && !item) return false;
    if (items == 0) {
        return Fail("convert", "\"{}\" holds nothing that a \"{}\" file can hold", input,
                    workspace().formats->row(row_)->description);
    }
    if (item && toStream_) return convertToStream(*item);
    if (item && !toFolder_) return convertItem(*item, output_);
    if (toStream_) return Fail("convert", "\"{}\" holds {} items; choose one by --item", input, items);
    if (!options_.item.empty()) {
        const std::string_view extension = workspace().formats->row(row_)->extension;
        return convertItem(*item, output_ / fmt::format("{}.{}", fileNameFor(item->name()), extension));
    }
    constexpr u32 kSavedAll = kCollectionClass | kInstrumentClass | kWaveClass;
    if ((holds & kSongClass) != 0 && (holds & kSavedAll) == 0) {
        convertSongs(input);
        return true;
    }
    return convertAll(input, items);
}

/// The writers' own words count where no single file is read again.
bool Conversion::anythingLost() const {
    return told_ || !losses_.empty();
}

bool Conversion::report() {
    return !options_.report || reportLosses(losses_, *options_.report);
}

int Conversion::run() {
    if (!prepare()) {
        reportFailure();
        return kUsage;
    }
    if (!canWrite()) return reportFailure();
    // A folder takes the inputs one by one, a file all of them joined.
    std::vector<std::vector<std::string>> jobs;
    if (toFolder_) {
        for (const std::string& input : inputs_) jobs.push_back({input});
    } else {
        jobs.push_back(inputs_);
    }
    ui_.printResults = !toStream_ && jobs.size() == 1;
    int failedInputs = 0;
    for (std::size_t i = 0; i < jobs.size() && !interrupted(); ++i) {
        if (jobs.size() > 1) ShowProgress(i, jobs.size());
        workspace().diagnostics.clear();
        const int before = result_.failed;
        if (!convert(jobs[i])) {
            ++failedInputs;
            if (jobs.size() > 1) fmt::print(stderr, "{}: ", jobs[i][0]);
            reportFailure();
        } else if (result_.failed > before) {
            ++failedInputs;
        }
        for (const Diagnostic& d : workspace().diagnostics.entries())
            told_ = told_ || d.severity == Severity::Loss;
        if (!ui_.quiet()) printDiagnostics(10);
    }
    ShowProgress(0, 0);
    if (interrupted()) return kInterrupted;
    if (jobs.size() > 1 && !ui_.quiet()) fmt::print("Done: Saved {} files.\n", result_.saved);
    if (!report()) return reportFailure();
    if (failedInputs == 0) return options_.strict && anythingLost() ? kSomethingLost : kDone;
    return result_.saved > 0 ? kSomeFailed : kFailed;
}

} // namespace

int runConvert(const ConvertOptions& options, TerminalUi& ui) {
    return Conversion(options, ui).run();
}

} // namespace kv
