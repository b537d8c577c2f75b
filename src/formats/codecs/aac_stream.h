// AAC streams in frames of their own (ADTS), with one header (ADIF; ISO 13818-7), or bare, as containers hold
// them; decoded by FAAD2, which is opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// What an AAC stream that fills `stream`, without tags, holds. Its first block only prepares the second one
/// and doesn't count. An ADTS stream is walked from header to header, others are decoded once. A bare stream
/// has its AudioSpecificConfig (ISO 14496-3) beside it, as `config`. None with the error pair set when it is
/// no such stream or the library is missing.
std::optional<PackedStreamInfo> probeAac(const std::shared_ptr<ByteSource>& stream, ByteSpan config = {});

/// Opens the first `frames` frames of an AAC stream that fills `stream` and has `channels` channels, as
/// float. Damaged blocks are left out, what is missing at the end for them is silent; the diagnostics tell.
/// Null with the error pair set on failure.
std::unique_ptr<SampleBlocks> openAac(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                      u32 channels);
/// The same for a bare stream; without `config` it is one with headers after all.
std::unique_ptr<SampleBlocks> openBareAac(const std::shared_ptr<ByteSource>& stream, ByteSpan config,
                                          u64 start, u32 frames, u32 channels);

} // namespace kv
