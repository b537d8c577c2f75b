#include "model/sample_params.h"

#include <algorithm>
#include <cmath>

#include "model/parameter_set.h"

namespace kv {
namespace {

/// Moves whole semitones from the fine tune to the root key. The key stops at its limits while the cents
/// go on into their range.
void normaliseTuning(SampleParams& params) {
    constexpr i32 kLimit = 1'000'000; // keeps a hostile tuning from taking long
    i32 cents = std::clamp(params.fineTune, -kLimit, kLimit);
    int key = params.rootKey > 127 ? 0 : params.rootKey;
    for (; cents > 50; cents -= 100) key = std::max(key - 1, 0);
    for (; cents < -50; cents += 100) key = std::min(key + 1, 127);
    params.fineTune = cents;
    params.rootKey = static_cast<u8>(key);
}

f64 wholeFrame(f64 point) {
    return std::trunc(point + 0.499);
}

} // namespace

void ValidateParams(SampleParams& params, u32 frames, const ParameterSet& set) {
    normaliseTuning(params);
    params.gainDb = std::isfinite(params.gainDb) ? std::clamp(params.gainDb, -96.0F, 96.0F) : 0.0F;

    const i64 count = frames;
    i64 start = 0;
    if (set[Switch::StartOffset]) {
        start = std::max<i64>(params.startOffset, 0);
        if (start >= count) start = count - 1;
    }
    i64 end = 0;
    if (set[Switch::EndOffset]) {
        end = std::min<i64>(params.endOffset, 0);
        if (end <= start - count) end = start - count + 1;
    }
    params.startOffset = saturate<i32>(static_cast<f64>(start));
    params.endOffset = saturate<i32>(static_cast<f64>(end));

    const f64 length = frames;
    if (!(params.loopEnd > 0 && params.loopEnd <= length)) params.loopEnd = length;
    if (!(params.loopStart >= 0 && params.loopStart < params.loopEnd)) params.loopStart = 0;
    if (params.loopEnd - params.loopStart <= 2) params.loopFlags &= static_cast<u16>(~kLooped);
    if (!set[Switch::FractionalLoops]) {
        params.loopStart = wholeFrame(params.loopStart);
        params.loopEnd = wholeFrame(params.loopEnd);
    }
}

} // namespace kv
