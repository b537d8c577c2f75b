// IMA ADPCM as QuickTime cuts it into packets. Document: Apple, "Letter from the Ice Floe", Dispatch 19, and
// "QuickTime File Format".
#pragma once

#include "formats/codecs/coded_stream.h"

namespace kv {

/// Of one channel; the packets of the channels stand one behind the other.
inline constexpr std::size_t kIma4PacketBytes = 34;
inline constexpr std::size_t kIma4PacketFrames = 64;

/// Gives the first two channels of many. Where a packet's head agrees with the end of the one before, as far
/// as its nine bits of a sample tell, the full sample is kept.
CodedForm ima4Form(u32 channels);

} // namespace kv
