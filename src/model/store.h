// The store: all items of a workspace, by class and by id.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/item.h"

namespace kv {

/// What holds of a whole class of items.
struct ItemClass {
    u32 bit;
    std::string_view word;
    u32 directSlots;  ///< numbers below this are found by one array access
    bool uniqueNames; ///< SetName can make names unique within the class
};

/// The eight classes in enumeration order.
std::span<const ItemClass, 8> itemClasses();
/// Place of a class bit in `itemClasses()`; -1 for no class.
int enumerationIndex(u32 classBit);

class Store {
public:
    Store() = default;
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Makes an item, linked at the end of its class. The store owns it.
    template <class T, class... Args>
    T* Create(Args&&... args) {
        return new T(*this, std::forward<Args>(args)...);
    }
    /// Ends an item and what it owns. Null is ignored.
    void Delete(Item* item) { delete item; }

    Item* FindItem(ItemId id) const;
    template <class T>
    T* Find(ItemId id) const {
        return classOf(id) == T::kClass ? static_cast<T*>(FindItem(id)) : nullptr;
    }
    /// The first item of the class, or of the next class in enumeration order that has any.
    Item* FirstItem(u32 classBit) const;
    /// The next in enumeration order, running on through later classes.
    Item* NextItem(const Item& item) const;
    template <class T>
    T* First() const {
        return static_cast<T*>(lists_[indexOf(T::kClass)].head);
    }
    /// The last item of the class: the one that was made last, unless they were sorted since.
    template <class T>
    T* Last() const {
        return static_cast<T*>(lists_[indexOf(T::kClass)].tail);
    }
    /// The next item of the same class.
    template <class T>
    T* Next(const T& item) const {
        return static_cast<T*>(static_cast<const Item&>(item).next_);
    }
    std::size_t count(u32 classBit) const { return lists_[indexOf(classBit)].count; }

    /// Items of one class in list order. The current item may be deleted within the loop.
    template <class T>
    class Range {
    public:
        explicit Range(T* first) : first_(first) {}
        class Iterator {
        public:
            explicit Iterator(T* at) : at_(at), next_(following(at)) {}
            T& operator*() const { return *at_; }
            Iterator& operator++() {
                at_ = next_;
                next_ = following(at_);
                return *this;
            }
            bool operator!=(const Iterator& other) const { return at_ != other.at_; }

        private:
            static T* following(T* at) { return at ? at->store().Next(*at) : nullptr; }
            T *at_, *next_;
        };
        Iterator begin() const { return Iterator(first_); }
        Iterator end() const { return Iterator(nullptr); }

    private:
        T* first_;
    };
    template <class T>
    Range<T> all() const {
        return Range<T>(First<T>());
    }

    /// Deletes everything, in enumeration order, and starts the naming counters anew.
    void DeleteAllItems();
    /// Any item of any class is locked.
    bool anyLocked() const;

    /// Reorders a class by a stable sort; `before(a, b)` says that a stands before b.
    void sort(u32 classBit, bool (*before)(const Item&, const Item&));

    /// Moves all current lists onto their stacks, four deep at most; false when they are full. The
    /// current lists are empty then.
    bool PushLists();
    /// Deletes the current items and takes the lists of the last push back.
    void PopAndDiscard();
    std::size_t pushedDepth() const { return depth_; }
    /// Puts the current items behind those of the last push, under numbers that are free there; a current
    /// collection is deleted first. Ids of children follow. False when nothing was pushed.
    bool PopAndJoin();
    /// Forgets the last push: its items are deleted, the current ones stay.
    void DropPushed();
    /// The items of a class in the last push, in list order.
    std::vector<Item*> pushedItems(u32 classBit) const;
    /// Exchanges the places and ids of a current and a pushed item of one class.
    void swapWithPushed(Item& current, Item& pushed);

    /// Next value of the counters that make default names of waves and instruments.
    u32 nextWaveName() { return waveNames_++; }
    u32 nextInstrumentName() { return instrumentNames_++; }
    void resetNameCounters() { waveNames_ = instrumentNames_ = 1; }

    /// A name like `wanted` that no item of the class has, apart from case.
    std::string uniqueName(u32 classBit, std::string wanted);

    static constexpr std::size_t kStackDepth = 4;

private:
    friend class Item;
    /// Names in use and, for a name that was taken, the one given instead: where the next search starts.
    struct Names {
        std::unordered_map<std::string, u32> used; ///< lower case, with the count of items
        std::unordered_map<std::string, std::string> given;
    };
    struct List {
        Item* head = nullptr;
        Item* tail = nullptr;
        std::size_t count = 0;
        Names names;
    };
    using Lists = std::array<List, 8>;
    struct FreeTable {
        void operator()(Item** table) const;
    };

    static std::size_t indexOf(u32 classBit) { return static_cast<std::size_t>(enumerationIndex(classBit)); }
    void link(Item& item, u32 classBit, ItemId request);
    void unlink(Item& item);
    void enter(Item& item);
    void leave(const Item& item);
    void addName(const Item& item);
    void removeName(const Item& item);
    u32 freeNumber(u32 classBit);
    static void relink(List& list, Item& item);

    Lists lists_;
    std::array<Lists, kStackDepth> stack_;
    std::size_t depth_ = 0;
    std::array<std::unique_ptr<Item*[], FreeTable>, 8> direct_;
    std::unordered_map<ItemId, Item*> beyond_; ///< items whose number is above the direct table
    u32 cursor_ = 1;                           ///< where the search for a free number goes on
    u32 waveNames_ = 1;
    u32 instrumentNames_ = 1;
};

} // namespace kv
