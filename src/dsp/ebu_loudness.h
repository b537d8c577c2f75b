// Loudness as broadcasters measure it: EBU R 128 with EBU Tech 3341 and 3342, over ITU-R BS.1770.
#pragma once

#include <memory>
#include <span>

#include "base/integers.h"

namespace kv {

/// What a sound measures. Silence is minus infinity; what needs a longer sound than there was is NaN.
struct EbuLoudness {
    f64 integrated; ///< LUFS, gated; needs 0.4 s
    f64 range;      ///< LU, 0 for silence; needs 3 s
    f64 truePeak;   ///< dBTP, of the loudest channel
    f64 momentary;  ///< LUFS, the highest of any 0.4 s
    f64 shortTerm;  ///< LUFS, the highest of any 3 s
};

/// Rates in Hz that can be measured: the weighting filter is stable only above twice its corner at 1682 Hz.
inline constexpr u32 kLeastEbuRate = 3400, kMostEbuRate = 2822400;

/// Takes a sound in blocks of any length.
class EbuMeter {
public:
    /// Of 1 or 2 channels. Null with the error pair set for any other number, a rate out of range, or when
    /// there is no memory.
    static std::unique_ptr<EbuMeter> create(u32 channels, u32 rate);
    ~EbuMeter();

    /// Adds interleaved whole frames, full scale -1..1. Samples that aren't finite count as 0. False with
    /// the error pair set when memory runs out.
    bool add(std::span<const f32> samples);
    /// Of all that was added; nothing may be added behind this.
    EbuLoudness finish();

private:
    struct State;
    explicit EbuMeter(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace kv
