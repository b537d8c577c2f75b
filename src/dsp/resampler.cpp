#include "dsp/resampler.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>

#include "base/run_context.h"
#include "dsp/resample_engine.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Resample";
constexpr std::size_t kMaxChannels = 256, kBlock = 4096; // frames
constexpr u64 kMaxSamples = u64{1} << 31;
constexpr int kAuto = 8, kFirstFilter = 3, kDoubleFilter = 7;

/// Stretches side by side, else output frame by output frame.
template <class T>
std::unique_ptr<ResampleEngine> makeSinc(const FilterShape& shape, const RationalStep& step,
                                         std::size_t channels, u64 length) {
    auto slots = makeSlotFilter<T>(shape, step, channels, length);
    return slots ? std::move(slots) : makeTimeFilter<T>(shape, step, channels);
}

/// The engine of a quality from 0 to 7, for `length` output frames. Only the last needs double arithmetic.
std::unique_ptr<ResampleEngine> makeEngine(int quality, FilterSet set, const RationalStep& step,
                                           std::size_t channels, u64 length) {
    constexpr int kLongTaps = 256; // from here on blocks of spectrum win
    if (step.in == step.out) return makeInterpolator(0, step, channels);
    if (quality < kFirstFilter) return makeInterpolator(quality, step, channels);
    const FilterShape shape = filterShape(quality, set, step.out >= step.in);
    if (quality < kDoubleFilter) return makeSinc<f32>(shape, step, channels, length);
    auto blocks = shape.taps >= kLongTaps ? makeBlockFilter(shape, step, channels) : nullptr;
    return blocks ? std::move(blocks) : makeSinc<f64>(shape, step, channels, length);
}

template <class T>
std::vector<T*> pointersTo(std::vector<std::vector<f32>>& planes) {
    std::vector<T*> pointers;
    pointers.reserve(planes.size());
    for (auto& plane : planes) pointers.push_back(plane.data());
    return pointers;
}

// Stereo is written out, so that it becomes a loop over vectors.
void split(std::span<const f32> frames, std::span<f32* const> planes) {
    const std::size_t channels = planes.size(), count = frames.size() / channels;
    if (channels == 2) {
        f32 *const left = planes[0], *const right = planes[1];
        for (std::size_t i = 0; i < count; ++i) {
            left[i] = frames[2 * i];
            right[i] = frames[2 * i + 1];
        }
        return;
    }
    for (std::size_t c = 0; c < channels; ++c) {
        for (std::size_t i = 0; i < count; ++i) planes[c][i] = frames[i * channels + c];
    }
}

void join(std::span<f32* const> planes, std::span<f32> frames) {
    const std::size_t channels = planes.size(), count = frames.size() / channels;
    if (channels == 2) {
        const f32 *const left = planes[0], *const right = planes[1];
        for (std::size_t i = 0; i < count; ++i) {
            frames[2 * i] = left[i];
            frames[2 * i + 1] = right[i];
        }
        return;
    }
    for (std::size_t c = 0; c < channels; ++c) {
        for (std::size_t i = 0; i < count; ++i) frames[i * channels + c] = planes[c][i];
    }
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
    const u64 length = settings.frames != 0
                           ? resampledLength(settings.frames, settings.inRate, settings.outRate)
                           : std::numeric_limits<u64>::max();
    engine_ = makeEngine(quality, settings.filters, step, settings.channels, length);
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
    for (auto& plane : planes_) plane.resize(std::max(plane.size(), count));
    split(frames.first(count * channels), pointersTo<f32>(planes_));
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
        join(pointers, frames.subspan(done * channels, part * channels));
        done += part;
    }
    return done;
}

std::size_t Resampler::latency() const {
    return engine_ ? engine_->lookAhead() : 0;
}

bool resample(const ResamplerSettings& settings, std::span<const f32> in, std::vector<f32>& out) {
    ResamplerSettings whole = settings;
    whole.frames = in.size() / std::max<std::size_t>(settings.channels, 1);
    Resampler resampler;
    if (!resampler.open(whole)) return false;
    if (in.size() % settings.channels != 0) return Fail(kContext, "The last frame is incomplete.");
    const u64 frames = resampledLength(whole.frames, settings.inRate, settings.outRate);
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
