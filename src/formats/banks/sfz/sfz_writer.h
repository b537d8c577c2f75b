// Writes SFZ banks.
#pragma once

#include "base/file_context.h"

namespace kv {

class Item;

/// An instrument, or a wave as one, as a text with sample files beside it: in the text's folder, or with
/// sub-type 1 in a folder of its name. A sample that can't be written is told to the user and left out.
bool sfz_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
