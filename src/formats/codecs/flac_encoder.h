// Packing into FLAC by libFLAC, which is opened when it is first needed.
#pragma once

#include <string>
#include <vector>

#include "formats/codecs/packing_sink.h"

namespace kv {

/// What is written ahead of the samples, and how they are packed.
struct FlacSettings {
    u32 code = 0; ///< data format code: PCM of 8, 16 or 24 bits
    u32 channels = 1;
    u32 sampleRate = 0; ///< Hz
    u64 frames = 0;
    u32 level = 5;                     ///< of compression, 0..8
    std::vector<std::string> comments; ///< "NAME=text", UTF-8
    std::vector<Bytes> applications;   ///< contents of blocks of the application "riff"
};

/// Begins a FLAC file. Where `out` can be patched it gets a checksum and, when it is long, a seek table; a
/// stream does without. `out` must outlive the encoder. Null with the error pair set on failure.
std::unique_ptr<PackingSink> makeFlacEncoder(ByteSink& out, const FlacSettings& settings);

} // namespace kv
