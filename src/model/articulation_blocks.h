// The articulation record as connection blocks of "Downloadable Sounds" (DLS levels 1 and 2), the form in
// which it stands in sampler banks and presets.
#pragma once

#include "base/bytes.h"
#include "model/articulation.h"

namespace kv {

/// The level at which a list holds all that blocks can express; below 4 it keeps to what other players know.
inline constexpr int kAllArticulationBlocks = 99;

/// Reads the contents of an `art1` or `art2` chunk (u32 size, u32 count, 12 bytes a block) into the record:
/// enables it, sets the LFO shapes to sine and whatever fields there are blocks for; the others stay, so the
/// caller initialises them. Values are not limited to the fields' ranges, but are finite. Unknown blocks are
/// skipped, and so are those that the chunk is too short for. False, with the record untouched, only when
/// the chunk is too short for its count.
bool readArticulationBlocks(ByteSpan chunk, Articulation& record);

/// Appends the list of the record's blocks: `lart` with an `art1` chunk when `level` is below 2, else `lar2`
/// with `art2`. Values are limited to what the level can hold. Left out is what a reader assumes anyway; but
/// with the record of the next level up as `parent` (null: none), what differs from that one is written.
void writeArticulationBlocks(ByteWriter& to, const Articulation& record, const Articulation* parent,
                             int level);

/// Bytes that `writeArticulationBlocks` would append.
u32 articulationBlocksSize(const Articulation& record, const Articulation* parent, int level);

} // namespace kv
