// A batch over many processes, unattended: what a file does to its process costs that file alone.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "batch/batch_file.h"
#include "batch/batch_list.h"

namespace kv {

struct BatchRunSettings {
    unsigned workers = 1;
    std::chrono::milliseconds timeout{0}; ///< for a file; 0: none
    u64 memory = 0;                       ///< bytes for a process; 0: as many as there are
    bool sandbox = true;                  ///< processes give up all rights that they don't need
    bool dryRun = false;
    ReplaceAnswer::Kind existing = ReplaceAnswer::Kind::Fail; ///< what happens to outputs that exist
    std::optional<bool> yes;                                  ///< the answer to questions; else the safe one
    std::filesystem::path report;                             ///< empty: none
    std::filesystem::path resume; ///< report of an earlier run, whose results stand; may be missing

    std::function<bool(const std::string& path)> open; ///< reads a file; without one `Import` does
    /// A file that failed, and why, or what a dry run would write. In the order of the list for a dry run.
    std::function<void(std::string_view text)> tell;
    std::function<void(const BatchCounts& counts, u64 total)> progress; ///< after each file
    std::function<bool()> goOn; ///< false: finish what is in hand and stop
};

/// Converts the files of the list. False with the error pair set when the batch can't begin or its report
/// can't be written; files that fail are counted.
bool runBatchProcesses(const BatchJob& job, BatchList& list, const BatchRunSettings& settings,
                       BatchCounts& counts);

} // namespace kv
