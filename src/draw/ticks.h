// Where an axis has its marks, and what stands beside them.
#pragma once

#include <string>
#include <vector>

#include "base/integers.h"

namespace kv {

struct Tick {
    f64 value;
    std::string label; ///< none: a fine mark
};

/// From values to pixels.
struct Scale {
    f64 from, to;                 ///< values
    f64 low, high;                ///< their pixels, in either direction
    f64 (*bend)(f64) = nullptr;   ///< what is linear in pixels; null: the value itself
    f64 (*unbend)(f64) = nullptr; ///< its inverse

    f64 at(f64 value) const;
    f64 valueAt(f64 pixel) const;
};
/// By octaves; the values are above 0.
Scale logScale(f64 from, f64 to, f64 low, f64 high);
/// Frequencies in Hz as evenly as the ear tells them apart: the mel scale of D. O'Shaughnessy, "Speech
/// Communication" (1987).
Scale melScale(f64 from, f64 to, f64 low, f64 high);

/// Steps of 1, 2 or 5 times a power of ten, in which at most `most` marks fall between the ends. `leastStep`
/// is the smallest; from 1 on the values are counts, which are labelled by `grouped`.
std::vector<Tick> linearTicks(f64 from, f64 to, u32 most, f64 leastStep = 0);
/// Seconds, from a minute on as m:ss and from an hour on as h:mm:ss.
std::vector<Tick> timeTicks(f64 from, f64 to, u32 most);
/// 1, 2 and 5 of each decade with a label ("200", "5k"), the rest without.
std::vector<Tick> frequencyTicks(f64 from, f64 to);
/// Decibels.
std::vector<Tick> levelTicks(f64 from, f64 to, u32 most);

/// "1 234 567"
std::string grouped(i64 number);

} // namespace kv
