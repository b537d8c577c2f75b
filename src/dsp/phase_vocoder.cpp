#include "dsp/phase_vocoder.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/fft.h"

namespace kv {
namespace {

constexpr i64 kOverlap = 4;      // frames of the transform that cover each output frame
constexpr f32 kWindowSum = 1.5F; // of the squared windows of an overlap of 4
constexpr i64 kAttackBlock = 128, kBlocksBefore = 8;
constexpr f64 kAttackRise = 10, kAttackFloor = 1e-8; // of energy; of its mean over a block

f32 finite(f32 x) {
    return std::isfinite(x) ? x : 0;
}

using Complex = std::complex<f32>;

/// Products without the care for infinities that std::complex takes.
Complex times(Complex a, Complex b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}
f32 power(Complex a) {
    return a.real() * a.real() + a.imag() * a.imag();
}

/// Two channels as real and imaginary part, so that one transform serves both. When both are turned by the
/// same phases, bin k of that transform turns by u and bin N - k by its conjugate; nothing needs to be taken
/// apart.
class Vocoder {
public:
    Vocoder(std::span<const f32> in, std::size_t channels, i64 size)
        : in_(in),
          channels_(channels),
          size_(static_cast<std::size_t>(size)),
          forward_(size_, false),
          backward_(size_, true),
          window_(size_),
          wave_(size_),
          power_(size_ / 2 + 1),
          turn_(size_ / 2 + 1),
          pairs_((channels + 1) / 2) {
        for (std::size_t i = 0; i < size_; ++i) {
            const f64 turn = 2 * std::numbers::pi * static_cast<f64>(i) / static_cast<f64>(size_);
            window_[i] = static_cast<f32>(0.5 - 0.5 * std::cos(turn));
        }
        for (Spectra& pair : pairs_)
            pair = {std::vector<Complex>(size_), std::vector<Complex>(size_), std::vector<Complex>(size_)};
    }

    /// Adds the frame around output frame `to`, which comes from around input frame `from`.
    void run(i64 from, i64 to, bool copies, std::span<f32> out) {
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            load(from, p, pairs_[p].now);
            if (!copies) load(from - static_cast<i64>(size_) / kOverlap, p, pairs_[p].before);
        }
        if (copies) {
            std::fill(turn_.begin(), turn_.end(), Complex(1));
        } else {
            findTurns();
        }
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            turn(pairs_[p]);
            backward_.transform(pairs_[p].last.data(), wave_.data());
            store(to, p, out);
        }
    }

private:
    struct Spectra {
        std::vector<Complex> now, before; ///< of the input, the latter one output step earlier
        std::vector<Complex> last;        ///< of the output
    };

    void load(i64 centre, std::size_t pair, std::vector<Complex>& spectrum) {
        const i64 frames = static_cast<i64>(in_.size() / channels_),
                  start = centre - static_cast<i64>(size_ / 2);
        const bool two = 2 * pair + 1 < channels_;
        for (std::size_t i = 0; i < size_; ++i) {
            const i64 at = start + static_cast<i64>(i);
            wave_[i] = 0;
            if (at < 0 || at >= frames) continue;
            const f32* const frame = in_.data() + static_cast<std::size_t>(at) * channels_ + 2 * pair;
            wave_[i] = Complex(finite(frame[0]) * window_[i], two ? finite(frame[1]) * window_[i] : 0);
        }
        forward_.transform(wave_.data(), spectrum.data());
    }

    void store(i64 centre, std::size_t pair, std::span<f32> out) {
        const i64 frames = static_cast<i64>(out.size() / channels_),
                  start = centre - static_cast<i64>(size_ / 2);
        const f32 scale = 1 / (kWindowSum * static_cast<f32>(size_));
        const bool two = 2 * pair + 1 < channels_;
        for (std::size_t i = 0; i < size_; ++i) {
            const i64 at = start + static_cast<i64>(i);
            if (at < 0 || at >= frames) continue;
            f32* const frame = out.data() + static_cast<std::size_t>(at) * channels_ + 2 * pair;
            frame[0] += wave_[i].real() * window_[i] * scale;
            if (two) frame[1] += wave_[i].imag() * window_[i] * scale;
        }
    }

    std::size_t mirror(std::size_t k) const { return (size_ - k) % size_; }

    /// What turns the input's bin k into the continuation of the last output there, over all channels.
    Complex turnAt(std::size_t k) const {
        Complex sum = 0;
        for (const Spectra& pair : pairs_) {
            sum += times(pair.last[k], std::conj(pair.before[k]));
            sum += times(std::conj(pair.last[mirror(k)]), pair.before[mirror(k)]);
        }
        const f32 length = std::sqrt(power(sum));
        return length > 0 && std::isfinite(length) ? sum / length : Complex(1);
    }

    void findTurns() {
        const std::size_t bins = power_.size();
        for (std::size_t k = 0; k < bins; ++k) {
            power_[k] = 0;
            for (const Spectra& pair : pairs_) power_[k] += power(pair.now[k]) + power(pair.now[mirror(k)]);
        }
        // Each bin turns with the nearest peak: one that no bin within two of it is above.
        std::size_t filled = 0, last = bins;
        Complex lastTurn = 1;
        for (std::size_t k = 0; k < bins; ++k) {
            if (!isPeak(k)) continue;
            const Complex turn = turnAt(k);
            const std::size_t border = last == bins ? 0 : (last + k + 1) / 2;
            for (; filled < border; ++filled) turn_[filled] = lastTurn;
            for (; filled <= k; ++filled) turn_[filled] = turn;
            last = k;
            lastTurn = turn;
        }
        for (; filled < bins; ++filled) turn_[filled] = lastTurn;
    }

    bool isPeak(std::size_t k) const {
        const std::size_t first = k < 2 ? 0 : k - 2, last = std::min(k + 2, power_.size() - 1);
        for (std::size_t i = first; i <= last; ++i) {
            if (power_[i] > power_[k] || (power_[i] == power_[k] && i < k)) return false;
        }
        return true;
    }

    void turn(Spectra& pair) const {
        for (std::size_t k = 0; k < turn_.size(); ++k) {
            pair.last[k] = times(pair.now[k], turn_[k]);
            if (mirror(k) != k) pair.last[mirror(k)] = times(pair.now[mirror(k)], std::conj(turn_[k]));
        }
        // The two bins that are their own mirrors must not mix the channels.
        for (const std::size_t k : {std::size_t{0}, size_ / 2}) pair.last[k] = pair.now[k] * turn_[k].real();
    }

    std::span<const f32> in_;
    std::size_t channels_, size_;
    FloatFft forward_, backward_;
    std::vector<f32> window_;
    std::vector<Complex> wave_;
    std::vector<f32> power_;
    std::vector<Complex> turn_;
    std::vector<Spectra> pairs_;
};

} // namespace

std::vector<i64> findAttacks(std::span<const f32> in, std::size_t channels) {
    const i64 frames = static_cast<i64>(in.size() / channels);
    std::vector<f64> energies; // of the differences between neighbours, by blocks
    std::vector<i64> attacks;
    for (i64 start = 0; start < frames; start += kAttackBlock) {
        f64 energy = 0, steepest = 0;
        i64 place = start;
        for (i64 i = start; i < std::min(start + kAttackBlock, frames); ++i) {
            f64 here = 0;
            for (std::size_t c = 0; c < channels; ++c) {
                const std::size_t at = static_cast<std::size_t>(i) * channels + c;
                const f64 step = static_cast<f64>(finite(in[at])) -
                                 (i > 0 ? static_cast<f64>(finite(in[at - channels])) : 0);
                here += step * step;
            }
            energy += here;
            if (here > 2 * steepest) { // of alike ones, as a click's two flanks are, the first
                steepest = here;
                place = i;
            }
        }
        f64 before = 0;
        const auto count = std::min<std::size_t>(energies.size(), kBlocksBefore);
        for (std::size_t k = energies.size() - count; k < energies.size(); ++k) before += energies[k];
        const f64 floor = kAttackFloor * static_cast<f64>(kAttackBlock) * static_cast<f64>(channels);
        if (energy > kAttackRise * before / kBlocksBefore + floor) attacks.push_back(place);
        energies.push_back(energy);
    }
    return attacks;
}

std::vector<StretchPiece> stretchRoad(std::span<const i64> attacks, i64 frames, f64 factor, i64 size) {
    const i64 half = size / 2, outFrames = saturate<i64>(static_cast<f64>(frames) * factor + 0.5);
    std::vector<StretchPiece> road{{-size, -size, 1, true}};
    // Where the piece that leads to the next attack begins.
    i64 out = 0, in = 0;
    const auto leadTo = [&](i64 nextOut, i64 nextIn) {
        if (nextOut > out)
            road.push_back({out, in, static_cast<f64>(nextIn - in) / static_cast<f64>(nextOut - out), false});
    };
    if (!attacks.empty() && attacks.front() < half && half < frames && half < outFrames) out = in = half;
    for (const i64 attack : attacks) {
        const i64 place = saturate<i64>(static_cast<f64>(attack) * factor + 0.5);
        if (attack - half <= in || place - half <= out) continue;
        if (attack + half >= frames || place + half >= outFrames) break;
        leadTo(place - half, attack - half);
        road.push_back({place - half, attack - half, 1, true});
        out = place + half;
        in = attack + half;
    }
    leadTo(outFrames, frames);
    return road;
}

void followRoad(std::span<const f32> in, std::size_t channels, std::span<const StretchPiece> road, i64 size,
                std::span<f32> out) {
    Vocoder vocoder(in, channels, size);
    const i64 step = size / kOverlap, half = size / 2, frames = static_cast<i64>(out.size() / channels);
    std::size_t piece = 0;
    for (i64 to = -half; to < frames + half; to += step) {
        while (piece + 1 < road.size() && road[piece + 1].out <= to) ++piece;
        const StretchPiece& here = road[piece];
        const f64 way = static_cast<f64>(to - here.out) * here.slope;
        vocoder.run(here.in + saturate<i64>(std::floor(way + 0.5)), to, here.copies, out);
    }
}

} // namespace kv
