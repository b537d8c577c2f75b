// A look at TOML text before it is parsed.
#pragma once

#include <cstddef>
#include <string_view>

namespace kv {

/// The line, from 1, of the first byte that the language has no use for where it stands, or 0: one that is
/// not ASCII outside of strings and comments, or a quote that begins inside of a word (which is allowed in
/// a dotted key, but none of ours has one). The parser of toml++ 3.3 has undefined behaviour on these.
std::size_t lineOfStrayCharacter(std::string_view text);

} // namespace kv
