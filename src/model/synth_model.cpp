#include "model/synth_model.h"

#include "model/instrument.h"
#include "model/store.h"

namespace kv {
namespace {

Region* regionOf(const SynthModel& model) {
    for (Region& region : model.store().all<Region>()) {
        if (region.HasChild(model.id())) return &region;
    }
    return nullptr;
}

} // namespace

SynthModel::SynthModel(Store& owner, ItemId request, std::string_view text) : Item(owner, kClass, request) {
    SetName(text);
}

SynthModel::SynthModel(Store& owner, const SynthModel& source, ItemId request)
    : Item(owner, kClass, request) {
    copyItemFields(source);
    SetName(source.name(), false);
    childIds = source.childIds;
    modelType = source.modelType;
    modelData = source.modelData;
    modelParameters = source.modelParameters;
}

bool SynthModel::ConvertSynthesis(bool flag, Item* owner) {
    Region* region = regionOf(*this);
    return !region || region->ConvertSynthesis(flag, owner);
}

void SynthModel::RevertSynthesis() {
    if (Region* region = regionOf(*this)) region->RevertSynthesis();
}

} // namespace kv
