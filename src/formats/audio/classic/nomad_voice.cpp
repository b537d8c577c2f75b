// Voice recordings of Creative's NOMAD players. Layout: found out by Tom Mander (nvftools), and as Snd reads
// it. A file header, the header of its only chunk, and G.721 codes up to the end, the first of two in the
// upper half of a byte; always mono at 8 kHz.
#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/resampled_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::size_t kFileHeadBytes = 12, kChunkBytes = 32, kHeaderBytes = kFileHeadBytes + kChunkBytes;
constexpr u32 kRate = 8000, kBitRate = 32000;
constexpr u32 kCodeBits = 4;
constexpr bool kHighFirst = true;
constexpr int kResamplingQuality = 5;

std::unique_ptr<SampleBlocks> openVoice(const Wave& wave, FileContext& file) {
    return openCoded(file.source, file.position, file.size(), wave.frames, g726Form(kCodeBits, kHighFirst));
}

const WaveReader voiceReader{"nvf_ImpWave", loadThroughBlocks, openVoice};

Bytes header() {
    ByteWriter out;
    out.text("NVF ").u32le(1).u32le(kChunkBytes);
    out.text("VFMT").u32le(1).u32le(20).u32le(kBitRate);
    out.u16le(1).u16le(0).u32le(kRate).u32le(2 * kRate).u16le(2).u16le(16); // as if it weren't coded
    return out.take();
}

} // namespace

bool nvf_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "nvf_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    ByteCursor in(head);
    if (in.text(4) != "NVF ") return Fail(kContext, "Not a NOMAD voice file");
    in.skip(4);
    const u64 start = kFileHeadBytes + u64{in.u32le()};
    const bool isChunk = in.text(4) == "VFMT";
    in.skip(12);
    const u32 channels = in.u16le();
    in.skip(2);
    const u32 rate = in.u32le();
    if (head.size() < kHeaderBytes || !isChunk || start < kHeaderBytes || start > file.size())
        return Fail(kContext, "The header is damaged");
    if (channels > 1) return Fail(kContext, "Unsupported subformat");
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &voiceReader);
    wave->sourceOffset = start;
    wave->dataFormat = wave->preferredFormat = kAdpcm4;
    wave->bits = kCodeBits;
    wave->sampleRate = rate != 0 && rate < kBitRate ? rate : kRate;
    wave->frames =
        saturate<u32>(static_cast<f64>(g726Form(kCodeBits, kHighFirst).framesIn(file.size() - start)));
    return true;
}

bool nvf_Exp(Item& item, FileContext& file, u32, u32, bool, f32) {
    constexpr std::string_view kContext = "nvf_Exp";
    SampleExport out = openExport(kContext, item, kMonoBit | kPcm16, false);
    if (!out) return false;
    reportLosses(*out.wave, out.wave->sampleRate == kRate ? u32{kKeepsRate} : 0);
    out.blocks = resampled(std::move(out.blocks), out.wave->sampleRate, kRate, kResamplingQuality,
                           sourceBitsOf(*out.wave));
    if (!out.blocks) return false;
    if (!file.write(header())) return Fail(kContext, "Writing to file failed");
    return writeCoded(*out.blocks, g726Writer(kCodeBits, kHighFirst), *file.sink);
}

} // namespace kv
