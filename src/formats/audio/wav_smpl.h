// The smpl chunk of WAV files, which other formats have as well: root key, tuning and loop of a sampler.
// Document: Microsoft/IBM "Multimedia Data Standards Update" (1994).
#pragma once

#include "base/bytes.h"

namespace kv {

class Wave;
struct SampleParams;

/// Header of a smpl chunk, and one of its loops.
struct SmplHeader {
    u32 manufacturer = 0, product = 0;
    u32 samplePeriod = 0; ///< ns
    u32 unityNote = 60;
    u32 pitchFraction = 0; ///< of a semitone, as a fraction of 2^32
    u32 smpteFormat = 0, smpteOffset = 0;
    u32 loopCount = 0;
    u32 samplerDataSize = 0;
};
struct SmplLoop {
    u32 id = 0;
    u32 type = 0;           ///< 0 forward, 1 bi-directional, 2 reverse
    u32 start = 0, end = 0; ///< frames; the end is part of the loop
    u32 fraction = 0;       ///< of a frame behind the end, as a fraction of 2^32
    u32 playCount = 0;
};
inline constexpr std::size_t kSmplHeaderBytes = 36;
inline constexpr std::size_t kSmplLoopBytes = 24;

SmplHeader readSmplHeader(ByteCursor& in, std::endian order = std::endian::little);
SmplLoop readSmplLoop(ByteCursor& in, std::endian order = std::endian::little);
void writeSmplHeader(ByteWriter& out, const SmplHeader& header);
void writeSmplLoop(ByteWriter& out, const SmplLoop& loop);

/// Takes a smpl chunk over into `params`; `loop` may be null.
void wav_ParseSmpl(SampleParams& params, const SmplHeader& header, const SmplLoop* loop);
/// Fills a smpl chunk from a wave of `frames` frames; `header.loopCount` tells whether `loop` counts.
void wav_BuildSmpl(SmplHeader& header, SmplLoop& loop, const Wave& wave, u32 frames);

} // namespace kv
