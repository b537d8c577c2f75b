// AIFF and AIFF-C: chunks of a FORM, most significant bytes first.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Reads both forms, whatever the file's extension is.
bool aif_Imp(Collection& collection, FileContext& file, u32 subType);

/// Linear samples are written as AIFF, float and law ones as AIFF-C. Refuses what takes more than 4 GB.
bool aif_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// Stands behind the name of a marker at the end of a named range, which AIFF has no place for: the name of
/// the marker at its start, and this.
inline constexpr std::string_view kRangeEndMark = " (end)";

} // namespace kv
