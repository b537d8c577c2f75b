// Rice codes in a stream of bits.
#pragma once

#include <algorithm>
#include <bit>
#include <memory>

#include "base/byte_source.h"

namespace kv {

/// Bits, most significant first. Past the end all are zero and `ok()` is false.
class RiceInput {
public:
    RiceInput(std::shared_ptr<ByteSource> source, u64 start) : source_(std::move(source)), next_(start) {}

    /// At most 32 bits.
    u32 bits(u32 count) {
        if (count == 0) return 0;
        if (held_ < count) refill();
        if (held_ < count) return fail();
        const u64 value = cache_ >> (64 - count);
        drop(count);
        return static_cast<u32>(value);
    }
    /// Zeros ahead of the next one.
    u32 zeros() {
        u32 count = 0;
        while (true) {
            if (held_ == 0) refill();
            if (held_ == 0) return fail();
            const u32 leading = std::min(static_cast<u32>(std::countl_zero(cache_)), held_);
            count += leading;
            if (leading < held_) {
                drop(leading + 1);
                return count;
            }
            drop(leading);
        }
    }
    /// A Rice code with so many low bits.
    u32 code(u32 lowBits) {
        if (lowBits > 31) return fail();
        const u64 value = u64{zeros()} << lowBits;
        const u64 all = value | bits(lowBits);
        return all > 0xFFFFFFFF ? fail() : static_cast<u32>(all);
    }
    /// One with a sign, which is the lowest bit.
    i32 signedCode(u32 lowBits) {
        const u32 folded = code(lowBits + 1);
        return static_cast<i32>((folded & 1) != 0 ? ~(folded >> 1) : folded >> 1);
    }
    /// A number behind the count of its bits.
    u32 number() { return code(code(2)); }

    bool ok() const { return ok_; }
    u32 fail() {
        ok_ = false;
        held_ = 0;
        return 0;
    }

private:
    void drop(u32 count) {
        cache_ = count == 64 ? 0 : cache_ << count;
        held_ -= count;
    }
    void refill() {
        while (held_ <= 56 && ok_) {
            if (at_ == buffer_.size() && !fetch()) return;
            cache_ |= u64{std::to_integer<u8>(buffer_[at_++])} << (56 - held_);
            held_ += 8;
        }
    }
    bool fetch() {
        buffer_.resize(65536);
        buffer_.resize(source_->readAt(next_, buffer_));
        next_ += buffer_.size();
        at_ = 0;
        return !buffer_.empty();
    }

    std::shared_ptr<ByteSource> source_;
    u64 next_;
    Bytes buffer_;
    std::size_t at_ = 0;
    u64 cache_ = 0; ///< the bits at hand, from the top on
    u32 held_ = 0;
    bool ok_ = true;
};

} // namespace kv
