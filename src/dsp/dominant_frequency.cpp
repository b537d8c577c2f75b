#include "dsp/dominant_frequency.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <vector>

#include "base/run_context.h"
#include "dsp/fft.h"

namespace kv {
namespace {

constexpr std::size_t kMaxPeaks = 64;
constexpr f64 kLowest = 16; // Hz
constexpr std::string_view kShortWarning =
    "Warning!\n\nWaveform is so short that analysis result may be inaccurate!";

/// The frames that are analysed, and the transform's size. Frames behind the end are zeros.
struct Stretch {
    std::size_t size, from, count;
    bool isShort;
};

Stretch stretchOf(std::size_t frames, u32 rate) {
    const std::size_t size = std::bit_floor(std::min<std::size_t>(frames, rate)), enough = rate / 5;
    if (size >= enough) return {size, (frames - size) * 2 / 3, size, false};
    if (static_cast<f64>(frames) / static_cast<f64>(size) >= 1.75) return {2 * size, 0, frames, true};
    return {size, (frames - size) * 2 / 3, size, true};
}

/// The level of bins 0 to N / 2 in dB. Bin 0 counts as 0 dB.
std::vector<f64> levelsOf(std::span<const f32> samples, std::size_t stride, const Stretch& stretch) {
    const f64 size = static_cast<f64>(stretch.size);
    std::vector<std::complex<f32>> wave(stretch.size), spectrum(stretch.size);
    for (std::size_t i = 0; i < stretch.count; ++i) {
        const f64 window = std::sin(static_cast<f64>(i) * std::numbers::pi / size);
        const f32 x = samples[(stretch.from + i) * stride];
        wave[i] = static_cast<f32>((std::isfinite(x) ? static_cast<f64>(x) : 0) * window * window);
    }
    FloatFft(stretch.size, false).transform(wave.data(), spectrum.data());
    const f64 scale = 0.09655 / size, floor = std::pow(10.0, -7.2);
    std::vector<f64> levels(stretch.size / 2 + 1);
    for (std::size_t k = 1; k < levels.size(); ++k) {
        levels[k] = 20 * std::log10(std::max(floor, scale * static_cast<f64>(std::abs(spectrum[k]))));
    }
    return levels;
}

struct Peak {
    f64 frequency, level;
};

/// The strongest peaks in falling order of level; of alike ones the lower first.
std::vector<Peak> peaksOf(std::span<const f64> levels, f64 binWidth) {
    std::vector<Peak> peaks;
    const auto first =
        static_cast<std::size_t>(std::min(std::ceil(kLowest / binWidth), static_cast<f64>(levels.size())));
    bool rising = false;
    for (std::size_t k = first + 1; k < levels.size(); ++k) {
        if (levels[k] > levels[k - 1]) rising = true;
        if (levels[k] >= levels[k - 1] || !rising) continue;
        rising = false;
        const Peak peak{static_cast<f64>(k - 1) * binWidth, levels[k - 1]};
        if (peaks.size() == kMaxPeaks) {
            if (peak.level <= peaks.back().level) continue;
            peaks.pop_back();
        }
        const auto place = std::upper_bound(peaks.begin(), peaks.end(), peak,
                                            [](const Peak& a, const Peak& b) { return a.level > b.level; });
        peaks.insert(place, peak);
    }
    return peaks;
}

/// Whether `f` is a harmonic of `p`, both uncertain by `h`. Of the factor 1, 1.5 is tried in its place.
bool isHarmonic(f64 f, f64 p, f64 h) {
    for (int j = 1; j <= 63; ++j) {
        const f64 factor = j == 1 ? 1.5 : j;
        if ((p - h) * factor > f + h) return false;
        if ((p + h) * factor >= f - h) return true;
    }
    return false;
}

} // namespace

f64 DominantFrequency(std::span<const f32> samples, std::size_t frames, std::size_t stride, u32 rate,
                      bool warn) {
    if (frames < 2 || rate < 2 || stride == 0 || samples.empty()) return 0;
    if (frames - 1 > (samples.size() - 1) / stride) return 0;
    const Stretch stretch = stretchOf(frames, rate);
    if (warn && stretch.isShort) {
        constexpr std::array<std::string_view, 2> kButtons{"OK", "Cancel"};
        if (Ask(kProductTitle, kShortWarning, kButtons, 0) != 0) return 0;
    }
    const f64 binWidth = rate * 0.5 / static_cast<f64>(stretch.size / 2);
    const auto peaks = peaksOf(levelsOf(samples, stride, stretch), binWidth);
    if (peaks.empty()) return 0;

    // Levels are below 0 dB as a rule, so the limit lies above the strongest peak and the walk ends at once:
    // only sounds beyond full scale get as far as the harmonics.
    const Peak strongest = peaks.front();
    const f64 limit = 0.25 * strongest.level;
    for (const Peak& peak : std::span(peaks).subspan(1)) {
        if (peak.level < limit) break;
        if (peak.frequency <= strongest.frequency &&
            isHarmonic(strongest.frequency, peak.frequency, binWidth)) {
            return peak.frequency;
        }
    }
    return strongest.frequency;
}

} // namespace kv
