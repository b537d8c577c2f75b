// Where a batch puts what it makes of a file.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "batch/batch_job.h"

namespace kv {

/// The folders of a source's path that are kept, by the job's rule. `treeDepth` is how many folders lie
/// between an input folder and the file. "/a/b/c/x.wav" gives "c" for 1 level and "b/c" for -1.
std::filesystem::path keptFolders(const BatchJob& job, const std::filesystem::path& source, u32 treeDepth);

/// "description - data format - Mono": the folder of one of several outputs.
std::string outputFolderName(const BatchOutput& output);

/// The folder for an output of a source. The source's path is absolute.
std::filesystem::path targetFolder(const BatchJob& job, const BatchOutput& output,
                                   const std::filesystem::path& source, u32 treeDepth);

/// "stem - suffix.ext" in a folder; without a suffix "stem.ext". The suffix is cleaned.
std::filesystem::path targetFile(const std::filesystem::path& folder, std::string_view stem,
                                 std::string_view suffix, const BatchOutput& output);

} // namespace kv
