// The conditional chunk of DLS: a small program that tells whether a player should take notice of a list.
#pragma once

#include "base/bytes.h"

namespace kv {

/// Runs the contents of a `cdl ` chunk: operators over a stack of 20 words, answering queries as a
/// synthesiser that plays both levels, with memory for anything. False when the word left on top is 0. A
/// program that can't be run to its end (unknown operators, a stack too small or too full) counts as true, as
/// does one that leaves nothing: losing sounds would be worse than having too many.
bool dlsConditionHolds(ByteSpan program);

} // namespace kv
