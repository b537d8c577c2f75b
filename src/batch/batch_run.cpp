#include "batch/batch_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <vector>

#include "base/sandbox.h"
#include "batch/batch_names.h"
#include "batch/batch_report.h"
#include "batch/worker_pool.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "plugins/effect_info.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kContext = "batch";

i64 now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// ---- What the pool and its processes say to each other

constexpr char kOutputMessage = 'o', kResultMessage = 'r';

std::string taskText(const BatchInput& input) {
    ByteWriter out;
    out.u32le(input.treeDepth).u8le(static_cast<u8>((input.scanned ? 1 : 0) | (input.contended ? 2 : 0)));
    out.u64le(static_cast<u64>(input.ownSince)).text(input.path);
    return std::string(textOf(out.view()));
}

BatchInput inputOf(std::string_view text) {
    ByteCursor in(bytesOf(text));
    BatchInput input;
    input.treeDepth = in.u32le();
    const u8 flags = in.u8le();
    input.scanned = (flags & 1) != 0;
    input.contended = (flags & 2) != 0;
    input.ownSince = static_cast<i64>(in.u64le());
    input.path = textOf(in.bytes(in.left()));
    return input;
}

std::string outputText(const BatchResult::Output& output) {
    ByteWriter out;
    out.u64le(output.bytes).text(output.path);
    return std::string(textOf(out.view()));
}

BatchResult::Output outputOf(std::string_view text) {
    ByteCursor in(bytesOf(text));
    BatchResult::Output output;
    output.bytes = in.u64le();
    output.path = textOf(in.bytes(in.left()));
    return output;
}

/// What the pool needs to know of a result; the line is for the report.
struct Outcome {
    BatchStatus status = BatchStatus::Failed;
    u64 outputs = 0, losses = 0;
    std::string told, line;
};

std::string outcomeText(const Outcome& outcome) {
    ByteWriter out;
    out.u8le(static_cast<u8>(outcome.status)).u64le(outcome.outputs).u64le(outcome.losses);
    out.u32le(static_cast<u32>(outcome.told.size())).text(outcome.told).text(outcome.line);
    return std::string(textOf(out.view()));
}

Outcome outcomeOf(std::string_view text) {
    ByteCursor in(bytesOf(text));
    Outcome outcome;
    outcome.status = static_cast<BatchStatus>(std::min<u8>(in.u8le(), 2));
    outcome.outputs = in.u64le();
    outcome.losses = in.u64le();
    outcome.told = textOf(in.bytes(in.u32le()));
    outcome.line = textOf(in.bytes(in.left()));
    return outcome;
}

Outcome outcomeOf(const ReportHead& head, const BatchResult& result, bool dryRun) {
    Outcome outcome{result.status, result.outputs.size(), result.losses.size(), {}, resultLine(head, result)};
    if (result.status == BatchStatus::Failed)
        outcome.told = fmt::format("{}: {}: {}", head.input, result.error.context, result.error.message);
    if (!dryRun) return outcome;
    for (const BatchResult::Output& output : result.outputs) {
        outcome.told += fmt::format("{}{} -> {}", outcome.told.empty() ? "" : "\n", head.input, output.path);
    }
    return outcome;
}

// ---- In a process

/// Takes down what a reader tells the user, and answers questions as one who isn't there.
class AbsentUser final : public UserInterface {
public:
    explicit AbsentUser(std::optional<bool> yes) : yes_(yes) {}
    int showMessage(std::string_view caption, std::string_view text, u32) override {
        note(caption, text);
        return 1;
    }
    int ask(std::string_view caption, std::string_view question, std::span<const std::string_view> buttons,
            int safe) override {
        const std::string_view wanted = yes_ ? (*yes_ ? "Yes" : "No") : "";
        const auto button = std::find(buttons.begin(), buttons.end(), wanted);
        if (button != buttons.end()) safe = static_cast<int>(button - buttons.begin());
        const auto index = static_cast<std::size_t>(std::max(safe, 0));
        note(caption, fmt::format("{} ({})", question, index < buttons.size() ? buttons[index] : ""));
        return safe;
    }

private:
    static void note(std::string_view caption, std::string_view text) {
        workspace().diagnostics.add({Severity::Warning, 0, {}, std::string(caption), std::string(text)});
    }
    std::optional<bool> yes_;
};

/// A name like this one that no file has.
fs::path unusedPath(const fs::path& path) {
    std::error_code ignored;
    for (int n = 2;; ++n) {
        fs::path name =
            path.parent_path() / fmt::format("{} {}{}", path.stem().string(), n, path.extension().string());
        if (!fs::exists(fs::symlink_status(name, ignored))) return name;
    }
}

/// One process of the batch.
class BatchWorker {
public:
    BatchWorker(const BatchJob& job, const BatchRunSettings& settings)
        : job_(job), settings_(settings), fingerprint_(fingerprint(job)), user_(settings.yes) {}

    bool prepare(const Sandbox* sandbox) {
        workspace().ui = &user_;
        installMemoryHandlers(WorkerPool::kOutOfMemory);
        limitMemory(settings_.memory);
        return !sandbox || sandbox->enter();
    }
    void convert(const Task& task, WorkerLine& line);

private:
    BatchJob job_;
    const BatchRunSettings& settings_;
    u64 fingerprint_;
    AbsentUser user_;
};

void BatchWorker::convert(const Task& task, WorkerLine& line) {
    const BatchInput input = inputOf(task.text);
    BatchHooks hooks;
    hooks.open = settings_.open;
    hooks.dryRun = settings_.dryRun;
    hooks.onExisting = [&](const fs::path& path) {
        return ReplaceAnswer{settings_.existing, unusedPath(path)};
    };
    hooks.awaitTurn = [&line] { return line.awaitTurn(); };
    hooks.beforeWrite = [&line] { line.flush(); }; // lest a crash leave unknown what stands already
    hooks.onWritten = [&line](const BatchResult::Output& output) {
        line.send(kOutputMessage, outputText(output));
    };
    ReportHead head{task.id, input.path, stateOf(input.path), fingerprint_, now(), 0};
    const Clock::time_point begun = Clock::now();
    bool cancelled = false;
    const BatchResult result = convertBatchFile(job_, input, hooks, cancelled);
    head.seconds = std::chrono::duration<f64>(Clock::now() - begun).count();
    line.send(kResultMessage, outcomeText(outcomeOf(head, result, settings_.dryRun)));
}

// ---- In the pool

class BatchRun {
public:
    BatchRun(const BatchJob& job, BatchList& list, const BatchRunSettings& settings, BatchCounts& counts)
        : job_(job),
          list_(list),
          settings_(settings),
          counts_(counts),
          fingerprint_(fingerprint(job)),
          states_(list.size()) {}
    bool run();

private:
    /// What is known of a file of the list.
    struct State {
        bool finished : 1 = false;
        bool saved : 1 = false;     ///< some output was written
        bool contended : 1 = false; ///< others would be written under the same name
    };
    struct InHand {
        ReportHead head;
        std::vector<BatchResult::Output> outputs;
        Outcome outcome;
        bool told = false; ///< it has a result
    };

    bool prepareFolders() const;
    bool resume();
    void findContended();
    std::string baseOf(std::size_t index) const;
    std::string ownerOf(std::size_t index) const;
    std::optional<Task> next();
    void message(u64 id, char kind, std::string_view text);
    void end(u64 id);
    void lost(u64 id, std::string_view why);
    void count(const Outcome& outcome);
    void tell(u64 id, const std::string& text);

    const BatchJob& job_;
    BatchList& list_;
    const BatchRunSettings& settings_;
    BatchCounts& counts_;
    u64 fingerprint_;
    ReportFile report_;
    std::vector<State> states_;
    std::map<std::size_t, i64> ownSince_;    ///< of files that an earlier run left in hand or failed with
    std::vector<std::pair<u64, u32>> bases_; ///< hash of the output's name, file; contended ones only
    std::map<u64, InHand> inHand_;
    std::map<u64, std::string> untold_; ///< of a dry run, until all before them are told
    std::size_t next_ = 0;
};

/// Where plug-ins of the user stand.
void addEffectFolders(std::vector<fs::path>& folders) {
    if (const char* home = std::getenv("HOME")) {
        for (const char* name : {".ladspa", ".lv2"}) folders.push_back(fs::path(home) / name);
    }
    for (const char* variable : {"LADSPA_PATH", "LV2_PATH"}) {
        const char* paths = std::getenv(variable);
        for (std::string_view rest = paths ? paths : ""; !rest.empty();) {
            const std::size_t end = rest.find(':');
            if (end > 0) folders.emplace_back(rest.substr(0, end));
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }
}

bool BatchRun::prepareFolders() const {
    if (job_.sameDirAsSource || settings_.dryRun) return true;
    std::error_code failed;
    fs::create_directories(job_.outputDir, failed);
    return fs::is_directory(job_.outputDir, failed) ||
           Fail(kContext, "Error: Couldn't create output directory!");
}

/// Takes over what an earlier run did, if it can still be found as it was left.
bool BatchRun::resume() {
    if (!settings_.report.empty() && !report_.create(settings_.report)) return false;
    std::error_code ignored;
    if (!settings_.resume.empty() && fs::exists(settings_.resume, ignored)) {
        list_.indexPaths();
        const bool read = readReport(settings_.resume, [&](const ReportEntry& entry, std::string_view) {
            const bool ours = entry.head.job == fingerprint_;
            for (const std::size_t index : list_.find(entry.head.input)) {
                if (states_[index].finished) continue;
                const std::vector<BatchResult::Output>& outputs = entry.result.outputs;
                const bool whole =
                    ours && !entry.started && entry.result.status != BatchStatus::Failed &&
                    entry.head.state == stateOf(entry.head.input) &&
                    std::all_of(outputs.begin(), outputs.end(), [](const BatchResult::Output& output) {
                        const FileState state = stateOf(output.path);
                        return state.changed != 0 && state.bytes == output.bytes;
                    });
                if (!whole) {
                    if (ours) ownSince_[index] = entry.head.begun;
                    continue;
                }
                states_[index].finished = true;
                states_[index].saved = !outputs.empty();
                ownSince_.erase(index);
                ReportHead head = entry.head;
                head.index = index;
                const Outcome outcome = outcomeOf(head, entry.result, false);
                report_.addResult(index, outcome.line);
                count(outcome);
            }
        });
        if (!read) return false;
    }
    return settings_.report.empty() || report_.appear();
}

/// Folder and stem of what a file becomes.
std::string BatchRun::baseOf(std::size_t index) const {
    const BatchList::Entry entry = list_.at(index);
    const fs::path source(entry.path);
    return (targetFolder(job_, job_.outputs.front(), source, entry.treeDepth) / source.stem()).string();
}

void BatchRun::findContended() {
    bases_.reserve(list_.size());
    for (std::size_t i = 0; i < list_.size(); ++i)
        bases_.emplace_back(stableHash(baseOf(i)), static_cast<u32>(i));
    std::sort(bases_.begin(), bases_.end());
    const auto alone = [&](std::size_t i) {
        return (i == 0 || bases_[i - 1].first != bases_[i].first) &&
               (i + 1 == bases_.size() || bases_[i + 1].first != bases_[i].first);
    };
    std::vector<std::pair<u64, u32>> contended;
    for (std::size_t i = 0; i < bases_.size(); ++i) {
        if (alone(i)) continue;
        contended.push_back(bases_[i]);
        states_[bases_[i].second].contended = true;
    }
    bases_ = std::move(contended);
}

/// The file before this one in the list that took its output's name; empty if none did.
std::string BatchRun::ownerOf(std::size_t index) const {
    const std::string base = baseOf(index);
    for (auto entry = std::lower_bound(bases_.begin(), bases_.end(), std::pair(stableHash(base), u32{0}));
         entry != bases_.end() && entry->first == stableHash(base) && entry->second < index; ++entry) {
        if (states_[entry->second].saved && baseOf(entry->second) == base)
            return std::string(list_.at(entry->second).path);
    }
    return {};
}

std::optional<Task> BatchRun::next() {
    while (next_ < list_.size() && states_[next_].finished) ++next_;
    if (next_ == list_.size()) return {};
    const std::size_t index = next_++;
    const BatchList::Entry entry = list_.at(index);
    const auto own = ownSince_.find(index);
    const BatchInput input{std::string(entry.path), entry.treeDepth, entry.scanned, states_[index].contended,
                           own == ownSince_.end() ? 0 : own->second};
    InHand& hand = inHand_[index];
    hand.head = {index, input.path, {}, fingerprint_, input.ownSince > 0 ? input.ownSince : now(), 0};
    report_.addStarted(hand.head);
    return Task{index, taskText(input)};
}

void BatchRun::message(u64 id, char kind, std::string_view text) {
    InHand& hand = inHand_[id];
    if (kind == kOutputMessage) hand.outputs.push_back(outputOf(text));
    if (kind != kResultMessage) return;
    hand.outcome = outcomeOf(text);
    hand.told = true;
}

void BatchRun::lost(u64 id, std::string_view why) {
    InHand& hand = inHand_[id];
    if (!hand.told) {
        hand.head.state = stateOf(hand.head.input);
        BatchResult result;
        result.outputs = hand.outputs;
        result.error = {"Import", std::string(why)};
        hand.outcome = outcomeOf(hand.head, result, false);
    }
    end(id);
}

void BatchRun::count(const Outcome& outcome) {
    ++counts_.files;
    counts_.saved += outcome.outputs;
    counts_.losses += outcome.losses;
    counts_.failed += outcome.status == BatchStatus::Failed;
    counts_.skipped += outcome.status == BatchStatus::Skipped;
}

void BatchRun::tell(u64 id, const std::string& text) {
    if (!settings_.dryRun) {
        if (!text.empty()) settings_.tell(text);
        return;
    }
    untold_[id] = text;
    for (auto first = untold_.begin();
         first != untold_.end() && (inHand_.empty() || first->first < inHand_.begin()->first);
         first = untold_.erase(first)) {
        if (!first->second.empty()) settings_.tell(first->second);
    }
}

void BatchRun::end(u64 id) {
    const auto entry = inHand_.find(id);
    const Outcome outcome = std::move(entry->second.outcome);
    inHand_.erase(entry);
    states_[id].finished = true;
    states_[id].saved = outcome.outputs > 0;
    report_.addResult(id, outcome.line);
    count(outcome);
    tell(id, outcome.told);
    if (settings_.progress) settings_.progress(counts_, list_.size());
}

bool BatchRun::run() {
    if (!prepareFolders() || !resume()) return false;
    findContended();
    // Looking for plug-ins starts processes, which the sandbox refuses.
    if (usesEffects(job_)) (void)installedEffects();
    std::optional<Sandbox> sandbox;
    if (settings_.sandbox) {
        const std::vector<fs::path> roots = list_.roots();
        const std::vector<fs::path> target{job_.outputDir};
        std::vector<fs::path> readable = roots;
        if (usesEffects(job_)) addEffectFolders(readable);
        sandbox.emplace(readable, job_.sameDirAsSource ? roots : target);
    }
    BatchWorker worker(job_, settings_);
    WorkerSettings processes;
    processes.workers = static_cast<unsigned>(
        std::min<std::size_t>(settings_.workers, std::max<std::size_t>(list_.size(), 1)));
    processes.timeout = settings_.timeout;
    processes.prepare = [&] { return worker.prepare(sandbox ? &*sandbox : nullptr); };
    processes.work = [&](const Task& task, WorkerLine& line) { worker.convert(task, line); };
    PoolEvents events;
    events.next = [this] { return next(); };
    events.message = [this](u64 id, char kind, std::string_view text) { message(id, kind, text); };
    events.done = [this](u64 id) { end(id); };
    events.lost = [this](u64 id, std::string_view why) { lost(id, why); };
    events.turn = [this](u64 id) { return ownerOf(id); };
    events.goOn = [this] { return !settings_.goOn || settings_.goOn(); };
    const bool ran = WorkerPool(std::move(processes)).run(events);
    counts_.cancelled = counts_.files < list_.size();
    return report_.finish() && ran;
}

} // namespace

bool runBatchProcesses(const BatchJob& job, BatchList& list, const BatchRunSettings& settings,
                       BatchCounts& counts) {
    if (!checkJob(job)) return false;
    if (list.size() == 0) return Fail(kContext, "You must add at least one file before you go on!");
    return BatchRun(job, list, settings, counts).run();
}

} // namespace kv
