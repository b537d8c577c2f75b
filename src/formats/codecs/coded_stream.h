// Streams of the encodings with state, piece by piece: what a reader or a writer needs to know of one is how
// it falls into units and how a run of units is coded.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "base/byte_sink.h"
#include "base/byte_source.h"
#include "formats/codecs/gsm_0610.h"
#include "formats/codecs/ima_adpcm.h"
#include "formats/codecs/ms_adpcm.h"
#include "model/sample_blocks.h"

namespace kv {

/// A stream under way to be decoded; a copy starts where this one stands.
struct CodedForm {
    u32 channels = 1;
    std::size_t unitBytes = 1;  ///< runs of whole units decode one after the other
    std::size_t unitFrames = 1; ///< of a whole unit
    /// Decodes a run of units into interleaved samples, the last unit of a stream perhaps short. Answers the
    /// frames; fewer than the run has end the stream.
    std::function<std::size_t(ByteSpan from, std::span<i16> to)> decode;
    /// Frames of a part of a unit.
    std::function<std::size_t(std::size_t bytes)> partFrames;

    u64 framesIn(u64 bytes) const;
};

/// The samples of a coded stream that lies between two places of a source. What is missing of `frames` when
/// the stream ends is silence.
std::unique_ptr<SampleBlocks> openCoded(std::shared_ptr<ByteSource> source, u64 start, u64 end, u32 frames,
                                        CodedForm form);

/// A stream under way to be encoded.
struct CodedWriter {
    u32 channels = 1;
    std::size_t unitFrames = 1;
    std::size_t unitBytes = 1;
    bool wholeUnits = false; ///< the last unit is filled up, else it ends with the byte of its last code
    /// Encodes interleaved samples of whole units, but for the last call, behind what stands in `out`.
    std::function<void(std::span<const i16> from, Bytes& out)> encode;

    /// Bytes that so many frames take.
    u64 bytesFor(u64 frames) const;
};

/// Encodes samples block by block; of two channels the average, where the stream has one. False with the
/// error pair set on failure.
bool writeCoded(SampleBlocks& blocks, const CodedWriter& writer, ByteSink& sink);

// The encodings. A form without `decode` has parameters that no stream can have.
CodedForm imaForm(const ImaBlocks& blocks);
CodedForm msForm(u32 channels, u32 blockBytes, u32 framesPerBlock, std::vector<MsCoefficients> coefficients);

/// Streams without blocks. `bits` are those of a code; G.722 has two samples to a code.
CodedForm dialogicForm();
CodedForm yamahaForm(bool stereo);
CodedForm rockwellForm(u32 bits);
CodedForm g726Form(u32 bits, bool bigEndian);
CodedForm g722Form(u32 bits, bool bigEndian);
/// Plain frames of 33 bytes; else blocks that hold two frames to each 65 bytes.
CodedForm gsmForm(bool plainFrames, std::size_t blockBytes = kGsmDoubleBytes);
/// Records of 38 bytes around a plain frame, or frames that lack what stands around them.
CodedForm usrGsmForm();

CodedWriter imaWriter(const ImaBlocks& blocks);
CodedWriter msWriter(u32 channels, u32 blockBytes);
CodedWriter dialogicWriter();
CodedWriter yamahaWriter(bool stereo);
CodedWriter rockwellWriter(u32 bits);
CodedWriter g726Writer(u32 bits, bool bigEndian);
CodedWriter g722Writer(u32 bits, bool bigEndian);
CodedWriter gsmWriter(bool plainFrames);
/// Records that begin twice with `mark`: 0xFE, or 0xB6.
CodedWriter usrGsmWriter(u8 mark);

inline constexpr std::size_t kUsrGsmBytes = 38;

} // namespace kv
