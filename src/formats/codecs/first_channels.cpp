#include "formats/codecs/first_channels.h"

#include <algorithm>
#include <vector>

namespace kv {
namespace {

constexpr std::size_t kStepFrames = 4096;

class FirstChannels final : public SampleBlocks {
public:
    FirstChannels(std::unique_ptr<SampleBlocks> all, u32 channels)
        : SampleBlocks(channels, all->frames(), all->isFloat()), all_(std::move(all)) {}

protected:
    bool readNative(std::span<i16> to) override { return readInto(to, integers_); }
    bool readNative(std::span<f32> to) override { return readInto(to, floats_); }

private:
    template <class T>
    bool readInto(std::span<T> to, std::vector<T>& from) {
        while (!to.empty()) {
            const std::span<T> part = to.first(std::min(to.size(), kStepFrames * channels()));
            const std::size_t frames = part.size() / channels();
            from.resize(frames * all_->channels());
            if (!all_->read(std::span<T>(from))) return false;
            for (std::size_t i = 0; i < frames; ++i)
                std::copy_n(from.data() + i * all_->channels(), channels(), part.data() + i * channels());
            to = to.subspan(part.size());
        }
        return true;
    }

    std::unique_ptr<SampleBlocks> all_;
    std::vector<i16> integers_;
    std::vector<f32> floats_;
};

} // namespace

std::unique_ptr<SampleBlocks> firstChannels(std::unique_ptr<SampleBlocks> blocks, u32 channels) {
    if (!blocks || blocks->channels() <= channels) return blocks;
    return std::make_unique<FirstChannels>(std::move(blocks), channels);
}

} // namespace kv
