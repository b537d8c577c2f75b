// IMA/DVI ADPCM. Documents: IMA Digital Audio Focus and Technical Working Groups, "Recommended practices for
// enhancing digital audio compatibility in multimedia systems", rev. 3.00 (1992); for blocks in WAV files and
// for 2 and 3 bits Microsoft, "New multimedia data types and data techniques" (1994).
#pragma once

#include <vector>

#include "base/bytes.h"

namespace kv {

/// One channel's state between two codes.
struct ImaState {
    i32 predictor = 0; ///< the last sample, in 16 bits
    i32 index = 0;     ///< into the step table, 0..88
};

/// Decodes `count` samples of one channel of a block. `dst` advances by `channels` for each; `src` begins at
/// the channel's codes. In a stereo block 4 bytes are this channel's and the next 4 the other one's. Bits are
/// 2, 3 or 4 per code, else nothing happens; an index outside the table is limited to it. Samples that `src`
/// has no codes for are 0.
void ima_Decode(std::span<i16> dst, ByteSpan src, std::size_t count, u32 bits, u32 channelsLessOne,
                bool isStereoBlock, i32& predictor, i32& index);

/// The 4-bit code of a sample; moves the state as the decoder will.
u32 ima_EncodeSample(i16 sample, ImaState& state);

/// How a stream is cut into blocks. Each has 4 bytes a channel ahead of the codes.
struct ImaBlocks {
    u32 channels = 1; ///< 1 or 2
    u32 bits = 4;     ///< per code: 2, 3, 4
    u32 bytes = 0;    ///< of a block
    u32 frames = 0;   ///< of a block, as stated; what the bytes can't hold doesn't count

    /// Frames that a block of so many bytes gives.
    std::size_t framesIn(std::size_t blockBytes) const;
    std::size_t framesPerBlock() const { return framesIn(bytes); }
};

/// Decodes whole blocks, the last of which may be short, one behind the other; interleaved samples as far as
/// `to` reaches. Answers the frames.
std::size_t ima_DecodeBlocks(ByteSpan from, std::span<i16> to, const ImaBlocks& blocks);

/// Encodes interleaved samples in blocks of 4-bit codes; keeps each channel's step from one block to the
/// next. The last block of a stream is filled up by repeating its last frame.
class ImaBlockEncoder {
public:
    explicit ImaBlockEncoder(const ImaBlocks& blocks) : blocks_(blocks) {}
    /// Up to framesPerBlock() frames, at least one; gives one block of `bytes` bytes.
    void encode(std::span<const i16> frames, Bytes& out);

private:
    ImaBlocks blocks_;
    i32 index_[2] = {0, 0};
    std::vector<i16> padded_;
    std::vector<u8> codes_;
};

} // namespace kv
