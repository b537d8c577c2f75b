// What an encoder of packed audio is to those who have samples: a sink of stored samples.
#pragma once

#include <algorithm>
#include <memory>
#include <span>
#include <vector>

#include "base/byte_sink.h"

namespace kv {

class SampleBlocks;

/// Takes interleaved samples in a stored form, little-endian, in pieces of any size, and packs them. The
/// forms that encoders ask for are `word` with one code of PCM 8, 16, 24, 32 bits or 32-bit float.
class PackingSink : public ByteSink {
public:
    bool write(ByteSpan bytes) final;
    bool patch(u64, ByteSpan) final { return false; }
    u64 position() const final { return position_; }
    /// Packs what is left and completes the file. False with the error pair set on failure.
    virtual bool finish() = 0;

    u32 word() const { return word_; }

protected:
    PackingSink(u32 word, u32 channels);
    /// Packs whole frames. False on failure.
    virtual bool pack(ByteSpan frames) = 0;
    u32 channels() const { return channels_; }

private:
    u32 word_;
    u32 channels_;
    std::size_t frameBytes_;
    u64 position_ = 0;
    Bytes rest_; ///< a part of a frame
};

/// Packs all samples of the blocks.
bool packSamples(SampleBlocks& blocks, PackingSink& encoder);

/// Samples as 32-bit integers, sign-extended, for libraries that want them so.
void widenSamples(ByteSpan stored, u32 bytesPerSample, std::span<i32> to);

/// Hands whole frames to `pack(samples)` as 32-bit integers, in steps. False when it answers false.
template <class Pack>
bool packWidened(ByteSpan frames, u32 bytesPerSample, u32 channels, std::vector<i32>& buffer, Pack pack) {
    constexpr std::size_t kStepSamples = 16384;
    buffer.resize(std::max<std::size_t>(kStepSamples / channels, 1) * channels);
    while (!frames.empty()) {
        const std::span<i32> samples =
            std::span(buffer).first(std::min(buffer.size(), frames.size() / bytesPerSample));
        const std::size_t bytes = samples.size() * bytesPerSample;
        widenSamples(frames.first(bytes), bytesPerSample, samples);
        if (!pack(samples)) return false;
        frames = frames.subspan(bytes);
    }
    return true;
}

/// The bytes as the floats that they are: copied, as they may stand anywhere.
std::span<const f32> floatsOf(ByteSpan stored, std::vector<f32>& buffer);

/// Hands whole frames to `pack(samples)` as floats, in steps of at most `stepFrames`. False when it answers
/// false.
template <class Pack>
bool packFloats(ByteSpan frames, std::size_t stepFrames, u32 channels, std::vector<f32>& buffer, Pack pack) {
    std::span<const f32> samples = floatsOf(frames, buffer);
    while (!samples.empty()) {
        const std::span<const f32> part = samples.first(std::min(samples.size(), stepFrames * channels));
        if (!pack(part)) return false;
        samples = samples.subspan(part.size());
    }
    return true;
}

/// What a library writes through: a position that may be moved back where the sink allows that, as encoders
/// do to complete their headers.
class PackedOutput {
public:
    explicit PackedOutput(ByteSink& sink);

    /// False once anything went wrong. Nothing is thrown through the library.
    bool write(const void* bytes, std::size_t count) noexcept;
    /// Moves to a place that was written before, counted from where this output began.
    bool seek(u64 offset) noexcept;
    u64 position() const noexcept { return at_; }
    bool canSeek() const noexcept { return canSeek_; }
    bool failed() const noexcept { return failed_; }

private:
    ByteSink& sink_;
    u64 start_, at_ = 0, end_ = 0;
    bool canSeek_;
    bool failed_ = false;
};

} // namespace kv
