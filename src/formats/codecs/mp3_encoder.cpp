#include <lame/lame.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/mpeg_encoder.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "MP3";
constexpr std::size_t kStepFrames = 8192;
constexpr std::size_t kPackedBytes = kStepFrames * 5 / 4 + 7200; // as the library's header asks for

constexpr u32 kRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
constexpr std::size_t kOnlyLayer3 = 3; ///< of them

/// By quality, the worst first.
constexpr u32 kVariableRates[] = {65, 85, 100, 115, 130, 165, 175, 190, 225, 245};

struct LameLibrary {
    SharedLibrary library{"libmp3lame0", {"libmp3lame.so.0"}};
    decltype(lame_init)* create = nullptr;
    decltype(lame_close)* destroy = nullptr;
    decltype(lame_set_in_samplerate)* setRateIn = nullptr;
    decltype(lame_set_out_samplerate)* setRateOut = nullptr;
    decltype(lame_set_num_channels)* setChannels = nullptr;
    decltype(lame_set_mode)* setMode = nullptr;
    decltype(lame_set_VBR)* setVariable = nullptr;
    decltype(lame_set_VBR_quality)* setQuality = nullptr;
    decltype(lame_set_VBR_mean_bitrate_kbps)* setAverage = nullptr;
    decltype(lame_set_brate)* setConstant = nullptr;
    decltype(lame_set_bWriteVbrTag)* setLengthFrame = nullptr;
    decltype(lame_set_write_id3tag_automatic)* setTags = nullptr;
    decltype(lame_set_errorf)* setErrors = nullptr;
    decltype(lame_set_debugf)* setDebug = nullptr;
    decltype(lame_set_msgf)* setMessages = nullptr;
    decltype(lame_init_params)* open = nullptr;
    decltype(lame_encode_buffer_ieee_float)* packMono = nullptr;
    decltype(lame_encode_buffer_interleaved_ieee_float)* packStereo = nullptr;
    decltype(lame_encode_flush)* flush = nullptr;
    decltype(lame_get_lametag_frame)* lengthFrame = nullptr;

    LameLibrary() {
        library.bind(create, "lame_init")
            .bind(destroy, "lame_close")
            .bind(setRateIn, "lame_set_in_samplerate")
            .bind(setRateOut, "lame_set_out_samplerate")
            .bind(setChannels, "lame_set_num_channels")
            .bind(setMode, "lame_set_mode")
            .bind(setVariable, "lame_set_VBR")
            .bind(setQuality, "lame_set_VBR_quality")
            .bind(setAverage, "lame_set_VBR_mean_bitrate_kbps")
            .bind(setConstant, "lame_set_brate")
            .bind(setLengthFrame, "lame_set_bWriteVbrTag")
            .bind(setTags, "lame_set_write_id3tag_automatic")
            .bind(setErrors, "lame_set_errorf")
            .bind(setDebug, "lame_set_debugf")
            .bind(setMessages, "lame_set_msgf")
            .bind(open, "lame_init_params")
            .bind(packMono, "lame_encode_buffer_ieee_float")
            .bind(packStereo, "lame_encode_buffer_interleaved_ieee_float")
            .bind(flush, "lame_encode_flush")
            .bind(lengthFrame, "lame_get_lametag_frame");
    }
};

const LameLibrary& lame() {
    static const LameLibrary& library = *new LameLibrary;
    return library;
}

void silent(const char*, std::va_list) noexcept {}

/// The library's scale of quality, 0 best, for an average rate: between the qualities that it names.
f32 qualityFor(f32 kbps) {
    constexpr auto kLast = static_cast<f32>(std::size(kVariableRates) - 1);
    if (kbps <= static_cast<f32>(kVariableRates[0])) return kLast;
    for (std::size_t i = 1; i < std::size(kVariableRates); ++i) {
        const auto low = static_cast<f32>(kVariableRates[i - 1]), high = static_cast<f32>(kVariableRates[i]);
        if (kbps <= high) return kLast - static_cast<f32>(i) + (high - kbps) / (high - low);
    }
    return 0;
}

class Mp3Encoder final : public PackingSink {
public:
    Mp3Encoder(ByteSink& out, u32 channelCount) : PackingSink(kFloat32, channelCount), output_(out) {}
    ~Mp3Encoder() override {
        if (encoder_) lame().destroy(encoder_);
    }
    Mp3Encoder(const Mp3Encoder&) = delete;
    Mp3Encoder& operator=(const Mp3Encoder&) = delete;

    bool open(const MpegSettings& settings) {
        encoder_ = lame().create();
        if (!encoder_) return Fail(kContext, "Out of memory");
        lame().setErrors(encoder_, silent);
        lame().setDebug(encoder_, silent);
        lame().setMessages(encoder_, silent);
        lame().setTags(encoder_, 0);
        lame().setRateIn(encoder_, static_cast<int>(settings.sampleRate));
        lame().setRateOut(encoder_, static_cast<int>(settings.sampleRate));
        lame().setChannels(encoder_, static_cast<int>(settings.channels));
        lame().setMode(encoder_, settings.channels == 1 ? MONO : JOINT_STEREO);
        lengthFrame_ = settings.lengthFrame && output_.canSeek();
        lame().setLengthFrame(encoder_, lengthFrame_ ? 1 : 0);
        setRate(settings);
        return lame().open(encoder_) >= 0 ||
               Fail(kContext, "libmp3lame can't pack {} Hz at {} kbit/s", settings.sampleRate, settings.kbps);
    }

    bool finish() override {
        packed_.resize(kPackedBytes);
        const bool flushed = put(lame().flush(encoder_, packed_.data(), static_cast<int>(packed_.size())));
        if (flushed && lengthFrame_) {
            const std::size_t size = lame().lengthFrame(encoder_, packed_.data(), packed_.size());
            if (size <= packed_.size() && output_.seek(0)) output_.write(packed_.data(), size);
        }
        return (flushed && !output_.failed()) || Fail(kContext, "Writing to file failed");
    }

protected:
    bool pack(ByteSpan frames) override {
        packed_.resize(kPackedBytes);
        return packFloats(frames, kStepFrames, channels(), floats_, [this](std::span<const f32> samples) {
            const auto count = static_cast<int>(samples.size() / channels());
            const auto room = static_cast<int>(packed_.size());
            const f32* from = samples.data();
            return put(channels() == 1 ? lame().packMono(encoder_, from, from, count, packed_.data(), room)
                                       : lame().packStereo(encoder_, from, count, packed_.data(), room));
        });
    }

private:
    void setRate(const MpegSettings& settings) {
        const int kbps = static_cast<int>(std::lround(std::clamp(settings.kbps, 8.0F, 320.0F)));
        switch (settings.rate) {
            case MpegRate::Constant:
                lame().setVariable(encoder_, vbr_off);
                lame().setConstant(encoder_, kbps);
                break;
            case MpegRate::Average:
                lame().setVariable(encoder_, vbr_abr);
                lame().setAverage(encoder_, kbps);
                break;
            case MpegRate::Variable:
                lame().setVariable(encoder_, vbr_default);
                lame().setQuality(encoder_, qualityFor(settings.kbps));
                break;
        }
    }
    /// Writes what the library packed; it tells failures by numbers below zero.
    bool put(int size) { return size >= 0 && output_.write(packed_.data(), static_cast<std::size_t>(size)); }

    PackedOutput output_;
    lame_t encoder_ = nullptr;
    bool lengthFrame_ = false;
    std::vector<f32> floats_;
    std::vector<unsigned char> packed_;
};

} // namespace

std::span<const u32> mpegSampleRates(int layer) {
    return layer == 3 ? std::span(kRates) : std::span(kRates).subspan(kOnlyLayer3);
}

u32 mpegRateFor(u32 rate, int layer) {
    const std::span<const u32> rates = mpegSampleRates(layer);
    const auto found = std::ranges::lower_bound(rates, rate);
    return found == rates.end() ? rates.back() : *found;
}

std::span<const u32> mp3VariableRates() {
    return kVariableRates;
}

std::unique_ptr<PackingSink> makeMp3Encoder(ByteSink& out, const MpegSettings& settings) {
    if (!lame().library.ready(kContext)) return nullptr;
    auto encoder = std::make_unique<Mp3Encoder>(out, settings.channels);
    if (!encoder->open(settings)) return nullptr;
    return encoder;
}

} // namespace kv
