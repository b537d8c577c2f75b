// Fields of AIFF files that no other format has. Document: Apple, "Audio Interchange File Format: AIFF",
// version 1.3 (1989), and "AIFF-C", draft of 1991.
#pragma once

#include <span>
#include <string>

#include "base/bytes.h"

namespace kv {

inline constexpr std::size_t kExtendedBytes = 10;

/// An 80-bit extended number (IEEE 754); not a number and infinity give 0, as no field here has a use for
/// them.
f64 extendedNumber(std::span<const std::byte, kExtendedBytes> bytes);
void writeExtended(ByteWriter& out, u32 value);

/// Text up to its terminator: UTF-8 where it is valid, which newer programs write, else Mac Roman.
std::string macText(ByteSpan bytes);

/// A counted text, with the byte of padding that makes all of it even.
std::string readCountedText(ByteCursor& in);
/// Texts of more than 255 bytes are cut behind a whole character.
void writeCountedText(ByteWriter& out, std::string_view text);

} // namespace kv
