// Core Audio files: chunks with 64-bit sizes, most significant bytes first. Document: Apple, "Core Audio
// Format Specification 1.0".
#pragma once

#include "base/file_context.h"
#include "formats/framework/chunks.h"

namespace kv {

class Collection;
class Item;

bool caf_Imp(Collection& collection, FileContext& file, u32 subType);
/// Writes files of any size as a stream, samples least significant bytes first.
bool caf_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// What reader and writer agree on.
namespace caf {
enum LinearFlag : u32 { kIsFloat = 1, kIsLittleEndian = 2, kIsPlanar = 32 };
enum RegionFlag : u32 { kLoops = 1, kPlaysForward = 2, kPlaysBackward = 4 };
/// Types of markers, as most significant bytes first give them.
constexpr u32 markerType(std::string_view text) {
    return __builtin_bswap32(fourcc(text));
}
inline constexpr u32 kGeneric = 0;
inline constexpr u32 kRegionStart = markerType("rbeg"), kRegionEnd = markerType("rend");
inline constexpr u32 kSustainStart = markerType("slbg"), kSustainEnd = markerType("slen");
inline constexpr std::size_t kMarkerBytes = 28;
} // namespace caf

} // namespace kv
