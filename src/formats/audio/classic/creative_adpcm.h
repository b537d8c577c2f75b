// The ADPCM of the first Sound Blaster cards, as their signal processor plays it: differences of 8-bit
// samples, whose step grows with large codes and shrinks with the code 0.
#pragma once

#include "formats/codecs/coded_stream.h"

namespace kv {

/// Widths of a code; of "2.6" bits three stand in a byte, of 3, 3 and 2 bits.
enum class CreativeBits : u8 { Four, TwoPointSix, Two };

/// A stream behind its first byte, which is the first sample as it stands and where the differences begin.
CodedForm creativeForm(CreativeBits bits, u8 reference);

/// The later four-bit form, for 16-bit samples; of two channels the left one stands in the high half.
CodedForm creativeForm16(u32 channels);

} // namespace kv
