#include "formats/codecs/aac_stream.h"

#include <neaacdec.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/run_context.h"
#include "base/shared_library.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "AAC";
constexpr std::size_t kWindowBytes = 65536;
constexpr std::size_t kLeastWindowBytes = 16384; // more than any block takes
constexpr std::size_t kAdtsBytes = 7;
constexpr u32 kAdtsFrames = 1024; ///< of a block, at the rate of its header
constexpr u32 kMostChannels = 64;

struct AacLibrary {
    SharedLibrary library{"libfaad2", {"libfaad.so.2"}};
    decltype(NeAACDecOpen)* create = nullptr;
    decltype(NeAACDecClose)* destroy = nullptr;
    decltype(NeAACDecGetCurrentConfiguration)* configuration = nullptr;
    decltype(NeAACDecSetConfiguration)* configure = nullptr;
    decltype(NeAACDecInit)* init = nullptr;
    decltype(NeAACDecInit2)* initBare = nullptr;
    decltype(NeAACDecDecode)* decode = nullptr;

    AacLibrary() {
        library.bind(create, "NeAACDecOpen")
            .bind(destroy, "NeAACDecClose")
            .bind(configuration, "NeAACDecGetCurrentConfiguration")
            .bind(configure, "NeAACDecSetConfiguration")
            .bind(init, "NeAACDecInit")
            .bind(initBare, "NeAACDecInit2")
            .bind(decode, "NeAACDecDecode");
    }
};

/// Stays open to the end: a stream may live as long.
const AacLibrary& aac() {
    static const AacLibrary& library = *new AacLibrary;
    return library;
}

/// A header of an ADTS frame.
struct AdtsHeader {
    u32 bytes = 0; ///< of the frame with its header; 0: it is none
    u32 blocks = 0;
    u32 channels = 0; ///< 0: the stream tells in some other way

    explicit AdtsHeader(ByteSpan start) {
        if (start.size() < kAdtsBytes) return;
        const auto byteAt = [&](std::size_t i) { return std::to_integer<u32>(start[i]); };
        if (byteAt(0) != 0xFF || (byteAt(1) & 0xF6) != 0xF0 || (byteAt(2) >> 2 & 15) > 12) return;
        const u32 size = (byteAt(3) & 3) << 11 | byteAt(4) << 3 | byteAt(5) >> 5;
        if (size < kAdtsBytes) return;
        bytes = size;
        blocks = (byteAt(6) & 3) + 1;
        channels = (byteAt(2) & 1) << 2 | byteAt(3) >> 6;
    }
};

/// The next bytes of a source, enough of them for a block.
class Window {
public:
    explicit Window(std::shared_ptr<ByteSource> source) : source_(std::move(source)) {}

    /// What stands at the place; short at the end of the source only.
    std::span<std::byte> bytes() {
        if (at_ + kLeastWindowBytes > start_ + bytes_.size() && start_ + bytes_.size() < source_->size()) {
            start_ = at_;
            bytes_.resize(kWindowBytes);
            bytes_.resize(source_->readAt(start_, bytes_));
        }
        return std::span(bytes_).subspan(
            static_cast<std::size_t>(std::min<u64>(at_ - start_, bytes_.size())));
    }
    void skip(u64 count) { at_ += count; }

private:
    std::shared_ptr<ByteSource> source_;
    Bytes bytes_;
    u64 start_ = 0, at_ = 0;
};

/// An open stream with what was decoded of it and not asked for yet.
class AacStream {
public:
    static std::unique_ptr<AacStream> open(const std::shared_ptr<ByteSource>& source, ByteSpan config) {
        if (!aac().library.ready(kContext)) return nullptr;
        auto stream = std::make_unique<AacStream>(source);
        return stream->opened(config) ? std::move(stream) : nullptr;
    }

    explicit AacStream(const std::shared_ptr<ByteSource>& source) : source_(source), window_(source) {}
    ~AacStream() {
        if (decoder_) aac().destroy(decoder_);
    }
    AacStream(const AacStream&) = delete;
    AacStream& operator=(const AacStream&) = delete;

    PackedStreamInfo& info() { return info_; }
    bool damaged() const { return damaged_; }

    /// Hands out up to `most` samples; empty at the end.
    std::span<const f32> decode(std::size_t most) {
        while (taken_ == decoded_.size()) {
            if (!nextBlock()) return {};
        }
        const std::span<const f32> part =
            std::span(decoded_).subspan(taken_, std::min(most, decoded_.size() - taken_));
        taken_ += part.size();
        return part;
    }

    /// Takes a stream whose first block was just decoded to its end.
    void countFrames() {
        if (!isAdts_) {
            u64 samples = 0;
            for (std::size_t got = 0; (got = decode(std::numeric_limits<std::size_t>::max()).size()) > 0;)
                samples += got;
            info_.frames = samples / info_.channels;
            return;
        }
        Window walk(source_);
        u64 blocks = 0;
        for (ByteSpan bytes = walk.bytes(); bytes.size() >= kAdtsBytes; bytes = walk.bytes()) {
            const AdtsHeader header(bytes);
            const bool whole = header.bytes != 0 && header.bytes <= bytes.size();
            blocks += whole ? header.blocks : 0;
            walk.skip(whole ? header.bytes : 1);
        }
        info_.frames = blocks <= 1 ? 0 : (blocks - 1) * blockFrames_;
    }

private:
    bool opened(ByteSpan config) {
        const std::span<std::byte> start = window_.bytes();
        const AdtsHeader header(start);
        isAdts_ = config.empty() && header.bytes != 0;
        if (config.empty() && !isAdts_ && !textOf(start).starts_with("ADIF"))
            return Fail(kContext, "Not an AAC stream");
        decoder_ = aac().create();
        if (!decoder_) return Fail(kContext, "Out of memory");
        NeAACDecConfigurationPtr configuration = aac().configuration(decoder_);
        configuration->outputFormat = FAAD_FMT_FLOAT;
        configuration->dontUpSampleImplicitSBR = 1;
        aac().configure(decoder_, configuration);
        unsigned long rate = 0;
        unsigned char channels = 0;
        const long used = config.empty()
                              ? aac().init(decoder_, bytesOf(start), start.size(), &rate, &channels)
                              : initBare(config, rate, channels);
        if (used < 0 || static_cast<std::size_t>(used) > start.size())
            return Fail(kContext, "Not an AAC stream");
        window_.skip(static_cast<u64>(used));
        // The library makes two channels of one, which may turn out to hold two.
        constexpr std::size_t kLeastConfig = 2;
        wantsMono_ = config.size() >= kLeastConfig ? (std::to_integer<u32>(config[1]) >> 3 & 15) == 1
                                                   : header.channels == 1;
        while (decoded_.empty()) {
            if (!nextBlock()) return Fail(kContext, "Not an AAC stream");
        }
        info_.isFloat = true;
        return true;
    }

    static unsigned char* bytesOf(std::span<std::byte> bytes) {
        return reinterpret_cast<unsigned char*>(bytes.data());
    }
    /// Bytes of the stream that were used up, none; or -1.
    long initBare(ByteSpan config, unsigned long& rate, unsigned char& channels) {
        Bytes copy(config.begin(), config.end()); // the library wants them writable
        return aac().initBare(decoder_, bytesOf(copy), static_cast<unsigned long>(copy.size()), &rate,
                              &channels) < 0
                   ? -1
                   : 0;
    }

    /// Decodes a block, or steps over what is none. False at the end.
    bool nextBlock() {
        decoded_.clear();
        taken_ = 0;
        const std::span<std::byte> bytes = window_.bytes();
        if (bytes.empty()) return false;
        if (isAdts_) {
            const AdtsHeader header(bytes);
            if (header.bytes == 0 || header.bytes > bytes.size()) {
                damaged_ = damaged_ || bytes.size() > kAdtsBytes;
                window_.skip(1);
                return true;
            }
        }
        NeAACDecFrameInfo frame{};
        const auto* samples = static_cast<const f32*>(
            aac().decode(decoder_, &frame, bytesOf(bytes), static_cast<unsigned long>(bytes.size())));
        const std::size_t used = std::min<std::size_t>(frame.bytesconsumed, bytes.size());
        if (frame.error != 0 || used == 0) {
            damaged_ = true;
            if (!isAdts_) return false;
            window_.skip(AdtsHeader(bytes).bytes);
            return true;
        }
        window_.skip(used);
        return !samples || frame.samples == 0 || keep(samples, frame);
    }

    bool keep(const f32* samples, const NeAACDecFrameInfo& frame) {
        const u32 given = frame.channels;
        if (given == 0 || given > kMostChannels) return false;
        const u32 channels = wantsMono_ && given == 2 && frame.ps == 0 ? 1 : given;
        if (info_.channels == 0) {
            info_.channels = channels;
            info_.sampleRate = static_cast<u32>(std::min<unsigned long>(frame.samplerate, UINT32_MAX));
            blockFrames_ = static_cast<u32>(frame.samples / given);
        }
        if (given < info_.channels) return false; // another stream behind this one
        const std::size_t frames = frame.samples / given;
        decoded_.resize(frames * info_.channels);
        for (std::size_t i = 0; i < frames; ++i)
            std::copy_n(samples + i * given, info_.channels, decoded_.data() + i * info_.channels);
        // The centre comes first, if there is one: it goes behind left and right.
        const bool centreFirst = info_.channels > 2 && frame.channel_position[0] == FRONT_CHANNEL_CENTER;
        for (std::size_t i = 0; centreFirst && i < decoded_.size(); i += info_.channels)
            std::rotate(&decoded_[i], &decoded_[i + 1], &decoded_[i] + 3);
        return true;
    }

    std::shared_ptr<ByteSource> source_;
    Window window_;
    NeAACDecHandle decoder_ = nullptr;
    PackedStreamInfo info_;
    bool isAdts_ = false, wantsMono_ = false, damaged_ = false;
    u32 blockFrames_ = kAdtsFrames;
    std::vector<f32> decoded_; ///< of one block
    std::size_t taken_ = 0;    ///< samples of it that were handed out
};

class AacBlocks final : public SampleBlocks {
public:
    AacBlocks(std::unique_ptr<AacStream> stream, u32 frames)
        : SampleBlocks(stream->info().channels, frames, true), stream_(std::move(stream)) {}

protected:
    bool readNative(std::span<f32> to) override {
        while (!to.empty()) {
            const std::span<const f32> part = stream_->decode(to.size());
            if (part.empty()) break;
            std::ranges::copy(part, to.begin());
            to = to.subspan(part.size());
        }
        if (!to.empty() && !stream_->damaged()) return Fail(kContext, "Reading from file failed");
        std::ranges::fill(to, 0.0F);
        if (stream_->damaged() && !noted_)
            runContext().diagnostics.warn(0, std::string(kContext), "Damaged blocks are left out");
        noted_ = noted_ || stream_->damaged();
        return true;
    }

private:
    std::unique_ptr<AacStream> stream_;
    bool noted_ = false;
};

} // namespace

std::optional<PackedStreamInfo> probeAac(const std::shared_ptr<ByteSource>& stream, ByteSpan config) {
    const std::unique_ptr<AacStream> opened = AacStream::open(stream, config);
    if (!opened) return {};
    opened->countFrames();
    return opened->info();
}

std::unique_ptr<SampleBlocks> openAac(const std::shared_ptr<ByteSource>& stream, u64 start, u32 frames,
                                      u32 channels) {
    return openBareAac(stream, {}, start, frames, channels);
}

std::unique_ptr<SampleBlocks> openBareAac(const std::shared_ptr<ByteSource>& stream, ByteSpan config,
                                          u64 start, u32 frames, u32 channels) {
    std::unique_ptr<AacStream> opened = AacStream::open(stream, config);
    if (!opened) return nullptr;
    opened->info().frames = start + std::min<u64>(frames, ~start); // the caller found it out by the probe
    if (!holdsRange(kContext, opened->info(), start, frames, channels)) return nullptr;
    for (u64 left = start * channels; left > 0;) {
        const std::size_t got = opened->decode(static_cast<std::size_t>(left)).size();
        if (got == 0) {
            Fail(kContext, "Reading from file failed");
            return nullptr;
        }
        left -= got;
    }
    return std::make_unique<AacBlocks>(std::move(opened), frames);
}

} // namespace kv
