// The exact length of an audio stream, from its packets where they tell it and else by decoding them.
#pragma once

#include <optional>

#include "libav/media_decoder.h"

namespace kv::libav {

/// What a packet's side data says is to be dropped of its samples.
struct Skips {
    std::int64_t front = 0, back = 0;
};
Skips skipsOf(const AVPacket& packet);

class FrameCounter {
public:
    explicit FrameCounter(const AVStream& stream);

    void add(const AVPacket& packet);
    /// Frames of all packets that were added, less the encoder's delay and padding.
    std::int64_t finish();
    std::int64_t bytes() const { return bytes_; } ///< of all packets that were added
    /// Frames of a length in the stream's ticks that is the delay included; no more than decoding gives, and
    /// 0 where ticks don't count frames.
    std::int64_t statedFrames(std::int64_t ticks) const;

private:
    std::int64_t framesOf(const AVPacket& packet, std::int64_t regular) const;
    void decodeIfIrregular();
    void countDecoded();

    const AVStream& stream_;
    std::int64_t bytes_ = 0;
    std::int64_t frames_ = 0;
    std::int64_t decodable_ = 0; ///< frames of all packets
    std::int64_t dropped_ = 0;   ///< frames that the first packet said are to be dropped
    bool first_ = true;
    std::optional<MediaDecoder> decoder_; ///< for codings whose packets don't tell their length
};

} // namespace kv::libav
