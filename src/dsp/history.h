// The input frames that a filter still needs, plane by plane.
#pragma once

#include <algorithm>
#include <span>
#include <vector>

#include "base/integers.h"

namespace kv {

/// Frames are counted from the first one ever appended. Each plane is readable for some zeros behind its end,
/// so that vector loops may run over. What isn't finite comes in as 0, so that it can't spread.
template <class T>
class History {
public:
    static constexpr std::size_t kOverrun = 8;

    explicit History(std::size_t channels) : planes_(channels, std::vector<T>(kOverrun)) {}

    u64 end() const { return first_ + held_; }
    const T* at(std::size_t channel, u64 frame) const { return planes_[channel].data() + (frame - first_); }

    void append(std::span<const f32* const> planes, std::size_t frames) {
        grow(frames);
        for (std::size_t c = 0; c < planes_.size(); ++c) {
            T* const to = planes_[c].data() + held_;
            const f32* const from = planes[c];
            // Infinities and what is no number differ from themselves when taken off themselves.
            for (std::size_t i = 0; i < frames; ++i) to[i] = from[i] - from[i] == 0 ? from[i] : 0;
        }
        held_ += frames;
    }
    void appendZeros(std::size_t frames) {
        grow(frames);
        for (auto& plane : planes_)
            std::fill_n(plane.begin() + static_cast<std::ptrdiff_t>(held_), frames, T{0});
        held_ += frames;
    }
    /// Forgets what lies ahead of a frame.
    void dropBefore(u64 frame) {
        const auto count = static_cast<std::ptrdiff_t>(std::min<u64>(frame - first_, held_));
        for (auto& plane : planes_) plane.erase(plane.begin(), plane.begin() + count);
        first_ += static_cast<u64>(count);
        held_ -= static_cast<std::size_t>(count);
    }

private:
    void grow(std::size_t frames) {
        for (auto& plane : planes_) plane.resize(held_ + frames + kOverrun);
    }

    std::vector<std::vector<T>> planes_;
    u64 first_ = 0;
    std::size_t held_ = 0;
};

} // namespace kv
