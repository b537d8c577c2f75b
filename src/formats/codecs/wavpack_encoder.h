// Packing into WavPack by libwavpack, which is opened when it is first needed.
#pragma once

#include "formats/codecs/packing_sink.h"

namespace kv {

struct WavPackSettings {
    u32 code = 0; ///< data format code: PCM of 8, 16, 24 or 32 bits, or 32-bit float
    u32 channels = 1;
    u32 sampleRate = 0; ///< Hz
    u64 frames = 0;
    Bytes head, tail; ///< of the file that is to come out when it is unpacked; empty: a plain WAV file
};

/// Begins a WavPack file that loses nothing. `out` must outlive the encoder. Null with the error pair set on
/// failure.
std::unique_ptr<PackingSink> makeWavPackEncoder(ByteSink& out, const WavPackSettings& settings);

} // namespace kv
