// Changes of sample rate, for streams and whole buffers.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "dsp/filter_design.h"

namespace kv {

class ResampleEngine;

/// `quality`: 0 nearest, 1 linear, 2 cubic on 4 points; 3 to 7 windowed sincs with an S/N better than 8, 12,
/// 16, 20 and 24 bits; 8 takes 5 for sources of up to 16 bits, else 6.
struct ResamplerSettings {
    u32 inRate = 44100; ///< Hz, not 0; only the ratio matters
    u32 outRate = 48000;
    int quality = 8;
    std::size_t channels = 1; ///< 1 to 256
    int sourceBits = 16;      ///< for quality 8
    FilterSet filters = FilterSet::Clean;
    u64 frames = 0; ///< of the whole input if known, else 0: a short one then takes less time and memory
};

/// Frames after the change: trunc(frames * outRate / inRate + 0.5), exactly. Limited to 2^64 - 1. Rate 0
/// gives 0.
u64 resampledLength(u64 frames, u32 inRate, u32 outRate);

/// A stream: push input, pull what is ready, `finish`, pull the rest. Blocks of any size give the same bits.
/// Output frame n stands at input frame n * inRate / outRate; ahead of and behind the input is silence. Input
/// that isn't finite counts as 0. Equal rates pass samples through.
class Resampler {
public:
    Resampler();
    ~Resampler();
    Resampler(Resampler&&) noexcept;
    Resampler& operator=(Resampler&&) noexcept;

    /// Fails for settings out of range, and for ratios whose filter would be too large (in the order of
    /// 1 : 1000 at quality 7, 1 : 8000 at 5; growing rates have no limit).
    bool open(const ResamplerSettings& settings);

    /// One pointer for each channel.
    void push(std::span<const f32* const> planes, std::size_t frames);
    /// The end of the input: the tail can be pulled now.
    void finish();
    /// Writes up to `frames` frames, and answers how many; 0 when more input is needed, or at the end.
    std::size_t pull(std::span<f32* const> planes, std::size_t frames);

    /// The same for interleaved frames; the spans hold whole frames.
    void pushInterleaved(std::span<const f32> frames);
    std::size_t pullInterleaved(std::span<f32> frames);

    /// Input frames that must have been pushed before output comes, at most.
    std::size_t latency() const;
    /// Output frames for all input pushed so far.
    u64 length() const { return resampledLength(pushed_, settings_.inRate, settings_.outRate); }

private:
    ResamplerSettings settings_;
    std::unique_ptr<ResampleEngine> engine_;
    u64 pushed_ = 0, pulled_ = 0;
    bool finished_ = false;
    std::vector<std::vector<f32>> planes_; // for interleaved input and output
};

/// A whole buffer of interleaved frames; `out` gets `resampledLength` frames. Fails as `open` does, when
/// `in` holds no whole number of frames, and when the result would have more than 2^31 samples.
bool resample(const ResamplerSettings& settings, std::span<const f32> in, std::vector<f32>& out);

} // namespace kv
