// Files of AMR narrow-band speech, written through libopencore-amrnb.
#pragma once

#include <string>

#include "base/file_context.h"

namespace kv {

class Item;

/// Writes a wave as mono of 8 kHz: a file of RFC 4867, or frames of interface format 2 alone.
bool amr_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);
bool cod_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

f32 amr_Options(int index, u32 subType, std::string* label);

} // namespace kv
