// Compiled once for each instruction set and chosen at run time.
#include <algorithm>
#include <cstring>

#include "dsp/slot_kernel.h"

#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3_DL)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/slot_kernel_simd.cpp"
#include <hwy/foreach_target.h>
// After foreach_target:
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kv::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

template <class T>
void turn(const T* const* from, T* to) {
    alignas(64) T heads[kSlots<T> * 4];
    for (std::size_t s = 0; s < kSlots<T>; ++s) std::memcpy(heads + 4 * s, from[s], 4 * sizeof(T));
    const hn::CappedTag<T, kSlots<T>> d;
    for (std::size_t s = 0; s < kSlots<T>; s += hn::Lanes(d)) {
        auto row0 = hn::Zero(d), row1 = row0, row2 = row0, row3 = row0;
        hn::LoadInterleaved4(d, heads + 4 * s, row0, row1, row2, row3);
        hn::StoreU(row0, d, to + s);
        hn::StoreU(row1, d, to + kSlots<T> + s);
        hn::StoreU(row2, d, to + 2 * kSlots<T> + s);
        hn::StoreU(row3, d, to + 3 * kSlots<T> + s);
    }
}

/// Sums for `kVectors` vectors of slots and `kTaps` output frames: eight, which no register waits for.
template <std::size_t kVectors, std::size_t kTaps, class T>
HWY_INLINE void weighPart(const T* rows, const T* taps, std::size_t length, T* sums) {
    constexpr std::size_t kRun = 16; // rows that are summed by themselves: less rounding
    const hn::CappedTag<T, kSlots<T>> d;
    using V = hn::Vec<decltype(d)>;
    V totals[kVectors][kTaps];
    for (auto& vector : totals) std::fill_n(vector, kTaps, hn::Zero(d));
    for (std::size_t first = 0; first < length; first += kRun) {
        V sum[kVectors][kTaps];
        for (auto& vector : sum) std::fill_n(vector, kTaps, hn::Zero(d));
        const std::size_t last = std::min(first + kRun, length);
        for (std::size_t j = first; j < last; ++j) {
            V row[kVectors];
            for (std::size_t v = 0; v < kVectors; ++v)
                row[v] = hn::LoadU(d, rows + j * kSlots<T> + v * hn::Lanes(d));
            for (std::size_t t = 0; t < kTaps; ++t) {
                const V tap = hn::Set(d, taps[j * kGroup + t]);
                for (std::size_t v = 0; v < kVectors; ++v) sum[v][t] = hn::MulAdd(row[v], tap, sum[v][t]);
            }
        }
        for (std::size_t v = 0; v < kVectors; ++v) {
            for (std::size_t t = 0; t < kTaps; ++t) totals[v][t] = hn::Add(totals[v][t], sum[v][t]);
        }
    }
    for (std::size_t v = 0; v < kVectors; ++v) {
        for (std::size_t t = 0; t < kTaps; ++t)
            hn::StoreU(totals[v][t], d, sums + t * kSlots<T> + v * hn::Lanes(d));
    }
}

template <class T>
void weigh(const T* rows, const T* taps, std::size_t length, f32* const* to) {
    constexpr std::size_t kLanes = hn::MaxLanes(hn::CappedTag<T, kSlots<T>>());
    constexpr std::size_t kVectors = std::min<std::size_t>(kSlots<T> / kLanes, 4);
    constexpr std::size_t kTaps = std::min<std::size_t>(8 / kVectors, kGroup);
    alignas(64) T sums[kGroup * kSlots<T>];
    for (std::size_t s = 0; s < kSlots<T>; s += kVectors * kLanes) {
        for (std::size_t t = 0; t < kGroup; t += kTaps)
            weighPart<kVectors, kTaps>(rows + s, taps + t, length, sums + t * kSlots<T> + s);
    }
    for (std::size_t s = 0; s < kSlots<T>; ++s) {
        for (std::size_t g = 0; g < kGroup; ++g) to[s][g] = static_cast<f32>(sums[g * kSlots<T> + s]);
    }
}

void turn32(const f32* const* from, f32* to) {
    turn(from, to);
}
void turn64(const f64* const* from, f64* to) {
    turn(from, to);
}
void weigh32(const f32* rows, const f32* taps, std::size_t length, f32* const* to) {
    weigh(rows, taps, length, to);
}
void weigh64(const f64* rows, const f64* taps, std::size_t length, f32* const* to) {
    weigh(rows, taps, length, to);
}

} // namespace kv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include "base/simd_choice.h"

namespace kv {

void turnSlots(const f32* const* from, f32* to) {
    static const auto kernel = KV_CHOOSE_WIDE(turn32);
    kernel(from, to);
}
void turnSlots(const f64* const* from, f64* to) {
    static const auto kernel = KV_CHOOSE_WIDE(turn64);
    kernel(from, to);
}
void weighSlots(const f32* rows, const f32* taps, std::size_t length, f32* const* to) {
    static const auto kernel = KV_CHOOSE_WIDE(weigh32);
    kernel(rows, taps, length, to);
}
void weighSlots(const f64* rows, const f64* taps, std::size_t length, f32* const* to) {
    static const auto kernel = KV_CHOOSE_WIDE(weigh64);
    kernel(rows, taps, length, to);
}

} // namespace kv
#endif
