// What libav doesn't tell of QuickTime and MPEG-4 movies.
#pragma once

#include <string>
#include <string_view>

#include "formats/media/media_module.h"

namespace kv::libav {

/// Ticks per second that the lengths of edits are counted in (ISO/IEC 14496-12, movie header box); 0 where
/// none is found.
std::int64_t movieScale(const MediaInput& input);

/// A text of a 3GPP movie as UTF-8 (3GPP TS 26.244, asset information) by our name of it; empty without one.
std::string assetText(const MediaInput& input, std::string_view key);

} // namespace kv::libav
