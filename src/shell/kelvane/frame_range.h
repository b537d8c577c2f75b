// A range of frames as the command line gives it.
#pragma once

#include <string_view>

#include "base/integers.h"

namespace kv {

/// Reads "100:2000", where either side may be missing: the start is 0 then, the end beyond all frames. False
/// with the error pair set, under `context`, for anything else and for a range without frames.
bool readFrameRange(std::string_view text, std::string_view context, u32& from, u32& to);

} // namespace kv
