#include "model/item.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/collection.h"
#include "model/default_name.h"
#include "model/store.h"

namespace kv {
namespace {

/// Cleans a name: nothing blank at its ends, no control characters in it.
std::string cleanName(std::string_view text) {
    text = cutToCharacters(text, Text<128>::kLimit);
    while (!text.empty() && (static_cast<u8>(text.back()) & 0xDF) == 0) text.remove_suffix(1);
    while (!text.empty() && static_cast<u8>(text.front()) < 33) text.remove_prefix(1);
    std::string result(text);
    std::replace_if(
        result.begin(), result.end(), [](char c) { return static_cast<u8>(c) < 32; }, ' ');
    return result;
}

} // namespace

Item::Item(Store& store, u32 classBit, ItemId request) : store_(&store) {
    store.link(*this, classBit, request);
}

Item::~Item() {
    store_->unlink(*this);
}

void Item::FixUp() {
    dataSize = 0;
    std::erase_if(childIds, [this](ItemId id) {
        const Item* child = store_->FindItem(id);
        if (child) dataSize += child->dataSize;
        return child == nullptr;
    });
}

bool Item::LoadData() {
    return std::all_of(childIds.begin(), childIds.end(), [this](ItemId id) {
        Item* child = store_->FindItem(id);
        return !child || child->LoadData();
    });
}

void Item::SetName(std::string_view text, bool unique) {
    std::string name = cleanName(text);
    if (name.empty()) {
        const Collection* collection = store_->First<Collection>();
        name = defaultName(*this, collection ? collection->name().view() : std::string_view());
    }
    store_->removeName(*this);
    name_.clear(); // not its own rival
    if (unique && itemClasses()[Store::indexOf(classOf(id_))].uniqueNames) {
        name = store_->uniqueName(classOf(id_), std::move(name));
    }
    name_ = name;
    store_->addName(*this);
}

int Item::AddChild(ItemId child) {
    if (child == 0) return -1;
    childIds.push_back(child);
    return static_cast<int>(childIds.size()) - 1;
}

int Item::IndexOfChild(ItemId child) const {
    const auto found = std::find(childIds.begin(), childIds.end(), child);
    return found == childIds.end() ? -1 : static_cast<int>(found - childIds.begin());
}

void Item::RemoveChildAt(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= childIds.size()) return;
    childIds.erase(childIds.begin() + index);
}

Item* Item::childAt(std::size_t index) const {
    return store_->FindItem(childIds[index]);
}

void Item::copyItemFields(const Item& source) {
    dataSize = source.dataSize;
    dataFormat = source.dataFormat;
    sourcePrivate = source.sourcePrivate;
}

void Item::deleteChildren() {
    for (std::size_t i = childIds.size(); i-- > 0;) store_->Delete(childAt(i));
    childIds.clear();
}

std::string_view ItemClassWord(const Item& item) {
    return itemClasses()[static_cast<std::size_t>(enumerationIndex(classOf(item.id())))].word;
}

int ItemClassIndex(const Item& item) {
    constexpr std::array kOrder{kWaveClass,       kSynthModelClass, kRegionClass, kLayerClass,
                                kInstrumentClass, kTrackClass,      kSongClass};
    const auto found = std::find(kOrder.begin(), kOrder.end(), classOf(item.id()));
    return static_cast<int>(found - kOrder.begin());
}

bool Lock(Item& item) {
    if (item.locked) {
        return Fail("Resource usage conflict",
                    "Item \"{}\" is locked!\n\nPlease close all Property && Players dialogs then try again.",
                    item.name().view());
    }
    return item.locked = true;
}

} // namespace kv
