// `kelvane edit`: operations on a whole collection, one after the other.
#include <fmt/format.h>

#include <filesystem>

#include "formats/framework/collection_files.h"
#include "formats/framework/drivers.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/loops.h"
#include "model/stereo.h"
#include "model/wave_cleanup.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/row_choice.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "edit";

bool autoCreate(const std::string&) {
    AutoCreateInstruments();
    return true;
}

bool deleteUnused(const std::string&) {
    u64 freed = 0;
    DeleteUnusedWaves(freed);
    return true;
}

bool deleteDuplicates(const std::string&) {
    u64 freed = 0;
    DeleteDuplicateWaves(freed);
    return true;
}

bool mergeStereo(const std::string&) {
    u32 waves = 0;
    const u32 regions = MergeStereo(*store().First<Collection>(), waves, true, true, true);
    PostStatus(waves == 0 && regions == 0
                   ? std::string("Done: No waveforms merged")
                   : fmt::format("Done: Merged {} region{} and created {} stereo waveform{}.", regions,
                                 plural(regions), waves, plural(waves)));
    FixUpAll(0);
    return true;
}

bool splitStereo(const std::string&) {
    const u32 waves = SplitStereo(*store().First<Collection>());
    PostStatus(waves == 0 ? std::string("Done: No splits made.")
                          : fmt::format("Done: {} waveform{} were split.", waves, plural(waves)));
    FixUpAll(0);
    return true;
}

bool unrollLoops(const std::string&) {
    UnrollLoops(true, true);
    return true;
}

bool appendLoopTail(const std::string&) {
    AppendLoopTail(true);
    return true;
}

bool replaceWaves(const std::string& file) {
    return ReplaceWaves(file);
}

struct Operation {
    std::string_view name;
    bool (*run)(const std::string& value);
    bool takesFile = false;
};
constexpr Operation kOperations[] = {
    {"auto-create", autoCreate},
    {"delete-unused", deleteUnused},
    {"delete-duplicates", deleteDuplicates},
    {"merge-stereo", mergeStereo},
    {"split-stereo", splitStereo},
    {"unroll-loops", unrollLoops},
    {"append-loop-tail", appendLoopTail},
    {"replace-waves", replaceWaves, true},
};

/// The operation of a text like "delete-unused" or "replace-waves=FILE", with its value.
const Operation* operationOf(std::string_view text, std::string& value) {
    const std::size_t equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    if (equals != std::string_view::npos) value = text.substr(equals + 1);
    for (const Operation& operation : kOperations) {
        if (operation.name == name && operation.takesFile != value.empty()) return &operation;
    }
    std::string known;
    for (const Operation& operation : kOperations)
        known += fmt::format("{}{}{}", known.empty() ? "" : ", ", operation.name,
                             operation.takesFile ? "=FILE" : "");
    Fail(kContext, "\"{}\" is no operation; there are {}", text, known);
    return nullptr;
}

bool edit(const EditOptions& options, TerminalUi& ui, int row) {
    if (!openInputs(options.inputs, options.input, ui)) return false;
    for (const std::string& text : options.operations) {
        std::string value;
        const Operation* operation = operationOf(text, value);
        if (!operation || !operation->run(value)) return false;
    }
    const FormatRow& format = *workspace().formats->row(row);
    Item* item = store().First<Collection>();
    if ((format.typeFlags & kCollectionClass) == 0)
        return Fail(kContext, "\"{}\" files don't hold a whole collection", format.description);
    return SaveItemAs(options.output, item, row, kAnyFormat, 0, false);
}

} // namespace

bool openInputs(const std::vector<std::string>& paths, const InputOptions& options, TerminalUi& ui) {
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (i > 0 && !store().PushLists()) return Fail("Import", "Too many files are open at once");
        if (!openInput(paths[i], options, ui)) {
            if (i > 0) store().PopAndDiscard();
            return false;
        }
        if (i > 0) MergeLists();
    }
    return true;
}

int runEdit(const EditOptions& options, TerminalUi& ui) {
    const fs::path output = options.output;
    const int row = chooseRow(options.to.empty() ? output.extension().string() : options.to, RowUse::Write);
    std::string ignored;
    for (const std::string& text : options.operations) {
        if (!operationOf(text, ignored)) {
            reportFailure();
            return kUsage;
        }
        ignored.clear();
    }
    if (row < 0) {
        Fail(kContext, "\"{}\" names no format that can be written; use --to", options.output);
        reportFailure();
        return kUsage;
    }
    std::error_code none;
    if (!options.force && fs::exists(output, none)) {
        Fail(kContext, "\"{}\" exists already; --force replaces it", options.output);
        return reportFailure();
    }
    ui.printResults = !options.quiet;
    const bool done = edit(options, ui, row);
    if (!options.quiet) printDiagnostics(10);
    return done ? kDone : reportFailure();
}

} // namespace kv
