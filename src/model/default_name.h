// Names for items that their file gives none.
#pragma once

#include <string>

#include "model/item.h"

namespace kv {

/// The default name of an item in a collection named `base`: "drums", "drums 1" for waves,
/// "drums: 1st instrument" for instruments, the class word for all else. Steps the store's counters.
std::string defaultName(const Item& item, std::string_view base);

/// "st", "nd", "rd" or "th".
std::string_view ordinalEnding(u32 number);

} // namespace kv
