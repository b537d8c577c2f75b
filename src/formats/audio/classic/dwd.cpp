// DiamondWare Digitized. Document: the format description of DiamondWare's Sound ToolKit.
#include <algorithm>
#include <cstdlib>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kTitle("DiamondWare Digitized\n\0\x1A", 24);
constexpr u32 kHeaderBytes = 56; // with the reserved ones; texts may follow before the samples

/// Keeps the highest magnitude of the samples that are written to it.
class PeakSink final : public ByteSink {
public:
    explicit PeakSink(u32 sampleBytes) : sampleBytes_(sampleBytes) {}
    bool write(ByteSpan bytes) override {
        ByteCursor in(bytes);
        while (in.left() >= sampleBytes_)
            peak_ = std::max(peak_, std::abs(sampleBytes_ == 1 ? i32{in.s8()} : i32{in.s16le()}));
        position_ += bytes.size();
        return true;
    }
    bool patch(u64, ByteSpan) override { return false; }
    u64 position() const override { return position_; }
    u16 peak() const { return static_cast<u16>(peak_); }

private:
    u32 sampleBytes_;
    i32 peak_ = 0;
    u64 position_ = 0;
};

} // namespace

bool dwd_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "dwd_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    ByteCursor in(head);
    const std::string_view title = textOf(in.bytes(kTitle.size()));
    in.skip(7); // version, identity
    const u8 compression = in.u8le();
    SampleLayout layout;
    layout.rate = in.u16le();
    layout.channels = in.u8le();
    const u32 bits = in.u8le();
    in.skip(2); // peak
    layout.bytes = in.u32le();
    layout.frames = in.u32le();
    layout.offset = in.u32le();
    if (!in.ok() || title != kTitle) return Fail(kContext, "Not a DiamondWare file");
    if (compression != 0) return Fail(kContext, "Unsupported compression type");
    if (bits != 8 && bits != 16) return Fail(kContext, "Unsupported subformat");
    layout.word = bits == 8 ? kPcm8 : kPcm16;
    return importSamples(file, layout, kContext) != nullptr;
}

bool dwd_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    constexpr std::string_view kContext = "dwd_Exp";
    const SampleExport out = openExport(kContext, item, formatWord, perWave);
    if (!out) return false;
    const u64 bytes = out.dataBytes();
    if (!rateFits(kContext, *out.wave, 0xFFFF) || !sizeFits(kContext, bytes + kHeaderBytes)) return false;
    PeakSink peak(out.sampleBytes);
    const SampleExport first = openExport(kContext, item, formatWord, perWave);
    if (!first || !writeSamples(*first.blocks, first.word, peak)) return false;

    reportLosses(*out.wave, kKeepsRate);
    ByteWriter head;
    head.text(kTitle).u8le(1).u8le(0).u32le(0).u16le(0).u16le(static_cast<u16>(out.wave->sampleRate));
    head.u8le(static_cast<u8>(out.channels)).u8le(static_cast<u8>(8 * out.sampleBytes)).u16le(peak.peak());
    head.u32le(static_cast<u32>(bytes)).u32le(out.blocks->frames()).u32le(kHeaderBytes);
    head.fill(kHeaderBytes - head.size());
    if (!file.write(head.view())) return Fail(kContext, "Writing to file failed");
    return writeSamples(*out.blocks, out.word, *file.sink);
}

} // namespace kv
