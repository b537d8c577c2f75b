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
    std::string paths; ///< for which the list was made
    std::shared_ptr<const EffectList> list;
};
struct KeptLists {
    std::mutex mutex;
    KeptList ladspa, lv2, both;
};
KeptLists& keptLists() {
    static KeptLists& kept = *new KeptLists;
    return kept;
}

/// Of several libraries with the same effect the one that was found first counts.
EffectList sorted(EffectList list) {
    std::vector<EffectInfo>& effects = list.effects;
    const auto byId = [](const EffectInfo& a, const EffectInfo& b) { return a.id < b.id; };
    const auto sameId = [](const EffectInfo& a, const EffectInfo& b) { return a.id == b.id; };
    std::stable_sort(effects.begin(), effects.end(), byId);
    effects.erase(std::unique(effects.begin(), effects.end(), sameId), effects.end());
    std::stable_sort(effects.begin(), effects.end(), [](const EffectInfo& a, const EffectInfo& b) {
        return compareIgnoringCase(a.name, b.name) < 0;
    });
    return list;
}

/// Calls `look` for the list unless it was made for the same paths.
template <class Look>
const std::shared_ptr<const EffectList>& upToDate(KeptList& kept,
                                                  std::initializer_list<const char*> variables, Look look) {
    std::string paths;
    for (const char* variable : variables) {
        const char* const path = std::getenv(variable);
        paths += path ? path : "";
        paths += '\n';
    }
    if (!kept.list || kept.paths != paths) {
        kept.list = std::make_shared<const EffectList>(sorted(look()));
        kept.paths = std::move(paths);
    }
    return kept.list;
}

} // namespace

std::shared_ptr<const EffectList> installedEffects(std::optional<EffectKind> kind) {
    KeptLists& kept = keptLists();
    const std::lock_guard lock(kept.mutex);
    const auto ladspa = [&] {
        return upToDate(kept.ladspa, {"LADSPA_PATH", "HOME"},
                        [] { return scanLadspa(ladspaLibraries(), kPatience); });
    };
    const auto lv2 = [&] { return upToDate(kept.lv2, {"LV2_PATH", "HOME"}, scanLv2); };
    if (kind) return *kind == EffectKind::Ladspa ? ladspa() : lv2();
    return upToDate(kept.both, {"LADSPA_PATH", "LV2_PATH", "HOME"}, [&] {
        EffectList all = *ladspa();
        const std::shared_ptr<const EffectList> more = lv2();
        all.effects.insert(all.effects.end(), more->effects.begin(), more->effects.end());
        all.problems.insert(all.problems.end(), more->problems.begin(), more->problems.end());
        return all;
    });
}

void forgetInstalledEffects() {
    KeptLists& kept = keptLists();
    const std::lock_guard lock(kept.mutex);
    for (KeptList* list : {&kept.ladspa, &kept.lv2, &kept.both}) list->list.reset();
}

} // namespace kv
