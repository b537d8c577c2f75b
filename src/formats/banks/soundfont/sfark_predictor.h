// The backward-adaptive linear prediction of sfArk version 2, methods 6 and 7.
#pragma once

#include <array>
#include <span>

#include "base/integers.h"

namespace kv {

/// Undoes the prediction of one stream, window after window. The filter's coefficients aren't stored: they
/// are derived from the words that were decoded before, so every rounding has to be that of the encoder.
class SfarkPredictor {
public:
    static constexpr unsigned kWindow = 128; ///< words

    /// `order`: count of coefficients, at most kWindow.
    explicit SfarkPredictor(unsigned order) : order_(order) {}

    /// Turns a window of residuals into words. With `reset` the window is stored as it is and the
    /// adaptation starts anew from it.
    void decode(std::span<i16, kWindow> window, bool reset);

private:
    using Lags = std::array<f32, kWindow + 1>;

    bool deriveReflections();
    void filter(std::span<i16, kWindow> window);
    void adapt(std::span<const i16, kWindow> window);

    unsigned order_;
    std::array<i32, kWindow> reflections_{};  ///< in 1/16384
    std::array<i32, kWindow + 1> backward_{}; ///< the lattice's backward errors, by delay
    std::array<Lags, 4> correlations_{};      ///< of the last four windows
    unsigned row_ = 0;                        ///< the newest of `correlations_`
    std::array<i16, kWindow> head_{};         ///< the first `order_` words of the previous window
};

} // namespace kv
