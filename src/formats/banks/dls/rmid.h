// RIFF-MIDI: a Standard MIDI File in a RIFF form, with texts and, if wanted, the DLS bank that it plays.
// Document: "Recommended practice RP-029, bank of DLS instruments in RMID files" (MIDI Manufacturers
// Association).
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Reads a song that stands as a form `RMID` between two places of a file, with its bank. `depth` counts the
/// forms around it. False with the error pair set when there is none, or when it can't be read.
bool readRmidForm(FileContext& file, u64 start, u64 end, Collection& collection, int depth);

/// A song or track as a form without a bank. Empty with the error pair set on failure.
Bytes rmidForm(const Item& item);

bool rmid_Imp(Collection& collection, FileContext& file, u32 subType);
/// `subType` is the level of the bank of the collection's instruments that is added; 0: none.
bool rmid_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
