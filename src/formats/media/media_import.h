// Media files: every audio track becomes a wave, whose samples stay in the file.
#pragma once

#include <string_view>

#include "base/file_context.h"

namespace kv {

class Collection;
class Wave;

/// Reads the tracks of a file; `subType` is its MediaKind.
bool media_Imp(Collection& collection, FileContext& file, u32 subType);

/// What the reader of a file knows of its samples better than libav.
struct TrackEdges {
    u32 lead = 0;                ///< decoded frames ahead of the first that counts
    u32 mostFrames = UINT32_MAX; ///< that count
};
/// Makes a wave of the first track, for readers that know the rest of the file themselves but not the coding
/// of its samples, which it calls `coding`. Null with the error pair set on failure.
Wave* importCoded(FileContext& file, u32 kind, std::string_view coding, const TrackEdges& edges = {});

} // namespace kv
