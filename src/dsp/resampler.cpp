#include "dsp/resampler.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "base/run_context.h"
#include "dsp/resample_engine.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Resample";
constexpr std::size_t kMaxChannels = 256, kBlock = 4096; // frames
constexpr u64 kMaxSamples = u64{1} << 31;
constexpr int kAuto = 8, kFirstFilter = 3, kDoubleFilter = 7;

/// The engine of a quality from 0 to 7. Only the last needs double arithmetic; its filter is so long that
/// blocks of spectrum win whenever they can.
std::unique_ptr<ResampleEngine> makeEngine(int quality, FilterSet set, const RationalStep& step,
                                           std::size_t channels) {
    if (step.in == step.out) return makeInterpolator(0, step, channels);
    if (quality < kFirstFilter) return makeInterpolator(quality, step, channels);
    const FilterShape shape = filterShape(quality, set, step.out >= step.in);
    if (quality < kDoubleFilter) return makeTimeFilter<f32>(shape, step, channels);
    if (auto blocks = makeBlockFilter(shape, step, channels)) return blocks;
    return makeTimeFilter<f64>(shape, step, channels);
}

template <class T>
std::vector<T*> pointersTo(std::vector<std::vector<f32>>& planes) {
    std::vector<T*> pointers;
    pointers.reserve(planes.size());
    for (auto& plane : planes) pointers.push_back(plane.data());
    return pointers;
}

} // namespace

u64 resampledLength(u64 frames, u32 inRate, u32 outRate) {
    if (inRate == 0) return 0;
    const u64 wholes = frames / inRate, rest = frames % inRate * outRate;
    const u64 tail = rest / inRate + (2 * (rest % inRate) >= inRate ? 1 : 0);
    constexpr u64 kMost = std::numeric_limits<u64>::max();
    if (outRate != 0 && wholes > (kMost - tail) / outRate) return kMost;
    return wholes * outRate + tail;
}

Resampler::Resampler() = default;
Resampler::~Resampler() = default;
Resampler::Resampler(Resampler&&) noexcept = default;
Resampler& Resampler::operator=(Resampler&&) noexcept = default;

bool Resampler::open(const ResamplerSettings& settings) {
    engine_.reset();
    if (settings.inRate == 0 || settings.outRate == 0) return Fail(kContext, "The sample rate is 0.");
    if (settings.channels == 0 || settings.channels > kMaxChannels) {
        return Fail(kContext, "{} channels can't be resampled.", settings.channels);
    }
    if (settings.quality < 0 || settings.quality > kAuto) {
        return Fail(kContext, "There is no resampling quality {}.", settings.quality);
    }
    const int quality = settings.quality != kAuto ? settings.quality : settings.sourceBits <= 16 ? 5 : 6;
    const u32 divisor = std::gcd(settings.inRate, settings.outRate);
    const RationalStep step{settings.inRate / divisor, settings.outRate / divisor};
    engine_ = makeEngine(quality, settings.filters, step, settings.channels);
    if (!engine_) {
        return Fail(kContext, "From {} to {} Hz is too far for this quality.", settings.inRate,
                    settings.outRate);
    }
    settings_ = settings;
    pushed_ = pulled_ = 0;
    finished_ = false;
    planes_.assign(settings.channels, {});
    return true;
}

void Resampler::push(std::span<const f32* const> planes, std::size_t frames) {
    if (!engine_ || finished_) return;
    engine_->push(planes, frames);
    pushed_ += frames;
}

void Resampler::finish() {
    if (!engine_ || finished_) return;
    finished_ = true;
    engine_->pushZeros(engine_->lookAhead());
}

std::size_t Resampler::pull(std::span<f32* const> planes, std::size_t frames) {
    if (!engine_) return 0;
    // A short interpolator may be ready for a frame that rounding leaves out of the length.
    const u64 left = length() - std::min(length(), pulled_);
    frames = static_cast<std::size_t>(std::min<u64>(frames, left));
    const std::size_t count = engine_->pull(planes, frames);
    pulled_ += count;
    return count;
}

void Resampler::pushInterleaved(std::span<const f32> frames) {
    const std::size_t channels = settings_.channels, count = frames.size() / channels;
    for (std::size_t c = 0; c < planes_.size(); ++c) {
        planes_[c].resize(std::max(planes_[c].size(), count));
        for (std::size_t i = 0; i < count; ++i) planes_[c][i] = frames[i * channels + c];
    }
    push(pointersTo<const f32>(planes_), count);
}

std::size_t Resampler::pullInterleaved(std::span<f32> frames) {
    const std::size_t channels = settings_.channels;
    for (auto& plane : planes_) plane.resize(std::max(plane.size(), kBlock));
    const auto pointers = pointersTo<f32>(planes_);
    std::size_t done = 0;
    for (const std::size_t wanted = frames.size() / channels; done < wanted;) {
        const std::size_t part = pull(pointers, std::min(kBlock, wanted - done));
        if (part == 0) break;
        for (std::size_t c = 0; c < channels; ++c) {
            for (std::size_t i = 0; i < part; ++i) frames[(done + i) * channels + c] = planes_[c][i];
        }
        done += part;
    }
    return done;
}

std::size_t Resampler::latency() const {
    return engine_ ? engine_->lookAhead() : 0;
}

bool resample(const ResamplerSettings& settings, std::span<const f32> in, std::vector<f32>& out) {
    Resampler resampler;
    if (!resampler.open(settings)) return false;
    if (in.size() % settings.channels != 0) return Fail(kContext, "The last frame is incomplete.");
    const u64 frames = resampledLength(in.size() / settings.channels, settings.inRate, settings.outRate);
    if (frames > kMaxSamples / settings.channels) return Fail(kContext, "The result would be too long.");
    out.assign(frames * settings.channels, 0);
    std::size_t done = 0;
    const auto pull = [&] {
        done += settings.channels * resampler.pullInterleaved(std::span(out).subspan(done));
    };
    while (!in.empty()) {
        const std::size_t part = std::min(in.size(), kBlock * settings.channels);
        resampler.pushInterleaved(in.first(part));
        in = in.subspan(part);
        pull();
    }
    resampler.finish();
    pull();
    return true;
}

} // namespace kv
