#include "plugins/effect_run.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include <algorithm>
#include <cmath>

#include "base/run_context.h"

namespace kv {
namespace {

constexpr u32 kTailSeconds = 10;
constexpr f32 kSilence = 1.0F / 32768; ///< a step of 16 bits

/// Lets numbers too small to matter be 0, as long as it lives: what fades in a filter forever costs many
/// times the work otherwise. Undoes too what an effect changes about it.
class SmallNumbersAreZero {
#if defined(__SSE__)
public:
    SmallNumbersAreZero() {
        _mm_setcsr(before_ | kFlushToZero | kDenormalsAreZero);
    }
    ~SmallNumbersAreZero() {
        _mm_setcsr(before_);
    }
    SmallNumbersAreZero(const SmallNumbersAreZero&) = delete;
    SmallNumbersAreZero& operator=(const SmallNumbersAreZero&) = delete;

private:
    static constexpr u32 kFlushToZero = 0x8000, kDenormalsAreZero = 0x40;
    u32 before_ = _mm_getcsr();
#endif
};

/// A sample as effects may have it: one that is no number would stay in them.
f32 cleanSample(f32 sample) {
    return std::isfinite(sample) ? sample : 0;
}

} // namespace

/// One channel from frame `first` on, silent behind the end.
void EffectRun::copyIn(std::size_t first, u32 channel, std::span<f32> to) const {
    const std::size_t count = std::min(to.size(), in_.frames() - std::min(first, in_.frames()));
    for (std::size_t i = 0; i < count; ++i)
        to[i] = cleanSample(in_.samples[(first + i) * in_.channels + channel]);
    std::fill(to.begin() + static_cast<std::ptrdiff_t>(count), to.end(), 0.0F);
}

/// The average of all channels.
void EffectRun::mixIn(std::size_t first, std::span<f32> to) const {
    const std::size_t count = std::min(to.size(), in_.frames() - std::min(first, in_.frames()));
    std::fill(to.begin(), to.end(), 0.0F);
    for (std::size_t i = 0; i < count; ++i) {
        for (u32 c = 0; c < in_.channels; ++c)
            to[i] += cleanSample(in_.samples[(first + i) * in_.channels + c]);
        to[i] /= static_cast<f32>(in_.channels);
    }
}

void EffectRun::fill(std::size_t first) {
    if (effect_.inputs.size() == 1 && effect_.outputs.size() == 1) {
        for (u32 c = 0; c < in_.channels; ++c) copyIn(first, c, instances_[c]->input(0));
    } else if (effect_.inputs.size() == 1) {
        mixIn(first, instances_[0]->input(0));
    } else {
        for (u32 i = 0; i < 2; ++i) copyIn(first, std::min(i, in_.channels - 1), instances_[0]->input(i));
    }
}

bool EffectRun::finite() const {
    for (const auto& instance : instances_) {
        for (std::size_t i = 0; i < effect_.outputs.size(); ++i) {
            const std::span<const f32> samples = instance->output(i);
            if (!std::all_of(samples.begin(), samples.end(), [](f32 x) { return std::isfinite(x); }))
                return false;
        }
    }
    return true;
}

f32 EffectRun::outputAt(u32 channel, std::size_t frame) const {
    if (instances_.size() > 1) return instances_[channel]->output(0)[frame];
    EffectInstance& instance = *instances_[0];
    if (effect_.outputs.size() == 1) return instance.output(0)[frame];
    if (in_.channels == 1) return (instance.output(0)[frame] + instance.output(1)[frame]) / 2;
    return instance.output(channel)[frame];
}

bool EffectRun::runBlock(std::size_t first) {
    fill(first);
    {
        const SmallNumbersAreZero scope;
        for (const auto& instance : instances_) instance->runBlock();
    }
    if (!finite()) return Fail(kEffectContext, "\"{}\" gave samples that are no numbers", effect_.name);
    return !CancelRequested() || Fail(kEffectContext, "Cancelled");
}

/// Puts what came out for the block at frame `block` to its place in `out`, which is `delay` frames earlier.
void EffectRun::take(std::size_t block, std::size_t delay, SampleBuffer<f32>& out) const {
    const std::size_t frames = out.size() / in_.channels;
    for (std::size_t i = delay - std::min(block, delay); i < kEffectBlock; ++i) {
        const std::size_t frame = block + i - delay;
        if (frame >= frames) return;
        for (u32 c = 0; c < in_.channels; ++c) out.data()[frame * in_.channels + c] = outputAt(c, i);
    }
}

/// Shortens `out` to the last frame that is heard, but not below the frames that went in.
bool EffectRun::dropSilence(SampleBuffer<f32>& out) const {
    const std::span<const f32> samples = out.span();
    std::size_t end = samples.size();
    while (end > in_.samples.size() && !(std::abs(samples[end - 1]) >= kSilence)) --end;
    end += (in_.channels - end % in_.channels) % in_.channels;
    if (end == samples.size()) return true;
    SampleBuffer<f32> shorter;
    if (!shorter.allocate(end)) return Fail(kEffectContext, "Out of memory");
    std::copy_n(samples.begin(), end, shorter.data());
    out = std::move(shorter);
    return true;
}

bool EffectRun::run(Tail tail, SampleBuffer<f32>& out) {
    if (in_.samples.empty()) {
        out.reset();
        return true;
    }
    if (!runBlock(0)) return false;
    const std::size_t delay = instances_[0]->latency();
    const std::size_t extra = tail == Tail::Keep ? std::size_t{kTailSeconds} * sampleRate_ : 0;
    const std::size_t frames = in_.frames() + extra;
    if (!out.allocate(frames * in_.channels)) return Fail(kEffectContext, "Out of memory");
    take(0, delay, out);
    for (std::size_t block = kEffectBlock; block < frames + delay; block += kEffectBlock) {
        if (!runBlock(block)) return false;
        take(block, delay, out);
    }
    return tail == Tail::Cut || dropSilence(out);
}

} // namespace kv
