// A media file being written.
#pragma once

#include "formats/media/media_module.h"
#include "libav/file_io.h"

namespace kv {

struct MediaWriter {
    explicit MediaWriter(const MediaOutput& output) : io_(output) {}
    MediaWriter(const MediaWriter&) = delete;
    MediaWriter& operator=(const MediaWriter&) = delete;

    /// Null on success, else why not.
    const char* open(const MediaTarget& target);
    bool push(const void* samples, std::int64_t frames);
    bool finish();

private:
    const char* openEncoder(const MediaTarget& target);
    const char* openMuxer(const MediaTarget& target);
    void addTexts(const MediaTarget& target);
    void addChapters(const MediaTarget& target);
    bool pushEdge();
    bool encodeHeld();
    bool writePackets();

    libav::OutputIo io_;
    libav::MuxerPtr file_;
    libav::CodecPtr codec_;
    AVStream* stream_ = nullptr;
    libav::PacketPtr packet_{libav::made(av_packet_alloc())};
    libav::FramePtr held_{libav::made(av_frame_alloc())}; ///< filled until the encoder's frame is full
    int heldFrames_ = 0, capacity_ = 0, bits_ = 0, edgeFrames_ = 0;
    std::int64_t written_ = 0; ///< frames that went to the encoder
};

} // namespace kv
