// Resampling in the time domain, many stretches of input side by side: they are a whole number of the ratio's
// periods apart, so that the same taps go with all of them, and each vector register holds one frame of
// several stretches. Nothing is loaded across the lanes of a register, and each frame is loaded once for
// several output frames.
#include <algorithm>
#include <array>

#include "dsp/batch_engine.h"
#include "dsp/slot_kernel.h"
#include "dsp/table_cache.h"

namespace kv {
namespace {

constexpr std::size_t kMostRows = 1536;    // of a filter, so that rows stay near
constexpr std::size_t kPhasesAlone = 32;   // from so many phases on a few idle ones are no matter
constexpr std::size_t kBlockOutputs = 512; // so many output frames make up for the rows that blocks share

/// The taps of a period of output frames, in groups of `kGroup`, with zeros where a group's frames look at
/// more input than one of them. The last group may be filled up with idle ones.
template <class T>
struct TapGroups {
    std::size_t half = 0;                    ///< of the filter's taps
    std::size_t periodIn = 0, periodOut = 0; ///< frames
    std::size_t length = 0;                  ///< input frames that a group looks at
    std::vector<std::size_t> first;          ///< by group: the first of these
    std::vector<T> taps;                     ///< by group, frame, output frame

    std::size_t paddedOut() const { return first.size() * kGroup; }
};

/// Null if a group looks at too much.
template <class T>
std::shared_ptr<const TapGroups<T>> makeGroups(const FilterShape& shape, const RationalStep& step) {
    const auto table = phaseTable<T>(shape, step);
    if (!table || !table->exact) return nullptr;
    const std::size_t units = step.out >= kPhasesAlone ? 1 : kGroup / std::gcd(kGroup, step.out);
    const std::size_t taps = 2 * table->half;
    const auto groups = std::make_shared<TapGroups<T>>();
    groups->half = table->half;
    groups->periodIn = units * step.in;
    groups->periodOut = units * step.out;
    groups->length = taps + ceilDiv((kGroup - 1) * step.in, step.out);
    if (groups->length > kMostRows) return nullptr;
    groups->taps.resize(ceilDiv(groups->periodOut, kGroup) * groups->length * kGroup);
    const auto frameOf = [&](std::size_t output) { return output * step.in / step.out; };
    for (std::size_t output = 0; output < groups->periodOut; ++output) {
        const std::size_t group = output / kGroup;
        if (output % kGroup == 0) groups->first.push_back(frameOf(output));
        const T* const row = table->rows.data() + output * step.in % step.out * table->stride;
        const std::size_t first = group * groups->length + frameOf(output) - groups->first.back();
        for (std::size_t j = 0; j < taps; ++j) groups->taps[(first + j) * kGroup + output % kGroup] = row[j];
    }
    return groups;
}

template <class T>
std::shared_ptr<const TapGroups<T>> tapGroups(const FilterShape& shape, const RationalStep& step) {
    static TableCache<TapGroups<T>> cache;
    return cache.get(
        shape, step, [&] { return makeGroups<T>(shape, step); },
        [](const TapGroups<T>& groups) { return groups.taps.size() * sizeof(T); });
}

template <class T>
BlockCut cutFor(const TapGroups<T>& groups, std::size_t periods) {
    return {periods * groups.periodIn, periods * groups.periodOut, periods * groups.periodIn + groups.length,
            groups.half - 1};
}

template <class T>
class SlotFilter : public BatchEngine<T> {
public:
    SlotFilter(std::shared_ptr<const TapGroups<T>> groups, std::size_t periods, std::size_t channels)
        : BatchEngine<T>(cutFor(*groups, periods), kSlots<T>, channels),
          groups_(std::move(groups)),
          periods_(periods),
          rows_(ceilDiv(periods * groups_->periodIn + groups_->length, kTurn) * kTurn * kSlots<T>),
          outputs_(kSlots<T> * groups_->paddedOut()) {}

protected:
    void filter(std::span<const T* const> from, std::span<f32* const> to) override {
        std::array<const T*, kSlots<T>> heads{};
        std::copy(from.begin(), from.end(), heads.begin());
        for (std::size_t at = 0; at < rows_.size(); at += kTurn * kSlots<T>) {
            turnSlots(heads.data(), rows_.data() + at);
            for (const T*& head : heads) head += kTurn;
        }
        const TapGroups<T>& groups = *groups_;
        for (std::size_t period = 0; period < periods_; ++period) {
            const T* const rows = rows_.data() + period * groups.periodIn * kSlots<T>;
            std::array<f32*, kSlots<T>> out{};
            for (std::size_t s = 0; s < out.size(); ++s) out[s] = outputs_.data() + s * groups.paddedOut();
            for (std::size_t group = 0; group < groups.first.size(); ++group) {
                weighSlots(rows + groups.first[group] * kSlots<T>,
                           groups.taps.data() + group * groups.length * kGroup, groups.length, out.data());
                for (f32*& o : out) o += kGroup;
            }
            for (std::size_t s = 0; s < to.size(); ++s)
                std::copy_n(outputs_.data() + s * groups.paddedOut(), groups.periodOut,
                            to[s] + period * groups.periodOut);
        }
    }

private:
    static constexpr std::size_t kTurn = 4; // frames that are turned together

    std::shared_ptr<const TapGroups<T>> groups_;
    std::size_t periods_;
    std::vector<T> rows_;
    std::vector<f32> outputs_; // of a period, by slot
};

} // namespace

template <class T>
std::unique_ptr<ResampleEngine> makeSlotFilter(const FilterShape& shape, const RationalStep& step,
                                               std::size_t channels, u64 length) {
    auto groups = tapGroups<T>(shape, step);
    if (!groups) return nullptr;
    const u64 blocks = kSlots<T> / std::gcd(kSlots<T>, channels);
    const u64 wanted = ceilDiv(std::max<u64>(length, 1), blocks * groups->periodOut);
    const u64 periods = std::min<u64>(wanted, ceilDiv(kBlockOutputs, groups->periodOut));
    return std::make_unique<SlotFilter<T>>(std::move(groups), periods, channels);
}

template std::unique_ptr<ResampleEngine> makeSlotFilter<f32>(const FilterShape&, const RationalStep&,
                                                             std::size_t, u64);
template std::unique_ptr<ResampleEngine> makeSlotFilter<f64>(const FilterShape&, const RationalStep&,
                                                             std::size_t, u64);

} // namespace kv
