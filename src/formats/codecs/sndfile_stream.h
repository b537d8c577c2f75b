// Files of the many formats that libsndfile knows; the library is opened when it is first needed.
#pragma once

#include <memory>
#include <optional>

#include "base/byte_sink.h"
#include "formats/codecs/packed_stream.h"
#include "model/sample_blocks.h"

namespace kv {

/// The formats that are used here.
enum class SndfileFormat : u32 { Nist, Paf, Ircam, Mat4, Mat5 };

/// What a file says of itself.
struct SndfileInfo {
    PackedStreamInfo stream; ///< `channels` may be more than two
    SndfileFormat format = SndfileFormat::Nist;
    u32 code = 0; ///< data format code of the samples; 0: coded in a way that has none
};

/// None with the error pair set when the library knows no such file, or it is of another format than those
/// above.
std::optional<SndfileInfo> probeSndfile(const std::shared_ptr<ByteSource>& file);

/// Opens `frames` frames from the beginning of a file, of as many channels as it has, at most two. Null with
/// the error pair set on failure.
std::unique_ptr<SampleBlocks> openSndfile(const std::shared_ptr<ByteSource>& file, u32 frames, u32 channels);

/// Data format codes that a format can be written with.
u32 sndfileCodes(SndfileFormat format);

/// Writes a whole file; the sink must be empty and take patches. False with the error pair set on failure.
bool writeSndfile(SampleBlocks& blocks, SndfileFormat format, u32 code, u32 rate, u32 channels,
                  ByteSink& sink);

} // namespace kv
