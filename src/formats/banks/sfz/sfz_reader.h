// Reads SFZ banks.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;

/// Reads a bank's text and opens the samples that it names, which stay in their files. Fails for no text:
/// what can't be read is left out and noted among the diagnostics.
bool sfz_Imp(Collection& collection, FileContext& file, u32 subType);

} // namespace kv
