// A media file being read.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "formats/media/media_module.h"
#include "libav/file_io.h"
#include "libav/frame_counter.h"
#include "libav/media_decoder.h"

namespace kv {

struct MediaReader {
    explicit MediaReader(const MediaInput& input) : input_(input), io_(input) {}
    MediaReader(const MediaReader&) = delete;
    MediaReader& operator=(const MediaReader&) = delete;

    /// Null on success, else why not.
    const char* open(const char* container);
    const std::vector<MediaTrack>& tracks() const { return tracks_; }
    const std::vector<MediaText>& texts() const { return texts_; }
    const std::vector<MediaChapter>& chapters() const { return chapters_; }
    void scan();
    bool start(std::size_t track);
    std::int64_t decode(void* to, std::int64_t frames);

private:
    bool isMovie() const { return format_ == av_find_input_format("mov"); }
    void listTracks();
    void listTexts();
    void listChapters();
    void mendEdits(const std::vector<libav::FrameCounter>& counters);
    bool nextFrame();

    MediaInput input_;
    libav::InputIo io_;
    const AVInputFormat* format_ = nullptr;
    libav::DemuxerPtr file_;
    std::vector<MediaTrack> tracks_;
    std::vector<AVStream*> streams_; ///< of the tracks
    std::vector<MediaText> texts_;
    std::deque<std::string> ownTexts_; ///< those that libav doesn't hold
    std::vector<MediaChapter> chapters_;

    // Of the track that is decoded.
    std::optional<libav::MediaDecoder> decoder_;
    libav::PacketPtr packet_{libav::made(av_packet_alloc())};
    const AVFrame* frame_ = nullptr;
    int used_ = 0;            ///< of the frame's frames
    std::int64_t toDrop_ = 0; ///< frames still to be dropped at the start
    std::size_t track_ = 0;
    bool started_ = false, fed_ = false, drained_ = false;
};

} // namespace kv
