#include "formats/banks/soundfont/sf_bank_file.h"

#include <algorithm>
#include <memory>
#include <set>

#include "base/run_context.h"
#include "formats/banks/soundfont/sf2_mapping.h"
#include "model/articulation_levels.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/stored_form.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kFormBytes = 12; // a list's header and type

void addText(ByteWriter& to, std::string_view id, std::string_view text) {
    if (text.empty()) return;
    const std::size_t size = text.size() + 1;
    to.text(id).u32le(static_cast<u32>(size + size % 2)).text(text).u8le(0).pad(2);
}

void addListHeader(ByteWriter& to, std::string_view id, std::string_view type, u64 contents) {
    to.text(id).u32le(static_cast<u32>(contents + 4)).text(type);
}

/// Reads a wave as 24-bit points, mixed to one channel.
class WidePoints {
public:
    explicit WidePoints(const Wave& wave) : blocks_(openSamples(wave, true)) {
        left_ = blocks_ ? std::min(blocks_->frames(), wave.frames) : 0;
    }
    bool opened() const { return blocks_ != nullptr; }
    u32 left() const { return left_; }
    /// The next points, 3 bytes each; nothing on failure.
    ByteSpan next(std::size_t most) {
        const std::size_t frames = std::min<std::size_t>(most, left_);
        const u32 channels = blocks_->channels();
        samples_.resize(frames * channels);
        if (!blocks_->read(std::span<f32>(samples_))) return {};
        for (std::size_t i = 0; channels == 2 && i < frames; ++i) {
            samples_[i] = (samples_[2 * i] + samples_[2 * i + 1]) * 0.5F;
        }
        bytes_.resize(frames * 3);
        encoder_.encode(std::span<const f32>(samples_).first(frames), bytes_);
        left_ -= static_cast<u32>(frames);
        return bytes_;
    }

private:
    std::unique_ptr<SampleBlocks> blocks_;
    SampleEncoder encoder_{kPcm24};
    std::vector<f32> samples_;
    Bytes bytes_;
    u32 left_ = 0;
};

constexpr std::size_t kStep = 65536; // points that are worked on at once

bool writeZeros(ByteSink& sink, u64 count) {
    static constexpr std::array<std::byte, 4096> kZeros{};
    for (; count > 0; count -= std::min<u64>(count, kZeros.size())) {
        if (!sink.write(
                ByteSpan(kZeros).first(static_cast<std::size_t>(std::min<u64>(count, kZeros.size())))))
            return false;
    }
    return true;
}

/// Writes some of the three bytes of each point.
bool writeWideBytes(ByteSink& sink, const Wave& wave, std::size_t first, std::size_t count) {
    WidePoints points(wave);
    if (!points.opened()) return false;
    Bytes picked;
    u32 written = 0;
    while (points.left() > 0) {
        const ByteSpan bytes = points.next(kStep);
        if (bytes.empty()) return false;
        picked.resize(bytes.size() / 3 * count);
        for (std::size_t i = 0; i < bytes.size() / 3; ++i) {
            std::copy_n(bytes.data() + 3 * i + first, count, picked.data() + i * count);
        }
        if (!sink.write(picked)) return Fail("sf2_Exp", "Writing to file failed");
        written += static_cast<u32>(bytes.size() / 3);
    }
    return writeZeros(sink, u64{wave.frames - written} * count);
}

/// Writes the points as 16 bits. What the source is short of is silence.
bool writeNarrow(ByteSink& sink, const Wave& wave) {
    const std::unique_ptr<SampleBlocks> blocks = openSamples(wave, false);
    if (!blocks || !writeSamples(*blocks, kPcm16 | kMonoBit, sink)) return false;
    return writeZeros(sink, u64{wave.frames - std::min(wave.frames, blocks->frames())} * 2);
}

} // namespace

ByteWriter SfBankFile::texts() const {
    ByteWriter list;
    list.text("ifil").u32le(4).u16le(major).u16le(minor);
    addText(list, "isng", "EMU8000");
    addText(list, "INAM", item.name().empty() ? "Unnamed" : item.name().view());
    if (classOf(item.id()) == kCollectionClass) {
        const auto& collection = static_cast<const Collection&>(item);
        addText(list, "ICOP", collection.copyright);
        addText(list, "ICMT", collection.comments);
        addText(list, "IENG", collection.engineer);
    }
    addText(list, "ISFT", "Kelvane Studio v11.4");
    return list;
}

bool SfBankFile::writePoints(ByteSink& sink) const {
    for (const Wave* wave : contents.waves) {
        const bool done = wide ? writeWideBytes(sink, *wave, 1, 2) : writeNarrow(sink, *wave);
        if (!done || !writeZeros(sink, kSfGapPoints * 2)) return false;
    }
    return true;
}

bool SfBankFile::writeLowBytes(ByteSink& sink) const {
    for (const Wave* wave : contents.waves) {
        if (!writeWideBytes(sink, *wave, 0, 1) || !writeZeros(sink, kSfGapPoints)) return false;
    }
    return true;
}

bool SfBankFile::write(ByteSink& sink) const {
    if (contents.instruments.empty() && contents.waves.empty()) return Fail(context, "Empty SF2");
    u64 points = 0;
    for (const Wave* wave : contents.waves) points += u64{wave->frames} + kSfGapPoints;
    const u64 lowBytes = wide ? points + points % 2 : 0;

    const ByteWriter info = texts();
    u64 sampleList = kHeaderBytes + points * 2 + (wide ? kHeaderBytes + lowBytes : 0);
    for (const SfBankLists::Table& chunk : lead) sampleList += kHeaderBytes + chunk.bytes.size();
    u64 tableList = 0;
    for (const SfBankLists::Table& table : tables) tableList += kHeaderBytes + table.bytes.size();
    const u64 total = 3 * kFormBytes + info.size() + sampleList + tableList;
    if (total + 4 > UINT32_MAX) return Fail(context, "The samples are too long for a bank of this format");

    ByteWriter head;
    addListHeader(head, "RIFF", "sfbk", total);
    addListHeader(head, "LIST", "INFO", info.size());
    head.bytes(info.view());
    addListHeader(head, "LIST", "sdta", sampleList);
    for (const SfBankLists::Table& chunk : lead) {
        head.text(chunk.id).u32le(static_cast<u32>(chunk.bytes.size())).bytes(chunk.bytes);
    }
    head.text("smpl").u32le(static_cast<u32>(points * 2));
    if (!sink.write(head.view()) || !writePoints(sink)) return false;

    if (wide) {
        ByteWriter low;
        low.text("sm24").u32le(static_cast<u32>(lowBytes));
        if (!sink.write(low.view()) || !writeLowBytes(sink) || !writeZeros(sink, lowBytes - points))
            return false;
    }
    ByteWriter tail;
    addListHeader(tail, "LIST", "pdta", tableList);
    for (const SfBankLists::Table& table : tables) {
        tail.text(table.id).u32le(static_cast<u32>(table.bytes.size())).bytes(table.bytes);
    }
    return sink.write(tail.view()) || Fail(context, "Writing to file failed");
}

// ---- Losses

namespace {

/// What a region can say and a zone can't.
struct RegionLoss {
    std::string_view field;
    bool (*lost)(const Region& region, const Articulation& sounding);
};
const RegionLoss kRegionLosses[] = {
    {"trigger",
     [](const Region& r, const Articulation&) { return r.trigger != 0 || r.pedalUp != r.pedalDown; }},
    {"loopFlags",
     [](const Region& r, const Articulation&) {
         return (effectiveLoopFlags(r) & (kLoopBidirectional | kLoopReverse)) != 0;
     }},
    {"filterType", [](const Region&, const Articulation& a) { return a.filterEnable && !sf2_HasFilter(a); }},
    {"eqEnable", [](const Region&, const Articulation& a) { return a.eqEnable; }},
    {"lfo1Ramp, lfo2Ramp",
     [](const Region&, const Articulation& a) { return a.lfo1Ramp != 0 || a.lfo2Ramp != 0; }},
    {"lfo1Shape, lfo2Shape",
     [](const Region&, const Articulation& a) {
         const auto rounded = [](u32 shape) { return shape <= 1 || shape == 4 || shape == 5; };
         return !rounded(a.lfo1Shape) || !rounded(a.lfo2Shape);
     }},
};

void addLoss(const Item& item, std::string_view field, std::string_view text) {
    runContext().diagnostics.add(
        {Severity::Loss, 0, item.name().str(), std::string(field), std::string(text)});
}

void reportInstrument(const Instrument& instrument) {
    std::set<std::string_view> lost; // one line tells it for a whole instrument
    for (const ItemId layerId : instrument.childIds) {
        const Layer* layer = store().Find<Layer>(layerId);
        if (!layer) continue;
        for (const ItemId id : layer->childIds) {
            const Region* region = store().Find<Region>(id);
            if (!region) continue;
            const Articulation sounding = resolveArticulation(&instrument, layer, region);
            for (const RegionLoss& row : kRegionLosses) {
                if (row.lost(*region, sounding)) lost.insert(row.field);
            }
        }
    }
    for (const std::string_view field : lost) addLoss(instrument, field, "the format has no place for it");
}

} // namespace

void reportSfLosses(const BankContents& contents, bool wide) {
    for (const Instrument* instrument : contents.instruments) reportInstrument(*instrument);
    for (const Wave* wave : contents.waves) {
        if (wave->channels > 1) addLoss(*wave, "channels", "mixed to one channel");
        if (wave->bits > (wide ? 24U : 16U))
            addLoss(*wave, "bits", wide ? "written in 24 bits" : "written in 16 bits");
    }
}

} // namespace kv
