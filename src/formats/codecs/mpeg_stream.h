// MPEG audio streams (ISO 11172-3, 13818-3, and 2.5) of layers I to III, decoded by libmpg123, which is
// opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// What an MPEG audio stream that fills `stream`, without tags, says of itself. A whole stream whose first
/// frame tells the length isn't read any further, all others are walked frame by frame without decoding. The
/// encoder's delay and padding don't count where they are known. None with the error pair set when it is no
/// such stream or the library is missing.
std::optional<PackedStreamInfo> probeMpeg(const std::shared_ptr<ByteSource>& stream);

/// Opens `frames` frames from frame `start` on of an MPEG audio stream that fills `stream` and has
/// `channels` channels, as float. Null with the error pair set on failure.
std::unique_ptr<SampleBlocks> openMpeg(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                       u32 channels);

} // namespace kv
