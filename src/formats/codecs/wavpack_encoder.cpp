#include "formats/codecs/wavpack_encoder.h"

#include <wavpack/wavpack.h>

#include <algorithm>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "WavPack";

struct WavPackEncoderLibrary {
    SharedLibrary library{"libwavpack1", {"libwavpack.so.1"}};
    decltype(WavpackOpenFileOutput)* create = nullptr;
    decltype(WavpackCloseFile)* destroy = nullptr;
    decltype(WavpackSetConfiguration64)* configure = nullptr;
    decltype(WavpackAddWrapper)* addWrapper = nullptr;
    decltype(WavpackPackInit)* open = nullptr;
    decltype(WavpackPackSamples)* pack = nullptr;
    decltype(WavpackFlushSamples)* flush = nullptr;

    WavPackEncoderLibrary() {
        library.bind(create, "WavpackOpenFileOutput")
            .bind(destroy, "WavpackCloseFile")
            .bind(configure, "WavpackSetConfiguration64")
            .bind(addWrapper, "WavpackAddWrapper")
            .bind(open, "WavpackPackInit")
            .bind(pack, "WavpackPackSamples")
            .bind(flush, "WavpackFlushSamples");
    }
};

const WavPackEncoderLibrary& wavPack() {
    static const WavPackEncoderLibrary& library = *new WavPackEncoderLibrary;
    return library;
}

int writeBlock(void* output, void* bytes, i32 count) noexcept {
    return static_cast<PackedOutput*>(output)->write(bytes, static_cast<std::size_t>(count)) ? 1 : 0;
}

class WavPackEncoder final : public PackingSink {
public:
    WavPackEncoder(ByteSink& out, const WavPackSettings& settings, u32 bits)
        : PackingSink(settings.code, settings.channels),
          output_(out),
          tail_(settings.tail),
          sampleBytes_(bits / 8) {}
    ~WavPackEncoder() override {
        if (context_) wavPack().destroy(context_);
    }
    WavPackEncoder(const WavPackEncoder&) = delete;
    WavPackEncoder& operator=(const WavPackEncoder&) = delete;

    bool open(const WavPackSettings& settings) {
        context_ = wavPack().create(writeBlock, &output_, nullptr);
        if (!context_) return Fail(kContext, "Out of memory");
        WavpackConfig config{};
        config.bytes_per_sample = static_cast<int>(sampleBytes_);
        config.bits_per_sample = config.bytes_per_sample * 8;
        config.float_norm_exp = settings.code == kFloat32 ? 127 : 0;
        config.num_channels = static_cast<int>(settings.channels);
        config.channel_mask = settings.channels == 1 ? 4 : 3;
        config.sample_rate = static_cast<i32>(std::min<u32>(settings.sampleRate, INT32_MAX));
        const bool opened =
            wavPack().configure(context_, &config, static_cast<i64>(settings.frames), nullptr) != 0 &&
            wavPack().open(context_) != 0 && addWrapper(settings.head);
        return opened || Fail(kContext, "libwavpack can't pack {} Hz", settings.sampleRate);
    }

    bool finish() override {
        const bool done = wavPack().flush(context_) != 0 &&
                          (tail_.empty() || (addWrapper(tail_) && wavPack().flush(context_) != 0));
        return (done && !output_.failed()) || Fail(kContext, "Writing to file failed");
    }

protected:
    bool pack(ByteSpan frames) override {
        return packWidened(frames, sampleBytes_, channels(), wide_, [this](std::span<i32> samples) {
            const auto count = static_cast<u32>(samples.size() / channels());
            return wavPack().pack(context_, samples.data(), count) != 0;
        });
    }

private:
    /// What comes ahead of the samples is written with the first block, else it needs a flush.
    bool addWrapper(Bytes bytes) {
        return bytes.empty() ||
               wavPack().addWrapper(context_, bytes.data(), static_cast<u32>(bytes.size())) != 0;
    }

    PackedOutput output_;
    Bytes tail_;
    u32 sampleBytes_;
    WavpackContext* context_ = nullptr;
    std::vector<i32> wide_;
};

} // namespace

std::unique_ptr<PackingSink> makeWavPackEncoder(ByteSink& out, const WavPackSettings& settings) {
    if (!wavPack().library.ready(kContext)) return nullptr;
    u32 bits = 0;
    FormatCodeInfo(settings.code, nullptr, &bits);
    if ((settings.code & (kPcm8 | kPcm16 | kPcm24 | kPcm32 | kFloat32)) == 0) {
        Fail(kContext, "Unsupported subformat");
        return nullptr;
    }
    auto encoder = std::make_unique<WavPackEncoder>(out, settings, bits);
    if (!encoder->open(settings)) return nullptr;
    return encoder;
}

} // namespace kv
