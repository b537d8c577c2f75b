// MPEG audio files: layers I to III are read through libmpg123, layer III is written through libmp3lame and
// layer II through libtwolame.
#pragma once

#include <string>

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Sub-types of the writer of layer III, which are values of `MpegRate`.
inline constexpr u32 kMp3Constant = 0, kMp3Average = 1, kMp3Variable = 2;

/// Imports a stream of any layer with its tags. What only begins with the same tag and is FLAC or AAC behind
/// it is read as such.
bool mpeg_Imp(Collection& collection, FileContext& file, u32 subType);

/// Writes a wave behind an ID3v2 tag; of sample rates that MPEG audio hasn't, it becomes the next one.
bool mp3_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);
bool mp2_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

f32 mp3_Options(int index, u32 subType, std::string* label);
f32 mp2_Options(int index, u32 subType, std::string* label);

} // namespace kv
