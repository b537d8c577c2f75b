#include "formats/media/media_import.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/run_context.h"
#include "formats/codecs/amr_frames.h"
#include "formats/framework/gain_tags.h"
#include "formats/media/media_kinds.h"
#include "formats/media/media_library.h"
#include "model/collection.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

/// Layout of the private area of such a wave.
enum Private : std::size_t { kKind, kTrack, kLead };

/// A media file that the module has open.
class OpenMedia {
public:
    /// Null with the error pair set on failure.
    static std::unique_ptr<OpenMedia> open(const FileContext& file, u32 kind) {
        const MediaKindRow& row = mediaKind(kind);
        const MediaModule* module = mediaModule(row.importContext);
        if (!module) return nullptr;
        std::unique_ptr<OpenMedia> media(new OpenMedia(*module, sourceOf(file, kind)));
        if (!media->source_) {
            Fail(row.importContext, "Could not open file");
            return nullptr;
        }
        std::array<char, 200> message{};
        media->reader_ =
            module->open(&media->input_, row.demuxer, message.data(), static_cast<i32>(message.size()));
        if (media->reader_) return media;
        Fail(row.importContext, std::string_view(message.data()));
        return nullptr;
    }
    ~OpenMedia() {
        if (reader_) module_.close(reader_);
    }
    OpenMedia(const OpenMedia&) = delete;
    OpenMedia& operator=(const OpenMedia&) = delete;

    bool scan() { return module_.scan(reader_) != 0; }
    bool start(u32 track) { return module_.start(reader_, static_cast<i32>(track)) != 0; }
    u64 decode(void* to, u64 frames) {
        return static_cast<u64>(std::max<i64>(module_.decode(reader_, to, static_cast<i64>(frames)), 0));
    }
    /// Decodes frames that don't count.
    bool skip(u64 frames, u32 channels) {
        constexpr u64 kStep = 4096;
        std::vector<f32> nowhere(kStep * channels); // large enough for either form
        while (frames > 0) {
            const u64 done = decode(nowhere.data(), std::min(frames, kStep));
            if (done == 0) return false;
            frames -= done;
        }
        return true;
    }
    std::vector<MediaTrack> tracks() const { return list<MediaTrack>(module_.trackCount, module_.track); }
    std::vector<MediaText> texts() const { return list<MediaText>(module_.textCount, module_.text); }
    std::vector<MediaChapter> chapters() const {
        return list<MediaChapter>(module_.chapterCount, module_.chapter);
    }

private:
    OpenMedia(const MediaModule& module, std::shared_ptr<ByteSource> source)
        : module_(module),
          source_(std::move(source)),
          input_{source_.get(), source_ ? saturate<i64>(static_cast<f64>(source_->size())) : 0, read} {}

    /// The file itself, or what its bytes are in a form that libav knows.
    static std::shared_ptr<ByteSource> sourceOf(const FileContext& file, u32 kind) {
        constexpr u64 kMostSpeechBytes = 64 << 20; // twelve hours
        if (!file.source || kind != kMediaAmrIf2) return file.source;
        Bytes frames(static_cast<std::size_t>(std::min(file.source->size(), kMostSpeechBytes)));
        frames.resize(file.source->readAt(0, frames));
        return std::make_shared<MemorySource>(amrFileOfIf2(frames));
    }
    static i32 read(void* client, i64 offset, u8* to, i32 count) noexcept {
        const auto bytes = std::as_writable_bytes(std::span(to, static_cast<std::size_t>(count)));
        return static_cast<i32>(static_cast<ByteSource*>(client)->readAt(static_cast<u64>(offset), bytes));
    }
    template <class T>
    std::vector<T> list(i32 (*count)(const MediaReader*), i32 (*entry)(const MediaReader*, i32, T*)) const {
        std::vector<T> all;
        T one{};
        for (i32 i = 0; i < count(reader_); ++i) {
            if (entry(reader_, i, &one) != 0) all.push_back(one);
        }
        return all;
    }

    const MediaModule& module_;
    std::shared_ptr<ByteSource> source_;
    MediaInput input_;
    MediaReader* reader_ = nullptr;
};

/// A track's samples. What a damaged file doesn't give is silence.
class MediaBlocks final : public SampleBlocks {
public:
    MediaBlocks(std::unique_ptr<OpenMedia> media, const Wave& wave, bool isFloat)
        : SampleBlocks(wave.channels, wave.frames, isFloat),
          media_(std::move(media)),
          name_(wave.name().str()) {}

protected:
    bool readNative(std::span<i16> to) override { return fill(to); }
    bool readNative(std::span<f32> to) override { return fill(to); }

private:
    template <class T>
    bool fill(std::span<T> to) {
        const u64 done = media_->decode(to.data(), to.size() / channels()) * channels();
        if (done == to.size()) return true;
        std::fill(to.begin() + static_cast<std::ptrdiff_t>(done), to.end(), T{0});
        if (!warned_)
            runContext().diagnostics.add(
                {Severity::Warning, 0, name_, "samples", "the track is damaged: its end is silence"});
        warned_ = true;
        return true;
    }

    std::unique_ptr<OpenMedia> media_;
    std::string name_;
    bool warned_ = false;
};

std::unique_ptr<SampleBlocks> openTrack(const Wave& wave, FileContext& file) {
    const u32 kind = wave.sourcePrivate[kKind], track = wave.sourcePrivate[kTrack];
    std::unique_ptr<OpenMedia> media = OpenMedia::open(file, kind);
    if (!media) return nullptr;
    const std::vector<MediaTrack> tracks = media->tracks();
    if (track >= tracks.size() || static_cast<u32>(tracks[track].channels) != wave.channels ||
        !media->start(track)) {
        Fail(mediaKind(kind).importContext, "Reading from file failed");
        return nullptr;
    }
    if (!media->skip(wave.sourcePrivate[kLead], wave.channels)) {
        Fail(mediaKind(kind).importContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<MediaBlocks>(std::move(media), wave, tracks[track].form == kMediaFloat);
}

const WaveReader mediaReader{"media_ImpWave", loadThroughBlocks, openTrack};

u32 dataFormatOf(const MediaTrack& track) {
    const std::string_view codec = track.codec;
    if (codec == "pcm_mulaw") return kMuLaw;
    if (codec == "pcm_alaw") return kALaw;
    if (track.lossless == 0) return kCompressed;
    if (codec.starts_with("pcm_f")) return kFloat32;
    return track.bits <= 8 ? kPcm8 : track.bits <= 16 ? kPcm16 : track.bits <= 24 ? kPcm24 : kPcm32;
}

std::string utf8(const char* text) {
    return isUtf8(text) ? std::string(text) : AnsiToUtf8(text);
}

void takeTexts(Wave& wave, std::span<const MediaText> texts) {
    for (const MediaText& text : texts) {
        const std::string_view key = text.key;
        const std::string value = utf8(text.value);
        takeGainTag(wave, key, value);
        if (key == "artist") wave.artist = value;
        if (key == "album") wave.album = value;
        if (key == "comment") wave.comments = value;
        if (key == "copyright") wave.copyright = value;
        if (key == "encoded_by") wave.engineer = value;
    }
}

/// A chapter is a place; one that ends before the next begins, a range.
void takeChapters(Wave& wave, std::span<const MediaChapter> chapters) {
    const auto frameOf = [&](f64 seconds) {
        return saturate<u32>(std::max(seconds, 0.0) * wave.sampleRate + 0.5);
    };
    for (std::size_t i = 0; i < chapters.size(); ++i) {
        CuePoint cue;
        cue.position = frameOf(chapters[i].start);
        if (cue.position >= wave.frames) continue;
        const u32 end = frameOf(chapters[i].end);
        const u32 next = i + 1 < chapters.size() ? frameOf(chapters[i + 1].start) : wave.frames;
        const u32 slack = wave.sampleRate / 500; // containers round to a millisecond
        if (end > cue.position && u64{end} + slack < next) cue.length = end - cue.position;
        cue.label = utf8(chapters[i].title);
        wave.cuePoints.push_back(cue);
    }
}

/// The name of the `index`-th track: its own title, the file's if it is the only one, or a number.
std::string nameOf(const MediaTrack& track, std::size_t index, std::size_t count,
                   std::span<const MediaText> texts) {
    if (*track.title) return utf8(track.title);
    if (count > 1) return fmt::format("Track {}", index + 1);
    const auto title = std::find_if(texts.begin(), texts.end(), [](const MediaText& text) {
        return std::string_view(text.key) == "title";
    });
    return title == texts.end() ? std::string() : utf8(title->value);
}

void describe(Wave& wave, const MediaTrack& track) {
    wave.channels = static_cast<u32>(track.channels);
    wave.sampleRate = static_cast<u32>(track.rate);
    wave.frames = saturate<u32>(static_cast<f64>(track.frames));
    wave.bits = track.bits > 0 ? static_cast<u32>(track.bits) : 16;
    wave.dataFormat = dataFormatOf(track);
    // What was coded with losses is saved again as plain samples, unless a bit rate is asked for.
    if (wave.dataFormat == kCompressed)
        wave.compressedKbps = static_cast<f32>(track.kbps);
    else
        wave.preferredFormat = wave.dataFormat;
    if (track.channelsInFile > track.channels)
        runContext().diagnostics.add(
            {Severity::Loss, 0, wave.name().str(), "channels",
             fmt::format("{} channels: only the first two are kept", track.channelsInFile)});
}

Wave* makeWave(const OpenMedia& media, u32 kind, std::size_t index, const MediaTrack& track,
               std::size_t trackCount) {
    const std::vector<MediaText> texts = media.texts();
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &mediaReader, nameOf(track, index, trackCount, texts));
    wave->sourcePrivate[kKind] = kind;
    wave->sourcePrivate[kTrack] = static_cast<u32>(index);
    describe(*wave, track);
    takeTexts(*wave, texts);
    takeChapters(*wave, media.chapters());
    return wave;
}

/// Makes waves of up to `most` tracks. The first of them, or null with the error pair set.
Wave* importTracks(FileContext& file, u32 kind, std::size_t most) {
    const auto failed = [kind](std::string_view why) -> Wave* {
        Fail(mediaKind(kind).importContext, why);
        return nullptr;
    };
    const std::unique_ptr<OpenMedia> media = OpenMedia::open(file, kind);
    if (!media) return nullptr;
    if (!media->scan()) return failed("Reading from file failed");
    const std::vector<MediaTrack> tracks = media->tracks();
    Wave* first = nullptr;
    for (std::size_t i = 0; i < tracks.size() && most > 0; ++i) {
        if (tracks[i].frames <= 0) continue;
        --most;
        Wave* wave = makeWave(*media, kind, i, tracks[i], tracks.size());
        if (!first) first = wave;
    }
    return first ? first : failed("The file has no sound in it");
}

} // namespace

bool media_Imp(Collection&, FileContext& file, u32 subType) {
    return importTracks(file, subType, std::numeric_limits<std::size_t>::max()) != nullptr;
}

Wave* importCoded(FileContext& file, u32 kind, std::string_view coding, const TrackEdges& edges) {
    const std::string_view context = mediaKind(kind).importContext;
    if (!mediaModule(context)) return nullptr;
    Wave* wave = importTracks(file, kind, 1);
    if (!wave) {
        Fail(context, "Compression type \"{}\" is not supported", coding);
        return nullptr;
    }
    wave->sourcePrivate[kLead] = std::min(edges.lead, wave->frames);
    wave->frames = std::min(wave->frames - wave->sourcePrivate[kLead], edges.mostFrames);
    return wave;
}

} // namespace kv
