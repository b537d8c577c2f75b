// Names of waves: keys in them, texts in them, where they come from.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/integers.h"

namespace kv {

class Item;
class Wave;

/// The key that a name tells: the last note ("C4", "f#3", "Bb2"), or number of two or three digits up to 127.
std::optional<u8> keyInName(std::string_view name);

enum class NamePlace : u8 { Prepend, Append, Replace };
/// Puts a text in front of a name or behind it, or makes the name from a text in which "<root>" stands for
/// the root key.
void setNameFromKey(Wave& wave, NamePlace place, std::string_view text);

/// Replaces all places where `from` stands in the item's name; answers how many.
u32 replaceInName(Item& item, std::string_view from, std::string_view to);

} // namespace kv
