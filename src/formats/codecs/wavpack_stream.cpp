#include "formats/codecs/wavpack_stream.h"

#include <wavpack/wavpack.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <vector>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/unpacked_source.h"
#include "samples/data_format.h"
#include "samples/kernels.h"
#include "samples/stored_form.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "WavPack";
constexpr std::size_t kStepSamples = 16384; // what passes through the cache at once

// The format's own limits (WavPack 4 & 5 Binary File / Block Format): a block has a header of 32 bytes and
// holds up to 131072 frames.
constexpr u64 kBlockHeaderBytes = sizeof(WavpackHeader);
constexpr u64 kMaxBlockFrames = 131072;

struct WavPackLibrary {
    SharedLibrary library{"libwavpack1", {"libwavpack.so.1"}};
    decltype(WavpackOpenFileInputEx64)* open = nullptr;
    decltype(WavpackCloseFile)* close = nullptr;
    decltype(WavpackGetNumSamples64)* frames = nullptr;
    decltype(WavpackGetNumChannels)* channels = nullptr;
    decltype(WavpackGetSampleRate)* sampleRate = nullptr;
    decltype(WavpackGetBitsPerSample)* bits = nullptr;
    decltype(WavpackGetBytesPerSample)* bytes = nullptr;
    decltype(WavpackGetMode)* mode = nullptr;
    decltype(WavpackSeekSample64)* seek = nullptr;
    decltype(WavpackUnpackSamples)* unpack = nullptr;
    decltype(WavpackGetNumErrors)* errors = nullptr;
    decltype(WavpackGetWrapperBytes)* wrapperBytes = nullptr;
    decltype(WavpackGetWrapperData)* wrapperData = nullptr;
    decltype(WavpackFreeWrapper)* freeWrapper = nullptr;
    decltype(WavpackSeekTrailingWrapper)* findTrailer = nullptr;

    WavPackLibrary() {
        library.bind(open, "WavpackOpenFileInputEx64")
            .bind(close, "WavpackCloseFile")
            .bind(frames, "WavpackGetNumSamples64")
            .bind(channels, "WavpackGetNumChannels")
            .bind(sampleRate, "WavpackGetSampleRate")
            .bind(bits, "WavpackGetBitsPerSample")
            .bind(bytes, "WavpackGetBytesPerSample")
            .bind(mode, "WavpackGetMode")
            .bind(seek, "WavpackSeekSample64")
            .bind(unpack, "WavpackUnpackSamples")
            .bind(errors, "WavpackGetNumErrors")
            .bind(wrapperBytes, "WavpackGetWrapperBytes")
            .bind(wrapperData, "WavpackGetWrapperData")
            .bind(freeWrapper, "WavpackFreeWrapper")
            .bind(findTrailer, "WavpackSeekTrailingWrapper");
    }
};

/// Stays open to the end: a stream may live as long.
const WavPackLibrary& wavPack() {
    static const WavPackLibrary& library = *new WavPackLibrary;
    return library;
}

// ---- What the library reads through

PackedInput& input(void* id) noexcept {
    return *static_cast<PackedInput*>(id);
}
i32 readBytes(void* id, void* to, i32 count) noexcept {
    return count <= 0 ? 0 : static_cast<i32>(input(id).read(to, static_cast<std::size_t>(count)));
}
int seekFromStart(void* id, i64 position) noexcept {
    return input(id).seek(position, SEEK_SET) ? 0 : -1;
}
int seekFrom(void* id, i64 distance, int whence) noexcept {
    return input(id).seek(distance, whence) ? 0 : -1;
}
/// Only ever the byte that was just read is put back.
int putBack(void* id, int byte) noexcept {
    return input(id).seek(-1, SEEK_CUR) ? byte : EOF;
}

WavpackStreamReader64 makeReader() {
    WavpackStreamReader64 reader{};
    reader.read_bytes = readBytes;
    reader.write_bytes = [](void*, void*, i32) noexcept -> i32 { return 0; };
    reader.get_pos = [](void* id) noexcept { return input(id).position(); };
    reader.set_pos_abs = seekFromStart;
    reader.set_pos_rel = seekFrom;
    reader.push_back_byte = putBack;
    reader.get_length = [](void* id) noexcept { return input(id).size(); };
    reader.can_seek = [](void*) noexcept { return 1; };
    reader.truncate_here = [](void*) noexcept { return -1; };
    reader.close = [](void*) noexcept { return 0; };
    return reader;
}

/// An open stream. The library keeps pointers to the members, so it stays where it is.
class WavPackStream {
public:
    /// `flags` besides those that are always set.
    static std::unique_ptr<WavPackStream> open(const std::shared_ptr<ByteSource>& source, int flags = 0) {
        if (!wavPack().library.ready(kContext)) return nullptr;
        auto stream = std::make_unique<WavPackStream>(source);
        return stream->opened(flags) ? std::move(stream) : nullptr;
    }

    explicit WavPackStream(const std::shared_ptr<ByteSource>& source) : input_(source) {}
    ~WavPackStream() {
        if (context_) wavPack().close(context_);
    }
    WavPackStream(const WavPackStream&) = delete;
    WavPackStream& operator=(const WavPackStream&) = delete;

    const PackedStreamInfo& info() const { return info_; }
    /// Bytes per sample of the integers that `unpack` gives; they fill these bytes.
    int sampleBytes() const { return sampleBytes_; }
    bool givesFloat() const { return (wavPack().mode(context_) & MODE_FLOAT) != 0; }
    bool seek(u64 frame) { return wavPack().seek(context_, static_cast<i64>(frame)) != 0; }
    /// Samples that came damaged are silent.
    bool damaged() const { return wavPack().errors(context_) > 0; }
    /// Of a stream that was opened with its wrapper, what was not taken yet.
    Bytes takeWrapper() {
        const ByteSpan bytes(reinterpret_cast<const std::byte*>(wavPack().wrapperData(context_)),
                             wavPack().wrapperBytes(context_));
        Bytes taken(bytes.begin(), bytes.end());
        wavPack().freeWrapper(context_);
        return taken;
    }
    void findTrailer() { wavPack().findTrailer(context_); }
    bool unpack(std::span<i32> to) {
        const auto frames = static_cast<u32>(to.size() / info_.channels);
        return wavPack().unpack(context_, to.data(), frames) == frames;
    }

private:
    bool opened(int flags) {
        char error[81] = {}; // the library writes up to 80 characters
        context_ = wavPack().open(&reader_, &input_, nullptr, error, OPEN_NORMALIZE | flags, 0);
        if (!context_) return Fail(kContext, "Not a WavPack stream: {}", error);
        const i64 frames = wavPack().frames(context_);
        const int channels = wavPack().channels(context_);
        sampleBytes_ = wavPack().bytes(context_);
        if (frames < 0 || channels < 1 || sampleBytes_ < 1 || sampleBytes_ > 4)
            return Fail(kContext, "Not a WavPack stream that can be read");
        const u64 blocks = static_cast<u64>(input_.size()) / kBlockHeaderBytes;
        if (ceilDiv(static_cast<u64>(frames), kMaxBlockFrames) > blocks)
            return Fail(kContext, "Reading from file failed");
        info_.channels = static_cast<u32>(channels);
        info_.sampleRate = wavPack().sampleRate(context_);
        info_.frames = static_cast<u64>(frames);
        info_.bits = static_cast<u32>(wavPack().bits(context_));
        info_.isFloat = givesFloat() || sampleBytes_ > 2;
        info_.wasFloat = givesFloat();
        return true;
    }

    WavpackStreamReader64 reader_ = makeReader();
    PackedInput input_;
    WavpackContext* context_ = nullptr;
    PackedStreamInfo info_;
    int sampleBytes_ = 0;
};

// ---- Samples as they are unpacked, in working form

void toWorkingForm(const WavPackStream& stream, std::span<const i32> from, std::span<i16> to) {
    if (stream.sampleBytes() == 2) {
        std::ranges::transform(from, to.begin(),
                               [](i32 v) { return static_cast<i16>(std::clamp(v, -32768, 32767)); });
        return;
    }
    Bytes bytes(from.size());
    std::ranges::transform(from, bytes.begin(),
                           [](i32 v) { return static_cast<std::byte>(std::clamp(v, -128, 127)); });
    bytesToInt16(bytes, false, to);
}

void toWorkingForm(const WavPackStream& stream, std::span<i32> from, std::span<f32> to) {
    if (stream.givesFloat()) {
        std::ranges::transform(from, to.begin(), [](i32 bits) { return std::bit_cast<f32>(bits); });
        return;
    }
    const int shift = 8 * (4 - stream.sampleBytes());
    for (i32& v : from) v = static_cast<i32>(static_cast<u32>(v) << shift);
    int32ToFloat(from, to);
}

class WavPackBlocks final : public SampleBlocks {
public:
    WavPackBlocks(std::unique_ptr<WavPackStream> stream, u32 frames)
        : SampleBlocks(stream->info().channels, frames, stream->info().isFloat),
          stream_(std::move(stream)),
          left_(u64{frames} * channels()),
          unpackedSource_(frames, channels(), [this](std::span<i32> to) { return stream_->unpack(to); }) {}

    /// A float hasn't the bits of a 32-bit integer.
    std::optional<StoredRun> storedAs(u32 word) const override {
        const bool wide = stream_->sampleBytes() == 4 && !stream_->givesFloat();
        if (!wide || !StoredForm(word).sameAs(StoredForm(kPcm32))) return {};
        return StoredRun{&unpackedSource_, 0, unpackedSource_.size()};
    }

protected:
    bool readNative(std::span<i16> to) override { return readInto(to); }
    bool readNative(std::span<f32> to) override { return readInto(to); }

private:
    template <class T>
    bool readInto(std::span<T> to) {
        const std::size_t step = std::max<std::size_t>(kStepSamples / channels(), 1) * channels();
        while (!to.empty()) {
            const std::span<T> part = to.first(std::min(step, to.size()));
            unpacked_.resize(part.size());
            if (part.size() > left_ || !stream_->unpack(unpacked_))
                return Fail(kContext, "Reading from file failed");
            toWorkingForm(*stream_, unpacked_, part);
            left_ -= part.size();
            to = to.subspan(part.size());
        }
        noteDamage();
        return true;
    }

    void noteDamage() {
        if (noted_ || !stream_->damaged()) return;
        noted_ = true;
        runContext().diagnostics.warn(0, std::string(kContext), "Damaged samples are silent");
    }

    std::unique_ptr<WavPackStream> stream_;
    u64 left_; ///< samples
    mutable UnpackedSource unpackedSource_;
    std::vector<i32> unpacked_;
    bool noted_ = false;
};

} // namespace

std::optional<PackedStreamInfo> probeWavPack(const std::shared_ptr<ByteSource>& stream) {
    const std::unique_ptr<WavPackStream> opened = WavPackStream::open(stream);
    if (!opened) return {};
    return opened->info();
}

WavPackWrapper readWavPackWrapper(const std::shared_ptr<ByteSource>& stream) {
    const std::unique_ptr<WavPackStream> opened = WavPackStream::open(stream, OPEN_WRAPPER);
    if (!opened) return {};
    WavPackWrapper wrapper;
    wrapper.head = opened->takeWrapper();
    opened->findTrailer();
    wrapper.tail = opened->takeWrapper();
    return wrapper;
}

std::unique_ptr<SampleBlocks> openWavPack(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                          u32 channels) {
    std::unique_ptr<WavPackStream> opened = WavPackStream::open(stream);
    if (!opened || !holdsRange(kContext, opened->info(), start, frames, channels)) return nullptr;
    if (start > 0 && !opened->seek(start)) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<WavPackBlocks>(std::move(opened), frames);
}

} // namespace kv
