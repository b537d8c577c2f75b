// The integers that a decoder gives, as the bytes of a source.
#pragma once

#include <cstring>
#include <functional>
#include <vector>

#include "base/byte_source.h"

namespace kv {

/// 32-bit integers, little-endian as processors have them, read once from one end to the other: a float
/// hasn't their bits. `unpack` fills a span with the next samples, or answers false.
class UnpackedSource final : public ByteSource {
public:
    using Unpack = std::function<bool(std::span<i32> to)>;
    UnpackedSource(u64 frames, u32 channels, Unpack unpack)
        : frames_(frames), channels_(channels), unpack_(std::move(unpack)) {}

    u64 size() const override { return frames_ * frameBytes(); }
    std::size_t readAt(u64 offset, std::span<std::byte> to) override {
        if (offset != at_) return 0;
        const u64 frames = std::min<u64>(to.size(), size() - at_) / frameBytes();
        unpacked_.resize(static_cast<std::size_t>(frames * channels_));
        if (!unpack_(unpacked_)) return 0;
        const std::size_t bytes = unpacked_.size() * sizeof(i32);
        std::memcpy(to.data(), unpacked_.data(), bytes);
        at_ += bytes;
        return bytes;
    }

private:
    u64 frameBytes() const { return u64{channels_} * sizeof(i32); }

    u64 frames_;
    u32 channels_;
    Unpack unpack_;
    u64 at_ = 0;
    std::vector<i32> unpacked_;
};

} // namespace kv
