#include "wizards/wave_loop.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <span>

#include "model/instrument.h"
#include "model/sample_edit.h"
#include "model/workspace.h"
#include "wizards/wave_edit.h"
#include "wizards/wave_floats.h"

namespace kv {
namespace {

constexpr u32 kTailFrames = 32;
constexpr std::size_t kReleaseNameLength = 120;

/// A loop's place in whole frames.
struct Loop {
    u32 start, end;
};
Loop loopWithin(u32 frames, f64 start, f64 end) {
    const u32 last = std::min(frames, saturate<u32>(end + 0.499));
    return {std::min(last, saturate<u32>(start + 0.499)), last};
}

/// Blends `count` frames from `from` on into those from `to` on. `ownWeight` is told how much of the blend is
/// still to come, from just below 1 down to 0, and answers how much of a frame's own stays.
template <class Weight>
void blend(std::span<f32> samples, u32 channels, u32 to, u32 from, u32 count, f32 least, Weight ownWeight) {
    for (u32 i = 0; i < count; ++i) {
        const auto own = static_cast<f32>(ownWeight(static_cast<f64>(count - 1 - i) / count));
        const std::size_t target = (std::size_t{to} + i) * channels;
        const std::size_t source = (std::size_t{from} + i) * channels;
        for (std::size_t c = 0; c < channels; ++c) {
            const f32 y = samples[source + c] * (1 - own) + samples[target + c] * own;
            samples[target + c] = std::min(std::max(y, least), 1.0F);
        }
    }
}

f64 curve(f64 w, bool exponential) {
    return exponential ? std::log10(w * 9 + 1) : w;
}

} // namespace

u32 longestCrossfade(const Wave& wave) {
    const Loop loop = loopWithin(wave.frames, wave.params.loopStart, wave.params.loopEnd);
    return std::min(loop.end - loop.start, loop.start);
}

bool CrossfadeLoop(Wave& wave, f64 start, f64 end, u32 length, bool reverse, bool exponential) {
    if (!wave.params.looped() || length == 0) return true;
    if (!wave.LoadData()) return false;
    const Loop loop = loopWithin(wave.frames, start, end);
    const u32 n = std::min({length, loop.end - loop.start, loop.start});
    if (n == 0) return true;
    const std::span<f32> samples = GetFloatData(wave);
    if (samples.empty()) return Fail("Wave data", "Out of memory");
    if (reverse) {
        constexpr f32 kNoLimit = -std::numeric_limits<f32>::infinity();
        const u32 m = std::min(n, wave.frames - loop.end);
        blend(samples, wave.channels, loop.end, loop.start, m, kNoLimit,
              [&](f64 w) { return 1 - curve(w, exponential); });
    }
    blend(samples, wave.channels, loop.end - n, loop.start - n, n, -1,
          [&](f64 w) { return curve(w, exponential); });
    DropInt16Data(wave, true);
    wave.reloadable = false;
    wave.params.loopFlags = kLooped;
    wave.params.loopStart = start;
    wave.params.loopEnd = end;
    return true;
}

int MoveToZeroCrossing(Wave& wave, f64& position, i64 low, i64 high, int wantedDirection) {
    int found = 0;
    lookAtSamples<i16>(wave, [&](std::span<const i16> samples) {
        const i64 frames = wave.frames;
        const i64 p = saturate<i64>(position + 0.5);
        low = std::max<i64>(low, 0);
        high = std::min(high, frames - 1); // a crossing stands between a frame and the next one
        if (p < low || p >= high) return;
        const auto frameAt = [&](i64 frame) {
            i32 sum = 0;
            for (const i16 x :
                 samples.subspan(static_cast<std::size_t>(frame) * wave.channels, wave.channels))
                sum += x;
            return sum;
        };
        const auto take = [&](i64 i) {
            const i64 a = frameAt(i), b = frameAt(i + 1);
            const int direction = b > 0 ? 1 : -1;
            if (a * b >= 0 || (wantedDirection != 0 && wantedDirection != direction)) return false;
            const auto q = static_cast<f64>(std::abs(a / b));
            position = static_cast<f64>(i) + q / (q + 1);
            found = direction;
            return true;
        };
        for (i64 d = 0; d <= std::max(p - low, high - p); ++d) {
            if (d < p && p - d >= low && take(p - d)) return;
            if (d < frames - p && p + d < high && take(p + d)) return;
        }
    });
    return found;
}

bool moveLoopToZeroCrossings(Wave& wave) {
    if (!wave.params.looped()) return true;
    if (!wave.LoadData()) return false;
    SampleParams& params = wave.params;
    const i64 last = i64{wave.frames} - 1;
    const int direction =
        MoveToZeroCrossing(wave, params.loopStart, 0, std::min(saturate<i64>(params.loopEnd), last), 0);
    MoveToZeroCrossing(wave, params.loopEnd, i64{saturate<u32>(params.loopStart)} + 1, last, direction);
    return true;
}

bool TrimAfterLoop(Wave& wave, bool appendLoopStart, bool withRegions, bool saveRelease) {
    if (!wave.params.looped()) return true;
    if (!wave.LoadData()) return false;
    Loop loop = loopWithin(wave.frames, wave.params.loopStart, wave.params.loopEnd);
    if (withRegions) {
        for (const Region& region : store().all<Region>()) {
            const SampleParams& params = region.params;
            if (!params.override || RegionWave(region) != &wave || !(params.loopEnd <= wave.frames)) continue;
            const Loop own = loopWithin(wave.frames, params.loopStart, params.loopEnd);
            if (own.end >= loop.end) loop = own;
        }
    }
    if (loop.end == loop.start) return true;
    if (saveRelease && i64{loop.end} < i64{wave.frames} - kTailFrames) {
        const std::string_view name = wave.name().view();
        Wave* release =
            store().Create<Wave>(wave, kNextFreeNumber,
                                 fmt::format("{} Release", name.substr(0, kReleaseNameLength)), loop.end, 0U);
        release->params.loopFlags = 0;
        release->params.loopStart = 0;
        release->params.loopEnd = release->frames;
        release->FixUp();
    }
    if (loop.end < wave.frames) {
        if (!CutRange(wave, {loop.end, wave.frames})) return false;
        wave.params.loopFlags &= static_cast<u16>(~kLoopUntilRelease);
    }
    if (!appendLoopStart) return true;
    return wave.LoadData() && editSamples(wave, [&](auto& buffer) {
               const u32 at = wave.frames;
               if (!replaceFrames(wave, buffer, at, 0, kTailFrames)) return false;
               for (u32 i = 0; i < kTailFrames; ++i)
                   copyFrame(buffer, wave.channels, u64{loop.start} + i % (loop.end - loop.start),
                             u64{at} + i);
               return true;
           });
}

} // namespace kv
