// A picture in memory.
#pragma once

#include <vector>

#include "base/integers.h"

namespace kv {

/// Rows from the top, pixels from the left, each 0xAARRGGBB.
struct Image {
    u32 width = 0, height = 0;
    std::vector<u32> pixels{};
};

} // namespace kv
