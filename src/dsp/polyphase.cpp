#include "dsp/polyphase.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "dsp/table_cache.h"

namespace kv {
namespace {

constexpr std::size_t kPadding = 8;          // a row is a whole number of the widest vectors
constexpr u64 kMaxHalf = u64{1} << 19;       // taps
constexpr u64 kMaxExactBytes = u64{2} << 20; // what still fits the second-level caches
constexpr u64 kMaxBytes = u64{64} << 20;     // of a table to be interpolated
constexpr f64 kGrid = 256;                   // rows for one frame of the lower rate: error below -165 dB
constexpr std::size_t kMinGrid = 4;          // rows

template <class T>
void fillRow(const FilterShape& shape, f64 shrink, f64 at, std::size_t half, std::span<T> row) {
    for (std::size_t i = 0; i < 2 * half; ++i) {
        const f64 frames = static_cast<f64>(i) - static_cast<f64>(half - 1) - at;
        row[i] = static_cast<T>(shrink * windowedSinc(shape, frames * shrink));
    }
}

template <class T>
std::shared_ptr<const PhaseTable<T>> makeTable(const FilterShape& shape, const RationalStep& step) {
    const u64 half = halfLength(shape, step);
    if (half > kMaxHalf) return nullptr;
    const auto table = std::make_shared<PhaseTable<T>>();
    table->half = half;
    table->stride = ceilDiv(2 * half, kPadding) * kPadding;
    table->exact = step.out <= kMaxExactBytes / (table->stride * sizeof(T));
    table->phases = table->exact
                        ? step.out
                        : std::max(kMinGrid, static_cast<std::size_t>(std::ceil(kGrid * step.shrink())));
    // A grid has a row ahead of the first and two behind the last for the interpolation.
    const std::size_t ahead = table->exact ? 0 : 1, count = table->phases + (table->exact ? 0 : 3);
    if (count > kMaxBytes / (table->stride * sizeof(T))) return nullptr;
    table->rows.resize(count * table->stride);
    for (std::size_t i = 0; i < count; ++i) {
        const f64 at = (static_cast<f64>(i) - static_cast<f64>(ahead)) / static_cast<f64>(table->phases);
        fillRow(shape, step.shrink(), at, half,
                std::span(table->rows).subspan(i * table->stride, table->stride));
    }
    return table;
}

} // namespace

u64 halfLength(const FilterShape& shape, const RationalStep& step) {
    const auto taps = static_cast<u64>(shape.taps);
    return step.in > step.out ? ceilDiv(taps * step.in, step.out) : taps;
}

template <class T>
std::shared_ptr<const PhaseTable<T>> phaseTable(const FilterShape& shape, const RationalStep& step) {
    static TableCache<PhaseTable<T>> cache;
    return cache.get(
        shape, step, [&] { return makeTable<T>(shape, step); },
        [](const PhaseTable<T>& table) { return table.rows.size() * sizeof(T); });
}

template <class T>
void rowAt(const PhaseTable<T>& table, f64 at, std::span<T> row) {
    const f64 place = at * static_cast<f64>(table.phases);
    const f64 whole = std::floor(place), x = place - whole;
    const T* const first = table.rows.data() + static_cast<std::size_t>(whole) * table.stride;
    // Lagrange's polynomial through the rows at -1, 0, 1 and 2.
    const std::array<T, 4> weights{
        static_cast<T>(-x * (x - 1) * (x - 2) / 6), static_cast<T>((x + 1) * (x - 1) * (x - 2) / 2),
        static_cast<T>(-(x + 1) * x * (x - 2) / 2), static_cast<T>((x + 1) * x * (x - 1) / 6)};
    blendRows(first, table.stride, weights, row.data());
}

template std::shared_ptr<const PhaseTable<f32>> phaseTable(const FilterShape&, const RationalStep&);
template std::shared_ptr<const PhaseTable<f64>> phaseTable(const FilterShape&, const RationalStep&);
template void rowAt(const PhaseTable<f32>&, f64, std::span<f32>);
template void rowAt(const PhaseTable<f64>&, f64, std::span<f64>);

} // namespace kv
