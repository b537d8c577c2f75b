// Root key, tuning, gain and loop: one record shared by waves and regions.
#pragma once

#include "base/integers.h"

namespace kv {

struct ParameterSet;

/// Bits of `SampleParams::loopFlags`.
enum LoopFlag : u16 {
    kLooped = 1,
    kLoopBidirectional = 2,
    kLoopReverse = 4,
    kLoopUntilRelease = 8, ///< the loop holds until the key is released; then the sample plays on
};

struct SampleParams {
    /// In a region: this record overrides the wave's. In a wave: it is valid, and regions take it over.
    bool override = false;
    u8 rootKey = 60;
    i32 fineTune = 0;         ///< cents; -50..50 once validated
    f32 gainDb = 0;           ///< dB, -96..96
    f64 loopStart = 0;        ///< frames, may be fractional
    f64 loopEnd = 0;          ///< frames, exclusive; may be fractional
    u16 loopFlags = 0;        ///< LoopFlag bits
    bool dontTruncate = true; ///< DLS flag
    bool dontCompress = true; ///< DLS flag
    i32 startOffset = 0;      ///< region only: frames skipped at the start
    i32 endOffset = 0;        ///< region only: frames cut at the end, not positive

    bool looped() const { return (loopFlags & kLooped) != 0; }
    friend bool operator==(const SampleParams&, const SampleParams&) = default;
};

/// Brings every field into its range for a wave of `frames` frames, as far as `set` allows the field.
void ValidateParams(SampleParams& params, u32 frames, const ParameterSet& set);

} // namespace kv
