#include "model/collection.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"

namespace kv {
namespace {

/// The next patch word after a clash: the next program, and past the last one the next bank. The drum
/// flag is not part of the count.
u32 nextPatch(u32 patch) {
    const u32 drum = patch & Instrument::kDrumKit;
    return drum | ((patch + 1) & ~Instrument::kDrumKit);
}

/// Patch words in use, each with where to look on; looked-up ways are shortened, so that thousands of
/// instruments on one patch cost no quadratic time.
class TakenPatches {
public:
    u32 take(u32 patch) {
        u32 free = patch;
        for (auto at = next_.find(free); at != next_.end(); at = next_.find(free)) free = at->second;
        const u32 after = nextPatch(free);
        for (u32 at = patch; at != free;) at = std::exchange(next_[at], after);
        next_[free] = after;
        return free;
    }

private:
    std::unordered_map<u32, u32> next_;
};

} // namespace

Collection::Collection(Store& owner, const std::filesystem::path& path) : Item(owner, kClass, 0) {
    SetName("Unnamed", false);
    if (!path.empty()) nameAfter(path);
}

void Collection::nameAfter(const std::filesystem::path& path) {
    fileName = path;
    const std::string stem = path.stem().string();
    SetName(stem.empty() ? "Unnamed" : stem, false);
}

void Collection::FixUp() {
    dataSize = 0;
    for (const Wave& wave : store().all<Wave>()) dataSize += wave.dataSize;
    childIds.clear();
    TakenPatches taken;
    for (Instrument& instrument : store().all<Instrument>()) {
        instrument.patch = taken.take(instrument.patch);
        AddChild(instrument.id());
    }
}

bool Collection::LoadData() {
    for (Wave& wave : store().all<Wave>()) {
        if (!wave.LoadData()) return false;
    }
    return Item::LoadData();
}

std::string Collection::Describe() const {
    const std::size_t waves = store().count(kWaveClass);
    return fmt::format("Collection with {} instrument{} and {} waveform{} ({}KB)", childIds.size(),
                       plural(childIds.size()), waves, plural(waves), (dataSize + 512) / 1024);
}

bool Collection::HasSynthesis() const {
    for (const Instrument& instrument : store().all<Instrument>()) {
        if (instrument.HasSynthesis()) return true;
    }
    return false;
}

bool Collection::HasWave() const {
    return store().count(kWaveClass) > 0;
}

bool Collection::ConvertSynthesis(bool flag, Item* owner) {
    for (Instrument& instrument : store().all<Instrument>()) {
        if (instrument.HasSynthesis() && !instrument.ConvertSynthesis(flag, owner)) return false;
    }
    return true;
}

void Collection::RevertSynthesis() {
    for (Instrument& instrument : store().all<Instrument>()) instrument.RevertSynthesis();
}

} // namespace kv
