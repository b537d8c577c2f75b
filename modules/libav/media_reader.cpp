#include "libav/media_reader.h"

#include <algorithm>

#include "libav/frame_counter.h"
#include "libav/movie_boxes.h"
#include "libav/sample_copy.h"

namespace kv {
namespace {

using namespace libav;

constexpr unsigned kMostTracks = 64;
constexpr int kMostRate = 768000, kMostChannels = 64;
constexpr int kMostBarrenPackets = 5000; ///< one after the other, without any sample

/// No file but the one that was opened.
int refuseFile(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EPERM);
}

const char* textOf(const AVDictionary* texts, const char* key) {
    const AVDictionaryEntry* entry = av_dict_get(texts, key, nullptr, 0);
    return entry ? entry->value : nullptr;
}

bool isUsable(const AVStream& stream) {
    const AVCodecParameters& coding = *stream.codecpar;
    return coding.codec_type == AVMEDIA_TYPE_AUDIO && coding.sample_rate > 0 &&
           coding.sample_rate <= kMostRate && coding.ch_layout.nb_channels > 0 &&
           coding.ch_layout.nb_channels <= kMostChannels && formOf(coding.format) >= 0;
}

/// Bits of a sample before it was coded; 0 for a coding that has none.
int bitsOf(const AVCodecParameters& coding, bool lossless) {
    if (coding.bits_per_raw_sample > 0) return coding.bits_per_raw_sample;
    const int exact = av_get_exact_bits_per_sample(coding.codec_id);
    if (exact > 0 || !lossless) return exact;
    return 8 * av_get_bytes_per_sample(static_cast<AVSampleFormat>(coding.format));
}

MediaTrack describe(const AVStream& stream) {
    const AVCodecParameters& coding = *stream.codecpar;
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(coding.codec_id);
    const int props = descriptor ? descriptor->props : 0;
    MediaTrack track{};
    track.codec = avcodec_get_name(coding.codec_id);
    track.title = textOf(stream.metadata, "title");
    if (!track.title) track.title = "";
    track.rate = coding.sample_rate;
    track.channelsInFile = coding.ch_layout.nb_channels;
    track.channels = std::min(track.channelsInFile, 2);
    track.form = formOf(coding.format);
    track.lossless = (props & AV_CODEC_PROP_LOSSLESS) != 0 && (props & AV_CODEC_PROP_LOSSY) == 0 ? 1 : 0;
    track.bits = bitsOf(coding, track.lossless != 0);
    return track;
}

/// Null when the file isn't of the format. `editLists`: "1" applies those of movies to the packets.
DemuxerPtr openDemuxer(const InputIo& io, const AVInputFormat& format, const char* editLists) {
    AVFormatContext* file = made(avformat_alloc_context());
    file->pb = io.context();
    file->flags |= AVFMT_FLAG_CUSTOM_IO;
    file->io_open = refuseFile;
    file->probesize = 4 << 20;
    file->max_analyze_duration = 3 * std::int64_t{AV_TIME_BASE};
    file->max_streams = kMostTracks;
    file->skip_estimate_duration_from_pts = 1;
    Dictionary options;
    options.set("codec_whitelist", audioDecoderNames());
    options.set("protocol_whitelist", "none");
    options.set("enable_drefs", "0");
    options.set("advanced_editlist", editLists);
    // Frees the context on failure.
    if (avformat_open_input(&file, "", &format, options.address()) < 0) return nullptr;
    return DemuxerPtr(file);
}

} // namespace

const char* MediaReader::open(const char* container) {
    format_ = av_find_input_format(container);
    if (!format_) return "The installed libavformat doesn't know this format";
    file_ = openDemuxer(io_, *format_, "1");
    if (!file_ || avformat_find_stream_info(file_.get(), nullptr) < 0)
        return "The file is damaged or of another format";
    listTracks();
    if (tracks_.empty()) return "No audio track that can be decoded";
    listTexts();
    listChapters();
    return nullptr;
}

void MediaReader::listTracks() {
    for (unsigned i = 0; i < file_->nb_streams; ++i) {
        AVStream* stream = file_->streams[i];
        if (isUsable(*stream) && MediaDecoder(*stream).ready() && tracks_.size() < kMostTracks) {
            tracks_.push_back(describe(*stream));
            streams_.push_back(stream);
        } else {
            stream->discard = AVDISCARD_ALL;
        }
    }
}

/// The texts of the file; what it lacks of its only track, as streams without a container have them.
void MediaReader::listTexts() {
    for (const char* key : {"title", "artist", "album", "comment", "copyright", "encoded_by"}) {
        const char* value = textOf(file_->metadata, key);
        if (!value && streams_.size() == 1) value = textOf(streams_[0]->metadata, key);
        if ((!value || !*value) && isMovie()) value = ownTexts_.emplace_back(assetText(input_, key)).c_str();
        if (value && *value) texts_.push_back({key, value});
    }
}

void MediaReader::listChapters() {
    constexpr unsigned kMostChapters = 10000;
    for (unsigned i = 0; i < std::min(file_->nb_chapters, kMostChapters); ++i) {
        const AVChapter& chapter = *file_->chapters[i];
        if (chapter.time_base.den <= 0 || chapter.start < 0) continue;
        const char* title = textOf(chapter.metadata, "title");
        const double tick = av_q2d(chapter.time_base);
        const double start = static_cast<double>(chapter.start) * tick;
        const double end = chapter.end == AV_NOPTS_VALUE ? start : static_cast<double>(chapter.end) * tick;
        chapters_.push_back({start, end, title ? title : ""});
    }
}

void MediaReader::scan() {
    std::vector<FrameCounter> counters;
    counters.reserve(streams_.size());
    for (const AVStream* stream : streams_) counters.emplace_back(*stream);
    while (av_read_frame(file_.get(), packet_.get()) >= 0) {
        const auto at = std::find_if(streams_.begin(), streams_.end(), [&](const AVStream* stream) {
            return stream->index == packet_->stream_index;
        });
        if (at != streams_.end()) counters[static_cast<std::size_t>(at - streams_.begin())].add(*packet_);
        av_packet_unref(packet_.get());
    }
    for (std::size_t i = 0; i < counters.size(); ++i) tracks_[i].frames = counters[i].finish();
    if (isMovie()) mendEdits(counters);
    for (std::size_t i = 0; i < counters.size(); ++i) {
        MediaTrack& track = tracks_[i];
        const double seconds = static_cast<double>(track.frames) / track.rate;
        if (seconds > 0) track.kbps = static_cast<double>(counters[i].bytes()) * 8 / 1000 / seconds;
    }
}

/// An edit that covers a whole track cuts off an encoder's delay and padding, but its length is counted in
/// the coarse ticks of the movie, rounded down. What the media itself says is taken where it lies within
/// such a tick.
void MediaReader::mendEdits(const std::vector<FrameCounter>& counters) {
    const std::int64_t scale = movieScale(input_);
    InputIo io(input_);
    const DemuxerPtr whole = scale > 0 ? openDemuxer(io, *format_, "0") : nullptr;
    if (!whole || whole->nb_streams != file_->nb_streams) return;
    for (std::size_t i = 0; i < counters.size(); ++i) {
        MediaTrack& track = tracks_[i];
        const AVStream& stream = *whole->streams[streams_[i]->index];
        const std::int64_t frames = counters[i].statedFrames(stream.duration);
        const std::int64_t tick = track.rate / scale + 1;
        if (frames > track.frames && frames - track.frames <= tick) track.frames = frames;
    }
}

bool MediaReader::start(std::size_t track) {
    if (started_ || track >= streams_.size()) return false;
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        if (i != track) streams_[i]->discard = AVDISCARD_ALL;
    }
    track_ = track;
    started_ = true;
    decoder_.emplace(*streams_[track]);
    return decoder_->ready();
}

/// Decodes on until there is a frame with samples.
bool MediaReader::nextFrame() {
    for (int barren = 0; barren < kMostBarrenPackets;) {
        frame_ = decoder_->next();
        if (frame_) {
            used_ = static_cast<int>(std::min<std::int64_t>(toDrop_, frame_->nb_samples));
            toDrop_ -= used_;
            if (used_ < frame_->nb_samples) return true;
            continue;
        }
        if (drained_) return false;
        ++barren;
        if (av_read_frame(file_.get(), packet_.get()) < 0) {
            drained_ = true;
            decoder_->feed(nullptr);
            continue;
        }
        if (packet_->stream_index == streams_[track_]->index) {
            if (!fed_ && skipsOf(*packet_).front == 0) toDrop_ = MediaDecoder::delayOf(*streams_[track_]);
            fed_ = true;
            decoder_->feed(packet_.get());
        }
        av_packet_unref(packet_.get());
    }
    return false;
}

std::int64_t MediaReader::decode(void* to, std::int64_t frames) {
    const MediaTrack& track = tracks_[track_];
    const std::int64_t frameBytes = track.channels * (track.form == kMediaInt16 ? 2 : 4);
    std::int64_t done = 0;
    while (started_ && done < frames) {
        if ((!frame_ || used_ == frame_->nb_samples) && !nextFrame()) break;
        // Whatever changes its kind in the middle is damaged.
        if (formOf(frame_->format) != track.form || frame_->sample_rate != track.rate ||
            frame_->ch_layout.nb_channels < 1)
            break;
        const auto count =
            static_cast<int>(std::min<std::int64_t>(frames - done, frame_->nb_samples - used_));
        copyOut(*frame_, used_, count, track.channels, static_cast<std::uint8_t*>(to) + done * frameBytes);
        used_ += count;
        done += count;
    }
    return done;
}

} // namespace kv
