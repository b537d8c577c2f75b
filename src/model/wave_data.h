// Residency of sample data: when it comes into memory, in which form, and when it leaves again.
#pragma once

#include <filesystem>
#include <span>

#include "model/wave.h"

namespace kv {

/// The wave's float or 16-bit samples, made from the other form when needed; empty when there are none in
/// memory or no memory is left. Reads no file: call `LoadData` first.
std::span<f32> GetFloatData(Wave& wave);
std::span<i16> GetInt16Data(Wave& wave);
/// Frees one form, if `doIt`.
void DropInt16Data(Wave& wave, bool doIt);
void DropFloatData(Wave& wave, bool doIt);
/// Frees both forms. With `onlyIfReloadable` a wave that holds the only copy is left alone, and false is
/// the answer.
bool FreeData(Wave& wave, bool onlyIfReloadable);

/// The first wave other than `except` that was read from `path`, ignoring case; null if there is none.
Wave* FindWaveBySourceFile(const std::filesystem::path& path, const Wave* except);

/// Frees the samples of every wave that can be read again and isn't locked; false when there was nothing.
/// Serves as the purge of sample memory and, through `installMemoryHandlers`, of all other memory.
bool PurgeReloadableWaves();
/// Installs the purge. When nothing is left to free the process shows a message and ends with `exitCode`.
void installMemoryHandlers(int exitCode = 0);

} // namespace kv
