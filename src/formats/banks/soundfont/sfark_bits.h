// The bit stream of sfArk version 2: 16-bit little-endian words, the bits of each read from the highest.
#pragma once

#include <bit>

#include "base/bytes.h"

namespace kv {

/// Reads codes of the stream. The first access past the end, or a code that is longer than any value
/// needs, latches: `ok()` is false from then on and every further read gives 0. An odd last byte is the low
/// half of a word.
class SfarkBits {
public:
    explicit SfarkBits(ByteSpan bytes) : bytes_(bytes) {}

    /// The next `count` bits (0..32), the first one read being the highest.
    u32 bits(unsigned count) {
        if (available_ < count) refill();
        if (available_ < count) return fail();
        const u64 value = (window_ >> 1) >> (63 - count);
        drop(count);
        return static_cast<u32>(value);
    }
    bool flag() { return bits(1) != 0; }
    /// The number of clear bits before the next set one, at most `kMostZeros`.
    u32 zeros() {
        u32 passed = 0;
        while (window_ == 0) {
            passed += available_;
            available_ = 0;
            refill();
            if (available_ == 0 || passed > kMostZeros) return fail();
        }
        const auto more = static_cast<unsigned>(std::countl_zero(window_));
        drop(more);
        drop(1);
        return passed + more;
    }
    /// A value coded as its distance from `previous`, both ways.
    i32 near(i32 previous) {
        const auto distance = static_cast<i32>(zeros());
        return distance != 0 && flag() ? previous - distance : previous + distance;
    }

    bool ok() const { return ok_; }
    std::size_t bytesLeft() const { return available_ / 8 + bytes_.size() - at_; }

private:
    /// Codes of 16-bit values don't have more, whatever their scale.
    static constexpr u32 kMostZeros = 0xFFFF;

    /// Leaves at least 33 bits available, if the stream has them.
    void refill() {
        for (; available_ <= 48 && at_ < bytes_.size(); at_ += 2, available_ += 16) {
            const auto low = std::to_integer<u64>(bytes_[at_]);
            const u64 high = at_ + 1 < bytes_.size() ? std::to_integer<u64>(bytes_[at_ + 1]) : 0;
            window_ |= (high << 8 | low) << (48 - available_);
        }
        at_ = at_ < bytes_.size() ? at_ : bytes_.size();
    }
    /// `count` is below 64 and not above `available_`.
    void drop(unsigned count) {
        window_ <<= count;
        available_ -= count;
    }
    u32 fail() {
        ok_ = false;
        at_ = bytes_.size();
        window_ = 0;
        available_ = 0;
        return 0;
    }

    ByteSpan bytes_;
    std::size_t at_ = 0;
    u64 window_ = 0; ///< the next bits, from the highest; what is not available is clear
    unsigned available_ = 0;
    bool ok_ = true;
};

} // namespace kv
