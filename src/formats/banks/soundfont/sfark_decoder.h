// sfArk version 2 archives: one SoundFont bank each, losslessly packed.
#pragma once

#include "base/byte_sink.h"

namespace kv {

/// Unpacks an sfArk version 2 archive into the bank it was made from, block by block. The archive may stand
/// within the first 128 KB of a file, as in a self-extracting one. False with the error pair (context
/// "sfark_Imp") set for what is no archive, for methods that aren't decoded (version 1, non-audio, custom)
/// and for a damaged or cut archive; what `to` got by then is not to be used, as the check stands for the
/// whole.
bool sfark_Unpack(ByteSpan archive, ByteSink& to);

} // namespace kv
