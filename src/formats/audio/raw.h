// Files that hold nothing but samples.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;
class Wave;
struct RawSource;

/// Reads a file as mono samples at 22050 Hz, of a data format code and the flags of the sub-type.
bool importRaw(FileContext& file, u32 word);
template <u32 Code>
bool raw_Imp(Collection&, FileContext& file, u32 subType) {
    return importRaw(file, Code | subType);
}
/// Writes a wave's samples; the sub-type's flags join the word.
bool raw_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// Reads a file of no known format by what the workspace's raw source says, after asking.
bool unrecognized_Imp(Collection& collection, FileContext& file, u32 subType);

/// Takes another view of where and how a raw wave's samples are stored. `size` is in bytes from the
/// offset; an offset beyond the file becomes 0, a size beyond it is cut. Of coded samples only the
/// rate, the offset and the bit order (as `kByteswap`) can be seen otherwise. Nothing happens for a wave that
/// has a header or that holds the only copy of its samples. False when the new
/// samples can't be read.
bool reinterpretSource(Wave& wave, const RawSource& source, u64 size);

} // namespace kv
