#include "dsp/loudness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

namespace kv {
namespace {

constexpr f64 kBlockSeconds = 0.05, kLoudestPart = 0.05;
constexpr f64 kLeastSquare = 1e-37;
constexpr std::size_t kPoints = kEarTaps / 2;

struct Threshold {
    f64 frequency, level; ///< Hz, dB SPL
};

constexpr std::array<Threshold, 35> kThresholds{{
    {0, 120},   {20, 113},    {30, 103},   {40, 97},     {50, 93},     {60, 91},     {70, 89},
    {80, 87},   {90, 86},     {100, 85},   {200, 78},    {300, 76},    {400, 76},    {500, 76},
    {600, 76},  {700, 77},    {800, 78},   {900, 79.5},  {1000, 80},   {1500, 79},   {2000, 77},
    {2500, 74}, {3000, 71.5}, {3700, 70},  {4000, 70.5}, {5000, 74},   {6000, 79},   {7000, 84},
    {8000, 86}, {9000, 86},   {10000, 85}, {12000, 95},  {15000, 110}, {20000, 125}, {24000, 140},
}};
constexpr f64 kInaudible = 140, kReference = 70; // dB

f64 thresholdAt(f64 frequency) {
    const auto above = std::find_if(kThresholds.begin(), kThresholds.end(),
                                    [&](const Threshold& t) { return t.frequency >= frequency; });
    if (above == kThresholds.end()) return kInaudible;
    if (above == kThresholds.begin()) return above->level;
    const Threshold& below = *(above - 1);
    return std::lerp(below.level, above->level,
                     (frequency - below.frequency) / (above->frequency - below.frequency));
}

f64 finite(f32 x) {
    return std::isfinite(x) ? static_cast<f64>(x) : 0;
}

} // namespace

std::vector<f64> earFilter(u32 rate) {
    std::array<f64, kPoints> gains{};
    for (std::size_t i = 0; i < kPoints; ++i) {
        const f64 frequency = static_cast<f64>(i) * rate / 2 / (kPoints - 1);
        gains[i] = std::pow(10.0, (kReference - thresholdAt(frequency)) / 20);
    }
    std::vector<f64> taps(kEarTaps);
    for (std::size_t j = 0; j < kPoints; ++j) {
        f64 sum = 0.5 * gains[0];
        for (std::size_t k = 1; k < kPoints; ++k) {
            const f64 turn = static_cast<f64>(k) * (static_cast<f64>(j) + 0.5) / kEarTaps;
            sum += (k % 2 == 0 ? 1 : -1) * gains[k] * std::cos(2 * std::numbers::pi * turn);
        }
        taps[j] = taps[kEarTaps - 1 - j] = 2.0 / kEarTaps * sum;
    }
    return taps;
}

void LoudnessMeter::count(f64 meanSquare) {
    const f64 bin = std::log10(std::max(meanSquare, kLeastSquare)) * -1000;
    ++histogram_[static_cast<std::size_t>(std::clamp(bin, 0.0, static_cast<f64>(kBins - 1)))];
}

void LoudnessMeter::add(std::span<const f32> samples, std::size_t channels, u32 rate) {
    const auto block = static_cast<std::size_t>(std::round(rate * kBlockSeconds));
    if (channels == 0 || block == 0) return;
    const std::size_t frames = samples.size() / channels, full = frames / block;
    const std::size_t blocks = full + (2 * (frames % block) > block ? 1 : 0);
    if (blocks == 0) return;
    const std::vector<f64> taps = earFilter_ ? earFilter(rate) : std::vector<f64>{1};
    // One block of one channel, with what the filter reaches on both sides; zeros outside the sound.
    std::vector<f64> window(block + taps.size() - 1), filtered(block);
    const std::size_t ahead = (taps.size() - 1) / 2;
    for (std::size_t b = 0; b < blocks; ++b) {
        f64 squares = 0;
        for (std::size_t c = 0; c < channels; ++c) {
            for (std::size_t i = 0; i < window.size(); ++i) {
                const std::size_t at = b * block + i; // of the frame, `ahead` too large
                window[i] =
                    at >= ahead && at - ahead < frames ? finite(samples[(at - ahead) * channels + c]) : 0;
            }
            std::fill(filtered.begin(), filtered.end(), 0);
            for (std::size_t k = 0; k < taps.size(); ++k) {
                for (std::size_t i = 0; i < block; ++i) filtered[i] += taps[k] * window[i + k];
            }
            squares += std::inner_product(filtered.begin(), filtered.end(), filtered.begin(), 0.0);
        }
        count(squares / static_cast<f64>(block * channels));
    }
}

f64 LoudnessMeter::result() const {
    const u64 sum = std::accumulate(histogram_.begin(), histogram_.end(), u64{0});
    if (sum == 0) return 0;
    i64 left = std::llround(static_cast<f64>(sum) * kLoudestPart);
    // The bin at which the loudest part is complete, or the one before if that comes nearer.
    std::size_t bin = 0;
    for (std::size_t i = 0; i < kBins; ++i) {
        if (histogram_[i] == 0) continue;
        const i64 before = left;
        left -= static_cast<i64>(histogram_[i]);
        bin = i;
        if (left > 0) continue;
        if (-left > before && bin > 0) --bin;
        break;
    }
    const f64 level = -static_cast<f64>(bin) / 100;
    return (earFilter_ ? -31.49 : -21.26) - level;
}

} // namespace kv
