#include "libav/sample_copy.h"

#include <algorithm>
#include <cmath>

#include "formats/media/media_module.h"

namespace kv::libav {
namespace {

/// One channel of a frame: where its samples start, and how many samples of all channels lie between two.
template <class Sample, class Frame>
struct Channel {
    Sample* at;
    int stride;

    Channel(Frame& frame, int channel, int channels) {
        const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0;
        at = reinterpret_cast<Sample*>(frame.extended_data[planar ? channel : 0]) + (planar ? 0 : channel);
        stride = planar ? 1 : channels;
    }
};

template <class From, class To, class Convert>
void copyChannels(const AVFrame& from, int first, int frames, int channels, To* to, Convert convert) {
    const int available = from.ch_layout.nb_channels;
    for (int c = 0; c < channels; ++c) {
        const Channel<const From, const AVFrame> source(from, std::min(c, available - 1), available);
        for (int i = 0; i < frames; ++i)
            to[i * channels + c] = convert(source.at[static_cast<std::ptrdiff_t>(first + i) * source.stride]);
    }
}

template <class To, class From, class Convert>
void fillChannels(const From* from, AVFrame& to, int first, int frames, Convert convert) {
    const int channels = to.ch_layout.nb_channels;
    for (int c = 0; c < channels; ++c) {
        const Channel<To, AVFrame> target(to, c, channels);
        for (int i = 0; i < frames; ++i)
            target.at[static_cast<std::ptrdiff_t>(first + i) * target.stride] =
                convert(from[i * channels + c]);
    }
}

/// Full scale to 24 bits in the upper end of 32, rounded as all of the program's conversions are.
std::int32_t quantise24(float v) {
    const double scaled = static_cast<double>(v) * 0x1p23;
    const double rounded = std::trunc(scaled + (scaled < 0 ? -0.499 : 0.499));
    if (!(rounded == rounded)) return 0;
    return static_cast<std::int32_t>(std::clamp(rounded, -0x1p23, 0x1p23 - 1)) * 256;
}

} // namespace

int formOf(int sampleFormat) {
    switch (sampleFormat) {
        case AV_SAMPLE_FMT_U8:
        case AV_SAMPLE_FMT_U8P:
        case AV_SAMPLE_FMT_S16:
        case AV_SAMPLE_FMT_S16P:
            return kMediaInt16;
        case AV_SAMPLE_FMT_S32:
        case AV_SAMPLE_FMT_S32P:
        case AV_SAMPLE_FMT_FLT:
        case AV_SAMPLE_FMT_FLTP:
        case AV_SAMPLE_FMT_DBL:
        case AV_SAMPLE_FMT_DBLP:
            return kMediaFloat;
        default:
            return -1;
    }
}

void copyOut(const AVFrame& from, int first, int frames, int channels, void* to) {
    auto* integers = static_cast<std::int16_t*>(to);
    auto* floats = static_cast<float*>(to);
    switch (from.format) {
        case AV_SAMPLE_FMT_U8:
        case AV_SAMPLE_FMT_U8P: // spread over the whole range, as plain bytes are
            copyChannels<std::uint8_t>(from, first, frames, channels, integers, [](std::uint8_t v) {
                return static_cast<std::int16_t>((v - 128) * 257 + 128);
            });
            break;
        case AV_SAMPLE_FMT_S16:
        case AV_SAMPLE_FMT_S16P:
            copyChannels<std::int16_t>(from, first, frames, channels, integers,
                                       [](std::int16_t v) { return v; });
            break;
        case AV_SAMPLE_FMT_S32:
        case AV_SAMPLE_FMT_S32P:
            copyChannels<std::int32_t>(from, first, frames, channels, floats,
                                       [](std::int32_t v) { return static_cast<float>(v) * 0x1p-31F; });
            break;
        case AV_SAMPLE_FMT_FLT:
        case AV_SAMPLE_FMT_FLTP:
            copyChannels<float>(from, first, frames, channels, floats, [](float v) { return v; });
            break;
        case AV_SAMPLE_FMT_DBL:
        case AV_SAMPLE_FMT_DBLP:
            copyChannels<double>(from, first, frames, channels, floats,
                                 [](double v) { return static_cast<float>(v); });
            break;
        default:
            break;
    }
}

void copyIn(const void* from, AVFrame& to, int first, int frames, int bits) {
    const auto same = [](auto v) { return v; };
    if (bits == 16)
        fillChannels<std::int16_t>(static_cast<const std::int16_t*>(from), to, first, frames, same);
    else if (bits == 24)
        fillChannels<std::int32_t>(static_cast<const float*>(from), to, first, frames, quantise24);
    else
        fillChannels<float>(static_cast<const float*>(from), to, first, frames, same);
}

} // namespace kv::libav
