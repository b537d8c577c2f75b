#include "libav/media_decoder.h"

#include <string>
#include <string_view>

namespace kv::libav {
namespace {

/// libavcodec's own decoders only: those of outside libraries stand beside one of its own.
bool isOwnAudioDecoder(const AVCodec& codec) {
    return codec.type == AVMEDIA_TYPE_AUDIO && av_codec_is_decoder(&codec) != 0 && !codec.wrapper_name &&
           !std::string_view(codec.name).starts_with("lib");
}

const AVCodec* decoderFor(AVCodecID id) {
    void* state = nullptr;
    while (const AVCodec* codec = av_codec_iterate(&state)) {
        if (codec->id == id && isOwnAudioDecoder(*codec)) return codec;
    }
    return nullptr;
}

} // namespace

const char* audioDecoderNames() {
    static const std::string names = [] {
        std::string list;
        void* state = nullptr;
        while (const AVCodec* codec = av_codec_iterate(&state)) {
            if (!isOwnAudioDecoder(*codec)) continue;
            if (!list.empty()) list += ',';
            list += codec->name;
        }
        return list;
    }();
    return names.c_str();
}

MediaDecoder::MediaDecoder(const AVStream& stream) : frame_(made(av_frame_alloc())) {
    const AVCodec* decoder = decoderFor(stream.codecpar->codec_id);
    if (!decoder) return;
    CodecPtr codec(made(avcodec_alloc_context3(decoder)));
    codec->pkt_timebase = stream.time_base;
    if (avcodec_parameters_to_context(codec.get(), stream.codecpar) < 0 ||
        avcodec_open2(codec.get(), decoder, nullptr) < 0)
        return;
    codec_ = std::move(codec);
}

void MediaDecoder::feed(const AVPacket* packet) {
    (void)avcodec_send_packet(codec_.get(), packet); // an error is a damaged packet
}

const AVFrame* MediaDecoder::next() {
    return avcodec_receive_frame(codec_.get(), frame_.get()) >= 0 ? frame_.get() : nullptr;
}

int MediaDecoder::delayOf(const AVStream& stream) {
    // The decoder of Opus knows its delay; elsewhere a demuxer that marks no packet leaves it to us.
    const AVCodecParameters& coding = *stream.codecpar;
    if (coding.codec_id == AV_CODEC_ID_OPUS) return 0;
    return coding.initial_padding > 0 && coding.initial_padding < coding.sample_rate ? coding.initial_padding
                                                                                     : 0;
}

} // namespace kv::libav
