#include "formats/codecs/sndfile_stream.h"

#include <sndfile.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/sample_pieces.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "libsndfile";
constexpr std::size_t kPieceFrames = 16384;

struct SndfileLibrary {
    SharedLibrary library{"libsndfile1", {"libsndfile.so.1"}};
    decltype(sf_open_virtual)* open = nullptr;
    decltype(sf_close)* close = nullptr;
    decltype(sf_readf_short)* readShorts = nullptr;
    decltype(sf_readf_int)* readInts = nullptr;
    decltype(sf_readf_float)* readFloats = nullptr;
    decltype(sf_writef_short)* writeShorts = nullptr;
    decltype(sf_writef_int)* writeInts = nullptr;
    decltype(sf_writef_float)* writeFloats = nullptr;

    SndfileLibrary() {
        library.bind(open, "sf_open_virtual")
            .bind(close, "sf_close")
            .bind(readShorts, "sf_readf_short")
            .bind(readInts, "sf_readf_int")
            .bind(readFloats, "sf_readf_float")
            .bind(writeShorts, "sf_writef_short")
            .bind(writeInts, "sf_writef_int")
            .bind(writeFloats, "sf_writef_float");
    }
};

/// Stays open to the end: a stream may live as long.
const SndfileLibrary& sndfile() {
    static const SndfileLibrary& library = *new SndfileLibrary;
    return library;
}

struct FormatRow {
    int major;
    u32 codes; ///< that it is written with
};
constexpr FormatRow kFormats[] = {
    {SF_FORMAT_NIST, kPcm8 | kPcm16 | kPcm24 | kPcm32 | kMuLaw | kALaw},
    {SF_FORMAT_PAF, kPcm8 | kPcm16 | kPcm24},
    {SF_FORMAT_IRCAM, kPcm16 | kPcm32 | kFloat32 | kMuLaw | kALaw},
    {SF_FORMAT_MAT4, kPcm16 | kPcm32 | kFloat32 | kFloat64},
    {SF_FORMAT_MAT5, kPcm16 | kPcm32 | kFloat32 | kFloat64},
};

/// The working types of samples: what the library is asked for and given.
enum class Passing { Shorts, Ints, Floats };
struct CodeRow {
    int minor;
    u32 code, bits;
    Passing passing;
};
constexpr CodeRow kCodes[] = {
    {SF_FORMAT_PCM_S8, kPcm8, 8, Passing::Shorts},     {SF_FORMAT_PCM_U8, kPcm8, 8, Passing::Shorts},
    {SF_FORMAT_PCM_16, kPcm16, 16, Passing::Shorts},   {SF_FORMAT_PCM_24, kPcm24, 24, Passing::Ints},
    {SF_FORMAT_PCM_32, kPcm32, 32, Passing::Ints},     {SF_FORMAT_FLOAT, kFloat32, 32, Passing::Floats},
    {SF_FORMAT_DOUBLE, kFloat64, 64, Passing::Floats}, {SF_FORMAT_ULAW, kMuLaw, 8, Passing::Shorts},
    {SF_FORMAT_ALAW, kALaw, 8, Passing::Shorts},
};
constexpr CodeRow kOtherCode{0, 0, 0, Passing::Shorts};

const CodeRow& codeOf(int format) {
    const auto found = std::find_if(std::begin(kCodes), std::end(kCodes), [format](const CodeRow& row) {
        return row.minor == (format & SF_FORMAT_SUBMASK);
    });
    return found == std::end(kCodes) ? kOtherCode : *found;
}

// ---- Reading

/// An open file. Not to be moved: the library holds its place.
class SndfileReader {
public:
    static std::unique_ptr<SndfileReader> open(const std::shared_ptr<ByteSource>& source) {
        if (!sndfile().library.ready(kContext)) return nullptr;
        auto reader = std::make_unique<SndfileReader>(source);
        return reader->opened() ? std::move(reader) : nullptr;
    }
    explicit SndfileReader(const std::shared_ptr<ByteSource>& source) : input_(source) {}
    ~SndfileReader() {
        if (file_) sndfile().close(file_);
    }
    SndfileReader(const SndfileReader&) = delete;
    SndfileReader& operator=(const SndfileReader&) = delete;

    const SndfileInfo& info() const { return info_; }
    Passing passing() const { return passing_; }

    /// Reads whole frames; false when fewer come.
    bool read(std::span<i16> to) {
        return whole(sndfile().readShorts(file_, to.data(), framesIn(to.size())), to.size());
    }
    bool read(std::span<int> to) {
        return whole(sndfile().readInts(file_, to.data(), framesIn(to.size())), to.size());
    }
    bool read(std::span<f32> to) {
        return whole(sndfile().readFloats(file_, to.data(), framesIn(to.size())), to.size());
    }

private:
    static PackedInput& input(void* client) noexcept { return static_cast<SndfileReader*>(client)->input_; }
    static sf_count_t length(void* client) noexcept { return input(client).size(); }
    static sf_count_t seek(sf_count_t distance, int whence, void* client) noexcept {
        (void)input(client).seek(distance, whence);
        return input(client).position();
    }
    static sf_count_t readBytes(void* to, sf_count_t count, void* client) noexcept {
        return count <= 0 ? 0
                          : static_cast<sf_count_t>(input(client).read(to, static_cast<std::size_t>(count)));
    }
    static sf_count_t writeBytes(const void*, sf_count_t, void*) noexcept { return 0; }
    static sf_count_t tell(void* client) noexcept { return input(client).position(); }

    sf_count_t framesIn(std::size_t samples) const {
        return static_cast<sf_count_t>(samples / info_.stream.channels);
    }
    bool whole(sf_count_t frames, std::size_t samples) const { return frames == framesIn(samples); }

    bool opened() {
        SF_VIRTUAL_IO io{length, seek, readBytes, writeBytes, tell};
        SF_INFO found{};
        file_ = sndfile().open(&io, SFM_READ, &found, this);
        if (!file_) return Fail(kContext, "Unsupported file");
        const auto format = std::find_if(std::begin(kFormats), std::end(kFormats), [&](const FormatRow& row) {
            return row.major == (found.format & SF_FORMAT_TYPEMASK);
        });
        if (format == std::end(kFormats)) return Fail(kContext, "Unsupported file");
        if (found.channels < 1) return Fail(kContext, "No channels");
        if (found.samplerate < 1) return Fail(kContext, "No sample rate");
        if (found.frames < 0 || found.frames > input_.size()) // none of these formats packs them
            return Fail(kContext, "Reading from file failed");
        const CodeRow& code = codeOf(found.format);
        info_.format = static_cast<SndfileFormat>(format - std::begin(kFormats));
        info_.code = code.code;
        info_.stream.channels = static_cast<u32>(found.channels);
        info_.stream.sampleRate = static_cast<u32>(found.samplerate);
        info_.stream.frames = static_cast<u64>(found.frames);
        info_.stream.bits = code.bits;
        info_.stream.isFloat = code.passing != Passing::Shorts;
        passing_ = code.passing;
        return true;
    }

    PackedInput input_;
    SNDFILE* file_ = nullptr;
    SndfileInfo info_;
    Passing passing_ = Passing::Shorts;
};

class SndfileBlocks final : public SampleBlocks {
public:
    SndfileBlocks(std::unique_ptr<SndfileReader> reader, u32 frames, u32 channels)
        : SampleBlocks(channels, frames, reader->info().stream.isFloat), reader_(std::move(reader)) {}

protected:
    bool readNative(std::span<i16> to) override {
        if (!fill(to, shorts_, [](i16 v) { return v; })) return false;
        if (reader_->info().code == kPcm8) { // full scale on both sides, as plain bytes have it
            for (i16& v : to) v = static_cast<i16>((v >> 8) * 257 + 128);
        }
        return true;
    }
    bool readNative(std::span<f32> to) override {
        if (reader_->passing() == Passing::Floats) return fill(to, floats_, [](f32 v) { return v; });
        return fill(to, ints_, [](int v) { return static_cast<f32>(v) * 0x1p-31F; });
    }

private:
    /// Reads frames of all channels in pieces and keeps the first ones.
    template <class From, class To, class Convert>
    bool fill(std::span<To> to, std::vector<From>& piece, Convert convert) {
        const std::size_t all = reader_->info().stream.channels;
        for (std::size_t done = 0; done < to.size();) {
            const std::size_t frames =
                std::min((to.size() - done) / channels(), std::max<std::size_t>(1, kPieceFrames / all));
            piece.resize(frames * all);
            if (!reader_->read(std::span(piece))) return Fail(kContext, "Reading from file failed");
            for (std::size_t frame = 0; frame < frames; ++frame) {
                for (u32 c = 0; c < channels(); ++c) to[done++] = convert(piece[frame * all + c]);
            }
        }
        return true;
    }

    std::unique_ptr<SndfileReader> reader_;
    std::vector<i16> shorts_;
    std::vector<int> ints_;
    std::vector<f32> floats_;
};

// ---- Writing

/// A sink as the library writes it: at a place that moves.
class SinkOutput {
public:
    explicit SinkOutput(ByteSink& sink) : sink_(sink) {}

    static SF_VIRTUAL_IO functions() {
        return {
            [](void* client) { return self(client).size(); },
            [](sf_count_t distance, int whence, void* client) { return self(client).seek(distance, whence); },
            [](void*, sf_count_t, void*) { return sf_count_t{0}; },
            [](const void* from, sf_count_t count, void* client) { return self(client).write(from, count); },
            [](void* client) { return self(client).at_; }};
    }
    bool failed() const { return failed_; }

private:
    static SinkOutput& self(void* client) noexcept { return *static_cast<SinkOutput*>(client); }
    sf_count_t size() const { return static_cast<sf_count_t>(sink_.position()); }

    sf_count_t seek(sf_count_t distance, int whence) noexcept {
        const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? at_ : size();
        if (from + distance >= 0) at_ = from + distance;
        return at_;
    }
    sf_count_t write(const void* from, sf_count_t count) noexcept {
        try {
            ByteSpan bytes(static_cast<const std::byte*>(from), static_cast<std::size_t>(count));
            if (at_ > size()) failed_ |= !sink_.write(Bytes(static_cast<std::size_t>(at_ - size())));
            const ByteSpan old = bytes.first(std::min(bytes.size(), static_cast<std::size_t>(size() - at_)));
            if (!old.empty()) failed_ |= !sink_.patch(static_cast<u64>(at_), old);
            if (old.size() < bytes.size()) failed_ |= !sink_.write(bytes.subspan(old.size()));
        } catch (...) { // nothing is thrown through the library
            failed_ = true;
        }
        if (failed_) return 0;
        at_ += count;
        return count;
    }

    ByteSink& sink_;
    sf_count_t at_ = 0;
    bool failed_ = false;
};

bool writeAll(SNDFILE* file, SampleBlocks& blocks, const CodeRow& code, u32 channels, bool fillsBlocks) {
    const auto written = [&](sf_count_t frames, std::size_t samples) {
        return frames == static_cast<sf_count_t>(samples / channels) ||
               Fail(kContext, "Writing to file failed");
    };
    const auto framesIn = [&](std::size_t samples) { return static_cast<sf_count_t>(samples / channels); };
    switch (code.passing) {
        case Passing::Shorts:
            return writePieces<i16>(blocks, channels, kPieceFrames, kContext, [&](std::span<const i16> from) {
                return written(sndfile().writeShorts(file, from.data(), framesIn(from.size())), from.size());
            });
        case Passing::Floats:
            return writePieces<f32>(blocks, channels, kPieceFrames, kContext, [&](std::span<const f32> from) {
                return written(sndfile().writeFloats(file, from.data(), framesIn(from.size())), from.size());
            });
        case Passing::Ints:
            break;
    }
    std::vector<int> numbers;
    const bool done =
        writePieces<f32>(blocks, channels, kPieceFrames, kContext, [&](std::span<const f32> from) {
            numbers.resize(from.size());
            std::transform(from.begin(), from.end(), numbers.begin(), [&](f32 x) {
                return static_cast<int>(static_cast<u32>(quantise(x, static_cast<int>(code.bits)))
                                        << (32 - code.bits));
            });
            return written(sndfile().writeInts(file, numbers.data(), framesIn(from.size())), from.size());
        });
    if (!done) return false;
    // PARIS files have blocks of 10 frames, and the library leaves old samples at the end of the last one.
    constexpr u32 kParisBlockFrames = 10;
    const u32 missing = (kParisBlockFrames - blocks.frames() % kParisBlockFrames) % kParisBlockFrames;
    if (!fillsBlocks || missing == 0) return true;
    numbers.assign(std::size_t{missing} * channels, 0);
    return written(sndfile().writeInts(file, numbers.data(), missing), numbers.size());
}

} // namespace

std::optional<SndfileInfo> probeSndfile(const std::shared_ptr<ByteSource>& file) {
    const std::unique_ptr<SndfileReader> reader = SndfileReader::open(file);
    if (!reader) return {};
    return reader->info();
}

std::unique_ptr<SampleBlocks> openSndfile(const std::shared_ptr<ByteSource>& file, u32 frames, u32 channels) {
    std::unique_ptr<SndfileReader> reader = SndfileReader::open(file);
    if (!reader) return nullptr;
    PackedStreamInfo kept = reader->info().stream;
    kept.channels = std::min(kept.channels, 2U);
    if (!holdsRange(kContext, kept, 0, frames, channels)) return nullptr;
    return std::make_unique<SndfileBlocks>(std::move(reader), frames, channels);
}

u32 sndfileCodes(SndfileFormat format) {
    return kFormats[static_cast<std::size_t>(format)].codes;
}

bool writeSndfile(SampleBlocks& blocks, SndfileFormat format, u32 code, u32 rate, u32 channels,
                  ByteSink& sink) {
    const auto row = std::find_if(std::begin(kCodes), std::end(kCodes),
                                  [code](const CodeRow& c) { return c.code == code; });
    if (row == std::end(kCodes) || (sndfileCodes(format) & code) == 0)
        return Fail(kContext, "Unsupported subformat");
    if (!sndfile().library.ready(kContext)) return false;
    SinkOutput output(sink);
    SF_VIRTUAL_IO io = SinkOutput::functions();
    SF_INFO info{};
    info.samplerate = saturate<int>(rate);
    info.channels = static_cast<int>(channels);
    info.format = kFormats[static_cast<std::size_t>(format)].major | row->minor;
    SNDFILE* const file = sndfile().open(&io, SFM_WRITE, &info, &output);
    if (!file) return Fail(kContext, "Unsupported subformat");
    const bool done = writeAll(file, blocks, *row, channels, format == SndfileFormat::Paf);
    const bool closed = sndfile().close(file) == 0; // writes what is still held and the header's sizes
    return done && ((closed && !output.failed()) || Fail(kContext, "Writing to file failed"));
}

} // namespace kv
