// AAC files without a container, through FAAD2.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;

/// Imports an ADTS or ADIF stream with its tags.
bool aac_Imp(Collection& collection, FileContext& file, u32 subType);

} // namespace kv
