#include <wavpack/wavpack.h>

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/packed_stream.h"
#include "formats/codecs/stream_cursor.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "WavPack";

struct Library {
    std::unique_ptr<SharedLibrary> library = SharedLibrary::open({"libwavpack.so.1", "libwavpack.so"});
    decltype(WavpackOpenFileInputEx64)* open = nullptr;
    decltype(WavpackCloseFile)* close = nullptr;
    decltype(WavpackGetMode)* mode = nullptr;
    decltype(WavpackGetNumChannels)* channels = nullptr;
    decltype(WavpackGetSampleRate)* rate = nullptr;
    decltype(WavpackGetNumSamples64)* frames = nullptr;
    decltype(WavpackGetBitsPerSample)* bits = nullptr;
    decltype(WavpackGetBytesPerSample)* bytes = nullptr;
    decltype(WavpackSeekSample64)* seek = nullptr;
    decltype(WavpackUnpackSamples)* unpack = nullptr;
    bool complete =
        library && library->bind(open, "WavpackOpenFileInputEx64") &&
        library->bind(close, "WavpackCloseFile") && library->bind(mode, "WavpackGetMode") &&
        library->bind(channels, "WavpackGetNumChannels") && library->bind(rate, "WavpackGetSampleRate") &&
        library->bind(frames, "WavpackGetNumSamples64") && library->bind(bits, "WavpackGetBitsPerSample") &&
        library->bind(bytes, "WavpackGetBytesPerSample") && library->bind(seek, "WavpackSeekSample64") &&
        library->bind(unpack, "WavpackUnpackSamples");
};

const Library* wavPack() {
    static const Library library;
    if (library.complete) return &library;
    Fail(kContext, "The WavPack library is missing; please install the package libwavpack1");
    return nullptr;
}

StreamCursor& cursor(void* id) {
    return *static_cast<StreamCursor*>(id);
}

WavpackStreamReader64 callbacks() {
    WavpackStreamReader64 calls{};
    calls.read_bytes = [](void* id, void* data, int32_t bytes) {
        return static_cast<int32_t>(cursor(id).read(data, static_cast<std::size_t>(std::max(bytes, 0))));
    };
    calls.get_pos = [](void* id) { return static_cast<int64_t>(cursor(id).position); };
    calls.set_pos_abs = [](void* id, int64_t at) { return cursor(id).seek(at, SEEK_SET) ? 0 : -1; };
    calls.set_pos_rel = [](void* id, int64_t by, int origin) { return cursor(id).seek(by, origin) ? 0 : -1; };
    calls.push_back_byte = [](void* id, int c) { return cursor(id).seek(-1, SEEK_CUR) ? c : EOF; };
    calls.get_length = [](void* id) { return static_cast<int64_t>(cursor(id).source->size()); };
    calls.can_seek = [](void*) { return 1; };
    return calls;
}

/// An open stream.
class Decoder {
public:
    static std::unique_ptr<Decoder> open(const std::shared_ptr<ByteSource>& source) {
        const Library* library = wavPack();
        if (!library) return nullptr;
        std::unique_ptr<Decoder> decoder(new Decoder(*library, source));
        std::array<char, 81> why{}; // the length that the library asks for
        decoder->context_ = library->open(&decoder->callbacks_, &decoder->cursor_, nullptr, why.data(), 0, 0);
        if (!decoder->context_) {
            Fail(kContext, "Not a WavPack stream");
            return nullptr;
        }
        return decoder;
    }
    ~Decoder() {
        if (context_) library_.close(context_);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    PackedStreamInfo info() const {
        const int64_t frames = library_.frames(context_);
        return {static_cast<u32>(library_.channels(context_)), library_.rate(context_),
                static_cast<u64>(std::max<int64_t>(frames, 0)), static_cast<u32>(library_.bits(context_))};
    }
    bool isFloat() const { return (library_.mode(context_) & MODE_FLOAT) != 0; }
    int bytesPerSample() const { return library_.bytes(context_); }
    bool seek(u64 frame) { return library_.seek(context_, static_cast<int64_t>(frame)) != 0; }
    u32 unpack(std::span<i32> to, u32 frames) { return library_.unpack(context_, to.data(), frames); }

private:
    Decoder(const Library& library, std::shared_ptr<ByteSource> source)
        : library_(library), cursor_{std::move(source)} {}

    const Library& library_;
    StreamCursor cursor_;
    WavpackStreamReader64 callbacks_ = callbacks();
    WavpackContext* context_ = nullptr;
};

class WavPackBlocks final : public SampleBlocks {
public:
    WavPackBlocks(std::unique_ptr<Decoder> decoder, u32 channels, u32 frames)
        : SampleBlocks(channels, frames, decoder->isFloat() || decoder->bytesPerSample() > 2),
          decoder_(std::move(decoder)),
          storedFloat_(decoder_->isFloat()),
          bits_(8 * std::clamp(decoder_->bytesPerSample(), 1, 4)) {}

protected:
    bool readNative(std::span<i16> to) override {
        return unpack(to, [this](i32 v) { return static_cast<i16>(v * (1 << (16 - bits_))); });
    }
    bool readNative(std::span<f32> to) override {
        if (storedFloat_) return unpack(to, [](i32 v) { return std::bit_cast<f32>(v); });
        const f64 unit = 1.0 / static_cast<f64>(u64{1} << (bits_ - 1));
        return unpack(to, [unit](i32 v) { return static_cast<f32>(v * unit); });
    }

private:
    template <class T, class Convert>
    bool unpack(std::span<T> to, Convert convert) {
        constexpr std::size_t kStep = 16384; // frames
        while (!to.empty()) {
            const std::span<T> part = to.first(std::min(kStep * channels(), to.size()));
            const auto frames = static_cast<u32>(part.size() / channels());
            raw_.resize(part.size());
            if (decoder_->unpack(raw_, frames) != frames) return Fail(kContext, "Reading from file failed");
            std::transform(raw_.begin(), raw_.end(), part.begin(), convert);
            to = to.subspan(part.size());
        }
        return true;
    }

    std::unique_ptr<Decoder> decoder_;
    bool storedFloat_;
    int bits_;
    std::vector<i32> raw_;
};

bool available() {
    return wavPack() != nullptr;
}

bool probe(const std::shared_ptr<ByteSource>& stream, PackedStreamInfo& info) {
    const std::unique_ptr<Decoder> decoder = Decoder::open(stream);
    if (decoder) info = decoder->info();
    return decoder != nullptr;
}

std::unique_ptr<SampleBlocks> open(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames) {
    std::unique_ptr<Decoder> decoder = Decoder::open(stream);
    if (!decoder) return nullptr;
    const PackedStreamInfo info = decoder->info();
    if (info.channels < 1 || info.channels > 2 || start > info.frames ||
        (start > 0 && start < info.frames && !decoder->seek(start))) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    const auto count = static_cast<u32>(std::min<u64>(frames, info.frames - start));
    return std::make_unique<WavPackBlocks>(std::move(decoder), info.channels, count);
}

} // namespace

const PackedCodec wavPackCodec{available, probe, open};

} // namespace kv
