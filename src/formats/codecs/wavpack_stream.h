// WavPack streams (version 4 and later), decoded by libwavpack, which is opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// What a WavPack stream that fills `stream` holds, without decoding it. None with the error pair set when
/// it is no such stream, says no length or one that its bytes can't hold, or the library is missing.
std::optional<PackedStreamInfo> probeWavPack(const std::shared_ptr<ByteSource>& stream);

/// Opens `frames` frames from frame `start` on of a WavPack stream that fills `stream` and has `channels`
/// channels. Up to 16 bits come as 16-bit integers, longer ones and float as float; 32-bit integers are there
/// as they were stored, too. What is damaged comes as silence and is noted in the diagnostics. Null with the
/// error pair set on failure.
std::unique_ptr<SampleBlocks> openWavPack(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                          u32 channels);

/// What the stream keeps of the file that was packed, apart from the samples: what stood ahead of them and
/// what stood behind. Both are empty where there is nothing.
struct WavPackWrapper {
    Bytes head, tail;
};
WavPackWrapper readWavPackWrapper(const std::shared_ptr<ByteSource>& stream);

} // namespace kv
