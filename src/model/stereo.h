// Pairs of mono waves turned into stereo waves, and the way back.
#pragma once

#include "base/integers.h"

namespace kv {

class Item;

/// Joins mono waves to stereo ones: by name over all waves ("Piano-L" and "Piano-R"), and by pan in an
/// instrument or, with the collection, in all ("hard left" and "hard right" on the same keys and velocities).
/// Answers the regions that were merged; `stereoCount` becomes the number of waves made. The mono waves stay
/// until unused ones are deleted. With `keepNames` waves joined by pan take the plain stem of the first
/// one's name, else with " S" behind it.
u32 MergeStereo(const Item& item, u32& stereoCount, bool byName, bool byPan, bool keepNames);

/// Splits stereo waves into a left and a right one, and the layers that play them into two. With an
/// instrument only its waves are split. Answers how many.
u32 SplitStereo(const Item& item);

} // namespace kv
