#include "draw/spectra.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <numbers>

#include "dsp/fft.h"
#include "model/wave.h"

namespace kv {
namespace {

using Frame = std::complex<f64>; ///< left and right as one number: one transform makes both spectra

/// Powers of windowed frames, scaled so that a sine of amplitude 1 has power 1 in its bin.
class WindowedPowers {
public:
    /// A window of `length` frames, filled up with zeros to `size`, a power of two.
    WindowedPowers(std::size_t length, std::size_t size)
        : window_(length), input_(size), output_(size), transform_(size, false) {
        f64 sum = 0;
        for (std::size_t i = 0; i < length; ++i) {
            const f64 x = std::sin(std::numbers::pi * (static_cast<f64>(i) + 0.5) / static_cast<f64>(length));
            window_[i] = x * x; // Hann's
            sum += x * x;
        }
        for (f64& x : window_) x *= 2 / sum;
    }

    std::size_t bins() const { return input_.size() / 2 + 1; }

    /// Calls `add(bin, left, right)` with the powers of each bin.
    template <class Add>
    void measure(const Frame* frames, Add add) {
        for (std::size_t i = 0; i < window_.size(); ++i) input_[i] = frames[i] * window_[i];
        transform_.transform(input_.data(), output_.data());
        const std::size_t mask = input_.size() - 1;
        for (std::size_t bin = 0; bin < bins(); ++bin) {
            const Frame a = output_[bin], b = std::conj(output_[(input_.size() - bin) & mask]);
            // Neither 0 Hz nor half the sample rate has a mirror image to share its power with.
            const f64 share = (bin & (mask >> 1)) == 0 ? 0.0625 : 0.25;
            add(bin, std::norm(a + b) * share, std::norm(a - b) * share);
        }
    }

private:
    std::vector<f64> window_;
    std::vector<Frame> input_, output_;
    Fft transform_;
};

/// Frames that come in blocks, as windows that may overlap. The first frames are zeros, as many as told.
class Windows {
public:
    /// Window i of `count` starts at `start(i)`, which doesn't decrease.
    template <class Start>
    Windows(std::size_t length, u64 count, std::size_t zeros, Start start)
        : length_(length), count_(count), start_(start), frames_(zeros) {}

    /// Calls `take(number, frames)` for each window that is whole with these samples.
    template <class Take>
    void add(std::span<const f32> samples, u32 channels, Take take) {
        frames_.reserve(frames_.size() + samples.size() / channels);
        for (std::size_t i = 0; i < samples.size(); i += channels)
            frames_.emplace_back(samples[i], channels > 1 ? samples[i + 1] : 0);
        std::size_t done = 0;
        for (; next_ < count_; ++next_) {
            done = static_cast<std::size_t>(start_(next_) - first_);
            if (done + length_ > frames_.size()) break;
            take(next_, frames_.data() + done);
        }
        done = std::min(done, frames_.size());
        frames_.erase(frames_.begin(), frames_.begin() + static_cast<std::ptrdiff_t>(done));
        first_ += done;
    }

private:
    std::size_t length_;
    u64 count_, next_ = 0;
    std::function<u64(u64)> start_;
    u64 first_ = 0; ///< what stands at the front of `frames_`
    std::vector<Frame> frames_;
};

f32 levelOf(f64 power) {
    return std::max(static_cast<f32>(10 * std::log10(power)), kLeastLevel);
}

/// The power of two that is next to some seconds.
std::size_t framesNear(f64 seconds, u32 rate) {
    const f64 exponent = std::round(std::log2(std::max(seconds * rate, 1.0)));
    return std::size_t{1} << static_cast<u32>(std::clamp(exponent, 6.0, 16.0));
}

} // namespace

bool measureSpectrum(const Wave& wave, FrameSpan span, Spectrum& to) {
    constexpr f64 kSeconds = 0.37;
    constexpr std::size_t kLeastSize = 1024; // for a curve that isn't made of a few straight lines
    const std::size_t frames = span.count();
    // Three windows side by side, if there are frames for that many.
    const std::size_t longest = std::min(std::bit_floor(frames / 3), framesNear(kSeconds, wave.sampleRate));
    const std::size_t length = std::max(longest, std::min(frames, kLeastSize));
    const std::size_t room = frames - length;
    const u64 gaps = std::max<u64>(ceilDiv(room, std::max<std::size_t>(length / 2, 1)), 1);
    const u64 count = room == 0 ? 1 : gaps + 1;

    WindowedPowers powers(length, std::max(std::bit_ceil(length), kLeastSize));
    std::vector<std::vector<f64>> sums(2, std::vector<f64>(powers.bins()));
    Windows windows(length, count, 0, [=](u64 i) { return i * room / gaps; });
    const bool read = streamFrames(wave, span, [&](std::span<const f32> samples, u32) {
        windows.add(samples, wave.channels, [&](u64, const Frame* window) {
            powers.measure(window, [&](std::size_t bin, f64 left, f64 right) {
                sums[0][bin] += left;
                sums[1][bin] += right;
            });
        });
    });
    if (!read) return false;

    to.binHz = static_cast<f64>(wave.sampleRate) / static_cast<f64>(2 * (powers.bins() - 1));
    to.channels.assign(wave.channels, std::vector<f32>(powers.bins()));
    for (std::size_t c = 0; c < to.channels.size(); ++c) {
        for (std::size_t bin = 0; bin < powers.bins(); ++bin)
            to.channels[c][bin] = levelOf(sums[c][bin] / static_cast<f64>(count));
    }
    return true;
}

bool measureSpectrogram(const Wave& wave, FrameSpan span, u32 columns, Spectrogram& to) {
    constexpr f64 kSeconds = 0.046;
    const u64 frames = span.count();
    const std::size_t length = framesNear(kSeconds, wave.sampleRate);
    const u64 shown = std::min<u64>(columns, frames);
    const u64 count = std::max(shown, ceilDiv(frames, length / 2));

    WindowedPowers powers(length, length);
    to.bins = powers.bins();
    to.columns = static_cast<std::size_t>(shown);
    to.binHz = static_cast<f64>(wave.sampleRate) / static_cast<f64>(length);
    to.channels.assign(wave.channels, std::vector<f32>(to.columns * to.bins));
    std::vector<u32> windowsOf(to.columns);
    // Windows lie around their columns, so they reach beyond the span, where there is silence beyond the
    // wave.
    const u32 reach = static_cast<u32>(length / 2);
    const FrameSpan wide{span.from - std::min(span.from, reach),
                         span.to + std::min(wave.frames - span.to, reach)};
    Windows windows(length, count, reach - (span.from - wide.from),
                    [=](u64 i) { return (2 * i + 1) * frames / (2 * count); });
    const auto addWindow = [&](u64 number, const Frame* window) {
        const auto column = static_cast<std::size_t>(number * shown / count);
        ++windowsOf[column];
        f32* const left = to.channels[0].data() + column * to.bins;
        f32* const right = to.channels.back().data() + column * to.bins;
        powers.measure(window, [&](std::size_t bin, f64 l, f64 r) {
            left[bin] += static_cast<f32>(l);
            if (right != left) right[bin] += static_cast<f32>(r);
        });
    };
    const bool read = streamFrames(wave, wide, [&](std::span<const f32> samples, u32) {
        windows.add(samples, wave.channels, addWindow);
    });
    if (!read) return false;
    windows.add(std::vector<f32>(std::size_t{reach + 1} * wave.channels), wave.channels, addWindow);

    to.most = kLeastLevel;
    for (auto& channel : to.channels) {
        for (std::size_t i = 0; i < channel.size(); ++i) {
            channel[i] = levelOf(static_cast<f64>(channel[i]) / std::max(windowsOf[i / to.bins], 1U));
            to.most = std::max(to.most, channel[i]);
        }
    }
    return true;
}

f32 levelBetween(const f32* levels, std::size_t bins, f64 binHz, f64 fromHz, f64 toHz) {
    const f64 last = static_cast<f64>(bins - 1);
    const f64 from = std::clamp(fromHz / binHz, 0.0, last), to = std::clamp(toHz / binHz, 0.0, last);
    const f64 middle = (from + to) / 2;
    const auto below = static_cast<std::size_t>(middle);
    const auto part = static_cast<f32>(middle - std::floor(middle));
    f32 level = levels[below];
    if (below + 1 < bins) level += (levels[below + 1] - level) * part;
    for (auto bin = static_cast<std::size_t>(std::ceil(from)); static_cast<f64>(bin) < to; ++bin)
        level = std::max(level, levels[bin]);
    return level;
}

Partial strongestPartial(const std::vector<f32>& levels, f64 binHz) {
    constexpr f64 kLowestHz = 16, kStandsOut = 10;
    Partial found;
    f64 sum = 0;
    for (std::size_t bin = 1; bin + 1 < levels.size(); ++bin) {
        const auto before = static_cast<f64>(levels[bin - 1]), here = static_cast<f64>(levels[bin]),
                   behind = static_cast<f64>(levels[bin + 1]);
        sum += std::pow(10, here / 10);
        if (here <= found.level || here < before || here < behind) continue;
        const f64 curvature = before - 2 * here + behind;
        const f64 shift = curvature < 0 ? (before - behind) / (2 * curvature) : 0;
        const f64 hertz = (static_cast<f64>(bin) + shift) * binHz;
        if (hertz >= kLowestHz) found = {hertz, here - (before - behind) * shift / 4};
    }
    const f64 mean = 10 * std::log10(sum / static_cast<f64>(std::max<std::size_t>(levels.size(), 3) - 2));
    return found.level > mean + kStandsOut ? found : Partial{};
}

} // namespace kv
