// `kelvane edit`: operations on a whole collection, one after the other.
#include <fmt/format.h>

#include <algorithm>
#include <functional>

#include "formats/framework/collection_files.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/loops.h"
#include "model/stereo.h"
#include "model/wave_cleanup.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"

namespace kv {
namespace {

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

ConvertOptions conversionOf(const ChangeOptions& options, std::function<bool()> change) {
    ConvertOptions conversion;
    conversion.paths = options.inputs;
    conversion.paths.push_back(options.output);
    conversion.to = options.to;
    conversion.data = options.data;
    conversion.force = options.force;
    conversion.input = options.input;
    conversion.change = std::move(change);
    return conversion;
}

int runEdit(const ChangeOptions& options, TerminalUi& ui) {
    struct Step {
        const Operation* operation;
        std::string value;
    };
    std::vector<Step> steps;
    for (const std::string& text : options.steps) {
        Step& step = steps.emplace_back();
        step.operation = operationOf(text, step.value);
        if (!step.operation) {
            reportFailure();
            return kUsage;
        }
    }
    const auto change = [&] {
        return std::all_of(steps.begin(), steps.end(),
                           [](const Step& step) { return step.operation->run(step.value); });
    };
    return runConvert(conversionOf(options, change), ui);
}

} // namespace kv
