#include "formats/banks/soundfont/sfark_predictor.h"

#include <algorithm>

namespace kv {
namespace {

/// Products per rounding to float.
constexpr std::size_t kGroup = 16;

/// The products of the first `count` values with those `lag` behind them, summed and rounded to float after
/// each full group and after each product of the last, partial group. All terms are whole numbers and the sum
/// of a group is below 2^53, so that its order doesn't matter.
f32 correlate(const i16* values, std::size_t count, std::size_t lag) {
    f32 sum = 0;
    const i16* const later = values + lag;
    std::size_t i = 0;
    for (; i + kGroup <= count; i += kGroup) {
        i64 group = 0;
        for (std::size_t j = i; j < i + kGroup; ++j) group += i32{values[j]} * later[j];
        sum = static_cast<f32>(f64{sum} + static_cast<f64>(group));
    }
    for (; i < count; ++i) sum = static_cast<f32>(f64{sum} + i32{values[i]} * later[i]);
    return sum;
}

/// A product with a reflection coefficient, in whole words, truncated. Damaged streams may overflow: they
/// wrap.
u32 scaled(i32 reflection, i32 value) {
    return static_cast<u32>(i64{reflection} * value / 16384);
}

} // namespace

void SfarkPredictor::decode(std::span<i16, kWindow> window, bool reset) {
    if (reset) {
        *this = SfarkPredictor(order_);
    } else if (deriveReflections()) {
        filter(window);
    } else {
        std::reverse_copy(window.begin(), window.end(), backward_.begin()); // the lattice is a delay line
    }
    adapt(window);
}

/// The Schur recursion over the autocorrelation of the last four windows: computed in double, every result
/// kept as float. False, with nothing derived, after silence, where all coefficients are 0.
bool SfarkPredictor::deriveReflections() {
    Lags sum{};
    for (std::size_t k = 0; k <= order_; ++k) {
        f64 total = 0;
        for (const Lags& row : correlations_) total += f64{row[k]};
        sum[k] = static_cast<f32>(total);
    }
    if (sum[0] == 0) return false;
    f32 error = sum[0];
    std::array<f32, kWindow> forward{}, backward{};
    std::copy_n(sum.begin() + 1, order_, forward.begin());
    backward = forward;
    for (std::size_t i = 0; i < order_; ++i) {
        const auto q = static_cast<f32>(-(f64{backward[0]} / f64{error}));
        error = static_cast<f32>(f64{error} + f64{backward[0]} * f64{q});
        reflections_[i] = saturate<i32>(f64{q * 16384.0F});
        for (std::size_t m = 0; m + i + 1 < order_; ++m) {
            const f64 f = f64{forward[m]}, b = f64{backward[m + 1]};
            backward[m] = static_cast<f32>(b + f64{q} * f);
            forward[m] = static_cast<f32>(f + f64{q} * b);
        }
    }
    return true;
}

/// The lattice synthesis filter.
void SfarkPredictor::filter(std::span<i16, kWindow> window) {
    for (i16& word : window) {
        auto s = static_cast<u32>(i32{word});
        for (std::size_t i = order_; i-- > 0;) {
            const auto before = static_cast<u32>(backward_[i]);
            s -= scaled(reflections_[i], backward_[i]);
            backward_[i + 1] = static_cast<i32>(before + scaled(reflections_[i], static_cast<i32>(s)));
        }
        backward_[0] = static_cast<i32>(s);
        word = static_cast<i16>(s);
    }
}

/// Takes a decoded window into the statistics. The products that span two windows go from the beginning of
/// the previous one, not from its end: that is how the format has it. Silence is worth the short cut: an
/// archive of a few bytes may stand for much of it.
void SfarkPredictor::adapt(std::span<const i16, kWindow> window) {
    Lags& last = correlations_[row_];
    row_ = (row_ + 1) % static_cast<unsigned>(correlations_.size());
    Lags& next = correlations_[row_];
    if (std::ranges::all_of(window, [](i16 word) { return word == 0; })) {
        next.fill(0);
        head_.fill(0);
        return;
    }
    std::array<i16, std::size_t{2} * kWindow> seam{};
    const auto middle = std::copy_n(head_.begin(), order_, seam.begin());
    std::copy_n(window.begin(), order_, middle);
    for (std::size_t k = 1; k <= order_; ++k) last[k] += correlate(seam.data() + order_ - k, k, k);
    for (std::size_t k = 0; k <= order_; ++k) next[k] = correlate(window.data(), kWindow - k, k);
    std::copy_n(window.begin(), order_, head_.begin());
}

} // namespace kv
