#include "formats/banks/sfz/sfz_samples.h"

#include <algorithm>
#include <optional>

#include "base/file_context.h"
#include "base/run_context.h"
#include "formats/audio/chunked/aiff.h"
#include "formats/audio/packed/flac.h"
#include "formats/audio/packed/ogg.h"
#include "formats/audio/wav_chunks.h"
#include "model/collection.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "sfz_ImpWave";

/// Reads a file of one wave as it is read by itself.
template <bool (*kImport)(Collection&, FileContext&, u32)>
Wave* readAs(FileContext& file) {
    const std::size_t before = store().count(kWaveClass);
    const bool done = kImport(*store().First<Collection>(), file, 0);
    return done && store().count(kWaveClass) > before ? store().Last<Wave>() : nullptr;
}

Wave* readWav(FileContext& file) {
    return wav_ImpEmbedded(file, kNextFreeNumber, 0, file.size(), {});
}

/// All other files are taken for WAV.
struct SampleKind {
    std::string_view extension;
    Wave* (*read)(FileContext& file);
};
constexpr SampleKind kKinds[] = {{".ogg", readAs<ogg_Imp>},
                                 {".flac", readAs<flac_Imp>},
                                 {".aiff", readAs<aif_Imp>},
                                 {".aif", readAs<aif_Imp>}};

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
