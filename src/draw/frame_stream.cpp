#include "draw/frame_stream.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/run_context.h"
#include "model/sample_blocks.h"

namespace kv {

bool streamFrames(const Wave& wave, FrameSpan span,
                  const std::function<void(std::span<const f32> samples, u32 first)>& take) {
    constexpr u32 kStep = 16384;
    constexpr f32 kMost = 1e6F; // powers of it still fit in a float
    const std::unique_ptr<SampleBlocks> blocks = openSamples(wave, true);
    if (!blocks) return false;
    if (blocks->channels() != wave.channels || blocks->frames() < span.to)
        return Fail("draw", "Reading from file failed");
    std::vector<f32> samples;
    for (u32 at = 0; at < span.to;) {
        if (CancelRequested()) return Fail("draw", "Cancelled");
        const u32 step = std::min(kStep, (at < span.from ? span.from : span.to) - at);
        samples.resize(std::size_t{step} * wave.channels);
        if (!blocks->read(std::span(samples))) return false;
        if (at >= span.from) {
            for (f32& x : samples) x = std::isfinite(x) ? std::clamp(x, -kMost, kMost) : 0;
            take(samples, at);
        }
        at += step;
        ShowProgress(at, span.to);
    }
    ShowProgress(0, 0);
    return true;
}

} // namespace kv
