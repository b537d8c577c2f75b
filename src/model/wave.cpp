#include "model/wave.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "model/collection.h"
#include "model/loops.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// How an uncompressed stored form is saved again, and the bits per sample that it counts as.
struct StoredFormat {
    u32 code;
    u32 preferred;
    u32 bits;
};
constexpr StoredFormat kStored[] = {
    {kPcm8, kPcm8, 8},      {kPcm16, kPcm16, 16},     {kPcm20, kPcm16, 20},   {kPcm24, kPcm24, 24},
    {kPcm32, kPcm32, 32},   {kFloat32, kFloat32, 32}, {kFloat64, kPcm32, 64}, {kMuLaw, kMuLaw, 8},
    {kALaw, kALaw, 8},      {kAdpcm2, kAdpcm2, 2},    {kAdpcm3, kAdpcm2, 3},  {kAdpcm4, kAdpcm4, 4},
    {kDeltaPcm8, kPcm8, 8}, {kRevMuLaw, kMuLaw, 8},   {kRevALaw, kALaw, 8},
};

StoredFormat storedFormat(u32 dataFormat) {
    for (const StoredFormat& row : kStored) {
        if (row.code == (dataFormat & kCodeMask)) return row;
    }
    return {0, kPcm16, 16};
}

} // namespace

Wave::Wave(Store& owner, ItemId request, const WaveReader* sampleReader, std::string_view text, bool unique)
    : Item(owner, kClass, request), reader(sampleReader) {
    if (workspace().importInProgress) PostStatus(fmt::format("Wait - Reading - {}", text));
    SetName(text, unique);
}

Wave::Wave(Store& owner, const Wave& source, ItemId request, std::string_view newName)
    : Item(owner, kClass, request) {
    copyItemFields(source);
    if (newName.empty())
        SetName(source.name(), false);
    else
        SetName(newName);
    artist = source.artist;
    album = source.album;
    engineer = source.engineer;
    copyright = source.copyright;
    comments = source.comments;
    bits = source.bits;
    channels = source.channels;
    frames = source.frames;
    sampleRate = source.sampleRate;
    params = source.params;
    cuePoints = source.cuePoints;
    preferredFormat = source.preferredFormat;
    compressedKbps = source.compressedKbps;
    sourceFile = source.sourceFile;
    sourceOffset = source.sourceOffset;
    reader = source.reader;
    selStart = source.selStart;
    selEnd = source.selEnd;
    reloadable = source.reloadable;
}

Wave::Wave(Store& owner, const Wave& source, ItemId request, std::string_view newName, u32 firstFrame,
           u32 frameCount)
    : Wave(owner, source, request, newName) {
    firstFrame = std::min(firstFrame, source.frames == 0 ? 0 : source.frames - 1);
    const u32 room = source.frames - firstFrame;
    frames = frameCount == 0 ? room : std::min(frameCount, room);
    const std::size_t from = static_cast<std::size_t>(firstFrame) * channels;
    const auto copyPart = [&](auto& target, const auto& samples) {
        if (!samples || samples.size() < from + sampleCount()) return;
        if (!target.allocate(static_cast<std::size_t>(sampleCount()))) return;
        std::copy_n(samples.span().begin() + static_cast<std::ptrdiff_t>(from), target.size(), target.data());
    };
    copyPart(samples16, source.samples16);
    copyPart(samplesFloat, source.samplesFloat);
    reloadable = false;
    sourceOffset += (u64{bits} * channels + 7) / 8 * firstFrame;
}

Wave::~Wave() = default;

void Wave::FixUp() {
    Item::FixUp();
    if (sourceFile.empty()) {
        const Collection* collection = store().First<Collection>();
        if (!collection) {
            runContext().diagnostics.warn(0, "Wave",
                                          "error: No Collection->FileName - Have to kill waveform");
            store().Delete(this);
            return;
        }
        sourceFile = collection->fileName;
    }
    const ParameterSet& set = settings().pset;
    if (sampleRate == 0) sampleRate = 22050;
    ValidateParams(params, frames, set);
    if (!set[Switch::ReverseLoops] && params.looped() && !unrollWaveLoop(*this, true, true)) ShowLastError();
    params.startOffset = 0;
    deriveFormats();

    constexpr u32 kUncompressed[] = {0, kPcm8, kPcm16, kPcm24, kPcm32, kFloat32};
    if (!set[Switch::CompressedFormats] && std::find(std::begin(kUncompressed), std::end(kUncompressed),
                                                     preferredFormat) == std::end(kUncompressed)) {
        preferredFormat = kPcm16;
    }
    u32 known = 0;
    FormatCodeInfo(preferredFormat, nullptr, &known);
    f64 sampleBits = known;
    if (known == 0) {
        sampleBits = sampleRate > 0 ? static_cast<f64>(compressedKbps) * 1000 / sampleRate
                     : samplesFloat ? 32
                                    : 16;
    }
    dataSize = saturate<u64>(static_cast<f64>(sampleCount()) * sampleBits * 0.125 + 0.999);
}

/// Fills in what a reader left open.
void Wave::deriveFormats() {
    const StoredFormat stored = storedFormat(dataFormat);
    const bool generic = reader == &genericReader;
    if (preferredFormat == 0) preferredFormat = generic ? stored.preferred : samplesFloat ? kFloat32 : kPcm16;
    if (bits == 0) bits = generic ? stored.bits : samplesFloat ? 32 : 16;
}

bool Wave::LoadData() {
    if (resident()) return true;
    PostStatus(fmt::format("Wait - Reading - {}", name().view()));
    FileContext file;
    file.path = sourceFile;
    file.source = openFileSource(sourceFile);
    file.position = sourceOffset;
    if (!file.source && hasFile()) return Fail("Read wave-data from disk", "Could not open file");
    const bool done = reader ? reader->load(*this, file) : Fail("Read wave-data from disk", "No data");
    PostStatus();
    return done;
}

std::string Wave::Describe() const {
    std::string text =
        fmt::format("{}aveform with {} samples, {:.1f}s, {} Hz", channels >= 2 ? "Stereo w" : "W", frames,
                    static_cast<f64>(frames) / std::max(sampleRate, 1U) + 0.05, sampleRate);
    if (params.looped()) text += ", looped";
    return text;
}

} // namespace kv
