// Reading of DLS banks, of all levels.
#pragma once

#include "formats/banks/dls/dls_chunks.h"

namespace kv {

/// Reads the form `DLS ` or `MLS ` that begins at `start` and lies before `end`: a whole file, or a part of
/// one. `depth` counts the forms around it. False with the error pair set when it is no bank, or one that
/// can't be read.
bool readDlsChunks(FileContext& file, u64 start, u64 end, Collection& collection, int depth = 0);

/// Imports a DLS file.
bool dls_Imp(Collection& collection, FileContext& file, u32 subType);

} // namespace kv
