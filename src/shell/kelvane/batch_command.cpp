// `kelvane batch`: many files, unattended.
#include <fmt/format.h>
#include <unistd.h>

#include <charconv>
#include <cmath>

#include "base/byte_sink.h"
#include "base/byte_source.h"
#include "base/parallel.h"
#include "batch/batch_report.h"
#include "batch/batch_run.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kContext = "batch";

// ---- The job

bool readJobFile(const std::string& path, BatchJobFile& file) {
    constexpr u64 kMostBytes = 256U << 20; // a list of a million inputs
    const std::shared_ptr<ByteSource> source = openFileSource(path);
    if (!source || source->size() > kMostBytes) return Fail(kContext, "Could not open \"{}\"", path);
    Bytes bytes(static_cast<std::size_t>(source->size()));
    bytes.resize(source->readAt(0, bytes));
    return parseJobFile(textOf(bytes), file);
}

void setOption(BatchJob& job, const BatchOption& option, const std::string& text) {
    if (const auto* flag = std::get_if<bool BatchJob::*>(&option.member)) {
        job.** flag = text == "true";
    } else if (const auto* number = std::get_if<i32 BatchJob::*>(&option.member)) {
        job.** number = static_cast<i32>(std::stoll(text));
    } else {
        job.*std::get<u32 BatchJob::*>(option.member) = static_cast<u32>(std::stoll(text));
    }
}

/// The job file, if one is given, and over it what the options say.
bool buildJob(const BatchOptions& options, BatchJobFile& file) {
    file.inputs = options.inputs;
    if (!options.inputs.empty() && options.inputs.front().ends_with(".toml")) {
        if (!readJobFile(options.inputs.front(), file)) return false;
        file.inputs.insert(file.inputs.end(), options.inputs.begin() + 1, options.inputs.end());
    }
    BatchJob& job = file.job;
    for (std::size_t i = 0; i < batchModes().size(); ++i) {
        if (batchModes()[i].slug == options.mode) job.mode = static_cast<BatchMode>(i);
    }
    if (!options.to.empty()) job.outputs.clear();
    for (const std::string& text : options.to) {
        BatchOutput output;
        if (!readOutput(text, job.mode, output)) return false;
        job.outputs.push_back(output);
    }
    if (!options.outputDir.empty()) job.outputDir = options.outputDir;
    for (const BatchOption& option : batchOptions()) {
        const auto given = options.job.find(std::string(option.name));
        if (given != options.job.end()) setOption(job, option, given->second);
    }
    // To set how something is done is to want it.
    if (options.job.contains("resample-rate")) job.resample = true;
    if (options.job.contains("path-levels")) job.keepSubdirs = true;
    if (!options.algorithms.empty()) job.algorithms = options.algorithms;
    if (!options.effects.empty()) job.plugins.clear();
    for (const std::string& text : options.effects) job.plugins.push_back(readEffect(text));
    return options.threshold.empty() || readLevel(options.threshold, job.silenceThreshold);
}

/// "I/N", with I from 1.
bool readShard(std::string_view text, u32& index, u32& count) {
    const std::size_t slash = text.find('/');
    const auto number = [](std::string_view digits, u32& value) {
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return error == std::errc() && end == digits.data() + digits.size();
    };
    return (slash != std::string_view::npos && number(text.substr(0, slash), index) &&
            number(text.substr(slash + 1), count) && index >= 1 && index <= count) ||
           Fail(kContext, "\"{}\" is no part of a list as 3/10", text);
}

bool buildList(const BatchOptions& options, const BatchJobFile& file, BatchList& list) {
    if (!file.job.sameDirAsSource && !file.job.outputDir.empty()) list.leaveOut(file.job.outputDir);
    for (const std::string& input : file.inputs) {
        if (!list.add(input)) return false;
    }
    if (options.shard.empty()) return true;
    u32 index = 0, count = 1;
    if (!readShard(options.shard, index, count)) return false;
    list.keepShard(index - 1, count);
    return true;
}

ReplaceAnswer::Kind existingAnswer(const std::string& name) {
    return name == "skip"      ? ReplaceAnswer::Kind::Skip
           : name == "replace" ? ReplaceAnswer::Kind::Replace
           : name == "rename"  ? ReplaceAnswer::Kind::Rename
                               : ReplaceAnswer::Kind::Fail;
}

// ---- Progress

/// The line "1200/10000 files, 3 failed, 812 a second, 0:11 left" on a terminal.
class ProgressLine {
public:
    explicit ProgressLine(bool shown) : shown_(shown) {}
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void update(const BatchCounts& counts, u64 total) {
        if (!shown_) return;
        const Clock::time_point now = Clock::now();
        if (!first_) first_ = counts.files - 1; // what a resumed run had done
        if (now - drawn_ < std::chrono::milliseconds(100)) return;
        drawn_ = now;
        const f64 seconds = std::chrono::duration<f64>(now - started_).count();
        const f64 rate = static_cast<f64>(counts.files - *first_) / std::max(seconds, 1e-3);
        const auto left =
            static_cast<u64>(std::lround(static_cast<f64>(total - counts.files) / std::max(rate, 1e-9)));
        fmt::print(stderr, "\r\x1b[K{}/{} files, {} failed, {:.0f} a second, {}:{:02} left", counts.files,
                   total, counts.failed, rate, left / 60, left % 60);
        (void)std::fflush(stderr);
        drawnAny_ = true;
    }
    void clear() {
        if (drawnAny_) fmt::print(stderr, "\r\x1b[K");
        drawnAny_ = false;
    }

private:
    bool shown_, drawnAny_ = false;
    std::optional<u64> first_;
    Clock::time_point started_ = Clock::now(), drawn_{};
};

int run(const BatchOptions& options, const BatchJob& job, BatchList& list, TerminalUi& ui) {
    ProgressLine line(!ui.quiet() && isatty(STDERR_FILENO) != 0);
    BatchRunSettings settings;
    settings.workers = options.workers > 0 ? options.workers : threadCount();
    settings.timeout = std::chrono::milliseconds(static_cast<i64>(options.timeout * 1000));
    settings.memory = options.memory << 20;
    settings.sandbox = !options.noSandbox;
    settings.dryRun = options.dryRun;
    settings.existing = existingAnswer(options.existing);
    settings.yes = ui.yes;
    settings.report = options.report.empty() ? options.resume : options.report;
    settings.resume = options.resume;
    if (!options.input.as.empty() || options.input.raw() || options.input.codecBits > 0)
        settings.open = [&](const std::string& path) { return openInput(path, options.input, ui); };
    settings.tell = [&](std::string_view text) {
        line.clear();
        fmt::print(options.dryRun ? stdout : stderr, "{}\n", text);
    };
    settings.progress = [&](const BatchCounts& counts, u64 total) { line.update(counts, total); };
    settings.goOn = [] { return !interrupted(); };
    BatchCounts counts;
    if (!runBatchProcesses(job, list, settings, counts)) return reportFailure();
    line.clear();
    if (!ui.quiet()) {
        fmt::print("{}\n", batchEndText(job, counts));
        fmt::print("{} of {} files: {} failed, {} passed over\n", counts.files, list.size(), counts.failed,
                   counts.skipped);
    }
    if (interrupted()) return kInterrupted;
    return counts.failed > 0 || counts.cancelled ? kSomeFailed : kDone;
}

} // namespace

int runBatchCommand(const BatchOptions& options, TerminalUi& ui) {
    if (!options.mergeReports.empty())
        return mergeReports(options.inputs, options.mergeReports) ? kDone : reportFailure();
    BatchJobFile file;
    BatchList list;
    if (!buildJob(options, file) || !checkJob(file.job)) {
        reportFailure();
        return kUsage;
    }
    if (!options.saveJob.empty()) {
        const std::unique_ptr<SaveFile> save = SaveFile::create(options.saveJob);
        if (save && save->write(bytesOf(jobFileText(file))) && save->commit()) return kDone;
        Fail(kContext, "Could not write \"{}\"", options.saveJob);
        return reportFailure();
    }
    std::error_code ignored;
    if (!file.job.outputDir.empty())
        file.job.outputDir = fs::absolute(file.job.outputDir, ignored).lexically_normal();
    if (!buildList(options, file, list)) {
        reportFailure();
        return kUsage;
    }
    return run(options, file.job, list, ui);
}

} // namespace kv
