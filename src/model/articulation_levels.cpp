#include "model/articulation_levels.h"

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "model/instrument.h"
#include "model/parameter_set.h"
#include "model/store.h"

namespace kv {
namespace {

/// The first enabled record of some levels, nearest first; null entries are levels that don't count.
const Articulation* nearest(std::initializer_list<const Articulation*> levels) {
    for (const Articulation* record : levels) {
        if (record && record->enabled) return record;
    }
    return nullptr;
}

Articulation defaultRecord(const Region& region) {
    Articulation record;
    makeDefaultEnvelope(record, (effectiveLoopFlags(region) & kLooped) != 0);
    return record;
}

/// Records to be averaged, and whether any came from a real level.
struct Entries {
    std::vector<Articulation> records;
    bool anyReal = false;

    void add(const Region& region, const Articulation* record) {
        anyReal |= record != nullptr;
        records.push_back(record ? *record : defaultRecord(region));
    }
    Articulation average() const {
        Articulation result = averageArticulation(records);
        result.enabled = anyReal;
        return result;
    }
};

template <class Do>
void forEachRegion(const Layer& layer, Do work) {
    for (const ItemId id : layer.childIds) {
        if (Region* region = layer.store().Find<Region>(id)) work(*region);
    }
}

template <class Do>
void forEachLayer(const Instrument& instrument, Do work) {
    for (const ItemId id : instrument.childIds) {
        if (Layer* layer = instrument.store().Find<Layer>(id)) work(*layer);
    }
}

struct Levels {
    bool instrument, layer, region;
};

Levels levelsOf(const Instrument& instrument, const ParameterSet& set) {
    if (instrument.drumKit()) return {true, false, true};
    return {set[Switch::InstrumentArticulation], set[Switch::LayerArticulation],
            set[Switch::RegionArticulation]};
}

/// Regions take over what stands on levels above that are not there.
void moveDown(const Articulation& instrument, const Layer& layer, const Levels& levels) {
    const Articulation* above = nullptr;
    if (!levels.layer) {
        above = nearest({&layer.articulation, levels.instrument ? nullptr : &instrument});
    }
    if (!above) return;
    forEachRegion(layer, [&](Region& region) {
        if (!region.articulation.enabled) region.articulation = *above;
    });
}

/// The layer takes the instrument's record over, or an average of its regions', where those levels are not
/// there.
void gatherInLayer(const Articulation& instrument, Layer& layer, const Levels& levels) {
    const Articulation* above = levels.instrument ? nullptr : &instrument;
    if (!layer.articulation.enabled && nearest({above})) layer.articulation = instrument;
    if (levels.region) return;
    Entries entries;
    forEachRegion(layer, [&](const Region& region) {
        entries.add(region, nearest({&region.articulation, &layer.articulation, above}));
    });
    if (entries.anyReal) layer.articulation = entries.average();
}

void gatherInInstrument(Instrument& instrument) {
    Entries entries;
    forEachLayer(instrument, [&](const Layer& layer) {
        forEachRegion(layer, [&](const Region& region) {
            entries.add(region,
                        nearest({&region.articulation, &layer.articulation, &instrument.articulation}));
        });
    });
    if (entries.anyReal) instrument.articulation = entries.average();
}

} // namespace

Articulation resolveArticulation(const Instrument* instrument, const Layer* layer, const Region* region) {
    const Articulation* record =
        nearest({region ? &region->articulation : nullptr, layer ? &layer->articulation : nullptr,
                 instrument ? &instrument->articulation : nullptr});
    if (record) return *record;
    return region ? defaultRecord(*region) : Articulation();
}

Articulation articulationRange(const Instrument* instrument, std::size_t firstLayer, std::size_t lastLayer) {
    if (!instrument) return {};
    const auto regionRecords = [](const Layer& layer) {
        bool any = false;
        forEachRegion(layer, [&](const Region& region) { any |= region.articulation.enabled; });
        return any;
    };
    Entries entries;
    for (std::size_t i = firstLayer; i <= lastLayer && i < instrument->childIds.size(); ++i) {
        const Layer* layer = instrument->store().Find<Layer>(instrument->childIds[i]);
        if (!layer) continue;
        if (firstLayer == lastLayer && layer->articulation.enabled && !regionRecords(*layer)) {
            return layer->articulation;
        }
        forEachRegion(*layer, [&](const Region& region) {
            entries.add(region,
                        nearest({&region.articulation, &layer->articulation, &instrument->articulation}));
        });
    }
    return entries.average();
}

void fitLevelsToParameterSet(Instrument& instrument, const ParameterSet& set) {
    const Levels levels = levelsOf(instrument, set);
    if (levels.region) {
        forEachLayer(instrument,
                     [&](const Layer& layer) { moveDown(instrument.articulation, layer, levels); });
    }
    if (levels.layer) {
        forEachLayer(instrument,
                     [&](Layer& layer) { gatherInLayer(instrument.articulation, layer, levels); });
    }
    if (levels.instrument && !levels.layer && !levels.region) gatherInInstrument(instrument);
    if (!levels.instrument) instrument.articulation.enabled = false;
    forEachLayer(instrument, [&](Layer& layer) {
        if (!levels.layer) layer.articulation.enabled = false;
        if (levels.region) return;
        forEachRegion(layer, [](Region& region) { region.articulation.enabled = false; });
    });
}

} // namespace kv
