// One file of a batch: read, processed, and written in all output formats.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/run_context.h"
#include "batch/batch_job.h"

namespace kv {

/// A file of the list.
struct BatchInput {
    std::string path;       ///< absolute
    u32 treeDepth = 0;      ///< folders between an input folder and the file
    bool scanned = false;   ///< found in a folder: passed over when it is of no use
    bool contended = false; ///< another input would be written under the same name
    /// Outputs that were changed at this time or later, in ns since 1970, are those of an earlier run that
    /// was cut off, and are replaced. 0: there was none.
    i64 ownSince = 0;
};

enum class BatchStatus : u8 { Done, Skipped, Failed };

struct BatchResult {
    struct Output {
        std::string path;
        u64 bytes = 0;
    };
    BatchStatus status = BatchStatus::Failed;
    std::vector<Output> outputs;
    std::string reason; ///< of a file that was passed over
    ErrorPair error;    ///< of one that failed
    std::vector<std::string> warnings, losses;
};

/// What to do about an output that exists.
struct ReplaceAnswer {
    enum class Kind : u8 { Rename, Replace, ReplaceAll, Skip, Cancel, Fail } kind = Kind::Skip;
    std::filesystem::path name = {}; ///< for Rename; empty counts as Skip
};

/// How a batch meets its surroundings. What is left empty does nothing.
struct BatchHooks {
    /// Reads a file into the store; without one `Import` does.
    std::function<bool(const std::string& path)> open;
    std::function<ReplaceAnswer(const std::filesystem::path& path)> onExisting; ///< without one: Skip
    /// Called before the first output of a file whose names others may want too. Answers the path of the
    /// file that has them already; empty if there is none.
    std::function<std::string()> awaitTurn;
    std::function<void()> beforeWrite;
    std::function<void(const BatchResult::Output& output)> onWritten;
    bool dryRun = false; ///< tells the outputs and writes none
};

/// Converts one file. What the store held before is there again afterwards. "Replace all" and "Cancel" are
/// noted in `job.overwriteAll` and `cancelled`.
BatchResult convertBatchFile(BatchJob& job, const BatchInput& input, const BatchHooks& hooks,
                             bool& cancelled);

/// The message that a batch ends with.
struct BatchCounts {
    u64 files = 0, saved = 0, failed = 0, skipped = 0, losses = 0;
    bool cancelled = false;
};
std::string batchEndText(const BatchJob& job, const BatchCounts& counts);

/// Converts the files one after the other in this process, showing progress and failures.
BatchCounts runBatch(BatchJob& job, std::span<const BatchInput> inputs, const BatchHooks& hooks);

} // namespace kv
