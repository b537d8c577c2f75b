#include "batch/batch_file.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "base/text.h"
#include "batch/batch_names.h"
#include "formats/framework/collection_files.h"
#include "formats/framework/export_item.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/stereo.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "plugins/run_effects.h"
#include "wizards/algorithm_table.h"
#include "wizards/wave_edit.h"
#include "wizards/wave_resample.h"
#include "wizards/wave_silence.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
constexpr std::string_view kContext = "batch";

/// Pushes the lists of the store for the time of one file.
class PushedLists {
public:
    PushedLists() : pushed_(store().PushLists()) {}
    ~PushedLists() {
        if (pushed_) store().PopAndDiscard();
    }
    PushedLists(const PushedLists&) = delete;
    PushedLists& operator=(const PushedLists&) = delete;
    explicit operator bool() const { return pushed_; }

private:
    bool pushed_;
};

/// An instrument that plays all waves of a file which has none, as long as it is saved.
class TemporaryInstrument {
public:
    TemporaryInstrument() {
        const Wave* first = store().First<Wave>();
        if (store().count(kInstrumentClass) > 0 || !first) return;
        instrument_ = store().Create<Instrument>(kNextFreeNumber, 0U, 0U, first->name());
        instrument_->patch &= ~127U;
        for (Wave& wave : store().all<Wave>())
            instrument_->AddChild(store().Create<Layer>(kNextFreeNumber, numberOf(wave.id()))->id());
        instrument_->FixUp();
    }
    ~TemporaryInstrument() {
        if (instrument_) store().Delete(instrument_);
    }
    TemporaryInstrument(const TemporaryInstrument&) = delete;
    TemporaryInstrument& operator=(const TemporaryInstrument&) = delete;

private:
    Instrument* instrument_ = nullptr;
};

/// File times come from a clock that is behind by as much as this, in ns.
constexpr i64 kFileClockStep = 50'000'000;

i64 changedAt(const fs::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return 0;
    return i64{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec;
}

class FileConversion {
public:
    FileConversion(BatchJob& job, const BatchInput& input, const BatchHooks& hooks, bool& cancelled)
        : job_(job), input_(input), hooks_(hooks), cancelled_(cancelled) {}
    BatchResult run();

private:
    bool convert();
    bool open();
    bool hasItems() const;
    bool processAll();
    bool runAlgorithms();
    bool processWave(Wave& wave) const;
    bool changesWaves() const;
    bool write(const BatchOutput& output);
    bool saveOne(Item& item, const fs::path& folder, std::string_view suffix, const BatchOutput& output);
    bool settleExisting(fs::path& target, bool& skip);
    fs::path unusedName(const fs::path& folder, std::string_view suffix, const BatchOutput& output) const;
    bool skip(std::string reason);
    void takeDiagnostics();

    BatchJob& job_;
    const BatchInput& input_;
    const BatchHooks& hooks_;
    bool& cancelled_;
    BatchResult result_;
    std::set<fs::path> targets_; ///< of this file, saved or not
};

bool FileConversion::skip(std::string reason) {
    result_.status = BatchStatus::Skipped;
    result_.reason = std::move(reason);
    return true;
}

bool FileConversion::open() {
    return hooks_.open ? hooks_.open(input_.path) : Import(input_.path, false);
}

bool FileConversion::hasItems() const {
    const bool instruments = store().count(kInstrumentClass) > 0, waves = store().count(kWaveClass) > 0;
    const bool has = job_.mode == BatchMode::Waves         ? waves
                     : job_.mode == BatchMode::Instruments ? instruments || waves
                     : job_.mode == BatchMode::Collections ? instruments
                                                           : store().count(kSongClass) > 0;
    return has || Fail(kContext, "{}", infoOf(job_.mode).missing);
}

/// Takes the instruments of a bank with the song's name into the song's collection.
bool mergeBankBeside(const fs::path& song) {
    for (const std::string_view extension : {".dls", ".sf2"}) {
        fs::path bank = song;
        bank.replace_extension(extension);
        std::error_code ignored;
        if (fs::is_regular_file(bank, ignored)) return OpenMerged(bank);
    }
    return true;
}

bool FileConversion::runAlgorithms() {
    for (const std::string& text : job_.algorithms) {
        const std::optional<AlgorithmCall> call = parseAlgorithmCall(text, algorithms());
        if (!call) return false;
        const WizardItems items = allItemsFor(call->algorithm->kind);
        // What has nothing to do on a file, as mono on a mono wave, is passed over.
        if (items.items.empty() || (call->algorithm->offered && !call->algorithm->offered(items))) continue;
        std::string said;
        if (!runAlgorithm(*call, items, said)) return false;
    }
    if (!job_.algorithms.empty()) FixUpAll(kAllClasses);
    return true;
}

bool FileConversion::changesWaves() const {
    return job_.resample || job_.trimStart || job_.trimEnd || job_.normalize || !job_.plugins.empty();
}

bool FileConversion::processWave(Wave& wave) const {
    if (!wave.LoadData()) return false;
    const bool wanted = job_.resample && (!job_.onlyDownsample || wave.sampleRate > job_.resampleRate);
    if (wanted && wave.sampleRate != job_.resampleRate &&
        !ResampleWave(wave, 0, job_.resampleRate, static_cast<int>(job_.resampleQuality)))
        return false;
    if (job_.trimStart || job_.trimEnd) {
        SilenceRemoval how;
        how.fromStart = job_.trimStart;
        how.fromEnd = job_.trimEnd;
        how.threshold = static_cast<f64>(job_.silenceThreshold);
        if (!RemoveSilence(wave, how)) return false;
    }
    if (job_.normalize && !MaximizeAmplitude(wave, MaximizeMode::FixedZero)) return false;
    std::vector<EffectStep> steps;
    for (const BatchEffect& effect : job_.plugins) steps.push_back({effect.effect, effect.settings, {}});
    return steps.empty() || runEffects(wave, steps);
}

bool FileConversion::processAll() {
    Collection* collection = store().First<Collection>();
    if (job_.mode != BatchMode::Waves && job_.splitStereo) SplitStereo(*collection);
    if (job_.mode != BatchMode::Waves && job_.mergeStereo) {
        u32 made = 0;
        MergeStereo(*collection, made, true, true, true);
    }
    if (!runAlgorithms()) return false;
    if (!changesWaves()) return true;
    for (Wave& wave : store().all<Wave>()) {
        if (cancelled_ || CancelRequested()) break;
        if (!processWave(wave)) return false;
    }
    FixUpAll(0);
    return true;
}

/// A name that no output of this file has yet: two waves of one name must not overwrite each other.
fs::path FileConversion::unusedName(const fs::path& folder, std::string_view suffix,
                                    const BatchOutput& output) const {
    const std::string stem = fs::path(input_.path).stem().string();
    fs::path target = targetFile(folder, stem, suffix, output);
    for (int n = 2; targets_.contains(target); ++n)
        target = targetFile(folder, stem, fmt::format("{} {}", suffix.empty() ? stem : suffix, n), output);
    return target;
}

/// Asks about a target that exists. False with the error pair set when the file is to fail for it.
bool FileConversion::settleExisting(fs::path& target, bool& skipped) {
    std::error_code ignored;
    while (!job_.overwriteAll && fs::exists(fs::symlink_status(target, ignored))) {
        if (input_.ownSince > 0 && changedAt(target) >= input_.ownSince - kFileClockStep) return true;
        const ReplaceAnswer answer = hooks_.onExisting ? hooks_.onExisting(target) : ReplaceAnswer{};
        switch (answer.kind) {
            case ReplaceAnswer::Kind::Replace:
                return true;
            case ReplaceAnswer::Kind::ReplaceAll:
                job_.overwriteAll = true;
                return true;
            case ReplaceAnswer::Kind::Fail:
                return Fail(kContext, "\"{}\" exists already", target.string());
            case ReplaceAnswer::Kind::Cancel:
                cancelled_ = true;
                skipped = true;
                return true;
            case ReplaceAnswer::Kind::Rename:
                if (!answer.name.empty()) {
                    target = answer.name;
                    break;
                }
                [[fallthrough]];
            case ReplaceAnswer::Kind::Skip:
                skipped = true;
                return true;
        }
    }
    return true;
}

bool FileConversion::saveOne(Item& item, const fs::path& folder, std::string_view suffix,
                             const BatchOutput& output) {
    const FormatRow* row = exportRow(output.row, &item);
    if (!row) return false;
    fs::path target = unusedName(folder, suffix, output);
    targets_.insert(target);
    bool skipped = false;
    if (!settleExisting(target, skipped)) return false;
    if (skipped) return true;
    std::error_code ignored;
    if (fs::equivalent(target, input_.path, ignored)) // false for a target that isn't there
        return Fail(kContext, "\"{}\" would replace the file that it is made of", target.string());
    if (hooks_.dryRun) {
        result_.outputs.push_back({target.string(), 0});
        return true;
    }
    if (hooks_.beforeWrite) hooks_.beforeWrite();
    const u32 wanted = keepingBits(*row, item, output.format);
    if (!exportToFile(*row, target, &item, wanted, output.bitRate, false)) return false;
    const u64 bytes = fs::file_size(target, ignored);
    result_.outputs.push_back({target.string(), ignored ? 0 : bytes});
    if (hooks_.onWritten) hooks_.onWritten(result_.outputs.back());
    return true;
}

/// The items that a mode saves, each to a file of its own.
std::vector<Item*> itemsToSave(BatchMode mode) {
    std::vector<Item*> items;
    if (mode == BatchMode::Waves) {
        for (Wave& wave : store().all<Wave>()) items.push_back(&wave);
    } else if (mode == BatchMode::Instruments) {
        for (Instrument& instrument : store().all<Instrument>()) items.push_back(&instrument);
    } else if (mode == BatchMode::Collections) {
        items.push_back(store().First<Collection>());
    } else {
        items.push_back(store().First<Song>());
    }
    return items;
}

bool FileConversion::write(const BatchOutput& output) {
    const fs::path folder = targetFolder(job_, output, input_.path, input_.treeDepth);
    std::error_code failed;
    if (!hooks_.dryRun) fs::create_directories(folder, failed);
    if (failed) return Fail(kContext, "Could not create the folder \"{}\"", folder.string());
    const std::vector<Item*> items = itemsToSave(job_.mode);
    fixUpForExport(*items.front());
    const WrittenSamplesScope remember;
    for (Item* item : items) {
        if (cancelled_ || CancelRequested()) break;
        const bool wave = classOf(item->id()) == kWaveClass;
        const bool resident = wave && static_cast<Wave&>(*item).resident();
        if (!saveOne(*item, folder, items.size() > 1 ? item->name().view() : "", output)) return false;
        // One wave's samples at a time are enough.
        if (wave && !resident && !item->locked) FreeData(static_cast<Wave&>(*item), true);
    }
    return true;
}

bool FileConversion::convert() {
    const PushedLists lists;
    if (!lists) return Fail(kContext, "Too many lists are pushed");
    // What a folder holds besides samples is no failure.
    if (!open())
        return input_.scanned && runContext().error.message == kNotDetected &&
               skip(std::string(kNotDetected));
    if (!hasItems()) return input_.scanned && skip(runContext().error.message);
    if (job_.mode == BatchMode::Songs && job_.autoMergeSongs && store().count(kInstrumentClass) == 0 &&
        !mergeBankBeside(input_.path))
        return false;
    if (!hooks_.dryRun && !processAll()) return false;

    std::optional<TemporaryInstrument> temporary;
    if (job_.mode == BatchMode::Instruments) temporary.emplace();
    const bool besides = std::any_of(job_.outputs.begin(), job_.outputs.end(), [](const BatchOutput& output) {
        return workspace().formats->row(output.row)->writesBeside;
    });
    if ((besides || input_.contended) && hooks_.awaitTurn) {
        const std::string owner = hooks_.awaitTurn();
        if (!owner.empty())
            return Fail(kContext, "Its outputs would have the names of those of \"{}\"", owner);
    }
    result_.status = BatchStatus::Done;
    for (const BatchOutput& output : job_.outputs) {
        if (cancelled_ || CancelRequested()) break;
        if (!write(output)) return false;
    }
    return true;
}

void FileConversion::takeDiagnostics() {
    for (const Diagnostic& entry : workspace().diagnostics.entries()) {
        std::string text = entry.item.empty() ? "" : entry.item + ": ";
        text += entry.field.empty() ? entry.text : fmt::format("{}: {}", entry.field, entry.text);
        (entry.severity == Severity::Loss ? result_.losses : result_.warnings).push_back(std::move(text));
    }
}

BatchResult FileConversion::run() {
    workspace().diagnostics.clear();
    workspace().wavFact = 0; // each file is converted as if it were the only one
    runContext().error = {};
    if (!convert()) {
        result_.status = BatchStatus::Failed;
        result_.error = runContext().error;
    }
    takeDiagnostics();
    workspace().diagnostics.clear();
    return std::move(result_);
}

/// Asks whether songs are to take the banks beside them, if some output can hold banks.
void askAboutBanks(BatchJob& job) {
    const bool holdsBanks =
        std::any_of(job.outputs.begin(), job.outputs.end(), [](const BatchOutput& output) {
            const std::string_view extension = workspace().formats->RowExtension(output.row);
            return extension == "rmi" || extension == "mss";
        });
    if (job.mode != BatchMode::Songs || job.autoMergeSongs || !holdsBanks) return;
    static constexpr std::string_view kButtons[] = {"Yes", "No"};
    constexpr std::string_view kQuestion =
        "For the output format you have selected, Kelvane Studio can automatically add instrument "
        "collections to the input song(s) if they doesn't already have any *and* there is a DLS or SF2 "
        "file with the same file name (but different extension) in the same directory as the input "
        "file.\nWould you like this to be done?";
    job.autoMergeSongs = Ask("Auto-merge songs with DLS and SF2 files?", kQuestion, kButtons, 1) == 0;
}

} // namespace

BatchResult convertBatchFile(BatchJob& job, const BatchInput& input, const BatchHooks& hooks,
                             bool& cancelled) {
    return FileConversion(job, input, hooks, cancelled).run();
}

std::string batchEndText(const BatchJob& job, const BatchCounts& counts) {
    if (counts.cancelled)
        return fmt::format("Failed: Cancelled after {} file{}", counts.files, plural(counts.files));
    if (counts.saved == 0) return "Done: Nothing saved...";
    if (counts.saved == 1 && counts.files == 1 && job.outputs.size() == 1)
        return "Done: File saved successfully!";
    return fmt::format("Done: Saved {} files in a batch!", counts.saved);
}

BatchCounts runBatch(BatchJob& job, std::span<const BatchInput> inputs, const BatchHooks& hooks) {
    askAboutBanks(job);
    BatchCounts counts;
    for (const BatchInput& input : inputs) {
        if (CancelRequested()) counts.cancelled = true;
        if (counts.cancelled) break;
        ShowProgress(counts.files, inputs.size());
        const BatchResult result = convertBatchFile(job, input, hooks, counts.cancelled);
        ++counts.files;
        counts.saved += result.outputs.size();
        counts.skipped += result.status == BatchStatus::Skipped;
        counts.losses += result.losses.size();
        if (result.status != BatchStatus::Failed) continue;
        ++counts.failed;
        runContext().error = result.error;
        ShowLastError();
    }
    ShowProgress(0, 0);
    PostStatus(batchEndText(job, counts), counts.cancelled ? StatusKind::Failure : StatusKind::Normal);
    return counts;
}

} // namespace kv
