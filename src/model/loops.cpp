#include "model/loops.h"

#include <algorithm>
#include <unordered_map>

#include "base/run_context.h"
#include "model/instrument.h"
#include "model/sample_edit.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr u32 kTailFrames = 32;

/// Puts the `count` frames before `at` behind it, in reverse order.
template <class T>
bool mirror(Wave& wave, SampleBuffer<T>& buffer, u32 at, u32 count) {
    if (!replaceFrames(wave, buffer, at, 0, count)) return false;
    for (u32 i = 0; i < count; ++i) copyFrame(buffer, wave.channels, u64{at} - 1 - i, u64{at} + i);
    return true;
}

bool unrollReverse(Wave& wave) {
    SampleParams& params = wave.params;
    const u32 end = std::min(wave.frames, saturate<u32>(params.loopEnd + 0.5));
    const u32 count = std::min(end, saturate<u32>(params.loopEnd - params.loopStart + 0.5));
    if (!editSamples(wave, [&](auto& buffer) { return mirror(wave, buffer, end, count); })) return false;
    params.loopFlags &= static_cast<u16>(~kLoopReverse);
    params.loopStart = params.loopEnd;
    params.loopEnd += count;
    return true;
}

bool unrollBidirectional(Wave& wave) {
    SampleParams& params = wave.params;
    const u32 start = saturate<u32>(params.loopStart + 0.5);
    const u32 end = std::min(wave.frames, saturate<u32>(params.loopEnd + 0.5));
    const u32 count = std::min(end, saturate<u32>(params.loopEnd - params.loopStart));
    if (count > 0 && !editSamples(wave, [&](auto& buffer) { return mirror(wave, buffer, end, count); }))
        return false;
    params.loopFlags &= static_cast<u16>(~kLoopBidirectional);
    params.loopStart = start;
    params.loopEnd = start + 2.0 * count;
    return true;
}

/// A loop that plays on after the key is released needs what stands behind it.
bool wantsTail(u16 loopFlags) {
    return loopFlags != 0 && (loopFlags & kLoopUntilRelease) == 0;
}

/// Cuts the wave behind a loop and repeats the loop's start there.
bool appendTail(Wave& wave, f64 loopStart, f64 loopEnd) {
    const u32 end = std::min(wave.frames, saturate<u32>(loopEnd + 0.499));
    const u32 start = std::min(end, saturate<u32>(loopStart + 0.499));
    if (end == start || wave.frames - end >= kTailFrames) return true;
    return editSamples(wave, [&](auto& buffer) {
        if (!replaceFrames(wave, buffer, end, wave.frames - end, kTailFrames)) return false;
        for (u32 i = 0; i < kTailFrames; ++i) {
            copyFrame(buffer, wave.channels, u64{start} + i % (end - start), u64{end} + i);
        }
        return true;
    });
}

} // namespace

bool unrollWaveLoop(Wave& wave, bool bidirectional, bool reverse) {
    if (reverse && (wave.params.loopFlags & kLoopReverse) != 0 && !unrollReverse(wave)) return false;
    return !bidirectional || (wave.params.loopFlags & kLoopBidirectional) == 0 || unrollBidirectional(wave);
}

void UnrollLoops(bool bidirectional, bool reverse) {
    for (Wave& wave : store().all<Wave>()) {
        if (wave.params.loopFlags == 0) continue;
        if (!unrollWaveLoop(wave, bidirectional, reverse)) ShowLastError();
        wave.FixUp();
    }
}

void AppendLoopTail(bool withRegions) {
    // The loop of a region that reaches furthest must not be cut off.
    std::unordered_map<ItemId, const Region*> furthest;
    for (const Region& region : store().all<Region>()) {
        const Wave* wave = withRegions && region.params.override ? RegionWave(region) : nullptr;
        if (!wave || !wantsTail(region.params.loopFlags) || region.params.loopEnd > wave->frames) continue;
        const Region*& known = furthest[wave->id()];
        if (!known || region.params.loopEnd > known->params.loopEnd) known = &region;
    }
    for (Wave& wave : store().all<Wave>()) {
        const SampleParams* loop = wantsTail(wave.params.loopFlags) ? &wave.params : nullptr;
        const auto found = furthest.find(wave.id());
        if (found != furthest.end() && (!loop || found->second->params.loopEnd > loop->loopEnd)) {
            loop = &found->second->params;
        }
        if (loop && !appendTail(wave, loop->loopStart, loop->loopEnd)) ShowLastError();
        wave.FixUp();
    }
}

} // namespace kv
