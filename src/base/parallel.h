// Work that several threads share.
#pragma once

#include <functional>

#include "base/integers.h"

namespace kv {

/// As many as the machine runs at once, at least 1.
u32 threadCount();

/// Calls `work` with each number below `count`, each on a thread of its own, or one after the other where no
/// more threads are to be had. Ends when all have. `work` throws nothing.
void inParallel(u32 count, const std::function<void(u32)>& work);

} // namespace kv
