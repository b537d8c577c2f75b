// Resampling by overlapped blocks of spectrum. A block of k * in input frames has the length of k * out
// output frames, so the change of rate is a change of the transform's size: forward, times the filter's
// response, folded or padded to the new size, and back. The margins on both sides of a block, which the
// filter's ends have wrapped around into, are thrown away. Four real blocks go through one transform: as
// real and imaginary parts, in two lanes.
#include <algorithm>
#include <bit>
#include <cmath>

#include "dsp/batch_engine.h"
#include "dsp/fft.h"

namespace kv {
namespace {

constexpr std::size_t kSlots = 4;        // real blocks in one transform
constexpr u64 kMaxBlock = u64{1} << 17;  // frames
constexpr std::size_t kOversampling = 4; // of the filter's response in time
constexpr f64 kBeyondTransition = 1.5;   // where the response is cut off, in half transitions

/// Sizes in units of `in` input frames or `out` output frames.
struct BlockLayout {
    RationalStep step;
    u64 units = 0, margin = 0;
    u64 inFrames() const { return units * step.in; }
    u64 outFrames() const { return units * step.out; }
    u64 hop() const { return units - 2 * margin; }
};

bool hasSmallFactorsOnly(u64 n) {
    for (const u64 prime : {2U, 3U, 5U, 7U}) {
        while (n % prime == 0) n /= prime;
    }
    return n == 1;
}

/// The response at bin j of a block: the filter's Fourier integral, which is real, at j / n of the lower
/// rate, n the block's length there. With the scaling that the transforms leave out.
std::vector<f64> responseOf(const FilterShape& shape, const BlockLayout& layout) {
    const u64 lower = std::min(layout.inFrames(), layout.outFrames());
    const std::size_t size = lower * kOversampling;
    std::vector<std::complex<f64>> time(size), spectrum(size);
    const auto reach = static_cast<std::size_t>(shape.taps) * kOversampling;
    for (std::size_t i = 0; i <= reach; ++i) {
        const f64 tap = windowedSinc(shape, static_cast<f64>(i) / kOversampling) / kOversampling;
        time[i] = tap;
        time[(size - i) % size] = tap;
    }
    Fft(size, false).transform(time.data(), spectrum.data());
    const f64 edge = (shape.cutoff + kBeyondTransition * halfTransition(shape)) / 2 * static_cast<f64>(lower);
    std::vector<f64> response(static_cast<std::size_t>(edge) + 1);
    for (std::size_t j = 0; j < response.size(); ++j) {
        response[j] = spectrum[j].real() / static_cast<f64>(layout.inFrames());
    }
    return response;
}

class BlockFilter : public BatchEngine<f64> {
public:
    BlockFilter(const FilterShape& shape, const BlockLayout& layout, std::size_t channels)
        : BatchEngine<f64>({layout.hop() * layout.step.in, layout.hop() * layout.step.out, layout.inFrames(),
                            layout.margin * layout.step.in},
                           kSlots, channels),
          layout_(layout),
          response_(responseOf(shape, layout)),
          forward_(layout.inFrames(), false),
          backward_(layout.outFrames(), true),
          input_(layout.inFrames()),
          inputSpectrum_(layout.inFrames()),
          outputSpectrum_(layout.outFrames()),
          output_(layout.outFrames()) {}

protected:
    void filter(std::span<const f64* const> from, std::span<f32* const> to) override {
        const f64 *const a = from[0], *const b = from[1], *const c = from[2], *const d = from[3];
        for (std::size_t i = 0; i < input_.size(); ++i)
            input_[i] = Complex(Pair(a[i], c[i]), Pair(b[i], d[i]));
        forward_.transform(input_.data(), inputSpectrum_.data());
        multiply();
        backward_.transform(outputSpectrum_.data(), output_.data());
        const Complex* const result = output_.data() + layout_.margin * layout_.step.out;
        for (std::size_t i = 0; i < layout_.hop() * layout_.step.out; ++i) {
            const Pair re = result[i].real(), im = result[i].imag();
            to[0][i] = static_cast<f32>(re.lanes[0]);
            to[2][i] = static_cast<f32>(re.lanes[1]);
            to[1][i] = static_cast<f32>(im.lanes[0]);
            to[3][i] = static_cast<f32>(im.lanes[1]);
        }
    }

private:
    using Complex = std::complex<Pair>;

    /// Bins above either size's half come around from the other end.
    void multiply() {
        std::fill(outputSpectrum_.begin(), outputSpectrum_.end(), Complex());
        const std::size_t inSize = input_.size(), outSize = output_.size();
        std::size_t from = 0, to = 0;
        for (const f64 gain : response_) {
            outputSpectrum_[to] += inputSpectrum_[from] * Pair(gain);
            if (++from == inSize) from = 0;
            if (++to == outSize) to = 0;
        }
        from = to = 0;
        for (std::size_t j = 1; j < response_.size(); ++j) {
            from = (from == 0 ? inSize : from) - 1;
            to = (to == 0 ? outSize : to) - 1;
            outputSpectrum_[to] += inputSpectrum_[from] * Pair(response_[j]);
        }
    }

    BlockLayout layout_;
    std::vector<f64> response_;
    PairFft forward_, backward_;
    std::vector<Complex> input_, inputSpectrum_, outputSpectrum_, output_;
};

} // namespace

std::unique_ptr<ResampleEngine> makeBlockFilter(const FilterShape& shape, const RationalStep& step,
                                                std::size_t channels) {
    if (!hasSmallFactorsOnly(step.in) || !hasSmallFactorsOnly(step.out)) return nullptr;
    BlockLayout layout{step};
    layout.margin = ceilDiv(halfLength(shape, step), step.in);
    layout.units = std::bit_ceil(8 * layout.margin);
    if (std::max(step.in, step.out) > kMaxBlock / layout.units) return nullptr;
    return std::make_unique<BlockFilter>(shape, layout, channels);
}

} // namespace kv
