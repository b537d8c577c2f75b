// The sweep that every bulk change of the store ends with.
#pragma once

#include "base/integers.h"

namespace kv {

/// Fixes up every item, from waves up to the collection. The mask says in which classes an item that is
/// empty is deleted.
void FixUpAll(u32 classMask);

} // namespace kv
