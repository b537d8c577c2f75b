#include "formats/media/media_export.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/run_context.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "formats/media/media_kinds.h"
#include "formats/media/media_library.h"
#include "model/resampled_blocks.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr u32 kChannelBits = kMonoBit | kStereoBit;

/// The encoder and the bits of its samples for a data format.
struct Coding {
    const char* encoder = nullptr; ///< null: the kind doesn't have it
    i32 bits = 0;                  ///< 0: lossy
};

Coding codingFor(const MediaKindRow& kind, u32 code) {
    if (code == kPcm16) return {kind.encoder16, 16};
    if (code == kPcm24) return {kind.encoder24, 24};
    if (code == kCompressed || code == 0) return {kind.encoder, 0};
    return {};
}

/// What is left to be chosen of a bit rate, in kbit/s.
f64 chooseKbps(const MediaKindRow& kind, const Wave& wave, u32 channels, u32 rate, f32 asked) {
    constexpr f64 kPerChannel = 96, kUsualRate = 44100;
    // An AAC frame of 1024 samples has at most 6144 bits to a channel (ISO/IEC 14496-3).
    const f64 most = 6 * channels * rate / 1000.0;
    f64 kbps = static_cast<f64>(asked);
    if (kbps <= 0 && wave.compressedKbps >= 8) kbps = nearestCompressedRate(wave.compressedKbps);
    if (kbps <= 0) kbps = kPerChannel * channels * std::min(rate / kUsualRate, 1.0);
    return std::max(std::min(kbps, most), kind.leastKbps);
}

/// The places of a wave as chapters, in order; each lasts up to the next.
std::vector<MediaChapter> chaptersOf(const Wave& wave) {
    std::vector<const CuePoint*> cues;
    for (const CuePoint& cue : wave.cuePoints) {
        if (cue.position < wave.frames) cues.push_back(&cue);
    }
    std::stable_sort(cues.begin(), cues.end(),
                     [](const CuePoint* a, const CuePoint* b) { return a->position < b->position; });
    std::vector<MediaChapter> chapters;
    for (std::size_t i = 0; i < cues.size(); ++i) {
        const u32 next = i + 1 < cues.size() ? cues[i + 1]->position : wave.frames;
        const u32 start = cues[i]->position;
        const u32 end = cues[i]->length == 0 ? next : std::min(cues[i]->length, next - start) + start;
        chapters.push_back({static_cast<f64>(start) / wave.sampleRate,
                            static_cast<f64>(end) / wave.sampleRate, cues[i]->label.c_str()});
    }
    return chapters;
}

std::vector<MediaText> textsOf(const Wave& wave) {
    const MediaText all[] = {
        {"title", wave.name().c_str()},        {"artist", wave.artist.c_str()},
        {"album", wave.album.c_str()},         {"comment", wave.comments.c_str()},
        {"copyright", wave.copyright.c_str()}, {"encoded_by", wave.engineer.c_str()},
    };
    std::vector<MediaText> texts;
    for (const MediaText& text : all) {
        if (*text.value) texts.push_back(text);
    }
    return texts;
}

/// Lets the module write anywhere in a sink that only grows at its end and is patched elsewhere.
class PatchedOutput {
public:
    explicit PatchedOutput(ByteSink& sink) : sink_(sink), base_(sink.position()) {}
    MediaOutput output() { return {this, write}; }

private:
    static i32 write(void* client, i64 offset, const u8* from, i32 count) noexcept {
        auto& self = *static_cast<PatchedOutput*>(client);
        ByteSpan bytes = std::as_bytes(std::span(from, static_cast<std::size_t>(count)));
        const u64 at = self.base_ + static_cast<u64>(offset), end = self.sink_.position();
        if (at > end) return 0;
        const ByteSpan over = bytes.first(static_cast<std::size_t>(std::min<u64>(bytes.size(), end - at)));
        const ByteSpan more = bytes.subspan(over.size());
        return (over.empty() || self.sink_.patch(at, over)) && (more.empty() || self.sink_.write(more)) ? 1
                                                                                                        : 0;
    }

    ByteSink& sink_;
    u64 base_;
};

/// Takes samples as they are written and hands them to the encoder.
class EncoderSink final : public ByteSink {
public:
    EncoderSink(const MediaModule& module, MediaWriter* writer, u32 frameBytes)
        : module_(module), writer_(writer), frameBytes_(frameBytes) {}
    bool write(ByteSpan bytes) override {
        position_ += bytes.size();
        return bytes.size() % frameBytes_ == 0 &&
               module_.push(writer_, bytes.data(), static_cast<i64>(bytes.size() / frameBytes_)) != 0;
    }
    bool patch(u64, ByteSpan) override { return false; }
    u64 position() const override { return position_; }

private:
    const MediaModule& module_;
    MediaWriter* writer_;
    std::size_t frameBytes_;
    u64 position_ = 0;
};

/// A file that the module has open for writing.
class OpenWriter {
public:
    OpenWriter(const MediaModule& module, const MediaOutput& output, const MediaTarget& target)
        : module_(module),
          writer_(module.create(&output, &target, message_.data(), static_cast<i32>(message_.size()))) {}
    ~OpenWriter() {
        if (writer_) module_.discard(writer_);
    }
    OpenWriter(const OpenWriter&) = delete;
    OpenWriter& operator=(const OpenWriter&) = delete;
    MediaWriter* get() const { return writer_; }
    bool finish() { return module_.finish(writer_) != 0; }
    std::string_view message() const { return message_.data(); }

private:
    const MediaModule& module_;
    std::array<char, 200> message_{};
    MediaWriter* writer_;
};

/// Options of the container; those of raw AAC are settings of the program.
std::string muxerOptions(const MediaKindRow& kind, u32 subType, u32 rate) {
    const std::string_view muxer = kind.muxer;
    if (muxer == "asf") return {};
    // Edits are then counted in samples, so that the length comes out exactly.
    if (muxer != "adts") return fmt::format("movie_timescale={}", rate);
    const auto& aac = settings().fmt.aac;
    const bool mpeg2 = subType == kMediaAacMpeg2 || subType == kMediaAacMpeg2Main;
    return fmt::format("write_mpeg2={:d}:write_id3v2={:d}:write_apetag={:d}", mpeg2, aac.bWriteID3,
                       aac.bWriteAPE);
}

std::string encoderOptions(const MediaKindRow& kind, const Coding& coding) {
    std::string options = coding.bits == 0 ? kind.encoderOptions : "";
    if (std::string_view(kind.muxer) == "adts" && !settings().fmt.aac.bWriteMS) options += ":aac_ms=0";
    return options;
}

void reportMediaLosses(const Wave& wave, const MediaKindRow& kind, bool sameRate) {
    reportLosses(wave, (sameRate ? u32{kKeepsRate} : 0) | (kind.keepsTexts ? u32{kKeepsTexts} : 0) |
                           (kind.keepsCues ? u32{kKeepsCues} : 0));
    if (kind.keepsTexts && !kind.keepsEngineer && !wave.engineer.empty())
        runContext().diagnostics.add(
            {Severity::Loss, 0, wave.name().str(), "engineer", "the format has no place for it"});
}

} // namespace

bool media_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate) {
    const MediaKindRow& kind = mediaKind(subType);
    const std::string_view context = kind.exportContext;
    const Coding coding = codingFor(kind, formatWord & kCodeMask);
    if (!kind.muxer || !coding.encoder) return Fail(context, "Unsupported subformat");
    const MediaModule* module = mediaModule(context);
    if (!module) return false;
    // Samples cross over as plain ones; the form of the file is the encoder's business.
    const u32 word = (formatWord & kChannelBits) | (coding.bits == 16 ? kPcm16 : kFloat32);
    SampleExport wanted = openExport(context, item, word, perWave);
    if (!wanted) return false;
    const Wave& wave = *wanted.wave;
    const u32 rate = coding.bits == 0 ? encoderRate(kind, wave.sampleRate) : wave.sampleRate;
    const std::unique_ptr<SampleBlocks> blocks =
        resampled(std::move(wanted.blocks), wave.sampleRate, rate, 4, sourceBitsOf(wave));
    if (!blocks) return false;
    reportMediaLosses(wave, kind, rate == wave.sampleRate);

    const std::vector<MediaText> texts = textsOf(wave);
    const std::vector<MediaChapter> chapters =
        kind.keepsCues ? chaptersOf(wave) : std::vector<MediaChapter>();
    const std::string muxing = muxerOptions(kind, subType, rate), encoding = encoderOptions(kind, coding);
    const MediaTarget target{
        .container = kind.muxer,
        .codec = coding.encoder,
        .muxerOptions = muxing.c_str(),
        .encoderOptions = encoding.c_str(),
        .rate = static_cast<i32>(rate),
        .channels = static_cast<i32>(wanted.channels),
        .bits = coding.bits,
        .kbps = coding.bits == 0 ? chooseKbps(kind, wave, wanted.channels, rate, bitRate) : 0,
        .edgeFrames = static_cast<i32>(kind.edgeFrames),
        .texts = texts.data(),
        .textCount = static_cast<i32>(texts.size()),
        .chapters = chapters.data(),
        .chapterCount = static_cast<i32>(chapters.size()),
    };
    PatchedOutput output(*file.sink);
    OpenWriter writer(*module, output.output(), target);
    if (!writer.get()) return Fail(context, writer.message());
    EncoderSink samples(*module, writer.get(), wanted.channels * wanted.sampleBytes);
    if (!writeSamples(*blocks, wanted.word, samples)) return false;
    return writer.finish() || Fail(context, "Writing to file failed");
}

} // namespace kv
