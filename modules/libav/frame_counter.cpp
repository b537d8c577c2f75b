#include "libav/frame_counter.h"

#include <algorithm>

namespace kv::libav {
namespace {

/// More frames to a byte are a lie of a table: 65,535 equal samples take some 10 bytes of FLAC, and the
/// largest frame of Monkey's Audio 8 bytes when it is silent.
std::int64_t mostFramesPerByte(AVCodecID coding) {
    return coding == AV_CODEC_ID_APE ? 1179648 / 8 : 16384;
}

/// All packets of a stream of this coding hold as many frames, or as many as their bytes tell.
bool hasRegularPackets(AVCodecID coding) {
    switch (coding) {
        case AV_CODEC_ID_AAC:
        case AV_CODEC_ID_MP1:
        case AV_CODEC_ID_MP2:
        case AV_CODEC_ID_MP3:
        case AV_CODEC_ID_AC3:
        case AV_CODEC_ID_AMR_NB:
        case AV_CODEC_ID_AMR_WB:
        case AV_CODEC_ID_GSM:
        case AV_CODEC_ID_GSM_MS:
        case AV_CODEC_ID_ADPCM_MS:
        case AV_CODEC_ID_ADPCM_IMA_WAV:
            return true;
        default:
            return av_get_exact_bits_per_sample(coding) > 0;
    }
}

/// Frames to a tick of the stream's time base where that counts frames or parts of them, or pairs of them, as
/// for the two rates of a spectral replication; else 0. What merely happens to divide, as milliseconds do,
/// is rounded.
double framesPerTick(const AVStream& stream) {
    const AVRational base = stream.time_base;
    if (base.num <= 0 || base.den <= 0) return 0;
    const std::int64_t perSecond = std::int64_t{base.num} * stream.codecpar->sample_rate;
    if (perSecond == 2 * std::int64_t{base.den}) return 2;
    if (perSecond > 0 && base.den % perSecond == 0) return 1 / static_cast<double>(base.den / perSecond);
    return 0;
}

std::int64_t u32le(const std::uint8_t* data) {
    return data[0] | data[1] << 8 | data[2] << 16 | std::int64_t{data[3]} << 24;
}

std::int64_t u32be(const std::uint8_t* data) {
    return std::int64_t{data[0]} << 24 | data[1] << 16 | data[2] << 8 | data[3];
}

/// Frames of all packets but the last of an Apple Lossless stream, which its description tells behind an
/// atom's header and a version; 0 if it doesn't.
std::int64_t alacPacketFrames(const AVStream& stream) {
    constexpr int kFramesAt = 12;
    const AVCodecParameters& coding = *stream.codecpar;
    if (coding.codec_id != AV_CODEC_ID_ALAC || coding.extradata_size < kFramesAt + 4) return 0;
    return u32be(coding.extradata + kFramesAt);
}

/// Such a packet says when it is no whole one: 3 bits of kind, 4 of number, 12 unused, then that bit, 3 more,
/// and the frames in 32.
std::int64_t alacFrames(const AVPacket& packet, std::int64_t whole) {
    constexpr int kBytes = 7, kBits = 8 * kBytes, kPartialBit = 19, kFramesBit = 23;
    if (packet.size < kBytes) return 0;
    std::uint64_t head = 0;
    for (int i = 0; i < kBytes; ++i) head = head << 8 | packet.data[i];
    const bool partial = (head >> (kBits - 1 - kPartialBit) & 1) != 0;
    const auto frames = static_cast<std::int64_t>(head >> (kBits - kFramesBit - 32) & 0xFFFFFFFF);
    return partial && frames < whole ? frames : whole;
}

} // namespace

Skips skipsOf(const AVPacket& packet) {
    constexpr std::size_t kBytes = 10;
    std::size_t size = 0;
    const std::uint8_t* data = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
    if (!data || size < kBytes) return {};
    return {u32le(data), u32le(data + 4)};
}

FrameCounter::FrameCounter(const AVStream& stream) : stream_(stream) {
    if (framesPerTick(stream) == 0) decodeIfIrregular();
}

/// Where packets don't tell their frames, decoding does.
void FrameCounter::decodeIfIrregular() {
    const AVCodecID coding = stream_.codecpar->codec_id;
    if (hasRegularPackets(coding) || coding == AV_CODEC_ID_APE || alacPacketFrames(stream_) > 0) return;
    decoder_.emplace(stream_);
    if (!decoder_->ready()) decoder_.reset();
}

/// Frames that the packet stands for, before anything is dropped.
std::int64_t FrameCounter::framesOf(const AVPacket& packet, std::int64_t regular) const {
    const AVCodecID coding = stream_.codecpar->codec_id;
    const std::int64_t most = packet.size * mostFramesPerByte(coding);
    if (coding == AV_CODEC_ID_APE) // libavformat puts their number ahead of the packet
        return packet.size < 8 ? 0 : std::min(u32le(packet.data), most);
    if (alacPacketFrames(stream_) > 0) return std::min(alacFrames(packet, regular), most);
    const double perTick = framesPerTick(stream_);
    if (perTick == 0 || packet.duration <= 0) return std::min(regular, most);
    // The last packet may be shorter than what it decodes to.
    const auto stated = static_cast<std::int64_t>(
        std::min(static_cast<double>(packet.duration) * perTick, static_cast<double>(most)));
    return regular > 0 ? std::min(stated, regular) : stated;
}

void FrameCounter::countDecoded() {
    while (const AVFrame* frame = decoder_->next()) frames_ += frame->nb_samples;
}

void FrameCounter::add(const AVPacket& packet) {
    const Skips skips = skipsOf(packet);
    bytes_ += packet.size;
    if (first_) {
        if (!decoder_ && packet.duration <= 0) decodeIfIrregular();
        dropped_ = skips.front;
        if (skips.front == 0) frames_ -= MediaDecoder::delayOf(stream_);
    }
    first_ = false;
    if (decoder_) {
        decoder_->feed(&packet);
        countDecoded();
    } else {
        std::int64_t regular = alacPacketFrames(stream_);
        if (hasRegularPackets(stream_.codecpar->codec_id))
            regular = av_get_audio_frame_duration2(stream_.codecpar, packet.size);
        const std::int64_t frames = framesOf(packet, regular);
        decodable_ += regular > 0 ? regular : frames;
        frames_ += frames - skips.front - skips.back;
    }
}

std::int64_t FrameCounter::statedFrames(std::int64_t ticks) const {
    const double perTick = framesPerTick(stream_);
    if (decoder_ || perTick == 0 || ticks <= 0) return 0;
    const double frames = std::min(static_cast<double>(ticks) * perTick, static_cast<double>(decodable_));
    return static_cast<std::int64_t>(frames) - dropped_;
}

std::int64_t FrameCounter::finish() {
    if (decoder_) {
        decoder_->feed(nullptr);
        countDecoded();
    }
    return std::max<std::int64_t>(frames_, 0);
}

} // namespace kv::libav
