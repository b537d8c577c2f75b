#include "model/store.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <utility>
#include <vector>

namespace kv {
namespace {

constexpr std::array<ItemClass, 8> kClasses{{
    {kWaveClass, "waveform", 4096, true},
    {kRegionClass, "region", 196608, false},
    {kLayerClass, "layer", 4096, false},
    {kSynthModelClass, "synthesis model", 768, true},
    {kInstrumentClass, "instrument", 1024, true},
    {kTrackClass, "MIDI track", 64, false},
    {kSongClass, "MIDI song", 8, true},
    {kCollectionClass, "collection", 1, true},
}};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The last digit is part of a note name, as in "C#4" or "A3", and does not count anything.
bool endsInNoteName(std::string_view name) {
    if (name.size() < 2 || !isDigit(name.back())) return false;
    const char before = name[name.size() - 2];
    return before == '#' || (before >= 'A' && before <= 'G');
}

/// Start of the character that ends before `end`.
std::size_t characterBefore(std::string_view name, std::size_t end) {
    do --end;
    while (end > 0 && (static_cast<u8>(name[end]) & 0xC0) == 0x80);
    return end;
}

/// The name to try after `name`: a counter at its end goes up by one, in place where that is possible.
std::string nextName(std::string name) {
    constexpr std::size_t kLimit = Text<128>::kLimit;
    if (name.empty() || !isDigit(name.back()) || endsInNoteName(name)) {
        if (cutToCharacters(name, kLimit - 2).size() < name.size()) {
            name.resize(cutToCharacters(name, kLimit).size());
            name.resize(characterBefore(name, characterBefore(name, name.size())));
        }
        return name + " 1";
    }
    std::size_t at = name.size();
    while (at > 0 && name[at - 1] == '9') name[--at] = '0';
    if (at == 0) {
        name.insert(name.begin(), '1');
        return std::string(cutToCharacters(name, kLimit));
    }
    if (isDigit(name[at - 1])) {
        ++name[at - 1];
    } else {
        const std::size_t start = characterBefore(name, at);
        name.replace(start, at - start, "1");
    }
    return name;
}

} // namespace

std::span<const ItemClass, 8> itemClasses() {
    return kClasses;
}

int enumerationIndex(u32 classBit) {
    for (std::size_t i = 0; i < kClasses.size(); ++i) {
        if (kClasses[i].bit == classBit) return static_cast<int>(i);
    }
    return -1;
}

void Store::FreeTable::operator()(Item** table) const {
    std::free(table);
}

Store::~Store() {
    DeleteAllItems();
    while (depth_ > 0) PopAndDiscard();
    DeleteAllItems();
}

Item* Store::FindItem(ItemId id) const {
    const int index = enumerationIndex(classOf(id));
    if (index < 0) return nullptr;
    const auto at = static_cast<std::size_t>(index);
    const u32 number = numberOf(id);
    if (number < kClasses[at].directSlots) return direct_[at] ? direct_[at][number] : nullptr;
    const auto found = beyond_.find(id);
    return found == beyond_.end() ? nullptr : found->second;
}

Item* Store::FirstItem(u32 classBit) const {
    const int index = enumerationIndex(classBit);
    for (std::size_t i = index < 0 ? lists_.size() : static_cast<std::size_t>(index); i < lists_.size();
         ++i) {
        if (lists_[i].head) return lists_[i].head;
    }
    return nullptr;
}

Item* Store::NextItem(const Item& item) const {
    if (item.next_) return item.next_;
    const std::size_t index = indexOf(classOf(item.id_));
    return index + 1 < kClasses.size() ? FirstItem(kClasses[index + 1].bit) : nullptr;
}

void Store::DeleteAllItems() {
    for (List& list : lists_) {
        while (list.head) delete list.head;
        list.names.given.clear();
    }
    resetNameCounters();
}

bool Store::anyLocked() const {
    for (const List& list : lists_) {
        for (const Item* item = list.head; item; item = item->next_) {
            if (item->locked) return true;
        }
    }
    return false;
}

void Store::sort(u32 classBit, bool (*before)(const Item&, const Item&)) {
    List& list = lists_[indexOf(classBit)];
    std::vector<Item*> items;
    items.reserve(list.count);
    for (Item* item = list.head; item; item = item->next_) items.push_back(item);
    std::stable_sort(items.begin(), items.end(),
                     [before](const Item* a, const Item* b) { return before(*a, *b); });
    Item* previous = nullptr;
    for (Item* item : items) {
        item->prev_ = previous;
        item->next_ = nullptr;
        (previous ? previous->next_ : list.head) = item;
        previous = item;
    }
    list.tail = previous;
}

bool Store::PushLists() {
    if (depth_ == kStackDepth) return false;
    for (const List& list : lists_) {
        for (const Item* item = list.head; item; item = item->next_) leave(*item);
    }
    stack_[depth_++] = std::exchange(lists_, {});
    return true;
}

void Store::PopAndDiscard() {
    DeleteAllItems();
    if (depth_ == 0) return;
    lists_ = std::exchange(stack_[--depth_], {});
    for (const List& list : lists_) {
        for (Item* item = list.head; item; item = item->next_) enter(*item);
    }
}

std::vector<Item*> Store::pushedItems(u32 classBit) const {
    std::vector<Item*> items;
    if (depth_ == 0) return items;
    for (Item* item = stack_[depth_ - 1][indexOf(classBit)].head; item; item = item->next_)
        items.push_back(item);
    return items;
}

void Store::DropPushed() {
    if (depth_ == 0) return;
    // Items look their children up and unlink themselves, so the pushed ones are current while they end.
    const auto forEach = [this](auto work) {
        for (List& list : lists_) {
            for (Item* item = list.head; item; item = item->next_) work(*item);
        }
    };
    forEach([this](Item& item) { leave(item); });
    Lists current = std::exchange(lists_, std::exchange(stack_[--depth_], {}));
    forEach([this](Item& item) { enter(item); });
    for (List& list : lists_) {
        while (list.head) delete list.head;
    }
    lists_ = std::move(current);
    forEach([this](Item& item) { enter(item); });
}

void Store::relink(List& list, Item& item) {
    (item.prev_ ? item.prev_->next_ : list.head) = &item;
    (item.next_ ? item.next_->prev_ : list.tail) = &item;
}

void Store::swapWithPushed(Item& current, Item& pushed) {
    const std::size_t index = indexOf(classOf(current.id_));
    leave(current);
    std::swap(current.prev_, pushed.prev_);
    std::swap(current.next_, pushed.next_);
    std::swap(current.id_, pushed.id_);
    relink(lists_[index], pushed);
    relink(stack_[depth_ - 1][index], current);
    enter(pushed);
}

namespace {

/// Old and new ids of one class, by old id.
using IdMap = std::vector<std::pair<ItemId, ItemId>>;

ItemId mappedId(const IdMap& ids, ItemId id) {
    const auto found = std::lower_bound(ids.begin(), ids.end(), std::pair<ItemId, ItemId>(id, 0));
    return found == ids.end() || found->first != id ? 0 : found->second;
}

} // namespace

bool Store::PopAndJoin() {
    if (depth_ == 0) return false;
    while (lists_[indexOf(kCollectionClass)].head) delete lists_[indexOf(kCollectionClass)].head;
    Lists& old = stack_[depth_ - 1];
    std::array<IdMap, 8> ids;
    for (std::size_t i = 0; i < lists_.size(); ++i) {
        std::vector<u32> taken;
        for (const Item* item = old[i].head; item; item = item->next_) taken.push_back(numberOf(item->id_));
        std::sort(taken.begin(), taken.end());
        auto next = taken.begin();
        u32 number = 1;
        for (const Item* item = lists_[i].head; item; item = item->next_, ++number) {
            for (; next != taken.end() && *next <= number; ++next) {
                if (*next == number) ++number;
            }
            ids[i].emplace_back(item->id_, kClasses[i].bit | number);
        }
        std::sort(ids[i].begin(), ids[i].end());
    }
    for (List& list : lists_) {
        for (Item* item = list.head; item; item = item->next_) leave(*item);
    }
    for (std::size_t i = 0; i < lists_.size(); ++i) {
        for (Item* item = lists_[i].head; item; item = item->next_) {
            item->id_ = mappedId(ids[i], item->id_);
            for (ItemId& child : item->childIds) {
                const int index = enumerationIndex(classOf(child));
                child = index < 0 ? 0 : mappedId(ids[static_cast<std::size_t>(index)], child);
            }
        }
    }
    for (std::size_t i = 0; i < lists_.size(); ++i) {
        List& front = old[i];
        List& back = lists_[i];
        if (back.head) {
            back.head->prev_ = front.tail;
            (front.tail ? front.tail->next_ : front.head) = back.head;
            front.tail = back.tail;
            front.count += back.count;
            for (const auto& [name, count] : back.names.used) front.names.used[name] += count;
        }
        back = std::move(front);
        front = {};
    }
    --depth_;
    for (const List& list : lists_) {
        for (Item* item = list.head; item; item = item->next_) enter(*item);
    }
    return true;
}

std::string Store::uniqueName(u32 classBit, std::string wanted) {
    Names& names = lists_[indexOf(classBit)].names;
    std::string name = wanted;
    while (names.used.contains(toLower(name))) {
        const auto given = names.given.find(name);
        name =
            given != names.given.end() && given->second != name ? given->second : nextName(std::move(name));
    }
    if (name != wanted) names.given[std::move(wanted)] = name;
    return name;
}

void Store::link(Item& item, u32 classBit, ItemId request) {
    const u32 number = numberOf(request);
    item.id_ = classBit | (number == kNextFreeNumber ? freeNumber(classBit) : number);
    List& list = lists_[indexOf(classBit)];
    item.prev_ = list.tail;
    (list.tail ? list.tail->next_ : list.head) = &item;
    list.tail = &item;
    ++list.count;
    enter(item);
}

void Store::unlink(Item& item) {
    removeName(item);
    leave(item);
    List& list = lists_[indexOf(classOf(item.id_))];
    (item.prev_ ? item.prev_->next_ : list.head) = item.next_;
    (item.next_ ? item.next_->prev_ : list.tail) = item.prev_;
    --list.count;
}

void Store::enter(Item& item) {
    const std::size_t index = indexOf(classOf(item.id_));
    const u32 number = numberOf(item.id_);
    if (number >= kClasses[index].directSlots) {
        beyond_[item.id_] = &item;
        return;
    }
    // Zeroed by the system and touched only where used: the region table would cost 1.5 MB else.
    if (!direct_[index]) {
        void* table = std::calloc(kClasses[index].directSlots, sizeof(Item*));
        if (!table) throw std::bad_alloc();
        direct_[index].reset(static_cast<Item**>(table));
    }
    direct_[index][number] = &item;
}

void Store::leave(const Item& item) {
    if (FindItem(item.id_) != &item) return;
    const std::size_t index = indexOf(classOf(item.id_));
    const u32 number = numberOf(item.id_);
    if (number < kClasses[index].directSlots)
        direct_[index][number] = nullptr;
    else
        beyond_.erase(item.id_);
}

void Store::addName(const Item& item) {
    const std::size_t index = indexOf(classOf(item.id_));
    if (kClasses[index].uniqueNames) ++lists_[index].names.used[toLower(item.name_)];
}

void Store::removeName(const Item& item) {
    const std::size_t index = indexOf(classOf(item.id_));
    if (!kClasses[index].uniqueNames || item.name_.empty()) return;
    Names& names = lists_[index].names;
    const auto found = names.used.find(toLower(item.name_));
    if (found == names.used.end()) return;
    if (--found->second == 0) names.used.erase(found);
    // A name has become free, so the searches must start over.
    if (!names.given.empty()) names.given.clear();
}

u32 Store::freeNumber(u32 classBit) {
    for (;; cursor_ = (cursor_ + 1) & kNumberMask) {
        if (cursor_ == kNextFreeNumber || FindItem(classBit | cursor_)) continue;
        const u32 number = cursor_;
        cursor_ = (cursor_ + 1) & kNumberMask;
        return number;
    }
}

} // namespace kv
