// `.dlsa` files: one articulation record, as connection blocks in a RIFF form "DLSA".
#pragma once

#include <filesystem>

#include "base/byte_source.h"
#include "model/articulation.h"

namespace kv {

/// Replaces the record by the preset's, enabled. False, with the record untouched, when the file can't be
/// opened, is no preset, or holds no articulation chunk.
bool loadArticulationPreset(Articulation& record, const std::filesystem::path& path);
bool loadArticulationPreset(Articulation& record, ByteSource& file);

/// Writes all of the record that connection blocks can hold; an existing file is replaced. False when the
/// file can't be written.
bool saveArticulationPreset(const Articulation& record, const std::filesystem::path& path);

} // namespace kv
