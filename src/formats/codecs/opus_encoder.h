// Packing into Ogg Opus by libopusenc, which is opened when it is first needed.
#pragma once

#include <string>
#include <vector>

#include "formats/codecs/packing_sink.h"

namespace kv {

enum class OpusSound : u8 { Music, Voice };

struct OpusSettings {
    u32 channels = 1;
    u32 sampleRate = 0; ///< Hz; the library makes 48 kHz of it
    f32 kbps = 96;      ///< the average
    OpusSound sound = OpusSound::Music;
    u32 serial = 0;                    ///< tells the stream from others that it may be mixed with
    std::vector<std::string> comments; ///< "NAME=text", UTF-8
};

/// Begins an Ogg Opus file of float samples. `out` must outlive the encoder. Null with the error pair set on
/// failure.
std::unique_ptr<PackingSink> makeOpusEncoder(ByteSink& out, const OpusSettings& settings);

} // namespace kv
