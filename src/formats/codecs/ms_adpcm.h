// Microsoft ADPCM. Document: Microsoft, "New multimedia data types and data techniques" (1994).
#pragma once

#include <vector>

#include "base/bytes.h"

namespace kv {

/// A pair that predicts a sample from the last two, in units of 1/256.
struct MsCoefficients {
    i16 c1 = 0, c2 = 0;
};
/// The pairs that every file has to begin its list with.
std::span<const MsCoefficients> msStandardCoefficients();

inline constexpr std::size_t kMsHeadBytes = 7; ///< of a block, for each channel

/// Frames that a block of so many bytes holds; 0 for one too short for its heads.
std::size_t msadpcm_FramesIn(std::size_t blockBytes, u32 channels);

/// Decodes blocks of `blockBytes` bytes, the last of which may be short, one behind the other; interleaved
/// samples of 1 or 2 channels, no more than `maxFrames` frames and than `samplesPerBlock` of each block. Ends
/// at a block whose pair isn't one of the list. Answers the frames.
std::size_t msadpcm_Decode(std::span<i16> dst, std::size_t maxFrames, ByteSpan src, std::size_t blockBytes,
                           u32 channels, std::size_t samplesPerBlock,
                           std::span<const MsCoefficients> coefficients);

/// Encodes blocks with the standard pairs.
class MsBlockEncoder {
public:
    /// `blockBytes` holds the heads and whole frames of 1 or 2 channels.
    MsBlockEncoder(u32 channels, std::size_t blockBytes) : channels_(channels), blockBytes_(blockBytes) {}
    /// Up to msadpcm_FramesIn() frames, at least one; gives one block. A short one is filled up by repeating
    /// its last frame.
    void encode(std::span<const i16> frames, Bytes& out);

private:
    void encodeChannel(std::size_t channel, std::span<const i16> frames, std::span<std::byte> block);

    u32 channels_;
    std::size_t blockBytes_;
    i32 delta_[2] = {16, 16};
    std::vector<i16> padded_;
    std::vector<u8> codes_;
};

} // namespace kv
