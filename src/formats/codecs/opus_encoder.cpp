#include "formats/codecs/opus_encoder.h"

#include <opusenc.h>

#include <algorithm>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Ogg Opus";
constexpr std::size_t kStepFrames = 8192;

struct OpusEncoderLibrary {
    SharedLibrary library{"libopusenc0", {"libopusenc.so.0"}};
    decltype(ope_comments_create)* createComments = nullptr;
    decltype(ope_comments_add_string)* addComment = nullptr;
    decltype(ope_comments_destroy)* destroyComments = nullptr;
    decltype(ope_encoder_create_callbacks)* create = nullptr;
    decltype(ope_encoder_destroy)* destroy = nullptr;
    decltype(ope_encoder_ctl)* control = nullptr;
    decltype(ope_encoder_write_float)* pack = nullptr;
    decltype(ope_encoder_drain)* drain = nullptr;

    OpusEncoderLibrary() {
        library.bind(createComments, "ope_comments_create")
            .bind(addComment, "ope_comments_add_string")
            .bind(destroyComments, "ope_comments_destroy")
            .bind(create, "ope_encoder_create_callbacks")
            .bind(destroy, "ope_encoder_destroy")
            .bind(control, "ope_encoder_ctl")
            .bind(pack, "ope_encoder_write_float")
            .bind(drain, "ope_encoder_drain");
    }
};

const OpusEncoderLibrary& opus() {
    static const OpusEncoderLibrary& library = *new OpusEncoderLibrary;
    return library;
}

int writeBytes(void* output, const unsigned char* bytes, opus_int32 count) noexcept {
    return static_cast<PackedOutput*>(output)->write(bytes, static_cast<std::size_t>(count)) ? 0 : 1;
}
int closeOutput(void*) noexcept {
    return 0;
}

class OpusEncoder final : public PackingSink {
public:
    OpusEncoder(ByteSink& out, u32 channelCount)
        : PackingSink(kFloat32, channelCount), output_(out), comments_(opus().createComments()) {}
    ~OpusEncoder() override {
        if (encoder_) opus().destroy(encoder_);
        if (comments_) opus().destroyComments(comments_);
    }
    OpusEncoder(const OpusEncoder&) = delete;
    OpusEncoder& operator=(const OpusEncoder&) = delete;

    bool open(const OpusSettings& settings) {
        if (!comments_) return Fail(kContext, "Out of memory");
        for (const std::string& comment : settings.comments) opus().addComment(comments_, comment.c_str());
        const OpusEncCallbacks callbacks{writeBytes, closeOutput};
        int error = 0;
        encoder_ =
            opus().create(&callbacks, &output_, comments_, static_cast<opus_int32>(settings.sampleRate),
                          static_cast<int>(settings.channels), 0, &error);
        if (!encoder_)
            return Fail(kContext, "libopusenc can't pack {} channels of {} Hz", settings.channels,
                        settings.sampleRate);
        const auto bits = static_cast<opus_int32>(std::clamp(settings.kbps, 6.0F, 510.0F) * 1000);
        const bool voice = settings.sound == OpusSound::Voice;
        opus().control(encoder_, OPUS_SET_BITRATE(bits));
        opus().control(encoder_, OPUS_SET_SIGNAL(voice ? OPUS_SIGNAL_VOICE : OPUS_SIGNAL_MUSIC));
        opus().control(encoder_, OPE_SET_SERIALNO(static_cast<opus_int32>(settings.serial)));
        return true;
    }

    bool finish() override {
        const bool done = opus().drain(encoder_) == OPE_OK && !output_.failed();
        return done || Fail(kContext, "Writing to file failed");
    }

protected:
    bool pack(ByteSpan frames) override {
        std::span<const f32> samples = floatsOf(frames, floats_);
        while (!samples.empty()) {
            const std::span<const f32> part =
                samples.first(std::min(samples.size(), kStepFrames * channels()));
            if (opus().pack(encoder_, part.data(), static_cast<int>(part.size() / channels())) != OPE_OK)
                return false;
            samples = samples.subspan(part.size());
        }
        return true;
    }

private:
    PackedOutput output_;
    OggOpusComments* comments_;
    OggOpusEnc* encoder_ = nullptr;
    std::vector<f32> floats_;
};

} // namespace

std::unique_ptr<PackingSink> makeOpusEncoder(ByteSink& out, const OpusSettings& settings) {
    if (!opus().library.ready(kContext)) return nullptr;
    auto encoder = std::make_unique<OpusEncoder>(out, settings.channels);
    if (!encoder->open(settings)) return nullptr;
    return encoder;
}

} // namespace kv
