#include "formats/codecs/amr_encoder.h"

#include <array>
#include <cmath>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/amr_frames.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "AMR";
constexpr std::size_t kFrameSamples = 160, kMostFrameBytes = 64;
constexpr std::size_t kLookAhead = 40; ///< samples that the encoder hears before it packs (3GPP TS 26.090)

constexpr f32 kRates[] = {4.75F, 5.15F, 5.9F, 6.7F, 7.4F, 7.95F, 10.2F, 12.2F}; // the modes, in their order

struct AmrLibrary {
    SharedLibrary library{"libopencore-amrnb0", {"libopencore-amrnb.so.0"}};
    // Three functions, whose interface is that of 3GPP TS 26.104: not worth a package of headers.
    void* (*create)(int discontinuous) = nullptr;
    void (*destroy)(void* encoder) = nullptr;
    int (*pack)(void* encoder, int mode, const i16* samples, u8* packed, int forceSpeech) = nullptr;

    AmrLibrary() {
        library.bind(create, "Encoder_Interface_init")
            .bind(destroy, "Encoder_Interface_exit")
            .bind(pack, "Encoder_Interface_Encode");
    }
};

const AmrLibrary& amr() {
    static const AmrLibrary& library = *new AmrLibrary;
    return library;
}

int modeFor(f32 kbps) {
    const auto* const nearest =
        std::ranges::min_element(kRates, {}, [&](f32 rate) { return std::abs(rate - kbps); });
    return static_cast<int>(nearest - std::begin(kRates));
}

class AmrEncoder final : public PackingSink {
public:
    AmrEncoder(ByteSink& out, int mode, AmrForm form)
        : PackingSink(kPcm16, 1), output_(out), mode_(mode), form_(form), encoder_(amr().create(0)) {}
    ~AmrEncoder() override {
        if (encoder_) amr().destroy(encoder_);
    }
    AmrEncoder(const AmrEncoder&) = delete;
    AmrEncoder& operator=(const AmrEncoder&) = delete;

    bool isOpen() const { return encoder_ != nullptr; }

    bool finish() override {
        // Whole frames are what speech has that was decoded before: it would grow with every saving.
        if (filled_ == 0) return true;
        constexpr std::array<i16, kLookAhead> kSilence{};
        if (!take(kSilence)) return false;
        std::fill(frame_.begin() + static_cast<std::ptrdiff_t>(filled_), frame_.end(), i16{0});
        return filled_ == 0 || putFrame();
    }

protected:
    bool pack(ByteSpan frames) override {
        samples_.resize(frames.size() / sizeof(i16));
        std::memcpy(samples_.data(), frames.data(), samples_.size() * sizeof(i16));
        return take(samples_);
    }

private:
    bool take(std::span<const i16> samples) {
        while (!samples.empty()) {
            const std::size_t count = std::min(samples.size(), kFrameSamples - filled_);
            std::copy_n(samples.begin(), count, frame_.begin() + static_cast<std::ptrdiff_t>(filled_));
            filled_ += count;
            samples = samples.subspan(count);
            if (filled_ == kFrameSamples && !putFrame()) return false;
        }
        return true;
    }
    bool putFrame() {
        filled_ = 0;
        std::array<u8, kMostFrameBytes> packed{};
        const int size = amr().pack(encoder_, mode_, frame_.data(), packed.data(), 0);
        if (size <= 0) return Fail(kContext, "libopencore-amrnb can't pack the sound");
        const ByteSpan frame = std::as_bytes(std::span(packed)).first(static_cast<std::size_t>(size));
        return output_.write(form_ == AmrForm::Storage ? frame : ByteSpan(if2OfAmrFrame(frame))) ||
               Fail(kContext, "Writing to file failed");
    }

    ByteSink& output_;
    int mode_;
    AmrForm form_;
    void* encoder_;
    std::vector<i16> samples_;
    std::array<i16, kFrameSamples> frame_{};
    std::size_t filled_ = 0; ///< of the frame
};

} // namespace

std::span<const f32> amrRates() {
    return kRates;
}

std::unique_ptr<PackingSink> makeAmrEncoder(ByteSink& out, f32 kbps, AmrForm form) {
    if (!amr().library.ready(kContext)) return nullptr;
    auto encoder = std::make_unique<AmrEncoder>(out, modeFor(kbps), form);
    if (encoder->isOpen()) return encoder;
    Fail(kContext, "Out of memory");
    return nullptr;
}

} // namespace kv
