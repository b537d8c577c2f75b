// One audio stream under way to samples.
#pragma once

#include "libav/libav.h"

namespace kv::libav {

/// Decodes the packets of a stream. Damaged ones give nothing; the decoder goes on behind them.
class MediaDecoder {
public:
    /// `ready()` is false when there is no decoder for the stream. Only decoders of libavcodec's own are
    /// used.
    explicit MediaDecoder(const AVStream& stream);

    bool ready() const { return codec_ != nullptr; }
    /// Takes the next packet; null behind the last one.
    void feed(const AVPacket* packet);
    /// The next frame of what was fed; null when more is needed.
    const AVFrame* next();

    /// Frames at the stream's very start that are an encoder's delay and that libavcodec leaves standing.
    static int delayOf(const AVStream& stream);

private:
    CodecPtr codec_;
    FramePtr frame_;
};

/// The names of all audio decoders of libavcodec's own, with commas between: while a file is opened no other
/// decoder may look at it, such as one for video.
const char* audioDecoderNames();

} // namespace kv::libav
