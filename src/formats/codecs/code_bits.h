// Codes of a few bits in a run of bytes.
#pragma once

#include "base/bytes.h"

namespace kv {

/// Which end of a byte the first code of it stands at.
enum class BitOrder : u8 { LowFirst, HighFirst };

/// Takes codes of 1 to 8 bits. Behind the last byte come zeros.
template <BitOrder Order>
class CodeReader {
public:
    CodeReader(ByteSpan bytes, u32 bits)
        : at_(bytes.data()), end_(bytes.data() + bytes.size()), bits_(bits) {}

    u32 next() {
        if (held_ < bits_) {
            const u32 byte = at_ != end_ ? std::to_integer<u32>(*at_++) : 0;
            buffer_ = Order == BitOrder::HighFirst ? buffer_ << 8 | byte : buffer_ | byte << held_;
            held_ += 8;
        }
        held_ -= bits_;
        const u32 mask = (1U << bits_) - 1;
        if constexpr (Order == BitOrder::HighFirst) return buffer_ >> held_ & mask;
        const u32 code = buffer_ & mask;
        buffer_ >>= bits_;
        return code;
    }

private:
    const std::byte* at_;
    const std::byte* end_;
    u32 bits_, buffer_ = 0, held_ = 0;
};

/// Puts codes of 1 to 8 bits behind each other; `end()` fills the last byte up with zeros.
template <BitOrder Order>
class CodeWriter {
public:
    CodeWriter(std::span<std::byte> to, u32 bits) : to_(to), bits_(bits) {}

    /// What there is no room for is lost.
    void put(u32 code) {
        buffer_ = Order == BitOrder::HighFirst ? buffer_ << bits_ | code : buffer_ | code << held_;
        held_ += bits_;
        if (held_ < 8) return;
        held_ -= 8;
        if constexpr (Order == BitOrder::HighFirst) {
            store(buffer_ >> held_);
        } else {
            store(buffer_);
            buffer_ >>= 8;
        }
    }
    /// Answers the bytes in all.
    std::size_t end() {
        if (held_ > 0) store(Order == BitOrder::HighFirst ? buffer_ << (8 - held_) : buffer_);
        held_ = buffer_ = 0;
        return filled_;
    }

private:
    void store(u32 byte) {
        if (filled_ < to_.size()) to_[filled_++] = static_cast<std::byte>(byte);
    }

    std::span<std::byte> to_;
    u32 bits_, buffer_ = 0, held_ = 0;
    std::size_t filled_ = 0;
};

/// Calls a function template's instance for a bit order.
template <class Function>
auto withBitOrder(bool bigEndian, Function function) {
    return bigEndian ? function.template operator()<BitOrder::HighFirst>()
                     : function.template operator()<BitOrder::LowFirst>();
}

} // namespace kv
