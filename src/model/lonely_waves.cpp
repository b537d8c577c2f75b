#include "model/lonely_waves.h"

#include <fmt/format.h>

#include <unordered_set>

#include "base/run_context.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {

u32 AutoCreateInstruments() {
    std::unordered_set<ItemId> played;
    std::unordered_set<u32> patches;
    for (const Instrument& instrument : store().all<Instrument>()) {
        patches.insert(instrument.patch);
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

} // namespace kv
