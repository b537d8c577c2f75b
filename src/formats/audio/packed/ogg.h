// Ogg Vorbis and Ogg Opus files, through libvorbisfile, libvorbisenc, libopusfile and libopusenc.
#pragma once

#include <string>

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Sub-types of the writer of Opus, which are values of `OpusSound`.
inline constexpr u32 kOpusMusic = 0, kOpusVoice = 1;

/// Texts and loop come from the comments.
bool ogg_Imp(Collection& collection, FileContext& file, u32 subType);
bool opus_Imp(Collection& collection, FileContext& file, u32 subType);

bool ogg_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);
/// Opus is of 48 kHz; the loop is written as it stands there.
bool opus_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

f32 ogg_Options(int index, u32 subType, std::string* label);
f32 opus_Options(int index, u32 subType, std::string* label);

} // namespace kv
