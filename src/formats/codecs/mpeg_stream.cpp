#include "formats/codecs/mpeg_stream.h"

#include <mpg123.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/run_context.h"
#include "base/shared_library.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "MPEG audio";

struct MpegLibrary {
    SharedLibrary library{"libmpg123-0", {"libmpg123.so.0"}};
    decltype(mpg123_init)* init = nullptr;
    decltype(mpg123_new)* create = nullptr;
    decltype(mpg123_delete)* destroy = nullptr;
    decltype(mpg123_param)* set = nullptr;
    decltype(mpg123_replace_reader_handle)* setReader = nullptr;
    decltype(mpg123_open_handle)* open = nullptr;
    decltype(mpg123_getformat)* format = nullptr;
    decltype(mpg123_scan)* scan = nullptr;
    decltype(mpg123_length)* length = nullptr;
    decltype(mpg123_framelength)* blocks = nullptr;
    decltype(mpg123_spf)* blockFrames = nullptr;
    decltype(mpg123_getstate)* state = nullptr;
    decltype(mpg123_seek)* seek = nullptr;
    decltype(mpg123_read)* read = nullptr;

    MpegLibrary() {
        library.bind(init, "mpg123_init")
            .bind(create, "mpg123_new")
            .bind(destroy, "mpg123_delete")
            .bind(set, "mpg123_param")
            .bind(setReader, "mpg123_replace_reader_handle")
            .bind(open, "mpg123_open_handle")
            .bind(format, "mpg123_getformat")
            .bind(scan, "mpg123_scan")
            .bind(length, "mpg123_length")
            .bind(blocks, "mpg123_framelength")
            .bind(blockFrames, "mpg123_spf")
            .bind(state, "mpg123_getstate")
            .bind(seek, "mpg123_seek")
            .bind(read, "mpg123_read");
        if (init) init();
    }
};

/// Stays open to the end: a stream may live as long.
const MpegLibrary& mpeg() {
    static const MpegLibrary& library = *new MpegLibrary;
    return library;
}

PackedInput& input(void* id) noexcept {
    return *static_cast<PackedInput*>(id);
}
mpg123_ssize_t readBytes(void* id, void* to, std::size_t count) noexcept {
    return static_cast<mpg123_ssize_t>(input(id).read(to, count));
}
off_t seekFrom(void* id, off_t distance, int whence) noexcept {
    return input(id).seek(distance, whence) ? static_cast<off_t>(input(id).position()) : -1;
}

/// The first frame is one of layer III that tells, in its place for samples, how many frames follow, and all
/// of them are there. Then the library's length is the true one.
bool tellsLength(ByteSource& source) {
    constexpr u32 kHasFrames = 1, kHasBytes = 2;
    constexpr u64 kLeastFrameBytes = 24; // 8 kbit/s at 24 kHz
    std::array<std::byte, 64> start{};
    if (source.readAt(0, start) != start.size()) return false;
    const auto byteAt = [&](std::size_t i) { return std::to_integer<u32>(start[i]); };
    if (byteAt(0) != 0xFF || (byteAt(1) & 0xE6) != 0xE2) return false;
    const bool isMpeg1 = (byteAt(1) & 0x18) == 0x18, isMono = byteAt(3) >> 6 == 3;
    const std::size_t side = isMpeg1 ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    ByteCursor in(ByteSpan(start).subspan(4 + side));
    const std::string_view id = textOf(in.bytes(4));
    if (id != "Xing" && id != "Info") return false;
    const u32 has = in.u32be(), frames = in.u32be(), bytes = in.u32be();
    return (has & (kHasFrames | kHasBytes)) == (kHasFrames | kHasBytes) && frames > 0 &&
           bytes <= source.size() && frames <= bytes / kLeastFrameBytes;
}

/// An open stream. The library keeps a pointer to the input, so it stays where it is.
class MpegStream {
public:
    enum class Length : u8 { Wanted, Known };
    static std::unique_ptr<MpegStream> open(const std::shared_ptr<ByteSource>& source, Length length) {
        if (!mpeg().library.ready(kContext)) return nullptr;
        auto stream = std::make_unique<MpegStream>(source);
        if (!stream->opened() || (length == Length::Wanted && !stream->findLength(*source))) return nullptr;
        return stream;
    }

    explicit MpegStream(const std::shared_ptr<ByteSource>& source) : input_(source) {}
    ~MpegStream() {
        if (decoder_) mpeg().destroy(decoder_);
    }
    MpegStream(const MpegStream&) = delete;
    MpegStream& operator=(const MpegStream&) = delete;

    PackedStreamInfo& info() { return info_; }
    bool seek(u64 frame) {
        return frame == 0 || mpeg().seek(decoder_, static_cast<off_t>(frame), SEEK_SET) >= 0;
    }
    /// Fills `to` as far as the stream goes; returns the samples.
    std::size_t decode(std::span<f32> to) {
        std::size_t done = 0;
        while (done < to.size()) {
            std::size_t bytes = 0;
            const std::span<f32> rest = to.subspan(done);
            const int result = mpeg().read(decoder_, rest.data(), rest.size_bytes(), &bytes);
            done += bytes / sizeof(f32);
            // A stream may go on in other channels, but not at another rate.
            if (result == MPG123_OK || (result == MPG123_NEW_FORMAT && sameFormat())) continue;
            break;
        }
        return done;
    }

private:
    /// A frame counts when another one follows, but for a stream that has no room for two.
    bool opened() {
        constexpr i64 kMostFrameBytes = 2881; // 160 kbit/s at 8 kHz
        return begun(0) ||
               (input_.size() <= kMostFrameBytes && input_.seek(0, SEEK_SET) && begun(MPG123_NO_READAHEAD));
    }

    bool begun(long moreFlags) {
        if (decoder_) mpeg().destroy(decoder_);
        int ignored = 0;
        decoder_ = mpeg().create(nullptr, &ignored);
        if (!decoder_) return Fail(kContext, "Out of memory");
        constexpr long kFlags = MPG123_QUIET | MPG123_GAPLESS | MPG123_FORCE_FLOAT | MPG123_SKIP_ID3V2;
        const bool ready = mpeg().set(decoder_, MPG123_FLAGS, kFlags | moreFlags, 0) == MPG123_OK &&
                           mpeg().setReader(decoder_, readBytes, seekFrom, nullptr) == MPG123_OK &&
                           mpeg().open(decoder_, &input_) == MPG123_OK &&
                           mpeg().format(decoder_, &rate_, &channels_, &encoding_) == MPG123_OK;
        if (!ready || rate_ <= 0 || channels_ < 1 || channels_ > 2 || encoding_ != MPG123_ENC_FLOAT_32)
            return Fail(kContext, "Not an MPEG audio stream");
        const long likeFirst = channels_ == 1 ? MPG123_MONO_MIX : MPG123_FORCE_STEREO;
        mpeg().set(decoder_, MPG123_ADD_FLAGS, likeFirst, 0);
        info_.channels = static_cast<u32>(channels_);
        info_.sampleRate = static_cast<u32>(rate_);
        info_.isFloat = true;
        return true;
    }

    bool findLength(ByteSource& source) {
        if (!tellsLength(source) && mpeg().scan(decoder_) != MPG123_OK)
            return Fail(kContext, "Reading from file failed");
        const off_t frames = mpeg().length(decoder_) - uncountedDelay();
        if (frames <= 0) return Fail(kContext, "Reading from file failed");
        info_.frames = static_cast<u64>(frames);
        return true;
    }

    /// Where fewer frames are there than the first one says, the library forgets in its count what it leaves
    /// out at the beginning.
    off_t uncountedDelay() {
        constexpr long kDecoderDelay = 529; // its own, which it adds to the encoder's
        long delay = -1;
        if (mpeg().state(decoder_, MPG123_ENC_DELAY, &delay, nullptr) != MPG123_OK || delay < 0) return 0;
        const off_t all = mpeg().blocks(decoder_) * static_cast<off_t>(mpeg().blockFrames(decoder_));
        return mpeg().length(decoder_) == all ? delay + kDecoderDelay : 0;
    }

    bool sameFormat() {
        long rate = 0;
        int channels = 0, encoding = 0;
        return mpeg().format(decoder_, &rate, &channels, &encoding) == MPG123_OK && rate == rate_ &&
               channels == channels_ && encoding == encoding_;
    }

    PackedInput input_;
    mpg123_handle* decoder_ = nullptr;
    long rate_ = 0;
    int channels_ = 0, encoding_ = 0;
    PackedStreamInfo info_;
};

class MpegBlocks final : public SampleBlocks {
public:
    MpegBlocks(std::unique_ptr<MpegStream> stream, u32 frames)
        : SampleBlocks(stream->info().channels, frames, true), stream_(std::move(stream)) {}

protected:
    bool readNative(std::span<f32> to) override {
        const std::size_t got = stream_->decode(to);
        if (got == to.size()) return true;
        return Fail(kContext, "Reading from file failed");
    }

private:
    std::unique_ptr<MpegStream> stream_;
};

} // namespace

std::optional<PackedStreamInfo> probeMpeg(const std::shared_ptr<ByteSource>& stream) {
    const std::unique_ptr<MpegStream> opened = MpegStream::open(stream, MpegStream::Length::Wanted);
    if (!opened) return {};
    return opened->info();
}

std::unique_ptr<SampleBlocks> openMpeg(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                       u32 channels) {
    std::unique_ptr<MpegStream> opened = MpegStream::open(stream, MpegStream::Length::Known);
    if (!opened) return nullptr;
    opened->info().frames = start + std::min<u64>(frames, ~start); // the caller found it out by the probe
    if (!holdsRange(kContext, opened->info(), start, frames, channels)) return nullptr;
    if (!opened->seek(start)) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<MpegBlocks>(std::move(opened), frames);
}

} // namespace kv
