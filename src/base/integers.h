// Short names of the fixed-width types, and the rounding rules of format conversions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace kv {

using i8 = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using f32 = float;
using f64 = double;

/// A double truncated to an integer, limited to the range of T; NaN gives 0.
template <class T>
constexpr T saturate(double value) {
    using Limits = std::numeric_limits<T>;
    if (value != value) return T{0};
    if (value <= static_cast<double>(Limits::min())) return Limits::min();
    if (value >= static_cast<double>(Limits::max())) return Limits::max();
    return static_cast<T>(value);
}

/// The usual rounding of format conversions: add `half` (0.5 or 0.499) and truncate, mirrored below zero.
constexpr i32 roundHalf(double value, double half = 0.5) {
    return saturate<i32>(value < 0 ? value - half : value + half);
}

/// `a` divided by `b`, rounded up; b is not 0.
constexpr u64 ceilDiv(u64 a, u64 b) {
    return a / b + (a % b != 0 ? 1 : 0);
}

} // namespace kv
