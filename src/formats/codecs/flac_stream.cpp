#include "formats/codecs/flac_stream.h"

#include <FLAC/stream_decoder.h>

#include <algorithm>
#include <cstdio>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/unpacked_source.h"
#include "samples/data_format.h"
#include "samples/stored_form.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "FLAC";

struct FlacLibrary {
    SharedLibrary library{"libflac12", {"libFLAC.so.12", "libFLAC.so.8"}};
    decltype(FLAC__stream_decoder_new)* create = nullptr;
    decltype(FLAC__stream_decoder_delete)* destroy = nullptr;
    decltype(FLAC__stream_decoder_init_stream)* open = nullptr;
    decltype(FLAC__stream_decoder_process_until_end_of_metadata)* readHead = nullptr;
    decltype(FLAC__stream_decoder_process_single)* readFrame = nullptr;
    decltype(FLAC__stream_decoder_seek_absolute)* seek = nullptr;
    decltype(FLAC__stream_decoder_get_state)* state = nullptr;

    FlacLibrary() {
        library.bind(create, "FLAC__stream_decoder_new")
            .bind(destroy, "FLAC__stream_decoder_delete")
            .bind(open, "FLAC__stream_decoder_init_stream")
            .bind(readHead, "FLAC__stream_decoder_process_until_end_of_metadata")
            .bind(readFrame, "FLAC__stream_decoder_process_single")
            .bind(seek, "FLAC__stream_decoder_seek_absolute")
            .bind(state, "FLAC__stream_decoder_get_state");
    }
};

/// Stays open to the end: a stream may live as long.
const FlacLibrary& flac() {
    static const FlacLibrary& library = *new FlacLibrary;
    return library;
}

/// An open stream with what was decoded of it and not asked for yet.
class FlacStream {
public:
    /// `frames`: of a stream that leaves its length open, where the caller knows it; 0: they are counted,
    /// and the stream stands at its end.
    static std::unique_ptr<FlacStream> open(const std::shared_ptr<ByteSource>& source, u64 frames = 0) {
        if (!flac().library.ready(kContext)) return nullptr;
        auto stream = std::make_unique<FlacStream>(source);
        return stream->opened(frames) ? std::move(stream) : nullptr;
    }

    explicit FlacStream(const std::shared_ptr<ByteSource>& source) : input_(source) {}
    ~FlacStream() {
        if (decoder_) flac().destroy(decoder_);
    }
    FlacStream(const FlacStream&) = delete;
    FlacStream& operator=(const FlacStream&) = delete;

    const PackedStreamInfo& info() const { return info_; }
    bool seek(u64 frame) {
        decoded_.clear();
        at_ = 0;
        return (frame == 0 && !moved_) || flac().seek(decoder_, frame) != 0;
    }

    /// Hands out up to `most` samples of whole frames; empty at the end and on an error.
    std::span<const i32> decode(std::size_t most) {
        while (at_ == decoded_.size()) {
            decoded_.clear();
            at_ = 0;
            moved_ = true;
            if (flac().readFrame(decoder_) == 0 || damaged_ ||
                flac().state(decoder_) >= FLAC__STREAM_DECODER_END_OF_STREAM)
                return {};
        }
        const std::span<const i32> part =
            std::span(decoded_).subspan(at_).first(std::min(most, decoded_.size() - at_));
        at_ += part.size();
        return part;
    }

private:
    static FlacStream& self(void* client) noexcept { return *static_cast<FlacStream*>(client); }

    static FLAC__StreamDecoderReadStatus read(const FLAC__StreamDecoder*, FLAC__byte* to, std::size_t* bytes,
                                              void* client) noexcept {
        *bytes = self(client).input_.read(to, *bytes);
        return *bytes == 0 ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM
                           : FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
    }
    static FLAC__StreamDecoderSeekStatus seekTo(const FLAC__StreamDecoder*, FLAC__uint64 offset,
                                                void* client) noexcept {
        const bool done = offset <= static_cast<u64>(self(client).input_.size()) &&
                          self(client).input_.seek(static_cast<i64>(offset), SEEK_SET);
        return done ? FLAC__STREAM_DECODER_SEEK_STATUS_OK : FLAC__STREAM_DECODER_SEEK_STATUS_ERROR;
    }
    static FLAC__StreamDecoderTellStatus tell(const FLAC__StreamDecoder*, FLAC__uint64* offset,
                                              void* client) noexcept {
        *offset = static_cast<FLAC__uint64>(self(client).input_.position());
        return FLAC__STREAM_DECODER_TELL_STATUS_OK;
    }
    static FLAC__StreamDecoderLengthStatus length(const FLAC__StreamDecoder*, FLAC__uint64* bytes,
                                                  void* client) noexcept {
        *bytes = static_cast<FLAC__uint64>(self(client).input_.size());
        return FLAC__STREAM_DECODER_LENGTH_STATUS_OK;
    }
    static FLAC__bool atEnd(const FLAC__StreamDecoder*, void* client) noexcept {
        return self(client).input_.position() >= self(client).input_.size() ? 1 : 0;
    }
    static FLAC__StreamDecoderWriteStatus take(const FLAC__StreamDecoder*, const FLAC__Frame* frame,
                                               const FLAC__int32* const planes[], void* client) noexcept {
        return self(client).keep(*frame, planes) ? FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE
                                                 : FLAC__STREAM_DECODER_WRITE_STATUS_ABORT;
    }
    static void describe(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* metadata,
                         void* client) noexcept {
        if (metadata->type != FLAC__METADATA_TYPE_STREAMINFO) return;
        const FLAC__StreamMetadata_StreamInfo& stream = metadata->data.stream_info;
        PackedStreamInfo& info = self(client).info_;
        info.channels = stream.channels;
        info.sampleRate = stream.sample_rate;
        info.frames = stream.total_samples;
        info.bits = stream.bits_per_sample;
        info.isFloat = stream.bits_per_sample > 16;
    }
    static void fail(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus, void* client) noexcept {
        self(client).damaged_ = true;
    }

    /// Interleaves a frame. False for one of another kind than the stream.
    bool keep(const FLAC__Frame& frame, const FLAC__int32* const planes[]) noexcept {
        if (frame.header.channels != info_.channels || frame.header.bits_per_sample != info_.bits)
            return false;
        try {
            decoded_.resize(std::size_t{frame.header.blocksize} * info_.channels);
        } catch (...) { // nothing is thrown through the library
            return false;
        }
        at_ = 0;
        for (u32 channel = 0; channel < info_.channels; ++channel) {
            i32* to = decoded_.data() + channel;
            for (const i32 v : std::span(planes[channel], frame.header.blocksize)) {
                *to = v;
                to += info_.channels;
            }
        }
        return true;
    }

    bool opened(u64 knownFrames) {
        decoder_ = flac().create();
        if (!decoder_ || flac().open(decoder_, read, seekTo, tell, length, atEnd, take, describe, fail,
                                     this) != FLAC__STREAM_DECODER_INIT_STATUS_OK)
            return Fail(kContext, "Not a FLAC stream");
        if (flac().readHead(decoder_) == 0 || info_.channels == 0 || info_.sampleRate == 0 || info_.bits < 4)
            return Fail(kContext, "Not a FLAC stream");
        // A frame of 65,535 equal samples takes some 10 bytes.
        constexpr u64 kMaxFramesPerByte = 16384;
        if (info_.frames == 0) info_.frames = knownFrames != 0 ? knownFrames : countFrames();
        if (info_.frames == 0 || ceilDiv(info_.frames, kMaxFramesPerByte) > static_cast<u64>(input_.size()))
            return Fail(kContext, "Reading from file failed");
        return true;
    }

    /// All that can be decoded, as recorders that were cut off leave it.
    u64 countFrames() {
        u64 frames = 0;
        for (std::size_t samples = 0; (samples = decode(std::numeric_limits<std::size_t>::max()).size()) > 0;)
            frames += samples / info_.channels;
        return frames;
    }

    PackedInput input_;
    FLAC__StreamDecoder* decoder_ = nullptr;
    PackedStreamInfo info_;
    std::vector<i32> decoded_; ///< of one frame of the stream, interleaved
    std::size_t at_ = 0;       ///< samples of it that were handed out
    bool damaged_ = false, moved_ = false;
};

class FlacBlocks final : public SampleBlocks {
public:
    FlacBlocks(std::unique_ptr<FlacStream> stream, u32 frames)
        : SampleBlocks(stream->info().channels, frames, stream->info().isFloat),
          stream_(std::move(stream)),
          integers_(frames, channels(),
                    [this](std::span<i32> to) { return fill(to, [](i32 v) { return v; }); }) {}

    std::optional<StoredRun> storedAs(u32 word) const override {
        if (stream_->info().bits != 32 || !StoredForm(word).sameAs(StoredForm(kPcm32))) return {};
        return StoredRun{&integers_, 0, integers_.size()};
    }

protected:
    bool readNative(std::span<i16> to) override {
        const int up = 16 - static_cast<int>(stream_->info().bits);
        if (up == 8)
            return fill(to, [](i32 v) { return static_cast<i16>(v * 257 + 128); }); // as plain bytes are
        return fill(to, [up](i32 v) { return static_cast<i16>(v * (1 << up)); });
    }
    bool readNative(std::span<f32> to) override {
        const f32 scale = 1 / static_cast<f32>(u64{1} << (stream_->info().bits - 1));
        return fill(to, [scale](i32 v) { return static_cast<f32>(v) * scale; });
    }

private:
    template <class T, class Convert>
    bool fill(std::span<T> to, Convert convert) {
        while (!to.empty()) {
            const std::span<const i32> part = stream_->decode(to.size());
            if (part.empty()) return Fail(kContext, "Reading from file failed");
            std::transform(part.begin(), part.end(), to.begin(), convert);
            to = to.subspan(part.size());
        }
        return true;
    }

    std::unique_ptr<FlacStream> stream_;
    mutable UnpackedSource integers_;
};

} // namespace

std::optional<PackedStreamInfo> probeFlac(const std::shared_ptr<ByteSource>& stream) {
    const std::unique_ptr<FlacStream> opened = FlacStream::open(stream);
    if (!opened) return {};
    return opened->info();
}

std::unique_ptr<SampleBlocks> openFlac(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                       u32 channels) {
    std::unique_ptr<FlacStream> opened = FlacStream::open(stream, start + frames);
    if (!opened || !holdsRange(kContext, opened->info(), start, frames, channels)) return nullptr;
    if (!opened->seek(start)) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<FlacBlocks>(std::move(opened), frames);
}

} // namespace kv
