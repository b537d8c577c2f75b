// The headers of libav, which are C, and owners for what it hands out.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

#include <memory>
#include <new>

namespace kv::libav {

template <auto Free>
struct FreeBy {
    template <class T>
    void operator()(T* what) const {
        Free(&what);
    }
};

struct FreeMuxer {
    void operator()(AVFormatContext* file) const { avformat_free_context(file); }
};

using FramePtr = std::unique_ptr<AVFrame, FreeBy<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeBy<av_packet_free>>;
using DemuxerPtr = std::unique_ptr<AVFormatContext, FreeBy<avformat_close_input>>;
using MuxerPtr = std::unique_ptr<AVFormatContext, FreeMuxer>;
using CodecPtr = std::unique_ptr<AVCodecContext, FreeBy<avcodec_free_context>>;

/// What libav allocates, or std::bad_alloc.
template <class T>
T* made(T* what) {
    if (!what) throw std::bad_alloc();
    return what;
}

/// A dictionary of options or texts.
class Dictionary {
public:
    Dictionary() = default;
    ~Dictionary() { av_dict_free(&entries_); }
    Dictionary(const Dictionary&) = delete;
    Dictionary& operator=(const Dictionary&) = delete;
    void set(const char* key, const char* value) { av_dict_set(&entries_, key, value, 0); }
    /// Adds "name=value:name=value".
    void parse(const char* list) { av_dict_parse_string(&entries_, list, "=", ":", 0); }
    AVDictionary** address() { return &entries_; }
    bool empty() const { return av_dict_count(entries_) == 0; }

private:
    AVDictionary* entries_ = nullptr;
};

} // namespace kv::libav
