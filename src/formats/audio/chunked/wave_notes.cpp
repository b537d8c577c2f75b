#include "formats/audio/chunked/wave_notes.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/wave.h"

namespace kv {

void noteLoss(const Wave& wave, std::string_view field, std::string_view why) {
    runContext().diagnostics.add(
        {Severity::Loss, 0, std::string(wave.name().view()), std::string(field), std::string(why)});
}

FrameLoop wholeLoop(const Wave& wave, u32 frames) {
    const SampleParams& params = wave.params;
    const u32 last = frames == 0 ? 0 : frames - 1;
    const u32 start = std::min(saturate<u32>(params.loopStart + 0.5), last);
    const u32 length = std::max(saturate<u32>(params.loopEnd - params.loopStart + 0.5), 1U);
    const FrameLoop loop{start, start + std::min(length, frames - start)};
    if (params.loopStart != loop.start || params.loopEnd != loop.end)
        noteLoss(wave, "loop", "the format has whole frames only");
    return loop;
}

} // namespace kv
