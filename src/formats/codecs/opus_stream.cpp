#include "formats/codecs/opus_stream.h"

#include <opusfile.h>

#include <algorithm>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/first_channels.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Ogg Opus";
constexpr u32 kRate = 48000;
// A packet takes a byte at least and gives up to 120 ms (RFC 6716, 3.2).
constexpr u64 kMaxFramesPerByte = kRate * 120 / 1000;

struct OpusLibrary {
    SharedLibrary library{"libopusfile0", {"libopusfile.so.0"}};
    decltype(op_open_callbacks)* open = nullptr;
    decltype(op_free)* close = nullptr;
    decltype(op_link_count)* links = nullptr;
    decltype(op_channel_count)* channels = nullptr;
    decltype(op_pcm_total)* frames = nullptr;
    decltype(op_pcm_seek)* seek = nullptr;
    decltype(op_read_float)* read = nullptr;
    decltype(op_tags)* tags = nullptr;

    OpusLibrary() {
        library.bind(open, "op_open_callbacks")
            .bind(close, "op_free")
            .bind(links, "op_link_count")
            .bind(channels, "op_channel_count")
            .bind(frames, "op_pcm_total")
            .bind(seek, "op_pcm_seek")
            .bind(read, "op_read_float")
            .bind(tags, "op_tags");
    }
};

/// Stays open to the end: a stream may live as long.
const OpusLibrary& opus() {
    static const OpusLibrary& library = *new OpusLibrary;
    return library;
}

PackedInput& input(void* id) noexcept {
    return *static_cast<PackedInput*>(id);
}
int readBytes(void* id, unsigned char* to, int count) noexcept {
    return count <= 0 ? 0 : static_cast<int>(input(id).read(to, static_cast<std::size_t>(count)));
}
int seekFrom(void* id, opus_int64 distance, int whence) noexcept {
    return input(id).seek(distance, whence) ? 0 : -1;
}
opus_int64 tell(void* id) noexcept {
    return input(id).position();
}

/// An open stream. The library keeps a pointer to the input, so it stays where it is.
class OpusStream {
public:
    static std::unique_ptr<OpusStream> open(const std::shared_ptr<ByteSource>& source) {
        if (!opus().library.ready(kContext)) return nullptr;
        auto stream = std::make_unique<OpusStream>(source);
        return stream->opened() ? std::move(stream) : nullptr;
    }

    explicit OpusStream(const std::shared_ptr<ByteSource>& source) : input_(source) {}
    ~OpusStream() {
        if (file_) opus().close(file_);
    }
    OpusStream(const OpusStream&) = delete;
    OpusStream& operator=(const OpusStream&) = delete;

    const PackedStreamInfo& info() const { return info_; }
    bool seek(u64 frame) { return opus().seek(file_, static_cast<opus_int64>(frame)) == 0; }

    /// Decodes up to to.size() samples; 0 at the end and on an error.
    std::size_t decode(std::span<f32> to) {
        constexpr std::size_t kMostSamples = 1 << 20;
        int link = 0, got = 0;
        const auto room = static_cast<int>(std::min(to.size(), kMostSamples));
        do got = opus().read(file_, to.data(), room, &link);
        while (got == OP_HOLE); // says that a page was left out, and goes on behind it
        const bool usable = got > 0 && static_cast<u32>(opus().channels(file_, link)) == info_.channels;
        return usable ? static_cast<std::size_t>(got) * info_.channels : 0;
    }

private:
    bool opened() {
        const OpusFileCallbacks callbacks{readBytes, seekFrom, tell, nullptr};
        int error = 0;
        file_ = opus().open(&input_, &callbacks, nullptr, 0, &error);
        if (!file_) return Fail(kContext, "Not an Ogg Opus stream");
        const int channels = opus().channels(file_, 0);
        const opus_int64 frames = opus().frames(file_, allLinksHave(channels) ? -1 : 0);
        if (channels < 1 || frames < 0 ||
            ceilDiv(static_cast<u64>(frames), kMaxFramesPerByte) > static_cast<u64>(input_.size()))
            return Fail(kContext, "Reading from file failed");
        info_.channels = static_cast<u32>(channels);
        info_.sampleRate = kRate;
        info_.frames = static_cast<u64>(frames);
        info_.isFloat = true;
        if (const OpusTags* const tags = opus().tags(file_, 0)) {
            for (int i = 0; i < tags->comments; ++i)
                info_.comments.emplace_back(tags->user_comments[i],
                                            static_cast<std::size_t>(tags->comment_lengths[i]));
        }
        return true;
    }

    bool allLinksHave(int channels) {
        for (int link = opus().links(file_) - 1; link > 0; --link) {
            if (opus().channels(file_, link) != channels) return false;
        }
        return true;
    }

    PackedInput input_;
    OggOpusFile* file_ = nullptr;
    PackedStreamInfo info_;
};

class OpusBlocks final : public SampleBlocks {
public:
    OpusBlocks(std::unique_ptr<OpusStream> stream, u32 frames)
        : SampleBlocks(stream->info().channels, frames, true), stream_(std::move(stream)) {}

protected:
    bool readNative(std::span<f32> to) override {
        while (!to.empty()) {
            const std::size_t got = stream_->decode(to);
            if (got == 0) return Fail(kContext, "Reading from file failed");
            for (std::size_t i = 0; hasCentreSecond(channels()) && i < got; i += channels())
                std::swap(to[i + 1], to[i + 2]);
            to = to.subspan(got);
        }
        return true;
    }

private:
    std::unique_ptr<OpusStream> stream_;
};

} // namespace

std::optional<PackedStreamInfo> probeOpus(const std::shared_ptr<ByteSource>& stream) {
    const std::unique_ptr<OpusStream> opened = OpusStream::open(stream);
    if (!opened) return {};
    return opened->info();
}

std::unique_ptr<SampleBlocks> openOpus(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                       u32 channels) {
    std::unique_ptr<OpusStream> opened = OpusStream::open(stream);
    if (!opened || !holdsRange(kContext, opened->info(), start, frames, channels)) return nullptr;
    if (!opened->seek(start)) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<OpusBlocks>(std::move(opened), frames);
}

} // namespace kv
