// Ogg Vorbis streams, decoded by libvorbisfile, which is opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// What an Ogg Vorbis stream that fills `stream` holds, its length by the positions that its pages give.
/// None with the error pair set when it is no such stream, gives a length that its bytes can't hold, or the
/// library is missing.
std::optional<PackedStreamInfo> probeVorbis(const std::shared_ptr<ByteSource>& stream);

/// Opens `frames` frames from frame `start` on of an Ogg Vorbis stream that fills `stream` and has `channels`
/// channels, which come in the stream's order, as float. Damaged pages are left out, so that reading fails
/// towards the end. Null with the error pair set on failure.
std::unique_ptr<SampleBlocks> openVorbis(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                         u32 channels);

} // namespace kv
