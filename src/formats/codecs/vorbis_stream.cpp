#include "formats/codecs/vorbis_stream.h"

#define OV_EXCLUDE_STATIC_CALLBACKS
#include <vorbis/vorbisfile.h>

#include <algorithm>
#include <cstdio>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/first_channels.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Ogg Vorbis";

// A packet takes a byte at least and gives half of the longest block, which is 8192 frames (Vorbis I
// specification, 4.2.2).
constexpr u64 kMaxFramesPerByte = 4096;

struct VorbisLibrary {
    SharedLibrary library{"libvorbisfile3", {"libvorbisfile.so.3"}};
    decltype(ov_open_callbacks)* open = nullptr;
    decltype(ov_clear)* close = nullptr;
    decltype(ov_info)* info = nullptr;
    decltype(ov_comment)* comments = nullptr;
    decltype(ov_streams)* links = nullptr;
    decltype(ov_pcm_total)* frames = nullptr;
    decltype(ov_pcm_seek)* seek = nullptr;
    decltype(ov_read_float)* read = nullptr;

    VorbisLibrary() {
        library.bind(open, "ov_open_callbacks")
            .bind(close, "ov_clear")
            .bind(info, "ov_info")
            .bind(comments, "ov_comment")
            .bind(links, "ov_streams")
            .bind(frames, "ov_pcm_total")
            .bind(seek, "ov_pcm_seek")
            .bind(read, "ov_read_float");
    }
};

/// Stays open to the end: a stream may live as long.
const VorbisLibrary& vorbis() {
    static const VorbisLibrary& library = *new VorbisLibrary;
    return library;
}

// ---- What the library reads through

PackedInput& input(void* id) noexcept {
    return *static_cast<PackedInput*>(id);
}
std::size_t readItems(void* to, std::size_t size, std::size_t count, void* id) noexcept {
    return size == 0 ? 0 : input(id).read(to, size * count) / size;
}
int seekFrom(void* id, ogg_int64_t distance, int whence) noexcept {
    return input(id).seek(distance, whence) ? 0 : -1;
}
long tell(void* id) noexcept {
    return static_cast<long>(input(id).position());
}

/// An open stream. The library keeps a pointer to the input, so it stays where it is.
class VorbisStream {
public:
    static std::unique_ptr<VorbisStream> open(const std::shared_ptr<ByteSource>& source) {
        if (!vorbis().library.ready(kContext)) return nullptr;
        auto stream = std::make_unique<VorbisStream>(source);
        return stream->opened() ? std::move(stream) : nullptr;
    }

    explicit VorbisStream(const std::shared_ptr<ByteSource>& source) : input_(source) {}
    ~VorbisStream() {
        if (isOpen_) vorbis().close(&file_);
    }
    VorbisStream(const VorbisStream&) = delete;
    VorbisStream& operator=(const VorbisStream&) = delete;

    const PackedStreamInfo& info() const { return info_; }
    bool seek(u64 frame) { return vorbis().seek(&file_, static_cast<ogg_int64_t>(frame)) == 0; }

    /// Decodes up to `most` frames into planes of the library's; 0 at the end and on an error.
    std::size_t decode(std::size_t most, f32**& planes) {
        int link = 0; // of a chain of streams, each of which has channels of its own
        long got = 0;
        do got = vorbis().read(&file_, &planes, static_cast<int>(std::min<std::size_t>(most, 4096)), &link);
        while (got == OV_HOLE); // says that a page was left out, and goes on behind it
        const vorbis_info* const info = got > 0 ? vorbis().info(&file_, link) : nullptr;
        const bool usable = info && static_cast<u32>(info->channels) == info_.channels;
        return usable ? static_cast<std::size_t>(got) : 0;
    }

private:
    bool opened() {
        const ov_callbacks callbacks{readItems, seekFrom, nullptr, tell};
        isOpen_ = vorbis().open(&input_, &file_, nullptr, 0, callbacks) == 0;
        const vorbis_info* const first = isOpen_ ? vorbis().info(&file_, 0) : nullptr;
        if (!first || first->channels < 1) return Fail(kContext, "Not an Ogg Vorbis stream");
        // Of a chain all links count when they can be played on end, else the first.
        const ogg_int64_t frames = vorbis().frames(&file_, allLinksLike(*first) ? -1 : 0);
        if (frames < 0 ||
            ceilDiv(static_cast<u64>(frames), kMaxFramesPerByte) > static_cast<u64>(input_.size()))
            return Fail(kContext, "Reading from file failed");
        info_.channels = static_cast<u32>(first->channels);
        info_.sampleRate = saturate<u32>(static_cast<f64>(first->rate));
        info_.frames = static_cast<u64>(frames);
        info_.isFloat = true;
        if (const vorbis_comment* const comments = vorbis().comments(&file_, 0)) {
            for (int i = 0; i < comments->comments; ++i)
                info_.comments.emplace_back(comments->user_comments[i],
                                            static_cast<std::size_t>(comments->comment_lengths[i]));
        }
        return true;
    }

    bool allLinksLike(const vorbis_info& first) {
        for (long link = vorbis().links(&file_) - 1; link > 0; --link) {
            const vorbis_info* const info = vorbis().info(&file_, static_cast<int>(link));
            if (!info || info->channels != first.channels || info->rate != first.rate) return false;
        }
        return true;
    }

    PackedInput input_;
    OggVorbis_File file_{};
    bool isOpen_ = false;
    PackedStreamInfo info_;
};

class VorbisBlocks final : public SampleBlocks {
public:
    VorbisBlocks(std::unique_ptr<VorbisStream> stream, u32 frames)
        : SampleBlocks(stream->info().channels, frames, true), stream_(std::move(stream)), left_(frames) {}

protected:
    bool readNative(std::span<f32> to) override {
        const std::size_t frames = to.size() / channels();
        if (frames > left_) return Fail(kContext, "Reading from file failed");
        for (std::size_t done = 0; done < frames;) {
            f32** planes = nullptr;
            const std::size_t got = stream_->decode(frames - done, planes);
            if (got == 0) return Fail(kContext, "Reading from file failed");
            if (hasCentreSecond(channels())) std::swap(planes[1], planes[2]);
            for (u32 channel = 0; channel < channels(); ++channel) {
                f32* at = to.data() + done * channels() + channel;
                for (const f32 v : std::span(planes[channel], got)) {
                    *at = v;
                    at += channels();
                }
            }
            done += got;
        }
        left_ -= frames;
        return true;
    }

private:
    std::unique_ptr<VorbisStream> stream_;
    std::size_t left_; ///< frames
};

} // namespace

std::optional<PackedStreamInfo> probeVorbis(const std::shared_ptr<ByteSource>& stream) {
    const std::unique_ptr<VorbisStream> opened = VorbisStream::open(stream);
    if (!opened) return {};
    return opened->info();
}

std::unique_ptr<SampleBlocks> openVorbis(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                         u32 channels) {
    std::unique_ptr<VorbisStream> opened = VorbisStream::open(stream);
    if (!opened || !holdsRange(kContext, opened->info(), start, frames, channels)) return nullptr;
    // To the first frame, too: after opening, a chain of streams may stand at its second one.
    if (!opened->seek(start)) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<VorbisBlocks>(std::move(opened), frames);
}

} // namespace kv
