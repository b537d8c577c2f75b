#include "model/fix_up.h"

#include "base/run_context.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/store.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

/// Fixes up all items of a class and deletes those that `drop` names. An item may delete itself on the
/// way, so it is looked up again.
template <class T, class Drop>
void sweep(Drop drop) {
    for (T& item : store().all<T>()) {
        const ItemId id = item.id();
        item.FixUp();
        T* left = store().Find<T>(id);
        if (left && drop(*left)) store().Delete(left);
    }
}

template <class T>
void sweep() {
    sweep<T>([](const T&) { return false; });
}

} // namespace

void FixUpAll(u32 classMask) {
    PostStatus("Wait - Fixing up waveforms...");
    bool refresh = false;
    sweep<Wave>([&](const Wave& wave) {
        if (wave.channels > 2) return refresh = true; // more are not carried in the model
        return (classMask & kWaveClass) != 0 && (wave.frames == 0 || wave.channels < 1);
    });
    sweep<SynthModel>();
    PostStatus("Wait - Fixing up regions...");
    sweep<Region>([&](const Region& region) {
        if ((classMask & kRegionClass) == 0 || region.HasWave() || region.HasSynthesis()) return false;
        return refresh = true;
    });
    PostStatus("Wait - Fixing up layers...");
    sweep<Layer>(
        [&](const Layer& layer) { return (classMask & kLayerClass) != 0 && layer.childIds.empty(); });
    PostStatus("Wait - Fixing up instruments...");
    sweep<Instrument>([&](const Instrument& instrument) {
        return (classMask & kInstrumentClass) != 0 && instrument.childIds.empty() &&
               !instrument.HasSynthesis();
    });
    sweep<Track>();
    sweep<Song>();
    sweep<Collection>();
    PostStatus();
    if (refresh) Refresh();
}

} // namespace kv
