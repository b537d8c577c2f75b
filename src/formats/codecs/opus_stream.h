// Ogg Opus streams (RFC 7845), decoded by libopusfile, which is opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// What an Ogg Opus stream that fills `stream` says of itself: always 48 kHz, without the encoder's delay. Of
/// a chain whose links differ in channels the first counts. None with the error pair set when it is no such
/// stream or the library is missing.
std::optional<PackedStreamInfo> probeOpus(const std::shared_ptr<ByteSource>& stream);

/// Opens `frames` frames from frame `start` on of an Ogg Opus stream that fills `stream` and has `channels`
/// channels, as float, with the gain of its header. Null with the error pair set on failure.
std::unique_ptr<SampleBlocks> openOpus(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                       u32 channels);

} // namespace kv
