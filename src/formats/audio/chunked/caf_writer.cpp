#include <algorithm>
#include <bit>

#include "base/run_context.h"
#include "formats/audio/chunked/caf.h"
#include "formats/audio/chunked/wave_notes.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "caf_Exp";

struct Format {
    u32 code;
    std::string_view id;
    u32 flags;
};
constexpr Format kFormats[] = {
    {kPcm8, "lpcm", 0},
    {kPcm16, "lpcm", caf::kIsLittleEndian},
    {kPcm24, "lpcm", caf::kIsLittleEndian},
    {kPcm32, "lpcm", caf::kIsLittleEndian},
    {kFloat32, "lpcm", caf::kIsFloat | caf::kIsLittleEndian},
    {kFloat64, "lpcm", caf::kIsFloat | caf::kIsLittleEndian},
    {kMuLaw, "ulaw", 0},
    {kALaw, "alaw", 0},
};

void writeF64(ByteWriter& out, f64 value) {
    out.u64be(std::bit_cast<u64>(value));
}
void writeF32(ByteWriter& out, f64 value) {
    out.u32be(std::bit_cast<u32>(static_cast<f32>(value)));
}

void writeChunk(ByteWriter& out, std::string_view id, ByteSpan contents) {
    out.text(id).u64be(contents.size()).bytes(contents);
}

void writeDescription(ByteWriter& out, const SampleExport& samples, const Format& format) {
    ByteWriter desc;
    writeF64(desc, samples.wave->sampleRate);
    desc.text(format.id).u32be(format.flags).u32be(samples.sampleBytes * samples.channels).u32be(1);
    desc.u32be(samples.channels).u32be(samples.sampleBytes * 8);
    writeChunk(out, "desc", desc.view());
}

void writeInformation(ByteWriter& out, const Wave& wave) {
    const std::pair<std::string_view, std::string_view> texts[] = {
        {"title", wave.name()},        {"artist", wave.artist},
        {"album", wave.album},         {"recording engineer", wave.engineer},
        {"copyright", wave.copyright}, {"comments", wave.comments},
    };
    ByteWriter strings;
    u32 count = 0;
    for (const auto& [key, text] : texts) {
        if (text.empty()) continue;
        strings.text(key).u8le(0).text(text).u8le(0);
        ++count;
    }
    if (count == 0) return;
    ByteWriter info;
    info.u32be(count).bytes(strings.view());
    writeChunk(out, "info", info.view());
}

/// The loop and the ranges are regions, the other cue points markers. All have numbers of one series, by
/// which their names are found.
class PlaceWriter {
public:
    explicit PlaceWriter(const Wave& wave) : wave_(wave) {}
    void write(ByteWriter& out);

private:
    void collect();
    void marker(ByteWriter& out, u32 type, f64 position, u32 id);
    void region(u32 flags, f64 start, f64 end, std::string_view name);
    void name(u32 id, std::string_view text);
    void instrument(ByteWriter& out) const;

    const Wave& wave_;
    u32 lastId_ = 0, loopRegion_ = 0;
    u32 markerCount_ = 0, regionCount_ = 0, nameCount_ = 0;
    ByteWriter markers_, regions_, names_, texts_;
};

void PlaceWriter::marker(ByteWriter& out, u32 type, f64 position, u32 id) {
    out.u32be(type);
    writeF64(out, position);
    out.u32be(id).fill(12); // no time code, all channels
}

void PlaceWriter::region(u32 flags, f64 start, f64 end, std::string_view text) {
    const u32 id = ++lastId_;
    regions_.u32be(id).u32be(flags).u32be(2);
    marker(regions_, caf::kRegionStart, start, ++lastId_);
    marker(regions_, caf::kRegionEnd, end, ++lastId_);
    name(id, text);
    ++regionCount_;
}

void PlaceWriter::name(u32 id, std::string_view text) {
    if (text.empty()) return;
    names_.u32be(id).u64be(texts_.size());
    texts_.text(text).u8le(0);
    ++nameCount_;
}

void PlaceWriter::collect() {
    const SampleParams& params = wave_.params;
    if (params.looped()) {
        const bool both = (params.loopFlags & kLoopBidirectional) != 0;
        const bool backward = both || (params.loopFlags & kLoopReverse) != 0;
        u32 flags = caf::kLoops;
        if (!backward || both) flags |= caf::kPlaysForward;
        if (backward) flags |= caf::kPlaysBackward;
        loopRegion_ = lastId_ + 1;
        region(flags, params.loopStart, params.loopEnd, "Loop");
    }
    bool notes = false;
    for (const CuePoint& cue : wave_.cuePoints) {
        notes = notes || !cue.note.empty();
        if (cue.length > 0) {
            region(0, cue.position, static_cast<f64>(cue.position) + cue.length, cue.label);
            continue;
        }
        marker(markers_, caf::kGeneric, cue.position, ++lastId_);
        name(lastId_, cue.label);
        ++markerCount_;
    }
    if (notes) noteLoss(wave_, "cuePoints", "the format has no place for their notes");
}

/// A loop that goes on behind the key's release is the region of both times.
void PlaceWriter::instrument(ByteWriter& out) const {
    const SampleParams& params = wave_.params;
    const bool plain = params.rootKey == 60 && params.fineTune == 0 && params.gainDb == 0;
    if (plain && !params.looped() && !params.override) return;
    const bool untilRelease = (params.loopFlags & kLoopUntilRelease) != 0;
    ByteWriter inst;
    writeF32(inst, params.rootKey + params.fineTune / 100.0);
    inst.u8le(0).u8le(127).u8le(1).u8le(127);
    writeF32(inst, static_cast<f64>(params.gainDb));
    inst.u32be(0).u32be(loopRegion_).u32be(untilRelease ? 0 : loopRegion_).u32be(0);
    writeChunk(out, "inst", inst.view());
}

void PlaceWriter::write(ByteWriter& out) {
    collect();
    const auto table = [&out](std::string_view id, u32 count, const ByteWriter& rows) {
        if (count == 0) return;
        ByteWriter chunk;
        chunk.u32be(0).u32be(count).bytes(rows.view()); // no time codes
        writeChunk(out, id, chunk.view());
    };
    table("mark", markerCount_, markers_);
    table("regn", regionCount_, regions_);
    if (nameCount_ > 0) {
        ByteWriter strings;
        strings.u32be(nameCount_).bytes(names_.view()).bytes(texts_.view());
        writeChunk(out, "strg", strings.view());
    }
    instrument(out);
}

} // namespace

bool caf_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport samples = openExport(kContext, item, formatWord, perWave);
    if (!samples) return false;
    const auto* format = std::find_if(std::begin(kFormats), std::end(kFormats),
                                      [&](const Format& f) { return f.code == (samples.word & kCodeMask); });
    if (format == std::end(kFormats)) return Fail(kContext, "Unsupported subformat");

    constexpr u64 kEditCountBytes = 4;
    ByteWriter head;
    head.text("caff").u16be(1).u16be(0);
    writeDescription(head, samples, *format);
    writeInformation(head, *samples.wave);
    PlaceWriter(*samples.wave).write(head);
    head.text("data").u64be(kEditCountBytes + samples.dataBytes()).u32be(0);
    if (!file.write(head.view())) return Fail(kContext, "Writing to file failed");
    return writeSamples(*samples.blocks, samples.word, *file.sink);
}

} // namespace kv
