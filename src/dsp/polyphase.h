// A filter as rows of taps, one row for each place between two input frames, and the loop over them.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <vector>

#include "dsp/filter_design.h"

namespace kv {

/// The place of an output frame in the input: frame + phase / phases. Steps are exact.
struct RationalPlace {
    u64 frame = 0;
    u64 phase = 0;

    void step(u64 wholes, u64 rest, u64 phases) {
        frame += wholes;
        phase += rest;
        if (phase >= phases) {
            phase -= phases;
            ++frame;
        }
    }
};

/// The parts of a ratio of rates in lowest terms: input frames for each output frame are in / out.
struct RationalStep {
    u64 in = 1;
    u64 out = 1;
    u64 wholes() const { return in / out; }
    u64 rest() const { return in % out; }
    f64 shrink() const { return in > out ? static_cast<f64>(out) / static_cast<f64>(in) : 1; }
};

/// Rows of taps. `row` of place 0 is centred on tap `half - 1`. Rows are `stride` apart, padded with zeros.
template <class T>
struct PhaseTable {
    std::size_t half = 0;   ///< taps on each side
    std::size_t stride = 0; ///< taps of a row with the padding
    std::size_t phases = 0; ///< rows for one input frame
    bool exact = true;      ///< one row for each phase of the step; else to be interpolated, see `rowAt`
    std::vector<T> rows;
};

/// Half the taps of a filter at the input's rate: taps / min(r, 1), rounded up.
u64 halfLength(const FilterShape& shape, const RationalStep& step);

/// The rows of a windowed sinc for a ratio: one for each phase if that takes a megabyte or two, else a grid
/// of phases fine enough for cubic interpolation to stay below the filter's own error. Tables are shared
/// and the last few are kept. Null if a table would be too large: half-length above 2^19 or over 64 MB.
template <class T>
std::shared_ptr<const PhaseTable<T>> phaseTable(const FilterShape& shape, const RationalStep& step);

/// The row for the place `at` from 0 to below 1 between two frames, out of four rows of a table that isn't
/// exact.
template <class T>
void rowAt(const PhaseTable<T>& table, f64 at, std::span<T> row);

/// Filters `count` output frames of one or two planes. `in` are the frames from `half - 1` ahead of the
/// place's frame on; they must be readable for `stride` frames from the last place's start. A second plane
/// may be null. Vector form by processor: sums are taken in several lanes, so last bits differ between
/// processors.
template <class T>
struct PolyphaseRun {
    const T* rows;
    std::size_t stride;
    RationalStep step;
    RationalPlace place; ///< `frame` counts from `in`
    const T* in[2];
    f32* out[2];
    std::size_t count;
};
void runPolyphase(const PolyphaseRun<f32>& run);
void runPolyphase(const PolyphaseRun<f64>& run);

/// The sum of four rows, `stride` apart, each times its weight.
void blendRows(const f32* rows, std::size_t stride, const std::array<f32, 4>& weights, f32* sum);
void blendRows(const f64* rows, std::size_t stride, const std::array<f64, 4>& weights, f64* sum);

} // namespace kv
