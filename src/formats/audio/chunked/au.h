// Files of Sun, NeXT and DEC: a header, a text, and samples, in either byte order. Document: Sun
// Microsystems, "audio/au" manual page and <audio/au.h>.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

bool au_Imp(Collection& collection, FileContext& file, u32 subType);
/// Writes most significant bytes first, the comments as text. A size of more than 4 GB is left open.
bool au_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
