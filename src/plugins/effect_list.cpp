// The list of what is installed, kept in memory.
#include <algorithm>
#include <cstdlib>
#include <mutex>

#include "base/text.h"
#include "plugins/effect_info.h"
#include "plugins/ladspa_scan.h"
#include "plugins/lv2_world.h"

namespace kv {
namespace {

constexpr std::chrono::seconds kPatience{5}; ///< for one library

struct KeptList {
    std::mutex mutex;
    std::string paths; ///< for which the list was made
    std::shared_ptr<const EffectList> list;
};
KeptList& keptList() {
    static KeptList& kept = *new KeptList;
    return kept;
}

std::string currentPaths() {
    std::string paths;
    for (const char* name : {"LADSPA_PATH", "LV2_PATH"}) {
        const char* const path = std::getenv(name);
        paths += path ? path : "";
        paths += '\n';
    }
    return paths;
}

/// Of several libraries with the same effect the one that was found first counts.
void sortEffects(std::vector<EffectInfo>& effects) {
    const auto byId = [](const EffectInfo& a, const EffectInfo& b) { return a.id < b.id; };
    const auto sameId = [](const EffectInfo& a, const EffectInfo& b) { return a.id == b.id; };
    std::stable_sort(effects.begin(), effects.end(), byId);
    effects.erase(std::unique(effects.begin(), effects.end(), sameId), effects.end());
    std::stable_sort(effects.begin(), effects.end(), [](const EffectInfo& a, const EffectInfo& b) {
        return compareIgnoringCase(a.name, b.name) < 0;
    });
}

EffectList lookForEffects() {
    EffectList list = scanLadspa(ladspaLibraries(), kPatience);
    EffectList lv2 = scanLv2();
    std::move(lv2.effects.begin(), lv2.effects.end(), std::back_inserter(list.effects));
    std::move(lv2.problems.begin(), lv2.problems.end(), std::back_inserter(list.problems));
    sortEffects(list.effects);
    return list;
}

} // namespace

std::shared_ptr<const EffectList> installedEffects() {
    KeptList& kept = keptList();
    const std::lock_guard lock(kept.mutex);
    std::string paths = currentPaths();
    if (!kept.list || kept.paths != paths) {
        kept.list = std::make_shared<const EffectList>(lookForEffects());
        kept.paths = std::move(paths);
    }
    return kept.list;
}

void forgetInstalledEffects() {
    const std::lock_guard lock(keptList().mutex);
    keptList().list.reset();
}

} // namespace kv
