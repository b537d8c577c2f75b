#include "formats/banks/sfz/sfz_sample_files.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/wav_writer.h"
#include "formats/banks/sfz/sfz_tokenizer.h"
#include "formats/framework/drivers.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kContext = "sfz_Exp";
constexpr std::size_t kLongestName = 180; // bytes, without number and extension

std::string canonicalText(const fs::path& path) {
    std::error_code ignored;
    return fs::weakly_canonical(path, ignored).native();
}

/// What a wave is written as when its own form has no place in a bank's WAV files; none of its bits are lost
/// but a float's exponent.
u32 nearestCode(u32 preferred) {
    switch (preferred) {
        case kPcm8:
        case kPcm24:
        case kPcm32:
            return preferred;
        case kPcm20:
            return kPcm24;
        case kFloat32:
        case kFloat64:
            return kPcm32;
        default:
            return kPcm16;
    }
}

} // namespace

std::string sfzFileName(std::string_view itemName) {
    std::string name = fileNameFor(itemName);
    std::replace(name.begin(), name.end(), '=', '_');
    std::size_t characters = name.size();
    while (name.size() > kLongestName) name = std::string(cutToCharacters(name, --characters));
    name = std::string(sfzTrim(name));
    return name.empty() ? "noname" : name;
}

SfzSampleFiles::SfzSampleFiles(fs::path folder, std::string prefix, u32 formatWord, bool perWave)
    : folder_(std::move(folder)), prefix_(std::move(prefix)), formatWord_(formatWord), perWave_(perWave) {
    for (Wave& wave : store().all<Wave>()) {
        if (wave.hasFile()) sources_[canonicalText(wave.sourceFile)].push_back(&wave);
    }
}

const std::string& SfzSampleFiles::pathOf(Wave& wave) {
    const auto [known, isNew] = paths_.try_emplace(wave.id());
    if (!isNew) return known->second;
    const std::string name = uniqueName(wave);
    known->second = prefix_ + name;
    write(wave, folder_ / name);
    return known->second;
}

std::string SfzSampleFiles::uniqueName(const Wave& wave) {
    const std::string stem = sfzFileName(wave.name());
    std::string name = stem + ".wav";
    for (int n = 2; !names_.insert(toLower(name)).second; ++n) name = fmt::format("{} {}.wav", stem, n);
    return name;
}

/// Brings in what still has to be read from a file that is going to be replaced.
bool SfzSampleFiles::keepSourcesOf(const fs::path& path) const {
    const auto found = sources_.find(canonicalText(path));
    if (found == sources_.end()) return true;
    for (Wave* wave : found->second) {
        if (wave->resident()) continue;
        if (!wave->LoadData()) return false;
        wave->reloadable = false;
    }
    return true;
}

u32 SfzSampleFiles::wordFor(const Wave& wave) const {
    if (!perWave_) return formatWord_;
    const u32 wanted = wave.preferredFormat & kCodeMask, code = nearestCode(wanted);
    if (code != wanted) {
        std::string_view name;
        FormatCodeInfo(code, &name, nullptr);
        runContext().diagnostics.add(
            {Severity::Loss, 0, wave.name().str(), "preferredFormat", fmt::format("written as {}", name)});
    }
    return formatWord_ | code;
}

void SfzSampleFiles::write(Wave& wave, const fs::path& path) const {
    if (!keepSourcesOf(path)) return ShowLastError();
    const std::unique_ptr<SaveFile> sink = SaveFile::create(path);
    FileContext file;
    file.path = path;
    file.sink = sink.get();
    bool done = sink || Fail(kContext, "Could not create file");
    done = done && wav_Exp(wave, file, wordFor(wave), 0, false, 0);
    done = done && (sink->commit() || Fail(kContext, "Could not create file"));
    if (!done) ShowLastError();
}

} // namespace kv
