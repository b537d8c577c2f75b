// The search of the adaptive codecs' encoders: a code that fits one sample well can leave a step that fits
// the next ones badly, so several sequences of codes are followed and the best one is taken at the end.
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "base/integers.h"

namespace kv {

/// Follows `Width` sequences of codes through a run of samples. `State` is a decoder's state with
///     u32 nearest(i32 sample, u32& second) const;  // the best code, and the next best one
///     i32 decode(u32 code);                        // the sample that comes out; moves the state
///     bool sameAs(const State&) const;             // goes on in the same way
template <class State, std::size_t Width>
class CodeSearch {
public:
    /// Codes every `stride`-th of the samples, from the first one on. Moves `state` to the end of the codes
    /// and answers the sum of the squared errors.
    u64 run(std::span<const i16> samples, std::size_t stride, State& state, std::vector<u8>& codes) {
        const std::size_t count = (samples.size() + stride - 1) / stride;
        steps_.resize(count);
        paths_[0] = {state, 0};
        used_ = 1;
        for (std::size_t i = 0; i < count; ++i) extend(samples[i * stride], steps_[i]);

        codes.resize(count);
        std::size_t path = 0; // the best one stands first
        for (std::size_t i = count; i-- > 0;) {
            codes[i] = steps_[i][path].code;
            path = steps_[i][path].from;
        }
        state = paths_[0].state;
        return paths_[0].error;
    }

private:
    struct Path {
        State state;
        u64 error;
    };
    struct Step {
        u8 from, code;
    };
    using Steps = std::array<Step, Width>;

    /// Goes on by one sample, with two codes for each path.
    void extend(i32 sample, Steps& steps) {
        std::array<Path, Width> next;
        std::size_t kept = 0;
        for (std::size_t from = 0; from < used_; ++from) {
            u32 codes[2];
            codes[0] = paths_[from].state.nearest(sample, codes[1]);
            for (const u32 code : codes) {
                Path path = paths_[from];
                const i64 error = i64{path.state.decode(code)} - sample;
                path.error += static_cast<u64>(error * error);
                keep(next, kept, path, steps, {static_cast<u8>(from), static_cast<u8>(code)});
            }
        }
        paths_ = next;
        used_ = kept;
    }

    /// Puts a path among the best ones, unless a better one is in the same state.
    static void keep(std::array<Path, Width>& best, std::size_t& kept, const Path& path, Steps& steps,
                     Step step) {
        if (kept == Width && path.error >= best[Width - 1].error) return;
        std::size_t at = 0;
        for (; at < kept && best[at].error <= path.error; ++at) {
            if (best[at].state.sameAs(path.state)) return;
        }
        if (kept < Width) ++kept;
        for (std::size_t i = kept - 1; i > at; --i) {
            best[i] = best[i - 1];
            steps[i] = steps[i - 1];
        }
        best[at] = path;
        steps[at] = step;
    }

    std::array<Path, Width> paths_{};
    std::size_t used_ = 0;
    std::vector<Steps> steps_;
};

} // namespace kv
