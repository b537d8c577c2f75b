#include "libav/media_writer.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "libav/sample_copy.h"

namespace kv {
namespace {

using namespace libav;

constexpr int kFramesOfFreeSize = 4096; ///< in a packet of an encoder that takes any number

/// The encoder's form for samples of so many bits; AV_SAMPLE_FMT_NONE when it has none.
AVSampleFormat sampleFormatFor(const AVCodec& encoder, int bits) {
    for (const AVSampleFormat* format = encoder.sample_fmts; format && *format != AV_SAMPLE_FMT_NONE;
         ++format) {
        const AVSampleFormat packed = av_get_packed_sample_fmt(*format);
        if (packed == (bits == 16 ? AV_SAMPLE_FMT_S16 : bits == 24 ? AV_SAMPLE_FMT_S32 : AV_SAMPLE_FMT_FLT))
            return *format;
    }
    return AV_SAMPLE_FMT_NONE;
}

} // namespace

const char* MediaWriter::open(const MediaTarget& target) {
    AVFormatContext* file = nullptr;
    if (avformat_alloc_output_context2(&file, nullptr, target.container, nullptr) < 0)
        return "The installed libavformat can't write this format";
    file_.reset(file);
    file_->pb = io_.context();
    file_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT; // the same samples make the same file
    const char* failure = openEncoder(target);
    return failure ? failure : openMuxer(target);
}

const char* MediaWriter::openEncoder(const MediaTarget& target) {
    const AVCodec* encoder = avcodec_find_encoder_by_name(target.codec);
    if (!encoder) return "The installed libavcodec lacks the encoder";
    codec_.reset(made(avcodec_alloc_context3(encoder)));
    bits_ = target.bits;
    edgeFrames_ = target.edgeFrames;
    codec_->sample_fmt = sampleFormatFor(*encoder, bits_);
    if (codec_->sample_fmt == AV_SAMPLE_FMT_NONE) return "The encoder doesn't take such samples";
    codec_->sample_rate = target.rate;
    codec_->time_base = {1, target.rate};
    codec_->bits_per_raw_sample = bits_;
    if (target.kbps > 0) codec_->bit_rate = static_cast<std::int64_t>(target.kbps * 1000);
    codec_->flags |= AV_CODEC_FLAG_BITEXACT;
    if ((file_->oformat->flags & AVFMT_GLOBALHEADER) != 0) codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_channel_layout_default(&codec_->ch_layout, target.channels);
    Dictionary options;
    options.parse(target.encoderOptions);
    if (avcodec_open2(codec_.get(), encoder, options.address()) < 0 || !options.empty())
        return "The encoder refuses this rate, bit rate or number of channels";

    capacity_ = codec_->frame_size > 0 ? codec_->frame_size : kFramesOfFreeSize;
    held_->format = codec_->sample_fmt;
    held_->sample_rate = target.rate;
    held_->nb_samples = capacity_;
    if (av_channel_layout_copy(&held_->ch_layout, &codec_->ch_layout) < 0 ||
        av_frame_get_buffer(held_.get(), 0) < 0)
        return "Out of memory";
    return nullptr;
}

const char* MediaWriter::openMuxer(const MediaTarget& target) {
    stream_ = made(avformat_new_stream(file_.get(), nullptr));
    stream_->time_base = codec_->time_base;
    if (avcodec_parameters_from_context(stream_->codecpar, codec_.get()) < 0) return "Out of memory";
    addTexts(target);
    addChapters(target);
    Dictionary options;
    options.parse(target.muxerOptions);
    const int done = avformat_write_header(file_.get(), options.address());
    if (file_->pb->error < 0) return "Writing to file failed";
    if (done < 0 || !options.empty()) return "The format can't hold this rate or number of channels";
    return pushEdge() ? nullptr : "Writing to file failed";
}

void MediaWriter::addTexts(const MediaTarget& target) {
    for (int i = 0; i < target.textCount; ++i)
        av_dict_set(&file_->metadata, target.texts[i].key, target.texts[i].value, 0);
}

void MediaWriter::addChapters(const MediaTarget& target) {
    if (target.chapterCount <= 0) return;
    const auto count = static_cast<std::size_t>(target.chapterCount);
    // libavformat frees the list and the chapters with the file.
    file_->chapters = static_cast<AVChapter**>(made(av_calloc(count, sizeof(AVChapter*))));
    for (std::size_t i = 0; i < count; ++i) {
        const MediaChapter& from = target.chapters[i];
        auto* chapter = static_cast<AVChapter*>(made(av_mallocz(sizeof(AVChapter))));
        file_->chapters[file_->nb_chapters++] = chapter;
        chapter->id = static_cast<std::int64_t>(i);
        chapter->time_base = codec_->time_base;
        chapter->start = std::llround(from.start * target.rate);
        chapter->end = std::llround(from.end * target.rate);
        av_dict_set(&chapter->metadata, "title", from.title, 0);
    }
}

bool MediaWriter::writePackets() {
    int result = 0;
    while ((result = avcodec_receive_packet(codec_.get(), packet_.get())) >= 0) {
        av_packet_rescale_ts(packet_.get(), codec_->time_base, stream_->time_base);
        packet_->stream_index = stream_->index;
        if (av_interleaved_write_frame(file_.get(), packet_.get()) < 0) return false;
    }
    return result == AVERROR(EAGAIN) || result == AVERROR_EOF;
}

bool MediaWriter::encodeHeld() {
    held_->nb_samples = heldFrames_;
    held_->pts = written_;
    written_ += heldFrames_;
    heldFrames_ = 0;
    const bool done = avcodec_send_frame(codec_.get(), held_.get()) >= 0 && writePackets();
    held_->nb_samples = capacity_;
    return done && av_frame_make_writable(held_.get()) >= 0; // the encoder may have kept what was in it
}

bool MediaWriter::push(const void* samples, std::int64_t frames) {
    const std::int64_t frameBytes = codec_->ch_layout.nb_channels * (bits_ == 16 ? 2 : 4);
    const auto* from = static_cast<const std::uint8_t*>(samples);
    while (frames > 0) {
        const auto count = static_cast<int>(std::min<std::int64_t>(frames, capacity_ - heldFrames_));
        copyIn(from, *held_, heldFrames_, count, bits_);
        heldFrames_ += count;
        frames -= count;
        from += count * frameBytes;
        if (heldFrames_ == capacity_ && !encodeHeld()) return false;
    }
    return true;
}

bool MediaWriter::pushEdge() {
    const std::vector<float> silence(static_cast<std::size_t>(edgeFrames_ * codec_->ch_layout.nb_channels));
    return push(silence.data(), edgeFrames_);
}

bool MediaWriter::finish() {
    if (!pushEdge()) return false;
    if (heldFrames_ > 0 && !encodeHeld()) return false;
    if (avcodec_send_frame(codec_.get(), nullptr) < 0 || !writePackets()) return false;
    if (av_write_trailer(file_.get()) < 0) return false;
    avio_flush(file_->pb);
    return file_->pb->error >= 0;
}

} // namespace kv
