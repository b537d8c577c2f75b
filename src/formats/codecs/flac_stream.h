// FLAC streams, decoded by libFLAC, which is opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// What a FLAC stream that fills `stream` says of itself. None with the error pair set when it is no such
/// stream or the library is missing. A stream that leaves its length open is decoded once to count it.
std::optional<PackedStreamInfo> probeFlac(const std::shared_ptr<ByteSource>& stream);

/// Opens `frames` frames from frame `start` on of a FLAC stream that fills `stream` and has `channels`
/// channels: as 16-bit integers up to 16 bits, else as float. Null with the error pair set on failure.
std::unique_ptr<SampleBlocks> openFlac(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                       u32 channels);

} // namespace kv
