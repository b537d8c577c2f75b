// Writing of DLS banks.
#pragma once

#include "base/file_context.h"

namespace kv {

class Item;

/// Sub-types of the rows for mobile devices; the others are levels from 1 to 4.
inline constexpr int kMobileDlsMinimal = -2, kMobileDlsFull = -3;

/// Writes a bank as a stream: sizes are known beforehand, samples go through block by block.
bool dls_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
