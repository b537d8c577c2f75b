#include "formats/banks/sfz/sfz_sample_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

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

/// Compares what is written with a file that is there; the first difference ends the writing.
class CompareSink final : public ByteSink {
public:
    explicit CompareSink(const fs::path& path) : file_(openFileSource(path)) {}

    bool write(ByteSpan bytes) override {
        if (!file_ || bytes.size() > file_->size() - position_) return false;
        buffer_.resize(std::max(buffer_.size(), bytes.size()));
        const std::span<std::byte> old = std::span(buffer_).first(bytes.size());
        if (file_->readAt(position_, old) != bytes.size()) return false;
        if (std::memcmp(old.data(), bytes.data(), old.size()) != 0) return false;
        position_ += bytes.size();
        return true;
    }
    bool patch(u64, ByteSpan) override { return false; }
    u64 position() const override { return position_; }
    /// All of the file was there, and no more.
    bool equal() const { return file_ && position_ == file_->size(); }

private:
    std::shared_ptr<ByteSource> file_;
    Bytes buffer_;
    u64 position_ = 0;
};

bool send(Wave& wave, u32 word, const fs::path& path, ByteSink* sink) {
    FileContext file;
    file.path = path;
    file.sink = sink;
    return wav_Exp(wave, file, word, 0, false, 0);
}

bool equals(Wave& wave, u32 word, const fs::path& path) {
    CompareSink there(path);
    const ErrorPair before = runContext().error;
    const bool equal = send(wave, word, path, &there) && there.equal();
    runContext().error = before;
    return equal;
}

bool write(Wave& wave, u32 word, const fs::path& path) {
    const std::unique_ptr<SaveFile> sink = SaveFile::create(path);
    return (sink || Fail(kContext, "Could not create file")) && send(wave, word, path, sink.get()) &&
           (sink->commit() || Fail(kContext, "Could not create file"));
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
    : folder_(std::move(folder)), prefix_(std::move(prefix)), formatWord_(formatWord), perWave_(perWave) {}

const std::string& SfzSampleFiles::pathOf(Wave& wave) {
    const auto [known, isNew] = paths_.try_emplace(wave.id());
    if (isNew) known->second = prefix_ + nameFor(wave);
    return known->second;
}

std::string SfzSampleFiles::nameFor(Wave& wave) {
    const std::string stem = sfzFileName(wave.name());
    const u32 word = wordFor(wave);
    for (int n = 1;; ++n) {
        std::string name = n == 1 ? stem + ".wav" : fmt::format("{} {}.wav", stem, n);
        if (names_.insert(toLower(name)).second && holds(wave, word, folder_ / name)) return name;
    }
}

/// The file holds the wave's samples, now or since before; or it can't be written, which the user is told.
bool SfzSampleFiles::holds(Wave& wave, u32 word, const fs::path& path) const {
    auto& written = workspace().writtenSamples;
    const Workspace::WrittenSample sample{wave.id(), word};
    if (written) {
        const auto known = written->find(path.native());
        if (known != written->end()) return known->second == sample;
    }
    std::error_code none;
    if (fs::is_regular_file(path, none)) {
        if (!equals(wave, word, path)) return false;
    } else if (!write(wave, word, path)) {
        ShowLastError();
    }
    if (written) written->emplace(path.native(), sample);
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

} // namespace kv
