// TOML text made fit for the parser.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kv {

/// The text in ASCII alone: characters beyond it are written as escapes in strings and left out of
/// comments. Nothing, with the line from 1, where a byte stands that the language has no use for there: one
/// that is not ASCII outside of strings and comments, one that is not UTF-8, or a quote that begins inside
/// of a word (which is allowed in a dotted key, but none of ours has one). The parser of toml++ 3.3 has
/// undefined behaviour on all of these, and on letters beyond ASCII wherever it looks for white space.
std::optional<std::string> asciiToml(std::string_view text, std::size_t& strayLine);

} // namespace kv
