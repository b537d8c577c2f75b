// Frames of AMR narrow-band speech in their two stored forms: that of RFC 4867, whose files begin with a
// mark, and interface format 2 (3GPP TS 26.101, annex A), as telephone networks pass them on, without a
// header.
#pragma once

#include <string_view>

#include "base/bytes.h"

namespace kv {

inline constexpr std::string_view kAmrMark = "#!AMR\n";

/// Frames of interface format 2 as a file of RFC 4867, up to the first that is none or isn't whole. Empty
/// when the first is none.
Bytes amrFileOfIf2(ByteSpan frames);

/// One whole frame of RFC 4867, behind its byte for the type, in interface format 2. Empty for a type that
/// there isn't and for a frame that isn't whole.
Bytes if2OfAmrFrame(ByteSpan frame);

} // namespace kv
