// The inner loops of the filter that works on many stretches of input side by side.
#pragma once

#include <cstddef>

#include "base/integers.h"

namespace kv {

/// Stretches side by side: a few vector registers of them, and so few that a filter's length of rows stays in
/// the first-level cache.
template <class T>
inline constexpr std::size_t kSlots = 128 / sizeof(T);
/// Output frames of each stretch that are computed together.
inline constexpr std::size_t kGroup = 4;

/// Four frames of each stretch, turned into four rows of all stretches: to[k * kSlots + s] = from[s][k].
void turnSlots(const f32* const* from, f32* to);
void turnSlots(const f64* const* from, f64* to);

/// to[s][g] = sum over j < length of rows[j * kSlots + s] * taps[j * kGroup + g].
void weighSlots(const f32* rows, const f32* taps, std::size_t length, f32* const* to);
void weighSlots(const f64* rows, const f64* taps, std::size_t length, f32* const* to);

} // namespace kv
