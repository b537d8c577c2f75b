// AMR speech frames as telephone networks pass them on, without a header.
#pragma once

#include "base/bytes.h"

namespace kv {

/// Frames of interface format 2 (3GPP TS 26.101, annex A) as the file form of RFC 4867, up to the first that
/// is none or isn't whole. Empty when the first is none.
Bytes amrFileOfIf2(ByteSpan frames);

} // namespace kv
