#include <twolame.h>

#include <algorithm>
#include <cmath>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/mpeg_encoder.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "MP2";
constexpr std::size_t kStepFrames = 1152 * 4;
constexpr std::size_t kPackedBytes = 4 * 1152 * 5 / 4 * 2 + 7200; // four frames of any rate and some

constexpr u32 kRates[] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 192, 224, 256, 320, 384};

struct TwoLameLibrary {
    SharedLibrary library{"libtwolame0", {"libtwolame.so.0"}};
    decltype(twolame_init)* create = nullptr;
    decltype(twolame_close)* destroy = nullptr;
    decltype(twolame_set_verbosity)* setVerbosity = nullptr;
    decltype(twolame_set_mode)* setMode = nullptr;
    decltype(twolame_set_num_channels)* setChannels = nullptr;
    decltype(twolame_set_in_samplerate)* setRateIn = nullptr;
    decltype(twolame_set_out_samplerate)* setRateOut = nullptr;
    decltype(twolame_set_bitrate)* setBitRate = nullptr;
    decltype(twolame_init_params)* open = nullptr;
    decltype(twolame_encode_buffer_float32_interleaved)* pack = nullptr;
    decltype(twolame_encode_flush)* flush = nullptr;

    TwoLameLibrary() {
        library.bind(create, "twolame_init")
            .bind(destroy, "twolame_close")
            .bind(setVerbosity, "twolame_set_verbosity")
            .bind(setMode, "twolame_set_mode")
            .bind(setChannels, "twolame_set_num_channels")
            .bind(setRateIn, "twolame_set_in_samplerate")
            .bind(setRateOut, "twolame_set_out_samplerate")
            .bind(setBitRate, "twolame_set_bitrate")
            .bind(open, "twolame_init_params")
            .bind(pack, "twolame_encode_buffer_float32_interleaved")
            .bind(flush, "twolame_encode_flush");
    }
};

const TwoLameLibrary& twoLame() {
    static const TwoLameLibrary& library = *new TwoLameLibrary;
    return library;
}

/// The rates that a stream can have, the wanted one's neighbours first. MPEG 1 has no stereo at its lowest
/// rates and no mono at its highest (ISO 11172-3, 2.4.2.3), MPEG 2 ends at 160 (13818-3, 2.4.2.3).
std::vector<u32> possibleRates(const MpegSettings& settings) {
    const bool isMpeg1 = settings.sampleRate >= 32000, mono = settings.channels == 1;
    std::vector<u32> rates;
    for (const u32 rate : kRates) {
        const bool inMpeg1 =
            rate >= 32 && rate != 40 && rate != 144 && (mono ? rate <= 192 : rate == 64 || rate >= 96);
        if (isMpeg1 ? inMpeg1 : rate <= 160 && rate != 0) rates.push_back(rate);
    }
    std::ranges::sort(rates, {}, [&](u32 rate) { return std::abs(static_cast<f32>(rate) - settings.kbps); });
    return rates;
}

class Mp2Encoder final : public PackingSink {
public:
    Mp2Encoder(ByteSink& out, u32 channelCount) : PackingSink(kFloat32, channelCount), output_(out) {}
    ~Mp2Encoder() override { close(); }
    Mp2Encoder(const Mp2Encoder&) = delete;
    Mp2Encoder& operator=(const Mp2Encoder&) = delete;

    bool open(const MpegSettings& settings) {
        for (const u32 rate : possibleRates(settings)) {
            close();
            encoder_ = twoLame().create();
            if (!encoder_) return Fail(kContext, "Out of memory");
            twoLame().setVerbosity(encoder_, 0);
            twoLame().setChannels(encoder_, static_cast<int>(settings.channels));
            twoLame().setMode(encoder_, settings.channels == 1 ? TWOLAME_MONO : TWOLAME_JOINT_STEREO);
            twoLame().setRateIn(encoder_, static_cast<int>(settings.sampleRate));
            twoLame().setRateOut(encoder_, static_cast<int>(settings.sampleRate));
            twoLame().setBitRate(encoder_, static_cast<int>(rate));
            if (twoLame().open(encoder_) == 0) return true;
        }
        return Fail(kContext, "libtwolame can't pack {} Hz at {} kbit/s", settings.sampleRate, settings.kbps);
    }

    bool finish() override {
        packed_.resize(kPackedBytes);
        const int size = twoLame().flush(encoder_, packed_.data(), static_cast<int>(packed_.size()));
        return put(size) || Fail(kContext, "Writing to file failed");
    }

protected:
    bool pack(ByteSpan frames) override {
        packed_.resize(kPackedBytes);
        return packFloats(frames, kStepFrames, channels(), floats_, [this](std::span<const f32> samples) {
            const auto count = static_cast<int>(samples.size() / channels());
            return put(twoLame().pack(encoder_, samples.data(), count, packed_.data(),
                                      static_cast<int>(packed_.size())));
        });
    }

private:
    void close() {
        if (encoder_) twoLame().destroy(&encoder_);
        encoder_ = nullptr;
    }
    bool put(int size) { return size >= 0 && output_.write(packed_.data(), static_cast<std::size_t>(size)); }

    PackedOutput output_;
    twolame_options* encoder_ = nullptr;
    std::vector<f32> floats_;
    std::vector<unsigned char> packed_;
};

} // namespace

std::span<const u32> mp2Rates() {
    return kRates;
}

std::unique_ptr<PackingSink> makeMp2Encoder(ByteSink& out, const MpegSettings& settings) {
    if (!twoLame().library.ready(kContext)) return nullptr;
    auto encoder = std::make_unique<Mp2Encoder>(out, settings.channels);
    if (!encoder->open(settings)) return nullptr;
    return encoder;
}

} // namespace kv
