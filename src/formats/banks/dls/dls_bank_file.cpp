#include "formats/banks/dls/dls_bank_file.h"

#include <array>

#include "base/run_context.h"
#include "formats/audio/wav_info.h"
#include "formats/banks/dls/dls_records.h"
#include "formats/banks/dls/rmid.h"
#include "model/articulation_blocks.h"
#include "model/articulation_levels.h"
#include "model/collection.h"
#include "model/sample_blocks.h"
#include "model/song.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "dls_Exp";
constexpr u64 kHeaderBytes = 8; // of a chunk

/// A list in memory, whose size is set when it ends.
class ListScope {
public:
    ListScope(ByteWriter& to, std::string_view id, std::string_view type = {}) : to_(to), start_(to.size()) {
        to.text(id).u32le(0).text(type);
    }
    ~ListScope() { to_.patchU32le(start_ + 4, static_cast<u32>(to_.size() - start_ - kHeaderBytes)); }
    ListScope(const ListScope&) = delete;
    ListScope& operator=(const ListScope&) = delete;

private:
    ByteWriter& to_;
    std::size_t start_;
};

void addText(ByteWriter& to, std::string_view id, std::string_view text) {
    if (text.empty()) return;
    const std::size_t size = text.size() + 1;
    to.text(id).u32le(static_cast<u32>(size + size % 2)).text(text).fill(1 + size % 2);
}

/// The code that a wave is written with where each has its own.
u32 ownCode(const Wave& wave) {
    if ((wave.preferredFormat & wavPlainCodes()) != 0) return wave.preferredFormat;
    return wave.bits > 24 ? kFloat32 : wave.bits > 16 ? kPcm24 : kPcm16;
}

/// A stored byte of silence.
u8 silenceOf(u32 formatWord) {
    switch (formatWord & kCodeMask) {
        case kPcm8:
            return 0x80;
        case kMuLaw:
            return 0xFF;
        case kALaw:
            return 0xD5;
        default:
            return 0;
    }
}

bool writeFill(ByteSink& sink, u64 count, u8 value) {
    std::array<std::byte, 4096> fill{};
    fill.fill(std::byte{value});
    while (count > 0) {
        const auto part = static_cast<std::size_t>(std::min<u64>(count, fill.size()));
        if (!sink.write(ByteSpan(fill).first(part))) return Fail(kContext, "Writing to file failed");
        count -= part;
    }
    return true;
}

/// Calls `work(layer, layerIndex, region, wave)` for at most so many of the regions that play a wave.
template <class Do>
void forEachPlayed(const Instrument& instrument, std::size_t most, Do work) {
    forEachLayer(instrument, [&](const Layer& layer, std::size_t index) {
        forEachRegion(layer, [&](const Region& region, const Wave& wave) {
            if (most == 0) return;
            --most;
            work(layer, index, region, wave);
        });
    });
}

} // namespace

bool DlsBankFile::full() const {
    return plan_.level >= kDlsLevel2Full;
}

bool DlsBankFile::isStereo(const Wave& wave) const {
    return full() && wave.channels == 2 && (plan_.formatWord & kStereoBit) != 0;
}

// ---- Waves

bool DlsBankFile::preparePool() {
    for (const Wave* wave : plan_.contents.waves) {
        PoolWave entry{wave};
        u32 word = isStereo(*wave) ? kStereoBit : kMonoBit;
        word |= (plan_.formatWord & kCodeMask) != 0 ? plan_.formatWord & kCodeMask : ownCode(*wave);
        if (!wavEncoding(*wave, word, 0, entry.encoding)) return false;
        entry.dataBytes = entry.encoding.bytesFor(wave->frames);
        entry.listBytes =
            waveHead(entry).size() + entry.dataBytes + entry.dataBytes % 2 + waveTail(entry).size();
        cues_.emplace(wave->id(), static_cast<u32>(pool_.size()));
        pool_.push_back(std::move(entry));
    }
    return true;
}

u64 DlsBankFile::sampleBytes() const {
    u64 bytes = 0;
    for (const PoolWave& entry : pool_) bytes += entry.dataBytes;
    return bytes;
}

ByteWriter DlsBankFile::waveHead(const PoolWave& entry) const {
    ByteWriter head;
    head.text("LIST").u32le(static_cast<u32>(entry.listBytes - kHeaderBytes)).text("wave");
    head.bytes(entry.encoding.fmt);
    if (!entry.encoding.linear) head.text("fact").u32le(4).u32le(entry.wave->frames);
    writeDlsWaveSample(head, entry.wave->params, nullptr, plan_.level);
    head.text("data").u32le(static_cast<u32>(entry.dataBytes));
    return head;
}

ByteWriter DlsBankFile::waveTail(const PoolWave& entry) const {
    ByteWriter tail;
    wav_WriteInfo(tail, *entry.wave, false);
    return tail;
}

bool DlsBankFile::writeWave(ByteSink& sink, const PoolWave& entry) const {
    const u32 word = entry.encoding.word;
    const std::unique_ptr<SampleBlocks> blocks = openSamples(*entry.wave, encodesFromFloat(word));
    if (!blocks) return false;
    if (!sink.write(waveHead(entry).view())) return Fail(kContext, "Writing to file failed");
    const u64 start = sink.position();
    if (!writeEncoded(*blocks, entry.encoding, sink)) return false;
    // What the source is short of is silence.
    const u64 written = sink.position() - start;
    if (written > entry.dataBytes) return Fail(kContext, "The samples don't fit their wave");
    if (!writeFill(sink, entry.dataBytes - written, silenceOf(word))) return false;
    if (!writeFill(sink, entry.dataBytes % 2, 0)) return false;
    return sink.write(waveTail(entry).view()) || Fail(kContext, "Writing to file failed");
}

// ---- Instruments

void DlsBankFile::addArticulation(ByteWriter& to, Articulation record, const Articulation* parent) const {
    if (full()) return writeArticulationBlocks(to, record, parent, plan_.level);
    // Tuning stands with the samples.
    record.masterTune = 0;
    Articulation above = parent ? *parent : Articulation();
    above.masterTune = 0;
    writeArticulationBlocks(to, record, parent ? &above : nullptr, plan_.level);
}

void DlsBankFile::addRegion(ByteWriter& to, const Instrument& instrument, const Layer& layer,
                            std::size_t layerIndex, const Region& region, const Wave& wave) const {
    const ListScope list(to, "LIST", plan_.level < kDlsLevel2 ? "rgn " : "rgn2");
    const Articulation sounding = resolveArticulation(&instrument, &layer, &region);
    writeDlsRegionHeader(to, region, static_cast<u32>(layerIndex + 1), plan_.level);
    if (full()) writeDlsRegionMore(to, region);
    writeDlsWaveSample(to, effectiveParams(region), &sounding, plan_.level);
    writeDlsWaveLink(to, region, cues_.at(wave.id()), isStereo(wave));
    if (!region.articulation.enabled && !layer.articulation.enabled) return;
    const Articulation* parent = layer.articulation.enabled && !full() ? &layer.articulation
                                 : instrument.articulation.enabled     ? &instrument.articulation
                                                                       : nullptr;
    addArticulation(to, sounding, parent);
}

/// Layers are our own, and so is where their records stand.
void DlsBankFile::addLayers(ByteWriter& to, const Instrument& instrument) const {
    forEachLayer(instrument, [&](const Layer& layer, std::size_t index) {
        if (!layer.articulation.enabled || index >= 0xFFFF) return;
        const ListScope list(to, "LKF1");
        to.text("lyrh").u32le(2).u16le(static_cast<u16>(index + 1));
        addArticulation(to, layer.articulation,
                        instrument.articulation.enabled ? &instrument.articulation : nullptr);
    });
}

void DlsBankFile::addInstrument(ByteWriter& to, const Instrument& instrument) const {
    const std::size_t most = instrument.drumKit() ? plan_.mostDrums : plan_.mostMelodic;
    u32 regions = 0;
    forEachPlayed(instrument, most, [&](auto&&...) { ++regions; });

    const ListScope list(to, "LIST", "ins ");
    const u32 bank = (instrument.drumKit() ? 1U << 31 : 0) | instrument.bankMsb() << 8 | instrument.bankLsb();
    to.text("insh").u32le(12).u32le(regions).u32le(bank).u32le(instrument.program());
    {
        const ListScope regionList(to, "LIST", "lrgn");
        forEachPlayed(instrument, most,
                      [&](const Layer& layer, std::size_t index, const Region& region, const Wave& wave) {
                          addRegion(to, instrument, layer, index, region, wave);
                      });
    }
    if (full()) addLayers(to, instrument);
    if (instrument.articulation.enabled) addArticulation(to, instrument.articulation, nullptr);
    const ListScope info(to, "LIST", "INFO");
    addText(to, "INAM", instrument.name());
    addText(to, "ICMT", instrument.comment);
}

// ---- The file

void DlsBankFile::addCueTable(ByteWriter& to) const {
    const auto count = static_cast<u32>(pool_.size());
    to.text("ptbl").u32le(8 + count * 4).u32le(8).u32le(count);
    u64 position = 0;
    for (const PoolWave& entry : pool_) {
        to.u32le(static_cast<u32>(position));
        position += entry.listBytes;
    }
}

ByteWriter DlsBankFile::texts() const {
    ByteWriter to;
    const ListScope list(to, "LIST", "INFO");
    const bool whole = classOf(plan_.item.id()) == kCollectionClass;
    const auto* collection = whole ? static_cast<const Collection*>(&plan_.item) : nullptr;
    if (collection) addText(to, "ICMT", collection->comments);
    addText(to, "INAM", plan_.item.name());
    if (collection) addText(to, "ICOP", collection->copyright);
    if (collection) addText(to, "IENG", collection->engineer);
    addText(to, "ISFT", "Kelvane Studio v11.4");
    return to;
}

/// Songs are kept where the private list is in use, and a whole collection is saved.
bool DlsBankFile::addSongs(ByteWriter& to) const {
    if (plan_.level < kDlsLevel2Plus || classOf(plan_.item.id()) != kCollectionClass ||
        store().count(kSongClass) == 0)
        return true;
    const ListScope list(to, "LKF1");
    const ListScope songs(to, "LIST", "lRMI");
    for (const Song& song : store().all<Song>()) {
        const Bytes form = rmidForm(song);
        if (form.empty()) return false;
        to.bytes(form);
    }
    return true;
}

bool DlsBankFile::prepare() {
    if (!preparePool()) return false;
    for (const PoolWave& entry : pool_) poolBytes_ += entry.listBytes;
    head_.text("RIFF").u32le(0).text("DLS ");
    head_.text("colh").u32le(4).u32le(static_cast<u32>(plan_.contents.instruments.size()));
    {
        const ListScope list(head_, "LIST", "lins");
        for (const Instrument* instrument : plan_.contents.instruments) addInstrument(head_, *instrument);
    }
    addCueTable(head_);
    head_.text("LIST").u32le(static_cast<u32>(poolBytes_ + 4)).text("wvpl");
    tail_ = texts();
    if (!addSongs(tail_)) return false;
    if (size() - kHeaderBytes > UINT32_MAX)
        return Fail(kContext, "The samples are too long for a bank of this format");
    head_.patchU32le(4, static_cast<u32>(size() - kHeaderBytes));
    return true;
}

bool DlsBankFile::write(ByteSink& sink) const {
    if (!sink.write(head_.view())) return Fail(kContext, "Writing to file failed");
    for (const PoolWave& entry : pool_) {
        if (!writeWave(sink, entry)) return false;
    }
    return sink.write(tail_.view()) || Fail(kContext, "Writing to file failed");
}

} // namespace kv
