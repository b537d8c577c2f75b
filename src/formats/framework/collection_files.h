// A second file beside the first: merged into it, taken for its waves, or kept as a state to return to.
#pragma once

#include <filesystem>

#include "base/integers.h"

namespace kv {

/// Joins what was imported into pushed lists to the collection that was pushed, whose instruments keep
/// their patches.
void MergeLists();
/// Imports a file and joins it to the current collection. False with the error pair set, and the store as
/// it was, when the import fails.
bool OpenMerged(const std::filesystem::path& path);

/// Takes waves from a file in place of those with the same name, apart from case; all that refers to them
/// stays. False with the error pair set when the file can't be imported.
bool ReplaceWaves(const std::filesystem::path& path);

/// Saved states: the collection as it was, sixteen deep, the newest with index 0. They stand in the folder
/// of the workspace's `stateFolder`.
bool SaveState();
/// Returns to the newest state and forgets it. The waves stay in memory, as the state's file is gone.
bool RestoreState();
bool HasState(u32 index);
void ClearStates();

} // namespace kv
