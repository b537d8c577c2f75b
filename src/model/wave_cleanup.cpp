#include "model/wave_cleanup.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "base/run_context.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"

namespace kv {

namespace {

/// What some region of an instrument plays.
std::unordered_set<ItemId> playedWaves() {
    std::unordered_set<ItemId> played;
    for (const Instrument& instrument : store().all<Instrument>()) {
        for (const ItemId layerId : instrument.childIds) {
            const Layer* layer = store().Find<Layer>(layerId);
            if (!layer) continue;
            for (const ItemId id : layer->childIds) {
                const Region* region = store().Find<Region>(id);
                const Wave* wave = region ? RegionWave(*region) : nullptr;
                if (wave) played.insert(wave->id());
            }
        }
    }
    return played;
}

/// The user agrees, or needn't be asked.
bool confirmed(std::string_view question) {
    constexpr std::string_view kButtons[] = {"Yes", "No"};
    return !settings().load.bConfirm || Ask({}, question, kButtons, 1) == 0;
}

u64 kilobytes(u64 bytes) {
    return (bytes + 512) / 1024;
}

void fixUpCollection() {
    if (Collection* collection = store().First<Collection>()) collection->FixUp();
}

} // namespace

u32 AutoCreateInstruments() {
    const std::unordered_set<ItemId> played = playedWaves();
    std::unordered_set<u32> patches;
    for (const Instrument& instrument : store().all<Instrument>()) patches.insert(instrument.patch);
    u32 created = 0, patch = 0;
    for (Wave& wave : store().all<Wave>()) {
        if (played.contains(wave.id())) continue;
        while (patches.contains(patch)) ++patch;
        Instrument* instrument =
            store().Create<Instrument>(kNextFreeNumber, numberOf(wave.id()), 1U, wave.name());
        instrument->patch = patch;
        patches.insert(patch);
        ++created;
    }
    if (created == 0) {
        ShowMessage({}, "No 'lonely' waveforms found!\nNo new instrument created.");
        return 0;
    }
    FixUpAll(0);
    PostStatus(fmt::format("Created {} new instrument{}.", created, plural(created)));
    if (const Collection* collection = store().First<Collection>()) Refresh(collection->id());
    return created;
}

u32 DeleteUnusedWaves(u64& bytesFreed) {
    bytesFreed = 0;
    if (!confirmed("Do you really want to delete all unused waveforms?")) return 0;
    const std::unordered_set<ItemId> played = playedWaves();
    u32 deleted = 0;
    for (Wave& wave : store().all<Wave>()) {
        if (played.contains(wave.id())) continue;
        bytesFreed += wave.dataSize;
        store().Delete(&wave);
        ++deleted;
    }
    fixUpCollection();
    PostStatus(deleted == 0 ? std::string("Done: No unused waveforms found")
                            : fmt::format("Done: Deleted {} unused waveform{} ({} KB freed)", deleted,
                                          plural(deleted), kilobytes(bytesFreed)));
    return deleted;
}

// ---- Duplicates

namespace {

/// What two waves must have in common before their samples are worth reading.
using Header = std::tuple<u32, u32, u32>;
Header headerOf(const Wave& wave) {
    return {wave.frames, wave.channels, wave.sampleRate};
}

u64 hashOf(Wave& wave) {
    u64 hash = 14695981039346656037U; // FNV-1a over 16-bit words
    for (const i16 sample : GetInt16Data(wave)) hash = (hash ^ static_cast<u16>(sample)) * 1099511628211U;
    return hash;
}

bool sameSamples(Wave& a, Wave& b) {
    if (!a.LoadData() || !b.LoadData()) return false;
    if (!a.samplesFloat && !b.samplesFloat) {
        const std::span<i16> left = GetInt16Data(a), right = GetInt16Data(b);
        return std::equal(left.begin(), left.end(), right.begin(), right.end());
    }
    constexpr f32 kTolerance = 0x1p-24F;
    const std::span<f32> left = GetFloatData(a), right = GetFloatData(b);
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](f32 x, f32 y) { return std::abs(x - y) <= kTolerance; });
}

bool samePlaying(SampleParams a, const SampleParams& b) {
    a.override = b.override;
    if (!a.looped() && !b.looped()) {
        a.loopStart = b.loopStart;
        a.loopEnd = b.loopEnd;
    }
    return a == b;
}

/// Lets `kept` stand in for `copy` and deletes that.
void replaceCopy(Wave& kept, Wave& copy, const std::vector<Region*>& players) {
    const bool same = samePlaying(kept.params, copy.params);
    for (Region* region : players) {
        std::replace(region->childIds.begin(), region->childIds.end(), copy.id(), kept.id());
        if (!same && !region->params.override) {
            region->params = copy.params;
            region->params.override = true;
        }
        region->FixUp();
    }
    if (nameBefore(copy, kept)) kept.SetName(copy.name(), false);
    store().Delete(&copy);
}

/// Goes over waves with one header, first to last. Waves of integers are told apart by a hash, which leaves
/// few to compare.
u32 dropCopies(const std::vector<Wave*>& alike, std::unordered_map<ItemId, std::vector<Region*>>& players,
               u64& bytesFreed) {
    u32 deleted = 0;
    std::unordered_map<u64, std::vector<Wave*>> kept;
    std::vector<Wave*> loaded;
    bool anyFloat = false;
    for (Wave* wave : alike) {
        if (!wave->LoadData()) continue;
        loaded.push_back(wave);
        anyFloat = anyFloat || wave->samplesFloat;
    }
    for (Wave* wave : loaded) {
        std::vector<Wave*>& candidates = kept[anyFloat ? 0 : hashOf(*wave)];
        const auto original = std::find_if(candidates.begin(), candidates.end(),
                                           [&](Wave* candidate) { return sameSamples(*candidate, *wave); });
        if (original == candidates.end()) {
            candidates.push_back(wave);
            continue;
        }
        bytesFreed += wave->dataSize;
        std::vector<Region*>& own = players[wave->id()];
        std::vector<Region*>& originals = players[(*original)->id()];
        replaceCopy(**original, *wave, own);
        originals.insert(originals.end(), own.begin(), own.end());
        ++deleted;
    }
    for (const auto& [hash, waves] : kept) {
        for (Wave* wave : waves) FreeData(*wave, true);
    }
    return deleted;
}

} // namespace

u32 DeleteDuplicateWaves(u64& bytesFreed) {
    bytesFreed = 0;
    if (!confirmed("Do you really want to delete any 'duplicate' (bit by bit identical) waveforms?"))
        return 0;
    std::map<Header, std::vector<Wave*>> byHeader;
    for (Wave& wave : store().all<Wave>()) byHeader[headerOf(wave)].push_back(&wave);
    std::unordered_map<ItemId, std::vector<Region*>> players;
    for (Region& region : store().all<Region>()) {
        if (const Wave* wave = RegionWave(region)) players[wave->id()].push_back(&region);
    }
    u32 deleted = 0;
    for (const auto& [header, alike] : byHeader) {
        if (alike.size() > 1) deleted += dropCopies(alike, players, bytesFreed);
    }
    fixUpCollection();
    Refresh();
    PostStatus(deleted == 0 ? std::string("Done: No duplicate waveforms found")
                            : fmt::format("Done: Deleted {} duplicate waveform{} ({} KB freed)", deleted,
                                          plural(deleted), kilobytes(bytesFreed)));
    return deleted;
}

} // namespace kv
