// The texts of WAV files: LIST INFO.
#pragma once

#include <bit>

#include "base/file_context.h"

namespace kv {

class Wave;

/// Walks the items of a LIST INFO between two places of the file.
void wav_ParseInfoList(FileContext& file, u64 start, u64 end, Wave& wave,
                       std::endian order = std::endian::little);
/// One INFO item at `file.position`.
void wav_ParseInfoItem(FileContext& file, Wave& wave, u32 id, u64 size);

/// Appends the list of a wave's texts.
void wav_WriteInfo(ByteWriter& out, const Wave& wave, bool withSoftware);

} // namespace kv
