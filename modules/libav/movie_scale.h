// The clock of a QuickTime or MPEG-4 movie, which libav doesn't tell.
#pragma once

#include "formats/media/media_module.h"

namespace kv::libav {

/// Ticks per second that the lengths of edits are counted in (ISO/IEC 14496-12, movie header box); 0 where
/// none is found.
std::int64_t movieScale(const MediaInput& input);

} // namespace kv::libav
