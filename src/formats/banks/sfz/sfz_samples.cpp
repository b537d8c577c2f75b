#include "formats/banks/sfz/sfz_samples.h"

#include <algorithm>
#include <optional>

#include "base/file_context.h"
#include "base/run_context.h"
#include "formats/audio/wav_chunks.h"
#include "formats/codecs/flac_stream.h"
#include "formats/codecs/vorbis_stream.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "sfz_ImpWave";

using Probe = decltype(&probeVorbis);

template <auto kOpen>
std::unique_ptr<SampleBlocks> openPacked(const Wave& wave, FileContext& file) {
    if (file.source) return kOpen(file.source, 0, wave.frames, wave.channels);
    Fail(kContext, "Reading from file failed");
    return nullptr;
}
const WaveReader kOggReader{"ogg_ImpWave", loadThroughBlocks, openPacked<openVorbis>};
const WaveReader kFlacReader{"flac_ImpWave", loadThroughBlocks, openPacked<openFlac>};

Wave* readPacked(FileContext& file, Probe probe, const WaveReader& reader) {
    const std::optional<PackedStreamInfo> info = probe(file.source);
    if (!info) return nullptr;
    if (info->channels < 1 || info->channels > 2) {
        Fail(kContext, "{} channels are too many", info->channels);
        return nullptr;
    }
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &reader);
    wave->channels = info->channels;
    wave->sampleRate = info->sampleRate;
    wave->frames = static_cast<u32>(std::min<u64>(info->frames, UINT32_MAX));
    wave->bits = info->bits > 0 ? info->bits : 16; // a lossy codec's noise is above that
    return wave;
}

Wave* readOgg(FileContext& file) {
    return readPacked(file, probeVorbis, kOggReader);
}

Wave* readFlac(FileContext& file) {
    return readPacked(file, probeFlac, kFlacReader);
}

Wave* readWav(FileContext& file) {
    return wav_ImpEmbedded(file, kNextFreeNumber, 0, file.size(), {});
}

Wave* refuse(FileContext&) {
    Fail(kContext, "this version can't read samples of this kind yet");
    return nullptr;
}

/// All other files are taken for WAV.
struct SampleKind {
    std::string_view extension;
    Wave* (*read)(FileContext& file);
};
constexpr SampleKind kKinds[] = {{".ogg", readOgg}, {".flac", readFlac}, {".aiff", refuse}, {".aif", refuse}};

void warn(std::string_view sample, std::string_view text) {
    runContext().diagnostics.warn(0, "sample", fmt::format("{}: {}", sample.substr(0, 300), text));
}

} // namespace

Wave* SfzSamples::wave(const std::string& prefix, const std::string& sample) {
    constexpr u32 kMostMissing = 10'000; // looking for a file takes long
    const auto [known, isNew] = byName_.try_emplace(prefix + '\n' + sample);
    if (!isNew || missing_ > kMostMissing) return known->second;
    known->second = find(prefix, sample);
    if (!known->second && ++missing_ > kMostMissing)
        warn("*", "too many are missing; no more are looked for");
    return known->second;
}

Wave* SfzSamples::find(const std::string& prefix, const std::string& sample) {
    if (sample.starts_with('*')) {
        warn(sample, "a generator of the player has no samples");
        return nullptr;
    }
    std::optional<fs::path> path = folder_.find(prefix + sample);
    if (!path && !prefix.empty()) path = folder_.find(sample);
    if (!path) path = SfzFolder({}).find(sample);
    if (!path) {
        warn(sample, "not found");
        return nullptr;
    }
    if (folder_.isOutside(*path)) warn(sample, "outside of the bank's folder");
    std::error_code ignored;
    const auto [known, isNew] = byPath_.try_emplace(fs::weakly_canonical(*path, ignored).native());
    if (isNew) known->second = load(*path, sample);
    return known->second;
}

Wave* SfzSamples::load(const fs::path& path, const std::string& sample) const {
    FileContext file;
    file.path = path;
    file.source = openFileSource(path);
    const std::string_view name = FileNamePart(sample);
    const std::size_t point = FileExtension(name);
    const std::string extension = toLower(name.substr(point));
    const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                    [&](const SampleKind& k) { return k.extension == extension; });
    Wave* wave = nullptr;
    if (file.source)
        wave = kind == std::end(kKinds) ? readWav(file) : kind->read(file);
    else
        Fail(kContext, "Could not open file");
    if (!wave) {
        warn(sample, runContext().error.message);
        return nullptr;
    }
    wave->sourceFile = path;
    wave->SetName(name.substr(0, point));
    return wave;
}

} // namespace kv
