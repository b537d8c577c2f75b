// Media files: every audio track becomes a wave, whose samples stay in the file.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;

/// Reads the tracks of a file; `subType` is its MediaKind.
bool media_Imp(Collection& collection, FileContext& file, u32 subType);

} // namespace kv
