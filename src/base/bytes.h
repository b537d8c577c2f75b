// Cursors over bytes in memory: ByteCursor reads what may be hostile, ByteWriter builds what we write.
#pragma once

#include <bit>
#include <cassert>
#include <concepts>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

using Bytes = std::vector<std::byte>;
using ByteSpan = std::span<const std::byte>;

/// The bytes of a text, without a terminator.
inline ByteSpan bytesOf(std::string_view text) {
    return std::as_bytes(std::span(text));
}

/// Bytes as 8-bit text, up to the end.
inline std::string_view textOf(ByteSpan bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// An unsigned integer from its stored bytes, in the given order.
template <std::unsigned_integral T>
constexpr T loadInteger(std::span<const std::byte, sizeof(T)> bytes, std::endian order) {
    u64 value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        const std::size_t at = order == std::endian::big ? i : sizeof(T) - 1 - i;
        value = value << 8 | std::to_integer<u64>(bytes[at]);
    }
    return static_cast<T>(value);
}

/// A bounds-checked read cursor. The first access past the end latches: `ok()` is false from then on,
/// `offset()` stays at the failed access and every further read gives zeros or nothing. So a header is
/// read straight through and checked once.
class ByteCursor {
public:
    /// `base` is the place of `bytes` in the outermost file, for `offset()`.
    explicit ByteCursor(ByteSpan bytes, u64 base = 0) : bytes_(bytes), base_(base) {}

    template <std::unsigned_integral T>
    T integer(std::endian order) {
        const ByteSpan raw = bytes(sizeof(T));
        return raw.empty() ? T{0} : loadInteger<T>(raw.first<sizeof(T)>(), order);
    }
    u8 u8le() { return integer<u8>(std::endian::little); }
    u16 u16le() { return integer<u16>(std::endian::little); }
    u32 u32le() { return integer<u32>(std::endian::little); }
    u64 u64le() { return integer<u64>(std::endian::little); }
    u16 u16be() { return integer<u16>(std::endian::big); }
    u32 u32be() { return integer<u32>(std::endian::big); }
    u64 u64be() { return integer<u64>(std::endian::big); }
    i8 s8() { return static_cast<i8>(u8le()); }
    i16 s16le() { return static_cast<i16>(u16le()); }
    i32 s32le() { return static_cast<i32>(u32le()); }
    i16 s16be() { return static_cast<i16>(u16be()); }
    i32 s32be() { return static_cast<i32>(u32be()); }

    /// The next `n` bytes; empty after a failure.
    ByteSpan bytes(std::size_t n) {
        if (!ok_ || n > left()) {
            ok_ = false;
            return {};
        }
        at_ += n;
        return bytes_.subspan(at_ - n, n);
    }
    /// The next `n` bytes as text, cut at the first terminator.
    std::string_view text(std::size_t n) {
        const std::string_view all = textOf(bytes(n));
        return all.substr(0, all.find('\0'));
    }
    void skip(std::size_t n) { (void)bytes(n); }
    /// A cursor over the next `n` bytes alone; this one moves behind them.
    ByteCursor sub(std::size_t n) {
        const u64 from = offset();
        ByteCursor part(bytes(n), from);
        part.ok_ = ok_;
        return part;
    }

    std::size_t left() const { return bytes_.size() - at_; }
    u64 offset() const { return base_ + at_; }
    bool ok() const { return ok_; }

private:
    ByteSpan bytes_;
    u64 base_;
    std::size_t at_ = 0;
    bool ok_ = true;
};

/// Builds bytes that grow at the end. Sizes that are not known yet are left open and patched.
class ByteWriter {
public:
    template <std::unsigned_integral T>
    ByteWriter& integer(T value, std::endian order) {
        const std::size_t at = bytes_.size();
        bytes_.resize(at + sizeof(T));
        store(at, value, order);
        return *this;
    }
    ByteWriter& u8le(u8 v) { return integer(v, std::endian::little); }
    ByteWriter& u16le(u16 v) { return integer(v, std::endian::little); }
    ByteWriter& u32le(u32 v) { return integer(v, std::endian::little); }
    ByteWriter& u64le(u64 v) { return integer(v, std::endian::little); }
    ByteWriter& u16be(u16 v) { return integer(v, std::endian::big); }
    ByteWriter& u32be(u32 v) { return integer(v, std::endian::big); }
    ByteWriter& u64be(u64 v) { return integer(v, std::endian::big); }
    ByteWriter& bytes(ByteSpan more) {
        bytes_.insert(bytes_.end(), more.begin(), more.end());
        return *this;
    }
    ByteWriter& text(std::string_view more) { return bytes(bytesOf(more)); }
    ByteWriter& fill(std::size_t count, u8 value = 0) {
        bytes_.insert(bytes_.end(), count, std::byte{value});
        return *this;
    }
    /// Fills with zeros until the size is a multiple of `alignment`.
    ByteWriter& pad(std::size_t alignment) {
        return fill((alignment - bytes_.size() % alignment) % alignment);
    }

    void patchU32le(std::size_t at, u32 value) { store(at, value, std::endian::little); }
    void patchU32be(std::size_t at, u32 value) { store(at, value, std::endian::big); }
    void patchU64le(std::size_t at, u64 value) { store(at, value, std::endian::little); }

    std::size_t size() const { return bytes_.size(); }
    ByteSpan view() const { return bytes_; }
    Bytes take() { return std::move(bytes_); }

private:
    template <std::unsigned_integral T>
    void store(std::size_t at, T value, std::endian order) {
        assert(at + sizeof(T) <= bytes_.size());
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            const std::size_t shift = 8 * (order == std::endian::big ? sizeof(T) - 1 - i : i);
            bytes_[at + i] = static_cast<std::byte>(static_cast<u64>(value) >> shift);
        }
    }
    Bytes bytes_;
};

} // namespace kv
