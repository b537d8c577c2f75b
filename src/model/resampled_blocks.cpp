#include "model/resampled_blocks.h"

#include <algorithm>

#include "base/run_context.h"
#include "dsp/resampler.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Resample";
constexpr std::size_t kBlockFrames = 4096;
constexpr u64 kMaxSamples = u64{1} << 31;

class ResampledBlocks final : public SampleBlocks {
public:
    ResampledBlocks(std::unique_ptr<SampleBlocks> source, Resampler resampler, u32 length)
        : SampleBlocks(source->channels(), length, true),
          source_(std::move(source)),
          resampler_(std::move(resampler)),
          left_(source_->frames()) {}

protected:
    bool readNative(std::span<f32> to) override {
        while (!to.empty()) {
            const std::size_t samples = resampler_.pullInterleaved(to) * channels();
            to = to.subspan(samples);
            if (samples == 0 && !pushNext()) return false;
        }
        return true;
    }

private:
    bool pushNext() {
        if (finished_) return Fail(kContext, "There are no more samples");
        if (left_ == 0) {
            finished_ = true;
            resampler_.finish();
            return true;
        }
        const std::size_t frames = std::min<std::size_t>(left_, kBlockFrames);
        block_.resize(frames * channels());
        if (!source_->read(std::span<f32>(block_))) return false;
        resampler_.pushInterleaved(block_);
        left_ -= static_cast<u32>(frames);
        return true;
    }

    std::unique_ptr<SampleBlocks> source_;
    Resampler resampler_;
    u32 left_; ///< frames of the source that are still to be pushed
    bool finished_ = false;
    std::vector<f32> block_;
};

} // namespace

std::unique_ptr<SampleBlocks> resampled(std::unique_ptr<SampleBlocks> blocks, u32 fromHz, u32 toHz,
                                        int quality, int sourceBits) {
    if (!blocks || fromHz == toHz) return blocks;
    const u64 length = resampledLength(blocks->frames(), fromHz, toHz);
    if (length > UINT32_MAX || length * blocks->channels() > kMaxSamples) {
        Fail(kContext, "The result would be too long.");
        return nullptr;
    }
    Resampler resampler;
    if (!resampler.open(
            {fromHz, toHz, quality, blocks->channels(), sourceBits, FilterSet::Clean, blocks->frames()}))
        return nullptr;
    return std::make_unique<ResampledBlocks>(std::move(blocks), std::move(resampler),
                                             static_cast<u32>(length));
}

int sourceBitsOf(const Wave& wave) {
    if (wave.bits != 0) return static_cast<int>(std::min(wave.bits, 64U));
    return wave.samplesFloat ? 32 : 16;
}

} // namespace kv
