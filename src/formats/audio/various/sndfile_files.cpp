#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/codecs/sndfile_stream.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

std::unique_ptr<SampleBlocks> openFile(const Wave& wave, FileContext& file) {
    if (!file.source) {
        Fail("sndfile_ImpWave", "Reading from file failed");
        return nullptr;
    }
    return openSndfile(file.source, wave.frames, wave.channels);
}

/// PARIS files of 24 bits consist of blocks of 10 frames and don't say how many of the last one count.
void reportFilledUp(const SampleExport& out, SndfileFormat format) {
    constexpr u32 kBlockFrames = 10;
    if (format != SndfileFormat::Paf || (out.word & kPcm24) == 0 || out.blocks->frames() % kBlockFrames == 0)
        return;
    runContext().diagnostics.add({Severity::Loss, 0, out.wave->name().str(), "frames",
                                  "silence fills up the last block of 10 frames"});
}

const WaveReader sndfileReader{"sndfile_ImpWave", loadThroughBlocks, openFile};

} // namespace

bool sndfile_Imp(Collection&, FileContext& file, u32) {
    const std::optional<SndfileInfo> info = probeSndfile(file.source);
    if (!info) return false;
    const PackedStreamInfo& stream = info->stream;
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &sndfileReader);
    wave->dataFormat = info->code;
    wave->bits = stream.bits == 0 ? 16 : stream.bits;
    wave->channels = std::min(stream.channels, 2U);
    wave->sampleRate = stream.sampleRate;
    wave->frames = saturate<u32>(static_cast<f64>(stream.frames));
    wave->preferredFormat = info->code == 0 ? kPcm16 : info->code == kFloat64 ? kFloat32 : info->code;
    return true;
}

bool exportSndfile(Item& item, FileContext& file, u32 formatWord, u32 format, bool perWave) {
    const SampleExport out = openExport("sndfile_Exp", item, formatWord, perWave);
    if (!out) return false;
    reportLosses(*out.wave, kKeepsRate);
    reportFilledUp(out, static_cast<SndfileFormat>(format));
    return writeSndfile(*out.blocks, static_cast<SndfileFormat>(format), out.word & kCodeMask,
                        out.wave->sampleRate, out.channels, *file.sink);
}

} // namespace kv
