// Packing into Ogg Vorbis by libvorbisenc, which is opened with what it needs when it is first needed.
#pragma once

#include <string>
#include <vector>

#include "formats/codecs/packing_sink.h"

namespace kv {

struct VorbisSettings {
    u32 channels = 1;
    u32 sampleRate = 0; ///< Hz
    f32 kbps = 128;     ///< the average of usual sound, which sets the quality; the nearest possible counts
    u32 serial = 0;     ///< tells the stream from others that it may be mixed with
    std::vector<std::string> comments; ///< "NAME=text", UTF-8
};

/// Begins an Ogg Vorbis file of float samples. `out` must outlive the encoder. Null with the error pair set
/// on failure.
std::unique_ptr<PackingSink> makeVorbisEncoder(ByteSink& out, const VorbisSettings& settings);

} // namespace kv
