// Places within one file that texts tell: cue sheets, as programs that read discs write them, and chapters.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

struct TimedMark {
    f64 start = 0; ///< seconds
    f64 end = 0;   ///< seconds; not above the start: it has no length
    std::string label;
};

/// The tracks of a cue sheet by their first index, which counts 75 frames a second, with their titles.
std::vector<TimedMark> readCueSheet(std::string_view text);
/// "HH:MM:SS" with any decimals, in seconds.
std::optional<f64> readTimestamp(std::string_view text);

} // namespace kv
