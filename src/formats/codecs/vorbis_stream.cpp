#define OV_EXCLUDE_STATIC_CALLBACKS
#include <vorbis/vorbisfile.h>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/packed_stream.h"
#include "formats/codecs/stream_cursor.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Ogg Vorbis";

struct Library {
    std::unique_ptr<SharedLibrary> library = SharedLibrary::open({"libvorbisfile.so.3", "libvorbisfile.so"});
    decltype(ov_open_callbacks)* open = nullptr;
    decltype(ov_clear)* clear = nullptr;
    decltype(ov_info)* info = nullptr;
    decltype(ov_pcm_total)* total = nullptr;
    decltype(ov_pcm_seek)* seek = nullptr;
    decltype(ov_read_float)* read = nullptr;
    bool complete = library && library->bind(open, "ov_open_callbacks") && library->bind(clear, "ov_clear") &&
                    library->bind(info, "ov_info") && library->bind(total, "ov_pcm_total") &&
                    library->bind(seek, "ov_pcm_seek") && library->bind(read, "ov_read_float");
};

const Library* vorbis() {
    static const Library library;
    if (library.complete) return &library;
    Fail(kContext, "The Ogg Vorbis library is missing; please install the package libvorbisfile3");
    return nullptr;
}

StreamCursor& cursor(void* id) {
    return *static_cast<StreamCursor*>(id);
}

ov_callbacks callbacks() {
    ov_callbacks calls{};
    calls.read_func = [](void* to, std::size_t size, std::size_t count, void* id) {
        return size == 0 ? 0 : cursor(id).read(to, size * count) / size;
    };
    calls.seek_func = [](void* id, ogg_int64_t offset, int origin) {
        return cursor(id).seek(offset, origin) ? 0 : -1;
    };
    calls.tell_func = [](void* id) { return static_cast<long>(cursor(id).position); };
    return calls;
}

/// An open stream.
class Decoder {
public:
    static std::unique_ptr<Decoder> open(const std::shared_ptr<ByteSource>& source) {
        const Library* library = vorbis();
        if (!library) return nullptr;
        std::unique_ptr<Decoder> decoder(new Decoder(*library, source));
        decoder->opened_ = library->open(&decoder->cursor_, &decoder->file_, nullptr, 0, callbacks()) == 0;
        if (decoder->opened_) return decoder;
        Fail(kContext, "Not an Ogg Vorbis stream");
        return nullptr;
    }
    ~Decoder() {
        if (opened_) library_.clear(&file_);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    PackedStreamInfo info() {
        const vorbis_info* now = library_.info(&file_, -1);
        const ogg_int64_t frames = library_.total(&file_, -1);
        if (!now || frames < 0) return {};
        return {static_cast<u32>(now->channels), static_cast<u32>(now->rate), static_cast<u64>(frames), 32};
    }
    bool seek(u64 frame) { return library_.seek(&file_, static_cast<ogg_int64_t>(frame)) == 0; }

    /// Fills `to` with interleaved samples; false when the stream ends early or changes its channels.
    bool read(std::span<f32> to, u32 channels) {
        while (!to.empty()) {
            float** planes = nullptr;
            int link = 0;
            const auto wanted = static_cast<int>(std::min<std::size_t>(to.size() / channels, 4096));
            const long got = library_.read(&file_, &planes, wanted, &link);
            if (got == OV_HOLE) continue; // pages are missing; what follows is good
            const vorbis_info* now = library_.info(&file_, -1);
            if (got <= 0 || !now || static_cast<u32>(now->channels) != channels) return false;
            const auto frames = static_cast<std::size_t>(got);
            for (std::size_t i = 0; i < frames; ++i) {
                for (u32 c = 0; c < channels; ++c) to[i * channels + c] = planes[c][i];
            }
            to = to.subspan(frames * channels);
        }
        return true;
    }

private:
    Decoder(const Library& library, std::shared_ptr<ByteSource> source)
        : library_(library), cursor_{std::move(source)} {}

    const Library& library_;
    StreamCursor cursor_;
    OggVorbis_File file_{};
    bool opened_ = false;
};

class VorbisBlocks final : public SampleBlocks {
public:
    VorbisBlocks(std::unique_ptr<Decoder> decoder, u32 channels, u32 frames)
        : SampleBlocks(channels, frames, true), decoder_(std::move(decoder)) {}

protected:
    bool readNative(std::span<f32> to) override {
        return decoder_->read(to, channels()) || Fail(kContext, "Reading from file failed");
    }

private:
    std::unique_ptr<Decoder> decoder_;
};

bool available() {
    return vorbis() != nullptr;
}

bool probe(const std::shared_ptr<ByteSource>& stream, PackedStreamInfo& info) {
    const std::unique_ptr<Decoder> decoder = Decoder::open(stream);
    if (!decoder) return false;
    info = decoder->info();
    return info.channels > 0 || Fail(kContext, "Not an Ogg Vorbis stream");
}

std::unique_ptr<SampleBlocks> open(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames) {
    std::unique_ptr<Decoder> decoder = Decoder::open(stream);
    if (!decoder) return nullptr;
    const PackedStreamInfo info = decoder->info();
    if (info.channels < 1 || info.channels > 2 || start > info.frames ||
        (start > 0 && !decoder->seek(start))) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    const auto count = static_cast<u32>(std::min<u64>(frames, info.frames - start));
    return std::make_unique<VorbisBlocks>(std::move(decoder), info.channels, count);
}

} // namespace

const PackedCodec vorbisCodec{available, probe, open};

} // namespace kv
