#include "dsp/filter_design.h"

#include <array>
#include <cmath>
#include <numbers>

namespace kv {
namespace {

constexpr int kFirst = 3;

constexpr std::array<FilterShape, 5> kClassic{{
    {8, 0.77, 6},
    {17, 0.86, 7.5},
    {34, 0.905, 9.5},
    {132, 0.97, 11},
    {499, 0.985, 14},
}};

// The stopband begins at the band's edge, and beta is what the S/N needs: 100, 138 and 158 dB in the last
// three. 5 is longer than its classic form so as to stay flat to 0.9 of the band.
constexpr std::array<FilterShape, 5> kClean{{
    {8, 0.77, 6},
    {17, 0.86, 7.5},
    {64, 0.9495, 10.1},
    {132, 0.9655, 14.3},
    {122, 0.957, 16.4},
}};

} // namespace

FilterShape filterShape(int quality, FilterSet set, bool grows) {
    const auto row = static_cast<std::size_t>(quality - kFirst);
    if (set == FilterSet::Clean) return kClean[row];
    return grows ? FilterShape{kClassic[row].taps, 1, 9} : kClassic[row];
}

f64 besselI0(f64 x) {
    const f64 quarter = x * x / 4;
    f64 sum = 1, term = 1;
    for (f64 k = 1; term >= sum * 1e-21; ++k) sum += term *= quarter / (k * k);
    return sum;
}

f64 windowedSinc(const FilterShape& shape, f64 t) {
    const f64 place = t / shape.taps;
    if (std::abs(place) > 1) return 0;
    const f64 window = besselI0(shape.beta * std::sqrt(1 - place * place)) / besselI0(shape.beta);
    const f64 x = std::numbers::pi * shape.cutoff * t;
    return shape.cutoff * (std::abs(x) < 1e-9 ? 1 : std::sin(x) / x) * window;
}

f64 halfTransition(const FilterShape& shape) {
    const f64 attenuation = shape.beta / 0.1102 + 8.7;
    return (attenuation - 8) / (2.285 * 2 * shape.taps) / std::numbers::pi / 2;
}

} // namespace kv
