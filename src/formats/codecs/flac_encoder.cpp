#include "formats/codecs/flac_encoder.h"

#include <FLAC/stream_encoder.h>

#include <algorithm>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "FLAC";
constexpr u32 kSeekSeconds = 10;
constexpr std::size_t kMostBlockBytes = (1 << 24) - 1;

struct FlacEncoderLibrary {
    SharedLibrary library{"libflac12", {"libFLAC.so.12", "libFLAC.so.8"}};
    decltype(FLAC__stream_encoder_new)* create = nullptr;
    decltype(FLAC__stream_encoder_delete)* destroy = nullptr;
    decltype(FLAC__stream_encoder_set_channels)* setChannels = nullptr;
    decltype(FLAC__stream_encoder_set_bits_per_sample)* setBits = nullptr;
    decltype(FLAC__stream_encoder_set_sample_rate)* setRate = nullptr;
    decltype(FLAC__stream_encoder_set_compression_level)* setLevel = nullptr;
    decltype(FLAC__stream_encoder_set_streamable_subset)* setSubset = nullptr;
    decltype(FLAC__stream_encoder_set_total_samples_estimate)* setFrames = nullptr;
    decltype(FLAC__stream_encoder_set_metadata)* setMetadata = nullptr;
    decltype(FLAC__stream_encoder_init_stream)* open = nullptr;
    decltype(FLAC__stream_encoder_process_interleaved)* pack = nullptr;
    decltype(FLAC__stream_encoder_finish)* finish = nullptr;

    FlacEncoderLibrary() {
        library.bind(create, "FLAC__stream_encoder_new")
            .bind(destroy, "FLAC__stream_encoder_delete")
            .bind(setChannels, "FLAC__stream_encoder_set_channels")
            .bind(setBits, "FLAC__stream_encoder_set_bits_per_sample")
            .bind(setRate, "FLAC__stream_encoder_set_sample_rate")
            .bind(setLevel, "FLAC__stream_encoder_set_compression_level")
            .bind(setSubset, "FLAC__stream_encoder_set_streamable_subset")
            .bind(setFrames, "FLAC__stream_encoder_set_total_samples_estimate")
            .bind(setMetadata, "FLAC__stream_encoder_set_metadata")
            .bind(open, "FLAC__stream_encoder_init_stream")
            .bind(pack, "FLAC__stream_encoder_process_interleaved")
            .bind(finish, "FLAC__stream_encoder_finish");
    }
};

const FlacEncoderLibrary& flac() {
    static const FlacEncoderLibrary& library = *new FlacEncoderLibrary;
    return library;
}

/// The metadata blocks as the library takes them; it keeps pointers to all of this.
class FlacBlocksOut {
public:
    FlacBlocksOut(const FlacSettings& settings, bool canPatch)
        : comments_(settings.comments), applications_(settings.applications) {
        if (canPatch) addSeekTable(settings);
        for (Bytes& contents : applications_) addApplication(contents);
        addComments();
        for (FLAC__StreamMetadata& block : blocks_) pointers_.push_back(&block);
    }
    FlacBlocksOut(const FlacBlocksOut&) = delete;
    FlacBlocksOut& operator=(const FlacBlocksOut&) = delete;

    std::span<FLAC__StreamMetadata*> pointers() { return pointers_; }

private:
    /// Points that the library fills in as it comes by.
    void addSeekTable(const FlacSettings& settings) {
        const u64 step = u64{settings.sampleRate} * kSeekSeconds;
        if (step == 0 || settings.frames <= step) return;
        for (u64 frame = 0; frame < settings.frames; frame += step) points_.push_back({frame, 0, 0});
        const std::size_t bytes = points_.size() * FLAC__STREAM_METADATA_SEEKPOINT_LENGTH;
        if (bytes > kMostBlockBytes) return;
        FLAC__StreamMetadata& block = add(FLAC__METADATA_TYPE_SEEKTABLE, bytes);
        block.data.seek_table.num_points = static_cast<u32>(points_.size());
        block.data.seek_table.points = points_.data();
    }
    void addApplication(Bytes& contents) {
        constexpr std::size_t kIdBytes = 4;
        if (contents.size() + kIdBytes > kMostBlockBytes) {
            runContext().diagnostics.warn(0, std::string(kContext), "A chunk is too large to be kept");
            return;
        }
        FLAC__StreamMetadata& block = add(FLAC__METADATA_TYPE_APPLICATION, contents.size() + kIdBytes);
        std::ranges::copy(std::string_view("riff"), block.data.application.id);
        block.data.application.data = reinterpret_cast<FLAC__byte*>(contents.data());
    }
    void addComments() {
        std::size_t bytes = 8; // the library puts the name of its maker in, and counts it
        for (std::string& comment : comments_) {
            entries_.push_back(
                {static_cast<u32>(comment.size()), reinterpret_cast<FLAC__byte*>(comment.data())});
            bytes += 4 + comment.size();
        }
        FLAC__StreamMetadata& block = add(FLAC__METADATA_TYPE_VORBIS_COMMENT, bytes);
        block.data.vorbis_comment.num_comments = static_cast<u32>(entries_.size());
        block.data.vorbis_comment.comments = entries_.data();
    }
    FLAC__StreamMetadata& add(FLAC__MetadataType type, std::size_t bytes) {
        FLAC__StreamMetadata block{};
        block.type = type;
        block.length = static_cast<u32>(bytes);
        return blocks_.emplace_back(block);
    }

    std::vector<std::string> comments_;
    std::vector<Bytes> applications_;
    std::vector<FLAC__StreamMetadata_SeekPoint> points_;
    std::vector<FLAC__StreamMetadata_VorbisComment_Entry> entries_;
    std::vector<FLAC__StreamMetadata> blocks_;
    std::vector<FLAC__StreamMetadata*> pointers_;
};

class FlacEncoder final : public PackingSink {
public:
    FlacEncoder(ByteSink& out, const FlacSettings& settings, u32 bits)
        : PackingSink(settings.code, settings.channels),
          output_(out),
          metadata_(settings, output_.canSeek()),
          bits_(bits) {}
    ~FlacEncoder() override {
        if (encoder_) flac().destroy(encoder_);
    }
    FlacEncoder(const FlacEncoder&) = delete;
    FlacEncoder& operator=(const FlacEncoder&) = delete;

    bool open(const FlacSettings& settings) {
        encoder_ = flac().create();
        if (!encoder_) return Fail(kContext, "Out of memory");
        // A header of a frame has no place for odd rates beyond 16 bits; decoders of streams need it there.
        const bool streamable = settings.sampleRate <= 65535 || settings.sampleRate % 10 == 0;
        const std::span<FLAC__StreamMetadata*> blocks = metadata_.pointers();
        const bool accepted =
            flac().setChannels(encoder_, settings.channels) && flac().setBits(encoder_, bits_) &&
            flac().setRate(encoder_, settings.sampleRate) && flac().setLevel(encoder_, settings.level) &&
            flac().setSubset(encoder_, streamable) && flac().setFrames(encoder_, settings.frames) &&
            flac().setMetadata(encoder_, blocks.data(), static_cast<u32>(blocks.size()));
        const bool patches = output_.canSeek();
        if (!accepted || flac().open(encoder_, write, patches ? seek : nullptr, patches ? tell : nullptr,
                                     nullptr, this) != FLAC__STREAM_ENCODER_INIT_STATUS_OK)
            return output_.failed() ? Fail(kContext, "Writing to file failed")
                                    : Fail(kContext, "libFLAC can't pack {} Hz", settings.sampleRate);
        return true;
    }

    bool finish() override {
        const bool finished = flac().finish(encoder_) != 0;
        return (finished && !output_.failed()) || Fail(kContext, "Writing to file failed");
    }

protected:
    bool pack(ByteSpan frames) override {
        return packWidened(frames, bits_ / 8, channels(), wide_, [this](std::span<i32> samples) {
            return flac().pack(encoder_, samples.data(), static_cast<u32>(samples.size() / channels())) != 0;
        });
    }

private:
    static PackedOutput& output(void* client) noexcept { return static_cast<FlacEncoder*>(client)->output_; }

    static FLAC__StreamEncoderWriteStatus write(const FLAC__StreamEncoder*, const FLAC__byte* bytes,
                                                std::size_t count, std::uint32_t, std::uint32_t,
                                                void* client) noexcept {
        return output(client).write(bytes, count) ? FLAC__STREAM_ENCODER_WRITE_STATUS_OK
                                                  : FLAC__STREAM_ENCODER_WRITE_STATUS_FATAL_ERROR;
    }
    static FLAC__StreamEncoderSeekStatus seek(const FLAC__StreamEncoder*, FLAC__uint64 offset,
                                              void* client) noexcept {
        return output(client).seek(offset) ? FLAC__STREAM_ENCODER_SEEK_STATUS_OK
                                           : FLAC__STREAM_ENCODER_SEEK_STATUS_ERROR;
    }
    static FLAC__StreamEncoderTellStatus tell(const FLAC__StreamEncoder*, FLAC__uint64* offset,
                                              void* client) noexcept {
        *offset = output(client).position();
        return FLAC__STREAM_ENCODER_TELL_STATUS_OK;
    }

    PackedOutput output_;
    FlacBlocksOut metadata_;
    u32 bits_;
    FLAC__StreamEncoder* encoder_ = nullptr;
    std::vector<i32> wide_;
};

} // namespace

std::unique_ptr<PackingSink> makeFlacEncoder(ByteSink& out, const FlacSettings& settings) {
    if (!flac().library.ready(kContext)) return nullptr;
    u32 bits = 0;
    FormatCodeInfo(settings.code, nullptr, &bits);
    if (bits != 8 && bits != 16 && bits != 24) {
        Fail(kContext, "Unsupported subformat");
        return nullptr;
    }
    auto encoder = std::make_unique<FlacEncoder>(out, settings, bits);
    if (!encoder->open(settings)) return nullptr;
    return encoder;
}

} // namespace kv
