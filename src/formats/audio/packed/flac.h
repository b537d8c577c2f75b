// FLAC files (RFC 9639), through libFLAC.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Sub-types of the writer: the level of compression.
inline constexpr u32 kFlacDefault = 5;
inline constexpr u32 kFlacMost = 8;

/// Imports a FLAC file, also one behind an ID3 tag. Loops, tuning and markers come from the chunks of a WAV
/// file that are kept in it, markers else from its cue sheet.
bool flac_Imp(Collection& collection, FileContext& file, u32 subType);

/// Writes a wave as FLAC. What Vorbis comments can't hold goes into chunks of a WAV file, kept as
/// `flac --keep-foreign-metadata` does.
bool flac_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
