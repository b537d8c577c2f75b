// The loop over rows of taps, compiled once for each instruction set and chosen at run time.
#include <algorithm>

#include "dsp/polyphase.h"

// The widest vectors gain nothing: the loop waits for unaligned loads.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3 | HWY_AVX3_DL)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/polyphase_simd.cpp"
#include <hwy/foreach_target.h>
// After foreach_target:
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kv::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// The sum of a row times a stretch of input, in two vectors of lanes.
template <class D, class T = hn::TFromD<D>>
struct Sum {
    hn::Vec<D> even, odd;
    const T* in;
    HWY_INLINE Sum(D d, const T* input) : even(hn::Zero(d)), odd(even), in(input) {}
    HWY_INLINE void addTwo(D d, hn::Vec<D> first, hn::Vec<D> second, std::size_t at) {
        even = hn::MulAdd(first, hn::LoadU(d, in + at), even);
        odd = hn::MulAdd(second, hn::LoadU(d, in + at + hn::Lanes(d)), odd);
    }
    HWY_INLINE void addOne(D d, hn::Vec<D> first, std::size_t at) {
        even = hn::MulAdd(first, hn::LoadU(d, in + at), even);
    }
    HWY_INLINE f32 total(D d) const {
        return static_cast<f32>(hn::GetLane(hn::SumOfLanes(d, hn::Add(even, odd))));
    }
};

/// One row times `kInputs` (1, 2 or 4) stretches of input. Written out, as loops over them don't stay in
/// registers.
template <int kInputs, class T>
HWY_INLINE void dot(const T* HWY_RESTRICT row, std::size_t stride, const T* const* in, f32* const* out) {
    const hn::CappedTag<T, 8> d; // rows are padded to 8
    using D = hn::CappedTag<T, 8>;
    const std::size_t lanes = hn::Lanes(d);
    Sum<D> s0(d, in[0]), s1(d, in[kInputs > 1 ? 1 : 0]), s2(d, in[kInputs > 2 ? 2 : 0]),
        s3(d, in[kInputs > 2 ? 3 : 0]);
    std::size_t i = 0;
    for (; i + 2 * lanes <= stride; i += 2 * lanes) {
        const auto first = hn::LoadU(d, row + i), second = hn::LoadU(d, row + i + lanes);
        s0.addTwo(d, first, second, i);
        if constexpr (kInputs > 1) s1.addTwo(d, first, second, i);
        if constexpr (kInputs > 2) s2.addTwo(d, first, second, i);
        if constexpr (kInputs > 2) s3.addTwo(d, first, second, i);
    }
    for (; i < stride; i += lanes) {
        const auto first = hn::LoadU(d, row + i);
        s0.addOne(d, first, i);
        if constexpr (kInputs > 1) s1.addOne(d, first, i);
        if constexpr (kInputs > 2) s2.addOne(d, first, i);
        if constexpr (kInputs > 2) s3.addOne(d, first, i);
    }
    *out[0] = s0.total(d);
    if constexpr (kInputs > 1) *out[1] = s1.total(d);
    if constexpr (kInputs > 2) *out[2] = s2.total(d);
    if constexpr (kInputs > 2) *out[3] = s3.total(d);
}

/// All output frames of one phase come together, two at a time, so that the row stays in the first-level
/// cache.
template <int kPlanes, class T>
void filterRows(const PolyphaseRun<T>& run) {
    const std::size_t phases = run.step.out, apart = run.step.in;
    RationalPlace place = run.place;
    for (std::size_t first = 0; first < std::min(phases, run.count); ++first) {
        const T* const row = run.rows + place.phase * run.stride;
        std::size_t n = first, frame = place.frame;
        for (; n + phases < run.count; n += 2 * phases, frame += 2 * apart) {
            const T* const in[] = {run.in[0] + frame, run.in[0] + frame + apart,
                                   kPlanes == 2 ? run.in[1] + frame : nullptr,
                                   kPlanes == 2 ? run.in[1] + frame + apart : nullptr};
            f32* const out[] = {run.out[0] + n, run.out[0] + n + phases,
                                kPlanes == 2 ? run.out[1] + n : nullptr,
                                kPlanes == 2 ? run.out[1] + n + phases : nullptr};
            dot<2 * kPlanes>(row, run.stride, in, out);
        }
        if (n < run.count) {
            const T* const in[] = {run.in[0] + frame, kPlanes == 2 ? run.in[1] + frame : nullptr};
            f32* const out[] = {run.out[0] + n, kPlanes == 2 ? run.out[1] + n : nullptr};
            dot<kPlanes>(row, run.stride, in, out);
        }
        place.step(run.step.wholes(), run.step.rest(), phases);
    }
}

template <class T>
void blend(const T* HWY_RESTRICT rows, std::size_t stride, const std::array<T, 4>& weights,
           T* HWY_RESTRICT sum) {
    const hn::CappedTag<T, 8> d;
    const auto w0 = hn::Set(d, weights[0]), w1 = hn::Set(d, weights[1]), w2 = hn::Set(d, weights[2]),
               w3 = hn::Set(d, weights[3]);
    for (std::size_t i = 0; i < stride; i += hn::Lanes(d)) {
        const auto low = hn::MulAdd(w0, hn::LoadU(d, rows + i), hn::Mul(w1, hn::LoadU(d, rows + stride + i)));
        const auto high = hn::MulAdd(w2, hn::LoadU(d, rows + 2 * stride + i),
                                     hn::Mul(w3, hn::LoadU(d, rows + 3 * stride + i)));
        hn::StoreU(hn::Add(low, high), d, sum + i);
    }
}

void blend32(const f32* rows, std::size_t stride, const std::array<f32, 4>& weights, f32* sum) {
    blend(rows, stride, weights, sum);
}

void blend64(const f64* rows, std::size_t stride, const std::array<f64, 4>& weights, f64* sum) {
    blend(rows, stride, weights, sum);
}

void polyphase32(const PolyphaseRun<f32>& run) {
    run.in[1] != nullptr ? filterRows<2>(run) : filterRows<1>(run);
}

void polyphase64(const PolyphaseRun<f64>& run) {
    run.in[1] != nullptr ? filterRows<2>(run) : filterRows<1>(run);
}

} // namespace kv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include "base/simd_choice.h"

namespace kv {

void runPolyphase(const PolyphaseRun<f32>& run) {
    static const auto kernel = KV_CHOOSE(polyphase32);
    kernel(run);
}
void runPolyphase(const PolyphaseRun<f64>& run) {
    static const auto kernel = KV_CHOOSE(polyphase64);
    kernel(run);
}
void blendRows(const f32* rows, std::size_t stride, const std::array<f32, 4>& weights, f32* sum) {
    static const auto kernel = KV_CHOOSE(blend32);
    kernel(rows, stride, weights, sum);
}
void blendRows(const f64* rows, std::size_t stride, const std::array<f64, 4>& weights, f64* sum) {
    static const auto kernel = KV_CHOOSE(blend64);
    kernel(rows, stride, weights, sum);
}

} // namespace kv
#endif
