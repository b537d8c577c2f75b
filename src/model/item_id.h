// Item ids: the top 8 bits are the class bit, the low 24 bits the item's number. A mask of several class
// bits selects several classes; the same bits are the type flags of the format table.
#pragma once

#include "base/integers.h"

namespace kv {

using ItemId = u32; ///< 0 is never an item

inline constexpr u32 kWaveClass = 0x01000000;
inline constexpr u32 kSynthModelClass = 0x02000000;
inline constexpr u32 kRegionClass = 0x04000000;
inline constexpr u32 kLayerClass = 0x08000000;
inline constexpr u32 kInstrumentClass = 0x10000000;
inline constexpr u32 kTrackClass = 0x20000000;
inline constexpr u32 kSongClass = 0x40000000;
inline constexpr u32 kCollectionClass = 0x80000000;
inline constexpr u32 kAllClasses = 0xFF000000;

inline constexpr u32 kNumberMask = 0x00FFFFFF;
inline constexpr u32 kNextFreeNumber = 0x00FFFFFF; ///< as an id request: the next free number

constexpr u32 classOf(ItemId id) {
    return id & kAllClasses;
}
constexpr u32 numberOf(ItemId id) {
    return id & kNumberMask;
}

} // namespace kv
