#include "formats/audio/classic/classic_kit.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/wave.h"
#include "samples/stored_form.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

class NextFrames final : public SampleBlocks {
public:
    NextFrames(SampleBlocks& whole, u32 frames)
        : SampleBlocks(whole.channels(), frames, whole.isFloat()), whole_(whole) {}

protected:
    bool readNative(std::span<i16> to) override { return whole_.read(to); }
    bool readNative(std::span<f32> to) override { return whole_.read(to); }

private:
    SampleBlocks& whole_;
};

class OneChannel final : public SampleBlocks {
public:
    OneChannel(std::unique_ptr<SampleBlocks> both, u32 channel)
        : SampleBlocks(1, both->frames(), both->isFloat()), both_(std::move(both)), channel_(channel) {}

protected:
    bool readNative(std::span<i16> to) override { return pick(to, integers_); }
    bool readNative(std::span<f32> to) override { return pick(to, floats_); }

private:
    template <class T>
    bool pick(std::span<T> to, std::vector<T>& pairs) {
        pairs.resize(2 * to.size());
        if (!both_->read(std::span<T>(pairs))) return false;
        for (std::size_t i = 0; i < to.size(); ++i) to[i] = pairs[2 * i + channel_];
        return true;
    }

    std::unique_ptr<SampleBlocks> both_;
    u32 channel_;
    std::vector<i16> integers_;
    std::vector<f32> floats_;
};

class TwoChannels final : public SampleBlocks {
public:
    TwoChannels(std::unique_ptr<SampleBlocks> left, std::unique_ptr<SampleBlocks> right)
        : SampleBlocks(2, left->frames(), false), left_(std::move(left)), right_(std::move(right)) {}

protected:
    bool readNative(std::span<i16> to) override {
        plane_.resize(to.size() / 2);
        for (std::size_t channel = 0; channel < 2; ++channel) {
            if (!(channel == 0 ? left_ : right_)->read(std::span(plane_))) return false;
            for (std::size_t i = 0; i < plane_.size(); ++i) to[2 * i + channel] = plane_[i];
        }
        return true;
    }

private:
    std::unique_ptr<SampleBlocks> left_, right_;
    std::vector<i16> plane_;
};

class JoinedParts final : public SampleBlocks {
public:
    JoinedParts(std::vector<SamplePart> parts, u32 channels, u32 frames)
        : SampleBlocks(channels, frames, false), parts_(std::move(parts)) {}

protected:
    bool readNative(std::span<i16> to) override {
        while (!to.empty() && at_ < parts_.size()) {
            SamplePart& part = parts_[at_];
            const std::size_t frames = std::min<std::size_t>(part.frames, to.size() / channels());
            const std::span<i16> run = to.first(frames * channels());
            if (!part.blocks)
                std::fill(run.begin(), run.end(), i16{0});
            else if (!part.blocks->read(run))
                return false;
            part.frames -= static_cast<u32>(frames);
            if (part.frames == 0) ++at_;
            to = to.subspan(run.size());
        }
        std::fill(to.begin(), to.end(), i16{0});
        return true;
    }

private:
    std::vector<SamplePart> parts_;
    std::size_t at_ = 0;
};

} // namespace

Bytes headOf(FileContext& file, std::size_t count) {
    Bytes head(count);
    head.resize(file.source->readAt(0, head));
    return head;
}

void setLoop(Wave& wave, u64 start, u64 end, u16 flags) {
    if (start >= end || end > wave.frames) return;
    wave.params.override = true;
    wave.params.loopFlags = flags;
    wave.params.loopStart = static_cast<f64>(start);
    wave.params.loopEnd = static_cast<f64>(end);
}

void setRootKey(Wave& wave, u32 key) {
    if (key > 127) return;
    wave.params.override = true;
    wave.params.rootKey = static_cast<u8>(key);
}

void addComment(Wave& wave, std::string_view text) {
    if (text.empty() || wave.comments.size() >= wave.comments.kLimit) return;
    wave.comments =
        wave.comments.empty() ? std::string(text) : wave.comments.str() + "\n" + std::string(text);
}

std::string fieldText(ByteSpan field) {
    std::string_view text = textOf(field);
    text = text.substr(0, text.find('\0'));
    text = text.substr(0, text.find_last_not_of(" \r\n\t") + 1);
    return AnsiToUtf8(text);
}

void putField(ByteWriter& out, std::string_view text, std::size_t size, u8 fill) {
    const std::string stored = Utf8ToAnsi(text).substr(0, size);
    out.text(stored).fill(size - stored.size(), fill);
}

std::optional<FrameLoop> frameLoop(const Wave& wave, bool alternating) {
    const SampleParams& params = wave.params;
    const bool alternates = (params.loopFlags & kLoopBidirectional) != 0;
    if (!params.looped() || (params.loopFlags & kLoopReverse) != 0 || (alternates && !alternating)) return {};
    const u32 start = saturate<u32>(params.loopStart + 0.5);
    const u32 end = std::min(saturate<u32>(params.loopEnd + 0.5), wave.frames);
    if (start >= end) return {};
    return FrameLoop{start, end, alternates};
}

bool rateFits(std::string_view context, const Wave& wave, u32 mostHz) {
    return wave.sampleRate <= mostHz ||
           Fail(context, "The file format can't hold sample rates above {} Hz", mostHz);
}

bool sizeFits(std::string_view context, u64 bytes) {
    return bytes <= 0xFFFFFFFF || Fail(context, "Too long for the file format");
}

std::unique_ptr<SampleBlocks> nextFrames(SampleBlocks& whole, u32 frames) {
    return std::make_unique<NextFrames>(whole, frames);
}

std::unique_ptr<SampleBlocks> oneChannel(std::unique_ptr<SampleBlocks> both, u32 channel) {
    if (!both) return nullptr;
    return std::make_unique<OneChannel>(std::move(both), channel);
}

std::unique_ptr<SampleBlocks> twoChannels(std::unique_ptr<SampleBlocks> left,
                                          std::unique_ptr<SampleBlocks> right) {
    if (!left || !right) return nullptr;
    return std::make_unique<TwoChannels>(std::move(left), std::move(right));
}

std::unique_ptr<SampleBlocks> joinedParts(std::vector<SamplePart> parts, u32 channels, u32 frames) {
    return std::make_unique<JoinedParts>(std::move(parts), channels, frames);
}

CodedForm plainForm(u32 word, u32 channels) {
    const std::size_t sampleBytes = StoredForm(word).storedBits() / 8;
    return {channels,
            sampleBytes * channels,
            1,
            [=, decoder = SampleDecoder(word)](ByteSpan from, std::span<i16> to) mutable {
                const std::size_t samples = std::min(from.size() / sampleBytes, to.size());
                decoder.decode(from.first(samples * sampleBytes), to.first(samples));
                return samples / channels;
            },
            {}};
}

} // namespace kv
