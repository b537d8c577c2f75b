// The chunks of RIFF WAVE, for WAV files and for the many formats that hold some of them.
// Documents: Microsoft/IBM "Multimedia Programming Interface and Data Specifications 1.0" and its 1994
// update; EBU Tech 3306 (RF64).
#pragma once

#include "base/file_context.h"
#include "model/item_id.h"

namespace kv {

class Wave;

/// Reads a RIFF form, or a bare run of chunks, into the wave. False with the error pair set when it is no
/// wave or one that can't be read.
bool wav_ImpChunks(FileContext& file, u64 start, u64 end, Wave& wave);

/// A wave from a WAV file that lies between two places of another file; null on failure.
Wave* wav_ImpEmbedded(FileContext& file, ItemId request, u64 start, u64 end, std::string_view name);

} // namespace kv
