// Resampling in the time domain: a row of taps for each output frame.
#include <algorithm>
#include <cmath>

#include "dsp/history.h"
#include "dsp/resample_engine.h"

namespace kv {
namespace {

constexpr std::size_t kShortStride = 8;
constexpr u64 kMaxShortPhases = 4096; // rows; beyond that each row is computed when it is needed

/// The taps of a short interpolator for the place `at` between two frames; tap `shortHalf - 1` is the first
/// of them.
void shortRow(int quality, f64 at, std::span<f32> row) {
    const auto set = [&](std::initializer_list<f64> taps) {
        std::transform(taps.begin(), taps.end(), row.begin(), [](f64 t) { return static_cast<f32>(t); });
    };
    if (quality == 0) set({at < 0.5 ? 1.0 : 0.0, at < 0.5 ? 0.0 : 1.0});
    if (quality == 1) set({1 - at, at});
    if (quality == 2) {
        set({-at * (at - 1) * (at - 2) / 6, (at + 1) * (at - 1) * (at - 2) / 2, -(at + 1) * at * (at - 2) / 2,
             (at + 1) * at * (at - 1) / 6});
    }
}

std::size_t shortHalf(int quality) {
    return quality == 2 ? 2 : 1;
}

std::shared_ptr<const PhaseTable<f32>> shortTable(int quality, const RationalStep& step) {
    const auto table = std::make_shared<PhaseTable<f32>>();
    table->half = shortHalf(quality);
    table->stride = kShortStride;
    table->exact = step.out <= kMaxShortPhases;
    if (!table->exact) return table;
    table->phases = step.out;
    table->rows.resize(table->phases * kShortStride);
    for (std::size_t i = 0; i < table->phases; ++i) {
        shortRow(quality, static_cast<f64>(i) / static_cast<f64>(table->phases),
                 std::span(table->rows).subspan(i * kShortStride, kShortStride));
    }
    return table;
}

template <class T>
class TimeFilter : public ResampleEngine {
public:
    /// `quality` of a short interpolator, or -1.
    TimeFilter(std::shared_ptr<const PhaseTable<T>> table, int quality, const RationalStep& step,
               std::size_t channels)
        : table_(std::move(table)),
          quality_(quality),
          step_(step),
          channels_(channels),
          history_(channels),
          row_(table_->stride) {
        history_.appendZeros(table_->half - 1); // so the first output's row is centred on the first input
    }

    void push(std::span<const f32* const> planes, std::size_t frames) override {
        history_.append(planes, frames);
    }
    void pushZeros(std::size_t frames) override { history_.appendZeros(frames); }
    std::size_t lookAhead() const override { return table_->half + 1; }

    std::size_t pull(std::span<f32* const> planes, std::size_t frames) override {
        const std::size_t count = static_cast<std::size_t>(std::min<u64>(frames, ready()));
        if (count == 0) return 0;
        for (std::size_t done = 0, part = 0; done < count; done += part) {
            part = table_->exact ? count : 1;
            filter(planes, done, part);
        }
        history_.dropBefore(place_.frame);
        return count;
    }

private:
    /// Output frames whose taps are all there.
    u64 ready() const {
        const u64 end = history_.end(), taps = 2 * table_->half;
        if (end < place_.frame + taps) return 0;
        const u64 starts = std::min(end - place_.frame - taps + 1, u64{1} << 31);
        return ceilDiv(starts * step_.out - place_.phase, step_.in);
    }

    void filter(std::span<f32* const> planes, std::size_t done, std::size_t count) {
        const T* rows = table_->rows.data();
        RationalPlace start{0, place_.phase};
        if (!table_->exact) {
            const f64 at = static_cast<f64>(place_.phase) / static_cast<f64>(step_.out);
            if constexpr (std::is_same_v<T, f32>) {
                quality_ >= 0 ? shortRow(quality_, at, row_) : rowAt<T>(*table_, at, row_);
            } else {
                rowAt<T>(*table_, at, row_);
            }
            rows = row_.data();
            start.phase = 0;
        }
        for (std::size_t c = 0; c < channels_; c += 2) {
            const bool two = c + 1 < channels_;
            runPolyphase(PolyphaseRun<T>{
                rows,
                table_->stride,
                step_,
                start,
                {history_.at(c, place_.frame), two ? history_.at(c + 1, place_.frame) : nullptr},
                {planes[c] + done, two ? planes[c + 1] + done : nullptr},
                count});
        }
        const u64 phase = place_.phase + count * step_.rest(); // below 2^64: both are below 2^32
        place_.frame += count * step_.wholes() + phase / step_.out;
        place_.phase = phase % step_.out;
    }

    std::shared_ptr<const PhaseTable<T>> table_;
    int quality_;
    RationalStep step_;
    std::size_t channels_;
    History<T> history_;
    std::vector<T> row_;
    RationalPlace place_; // of the next output frame; its row starts at that frame of the history
};

} // namespace

std::unique_ptr<ResampleEngine> makeInterpolator(int quality, const RationalStep& step,
                                                 std::size_t channels) {
    return std::make_unique<TimeFilter<f32>>(shortTable(quality, step), quality, step, channels);
}

template <class T>
std::unique_ptr<ResampleEngine> makeTimeFilter(const FilterShape& shape, const RationalStep& step,
                                               std::size_t channels) {
    auto table = phaseTable<T>(shape, step);
    if (!table) return nullptr;
    return std::make_unique<TimeFilter<T>>(std::move(table), -1, step, channels);
}

template std::unique_ptr<ResampleEngine> makeTimeFilter<f32>(const FilterShape&, const RationalStep&,
                                                             std::size_t);
template std::unique_ptr<ResampleEngine> makeTimeFilter<f64>(const FilterShape&, const RationalStep&,
                                                             std::size_t);

} // namespace kv
