#include "formats/banks/dls/dls_reader.h"

#include <unordered_map>

#include "base/run_context.h"
#include "formats/banks/dls/dls_records.h"
#include "formats/banks/dls/rmid.h"
#include "model/articulation_blocks.h"
#include "model/articulation_levels.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "dls_Parse";

// ---- Articulation

/// More blocks than there are kinds of them are repeats.
constexpr std::size_t kMostBlockBytes = 65536;

void readArticulation(ByteSource& source, const DlsArticulators& chunks, Articulation& record) {
    const Chunk& chunk = chunks.art2.size > 0 ? chunks.art2 : chunks.art1;
    if (chunk.size == 0) return;
    articulationInit(record, false);
    if (!readArticulationBlocks(readContents(source, chunk, kMostBlockBytes), record))
        runContext().diagnostics.warn(chunk.start, "art1, art2", "too short; left out");
}

void readArticulations(ByteSource& source, DlsBank& bank) {
    for (DlsBank::InstrumentEntry& entry : bank.instruments) {
        readArticulation(source, entry.articulators, entry.instrument->articulation);
        for (const DlsLayers::Slot& slot : entry.layers.slots())
            readArticulation(source, slot.articulators, slot.layer->articulation);
    }
    for (const DlsBank::RegionEntry& entry : bank.regions)
        readArticulation(source, entry.articulators, entry.region->articulation);
}

/// Takes the gain off again that the writer adds for LFOs to one side; only our own files have such LFOs.
void settleGains(DlsBank& bank) {
    for (DlsBank::InstrumentEntry& entry : bank.instruments) {
        for (const DlsLayers::Slot& slot : entry.layers.slots()) {
            for (const ItemId id : slot.layer->childIds) {
                Region* region = store().Find<Region>(id);
                if (!region || !region->params.override) continue;
                region->params.gainDb -=
                    dlsLfoGain(resolveArticulation(entry.instrument, slot.layer, region));
            }
        }
    }
}

// ---- Waves of the regions

/// Finds the wave that a cue means. What can't be found is told once, and noted each time.
class DlsCues {
public:
    DlsCues(ByteSource& source, const DlsBank& bank) : source_(source), bank_(bank) {}

    bool read();
    Wave* find(u32 cue);

private:
    Wave* missing(std::string_view what, u32 cue);

    ByteSource& source_;
    const DlsBank& bank_;
    bool plain_ = false; ///< without a table, cues count waves
    Bytes table_;
    std::unordered_map<u64, Wave*> waves_; ///< by position
    std::vector<std::string_view> told_;
};

bool DlsCues::read() {
    if (!bank_.cues || bank_.cues->start >= source_.size()) {
        plain_ = true;
        if (!bank_.regions.empty()) {
            ShowMessage({},
                        "DLS parser warning: Mandatory 'ptbl' chunk is missing, will attempt to read file "
                        "anyway, but may not be correct!");
        }
        return true;
    }
    constexpr u32 kHeaderBytes = 8;
    const Chunk& chunk = *bank_.cues;
    const Bytes header = readContents(source_, chunk, kHeaderBytes);
    ByteCursor in(header);
    const u32 headerBytes = std::max(in.u32le(), kHeaderBytes), count = in.u32le();
    const u64 start = chunk.start + headerBytes, bytes = u64{count} * 4;
    if (!in.ok() || start + bytes > source_.size()) return Fail(kContext, "Could not read pool cue table");
    if (headerBytes + bytes > chunk.size)
        runContext().diagnostics.warn(chunk.start, "ptbl", "it counts more cues than it holds");
    const u64 held = std::min(bytes, chunk.size - std::min<u64>(headerBytes, chunk.size));
    table_ = readContents(source_, {0, start, held, held}, static_cast<std::size_t>(held));
    for (const DlsBank::WaveEntry& entry : bank_.waves) waves_.try_emplace(entry.position, entry.wave);
    return true;
}

Wave* DlsCues::missing(std::string_view what, u32 cue) {
    runContext().diagnostics.warn(0, "wlnk", fmt::format("{} {}: the region was left out", what, cue));
    if (std::ranges::count(told_, what) == 0) {
        told_.push_back(what);
        ShowMessage({}, what);
    }
    return nullptr;
}

Wave* DlsCues::find(u32 cue) {
    if (plain_) return cue < bank_.waves.size() ? bank_.waves[cue].wave : nullptr;
    if (cue >= table_.size() / 4) return missing("Missing cue", cue);
    const u32 position = ByteCursor(ByteSpan(table_).subspan(std::size_t{cue} * 4, 4)).u32le();
    const auto found = waves_.find(position);
    return found == waves_.end() ? missing("Missing wave", cue) : found->second;
}

bool sameBlock(SampleParams block, const SampleParams& other) {
    block.override = other.override;
    return block == other;
}

bool linkRegions(ByteSource& source, const DlsBank& bank) {
    DlsCues cues(source, bank);
    if (!cues.read()) return false;
    for (const DlsBank::RegionEntry& entry : bank.regions) {
        Region& region = *entry.region;
        Wave* wave = cues.find(entry.cue);
        if (!wave) {
            store().Delete(&region);
            continue;
        }
        region.AddChild(wave->id());
        if (region.params.override && sameBlock(region.params, wave->params)) region.params.override = false;
    }
    return true;
}

} // namespace

bool readDlsChunks(FileContext& file, u64 start, u64 end, Collection& collection, int depth) {
    constexpr u32 kFormHeaderBytes = 12;
    const Bytes header = readContents(*file.source, {0, start, kFormHeaderBytes, 0}, kFormHeaderBytes);
    ByteCursor in(header);
    const std::string_view id = in.text(4);
    const u32 size = in.u32le();
    const std::string_view type = in.text(4);
    if (!in.ok() || id != "RIFF" || (type != "DLS " && type != "MLS "))
        return Fail(kContext, "Not a RIFF DLS file");
    DlsBank bank;
    // A song that can't be read must not cost the bank.
    bank.readSong = [&](FileContext& whole, u64 from, u64 to) {
        if (!readRmidForm(whole, from, to, collection, depth + 1))
            runContext().diagnostics.add({Severity::Loss, from, {}, "lRMI", runContext().error.message});
        return true;
    };
    end = std::min(end, file.source->size());
    const u64 formEnd = std::min(start + 8 + size, end);
    if (!walkDlsChunks(file, collection, start + kFormHeaderBytes, formEnd, end, bank)) return false;
    readArticulations(*file.source, bank);
    if (bank.level >= kDlsLevel2Full) settleGains(bank);
    return linkRegions(*file.source, bank);
}

bool dls_Imp(Collection& collection, FileContext& file, u32) {
    return readDlsChunks(file, 0, file.size(), collection);
}

} // namespace kv
