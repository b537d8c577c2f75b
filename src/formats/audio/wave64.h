// Wave-64 of Sonic Foundry / Sony: RIFF WAVE with 64-bit sizes and GUIDs for chunk ids.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

bool w64_Imp(Collection& collection, FileContext& file, u32 subType);
bool w64_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// The 40 bytes that a file begins with.
bool isWave64Header(ByteSpan start);

} // namespace kv
