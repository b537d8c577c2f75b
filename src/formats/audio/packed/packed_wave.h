// What readers and writers of files with one packed stream have in common.
#pragma once

#include <optional>
#include <string_view>

#include "base/file_context.h"
#include "formats/codecs/first_channels.h"
#include "formats/codecs/packed_stream.h"
#include "formats/codecs/packing_sink.h"
#include "model/sample_blocks.h"

namespace kv {

class Item;

/// The stream as a source of its own.
std::shared_ptr<ByteSource> packedSource(const FileContext& file, const PackedPlace& place);

/// Makes a wave of a stream: the first two channels of many. `code` is the data format code that it is best
/// saved in; `kCompressed` notes the bit rate. Null with the error pair set, under `context`, for a stream
/// without channels or of a rate that no sampler has.
Wave* importPacked(FileContext& file, const PackedStreamInfo& info, const PackedPlace& place, u32 code,
                   const WaveReader& reader, std::string_view context);
/// The code of a stream that loses nothing.
u32 losslessCode(const PackedStreamInfo& info);

/// The stream of a wave that `importPacked` made, and the number of its channels.
std::shared_ptr<ByteSource> packedSourceOf(const Wave& wave, const FileContext& file);
u32 packedChannels(const Wave& wave);

/// The `open` of a wave reader, by the one of a codec.
template <auto kOpen>
std::unique_ptr<SampleBlocks> openPacked(const Wave& wave, FileContext& file) {
    const std::shared_ptr<ByteSource> stream = packedSourceOf(wave, file);
    return stream ? firstChannels(kOpen(stream, 0, wave.frames, packedChannels(wave)), wave.channels)
                  : nullptr;
}

/// The bit rate (kbit/s) that a compressed wave is written with: the one that is asked for, else the wave's
/// own, else `usual`.
f32 chosenRate(f32 asked, const Wave& wave, f32 usual);
/// An answer of an `OptionsFn`: one of the rates, with the label "NAME RATE kbit/s"; 0 past the last.
f32 offeredRate(std::span<const u32> rates, int index, std::string_view name, std::string* label);

} // namespace kv
