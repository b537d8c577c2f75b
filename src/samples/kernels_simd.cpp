// Vector forms of the kernels, compiled once for each instruction set and chosen at run time.
#include "samples/kernels.h"

// More than these gains nothing for kernels that wait for memory.
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3 | HWY_AVX3_DL)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "samples/kernels_simd.cpp"
#include <hwy/foreach_target.h>
// After foreach_target:
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kv::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

/// x scaled, rounded half up and limited, still as float. Exact: the scale is a power of two, and what is
/// left above the floor is exact as well.
template <class D, class V = hn::Vec<D>>
HWY_INLINE V scaleAndRound(D d, V x, float scale) {
    const V t = hn::Mul(hn::IfThenElseZero(hn::Eq(x, x), x), hn::Set(d, scale));
    const V down = hn::Floor(t);
    const V up = hn::IfThenElseZero(hn::Ge(hn::Sub(t, down), hn::Set(d, 0.5F)), hn::Set(d, 1.0F));
    return hn::Min(hn::Max(hn::Add(down, up), hn::Set(d, -scale)), hn::Set(d, scale - 1.0F));
}

void int16ToFloat(const i16* HWY_RESTRICT from, f32* HWY_RESTRICT to, std::size_t count) {
    const hn::ScalableTag<f32> d;
    const hn::Rebind<i32, decltype(d)> d32;
    const hn::Rebind<i16, decltype(d)> d16;
    const auto scale = hn::Set(d, 1.0F / 32768);
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto wide = hn::PromoteTo(d32, hn::LoadU(d16, from + i));
        hn::StoreU(hn::Mul(hn::ConvertTo(d, wide), scale), d, to + i);
    }
    reference::int16ToFloat({from + i, count - i}, {to + i, count - i});
}

void floatToInt16(const f32* HWY_RESTRICT from, i16* HWY_RESTRICT to, std::size_t count) {
    const hn::ScalableTag<f32> d;
    const hn::Rebind<i32, decltype(d)> d32;
    const hn::Rebind<i16, decltype(d)> d16;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto rounded = scaleAndRound(d, hn::LoadU(d, from + i), 32768.0F);
        hn::StoreU(hn::DemoteTo(d16, hn::ConvertTo(d32, rounded)), d16, to + i);
    }
    reference::floatToInt16({from + i, count - i}, {to + i, count - i});
}

// Three-byte samples move through 16-byte vectors of which 12 bytes count; the last few samples, where a
// whole vector would reach past the end, go the plain way.
constexpr std::size_t kTriples = 4;

HWY_ALIGN constexpr u8 kSpread[16] = {0x80, 0, 1, 2, 0x80, 3, 4, 5, 0x80, 6, 7, 8, 0x80, 9, 10, 11};
HWY_ALIGN constexpr u8 kGather[16] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 0x80, 0x80, 0x80, 0x80};
HWY_ALIGN constexpr u8 kWidenLow[16] = {0x80, 0,    1, 0x80, 2,    3,    0x80, 4,
                                        5,    0x80, 6, 7,    0x80, 0x80, 0x80, 0x80};
HWY_ALIGN constexpr u8 kWidenHigh[16] = {0x80, 8,    9,  0x80, 10,   11,   0x80, 12,
                                         13,   0x80, 14, 15,   0x80, 0x80, 0x80, 0x80};

void packed24ToFloat(const u8* HWY_RESTRICT from, f32* HWY_RESTRICT to, std::size_t count) {
    std::size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::FixedTag<f32, 4> d;
    const hn::FixedTag<i32, 4> d32;
    const hn::FixedTag<u8, 16> d8;
    const auto spread = hn::Load(d8, kSpread);
    const auto scale = hn::Set(d, 0x1p-31F);
    for (; i + 6 <= count; i += kTriples) {
        const auto words = hn::BitCast(d32, hn::TableLookupBytesOr0(hn::LoadU(d8, from + 3 * i), spread));
        hn::StoreU(hn::Mul(hn::ConvertTo(d, words), scale), d, to + i);
    }
#endif
    reference::packed24ToFloat({reinterpret_cast<const std::byte*>(from) + 3 * i, 3 * (count - i)},
                               {to + i, count - i});
}

void floatToPacked24(const f32* HWY_RESTRICT from, u8* HWY_RESTRICT to, std::size_t count) {
    std::size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::FixedTag<f32, 4> d;
    const hn::FixedTag<i32, 4> d32;
    const hn::FixedTag<u8, 16> d8;
    const auto gather = hn::Load(d8, kGather);
    for (; i + 6 <= count; i += kTriples) {
        const auto rounded = scaleAndRound(d, hn::LoadU(d, from + i), 8388608.0F);
        const auto bytes = hn::BitCast(d8, hn::ConvertTo(d32, rounded));
        hn::StoreU(hn::TableLookupBytesOr0(bytes, gather), d8, to + 3 * i);
    }
#endif
    reference::floatToPacked24({from + i, count - i},
                               {reinterpret_cast<std::byte*>(to) + 3 * i, 3 * (count - i)});
}

void int16ToPacked24(const i16* HWY_RESTRICT from, u8* HWY_RESTRICT to, std::size_t count) {
    std::size_t i = 0;
#if HWY_TARGET != HWY_SCALAR
    const hn::FixedTag<i16, 8> d16;
    const hn::FixedTag<u8, 16> d8;
    const auto low = hn::Load(d8, kWidenLow), high = hn::Load(d8, kWidenHigh);
    for (; i + 10 <= count; i += 8) {
        const auto bytes = hn::BitCast(d8, hn::LoadU(d16, from + i));
        hn::StoreU(hn::TableLookupBytesOr0(bytes, low), d8, to + 3 * i);
        hn::StoreU(hn::TableLookupBytesOr0(bytes, high), d8, to + 3 * i + 12);
    }
#endif
    reference::int16ToPacked24({from + i, count - i},
                               {reinterpret_cast<std::byte*>(to) + 3 * i, 3 * (count - i)});
}

} // namespace kv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include "base/simd_choice.h"

namespace kv {

void int16ToFloat(std::span<const i16> from, std::span<f32> to) {
    static const auto kernel = KV_CHOOSE(int16ToFloat);
    kernel(from.data(), to.data(), from.size());
}
void floatToInt16(std::span<const f32> from, std::span<i16> to) {
    static const auto kernel = KV_CHOOSE(floatToInt16);
    kernel(from.data(), to.data(), from.size());
}
void packed24ToFloat(ByteSpan from, std::span<f32> to) {
    static const auto kernel = KV_CHOOSE(packed24ToFloat);
    kernel(reinterpret_cast<const u8*>(from.data()), to.data(), to.size());
}
void floatToPacked24(std::span<const f32> from, std::span<std::byte> to) {
    static const auto kernel = KV_CHOOSE(floatToPacked24);
    kernel(from.data(), reinterpret_cast<u8*>(to.data()), from.size());
}
void int16ToPacked24(std::span<const i16> from, std::span<std::byte> to) {
    static const auto kernel = KV_CHOOSE(int16ToPacked24);
    kernel(from.data(), reinterpret_cast<u8*>(to.data()), from.size());
}

} // namespace kv
#endif
