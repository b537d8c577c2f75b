// What the resampler works through: filters in time and filters by blocks of spectrum.
#pragma once

#include <memory>
#include <span>

#include "dsp/filter_design.h"
#include "dsp/polyphase.h"

namespace kv {

/// Output frame n is the filtered input at frame n * in / out, for n from 0 on.
class ResampleEngine {
public:
    virtual ~ResampleEngine() = default;
    virtual void push(std::span<const f32* const> planes, std::size_t frames) = 0;
    virtual void pushZeros(std::size_t frames) = 0;
    /// Writes up to `frames` output frames, as many as the input allows, and answers how many.
    virtual std::size_t pull(std::span<f32* const> planes, std::size_t frames) = 0;
    /// Input frames behind the place of an output frame that are needed for it, at most.
    virtual std::size_t lookAhead() const = 0;
};

/// Short interpolators: 0 nearest, 1 linear, 2 cubic through four points (Lagrange). Not adapted when the
/// rate falls.
std::unique_ptr<ResampleEngine> makeInterpolator(int quality, const RationalStep& step, std::size_t channels);

/// A windowed sinc in the time domain; null if its tables would be too large.
template <class T>
std::unique_ptr<ResampleEngine> makeTimeFilter(const FilterShape& shape, const RationalStep& step,
                                               std::size_t channels);

/// The same at several times the speed, for thousands of frames at once, but not more than for `length`
/// output frames; null for ratios and filters that it isn't made for.
template <class T>
std::unique_ptr<ResampleEngine> makeSlotFilter(const FilterShape& shape, const RationalStep& step,
                                               std::size_t channels, u64 length);

/// The same filter by overlapped blocks, in double; null if the ratio doesn't give blocks of good size.
std::unique_ptr<ResampleEngine> makeBlockFilter(const FilterShape& shape, const RationalStep& step,
                                                std::size_t channels);

} // namespace kv
