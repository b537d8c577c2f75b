// Compressed streams as blocks of samples. The codecs' libraries are opened at run time; without one, its
// streams fail with a message that names the package to install.
#pragma once

#include <memory>

#include "base/byte_source.h"
#include "model/sample_blocks.h"

namespace kv {

struct PackedStreamInfo {
    u32 channels = 0;
    u32 sampleRate = 0; ///< Hz
    u64 frames = 0;
    u32 bits = 0; ///< per sample; of a lossy codec the 32 of its floats
};

/// One codec's way in. A stream fills its source from front to end.
struct PackedCodec {
    /// Its library is there; else false with the error pair set.
    bool (*available)();
    /// False with the error pair set for what isn't a stream of the codec.
    bool (*probe)(const std::shared_ptr<ByteSource>& stream, PackedStreamInfo& info);
    /// Opens `frames` frames from frame `start` on, or as many as there are. Null with the error pair set on
    /// failure.
    std::unique_ptr<SampleBlocks> (*open)(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames);
};

/// WavPack, lossless and hybrid, as integers up to 16 bits and as float from there on.
extern const PackedCodec wavPackCodec;
/// Ogg Vorbis.
extern const PackedCodec vorbisCodec;

} // namespace kv
