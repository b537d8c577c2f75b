#include "draw/ticks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <span>

namespace kv {
namespace {

/// Far more than any axis shows; keeps a step that got lost in rounding from running on.
constexpr std::size_t kMostTicks = 1000;

/// The smallest of the steps with at most `most` marks; the last one if none is.
f64 chooseStep(std::span<const f64> steps, f64 range, u32 most) {
    for (const f64 step : steps) {
        if (range / step <= most) return step;
    }
    return steps.back();
}

f64 decimalStep(f64 range, u32 most) {
    const f64 rough = range / std::max(most, 1U);
    const f64 power = std::pow(10, std::floor(std::log10(rough)));
    for (const f64 factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= rough * 0.999999) return factor * power;
    }
    return 10 * power;
}

/// Multiples of the step between the ends.
template <class Label>
std::vector<Tick> multiples(f64 from, f64 to, f64 step, Label label) {
    std::vector<Tick> ticks;
    if (!(to > from) || !(step > 0)) return ticks;
    const f64 slack = step * 1e-6;
    for (f64 number = std::ceil((from - slack) / step); ticks.size() < kMostTicks; ++number) {
        const f64 value = number * step;
        if (!(value <= to + slack)) break;
        ticks.push_back({value, label(value == 0 ? 0.0 : value)}); // no minus before 0
    }
    return ticks;
}

int decimalsOf(f64 step) {
    return std::clamp(static_cast<int>(-std::floor(std::log10(step) + 1e-6)), 0, 9);
}

std::string plainNumber(f64 value, f64 step) {
    if (step >= 1e4 || step < 1e-9) return fmt::format("{:g}", value);
    return fmt::format("{:.{}f}", value, decimalsOf(step));
}

std::string clockTime(f64 seconds) {
    const auto whole = static_cast<i64>(std::llround(seconds));
    const i64 hours = whole / 3600, minutes = whole / 60 % 60;
    return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60)
                     : fmt::format("{}:{:02}", minutes, whole % 60);
}

f64 octaves(f64 value) {
    return std::log2(value);
}
f64 fromOctaves(f64 value) {
    return std::exp2(value);
}

constexpr f64 kMelCorner = 700; // Hz
f64 mels(f64 hertz) {
    return std::log1p(hertz / kMelCorner);
}
f64 fromMels(f64 mel) {
    return kMelCorner * std::expm1(mel);
}

} // namespace

f64 Scale::at(f64 value) const {
    const auto bent = [&](f64 v) { return bend ? bend(v) : v; };
    return low + (bent(value) - bent(from)) / (bent(to) - bent(from)) * (high - low);
}

f64 Scale::valueAt(f64 pixel) const {
    const f64 part = (pixel - low) / (high - low);
    if (!bend) return from + part * (to - from);
    return unbend(bend(from) + part * (bend(to) - bend(from)));
}

Scale logScale(f64 from, f64 to, f64 low, f64 high) {
    return {from, to, low, high, octaves, fromOctaves};
}

Scale melScale(f64 from, f64 to, f64 low, f64 high) {
    return {from, to, low, high, mels, fromMels};
}

std::vector<Tick> linearTicks(f64 from, f64 to, u32 most, f64 leastStep) {
    if (!(to > from)) return {};
    const f64 step = std::max(decimalStep(to - from, most), leastStep);
    return multiples(from, to, step, [&](f64 value) {
        return leastStep >= 1 ? grouped(std::llround(value)) : plainNumber(value, step);
    });
}

std::vector<Tick> timeTicks(f64 from, f64 to, u32 most) {
    constexpr f64 kLongSteps[] = {1,   2,   5,    10,   15,   30,    60,    120,   300,
                                  600, 900, 1800, 3600, 7200, 18000, 36000, 86400, 864000};
    if (!(to > from)) return {};
    if (to < 60) {
        const f64 step = decimalStep(to - from, most);
        return multiples(from, to, step,
                         [&](f64 value) { return fmt::format("{:.{}f} s", value, decimalsOf(step)); });
    }
    const f64 fine = decimalStep(to - from, most);
    if (fine < 1) {
        return multiples(from, to, fine, [&](f64 value) {
            const f64 minutes = std::floor((value + fine / 2) / 60);
            const int decimals = decimalsOf(fine);
            return fmt::format("{}:{:0{}.{}f}", static_cast<i64>(minutes),
                               std::max(value - minutes * 60, 0.0), decimals + 3, decimals);
        });
    }
    return multiples(from, to, chooseStep(kLongSteps, to - from, most), clockTime);
}

std::vector<Tick> frequencyTicks(f64 from, f64 to) {
    std::vector<Tick> ticks;
    if (!(from > 0) || !(to > from)) return ticks;
    for (f64 decade = std::pow(10, std::floor(std::log10(from))); decade <= to; decade *= 10) {
        for (int digit = 1; digit <= 9; ++digit) {
            const f64 hertz = digit * decade;
            if (hertz < from * 0.999999 || hertz > to * 1.000001 || ticks.size() >= kMostTicks) continue;
            const bool labelled = digit == 1 || digit == 2 || digit == 5;
            ticks.push_back({hertz, !labelled       ? std::string()
                                    : hertz >= 1000 ? fmt::format("{:g}k", hertz / 1000)
                                                    : fmt::format("{:g}", hertz)});
        }
    }
    return ticks;
}

std::vector<Tick> levelTicks(f64 from, f64 to, u32 most) {
    constexpr f64 kSteps[] = {1, 2, 3, 6, 10, 20, 40, 60, 100, 200, 500, 1000};
    return multiples(from, to, chooseStep(kSteps, to - from, most),
                     [](f64 value) { return fmt::format("{:.0f}", value); });
}

std::string grouped(i64 number) {
    std::string text = fmt::format("{}", number);
    const std::size_t digits = text.size() - (number < 0 ? 1 : 0);
    for (std::size_t i = 3; i < digits; i += 3) text.insert(text.size() - i - (i / 3 - 1), 1, ' ');
    return text;
}

} // namespace kv
