// The base of everything that the store holds.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "base/text.h"
#include "model/item_id.h"

namespace kv {

class Layer;
class Store;

/// One item of the store. Items refer to each other by id alone; an id is resolved through the store
/// whenever it is used, so a dead one is harmless. Made by `Store::Create`, ended by `Store::Delete`.
class Item {
public:
    virtual ~Item();
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    ItemId id() const { return id_; }
    const Text<128>& name() const { return name_; }
    Store& store() const { return *store_; }

    u64 dataSize = 0;   ///< bytes of sample or event data that this item stands for; set by FixUp
    u32 dataFormat = 0; ///< data format word of the item's data in its source
    /// The format reader's own: offsets and flags of the source file. Copied with the item. Operations on
    /// the store use `scratch()` while they run.
    std::array<u32, 9> sourcePrivate{};
    std::vector<ItemId> childIds;
    bool locked = false; ///< in use by a property sheet or a player

    u32& scratch() { return sourcePrivate[8]; }

    /// Makes the item consistent. May delete it.
    virtual void FixUp();
    /// Brings the sample data of the item and of everything below it into memory.
    virtual bool LoadData();
    /// Cleans `text` and takes it as name, a default name if nothing is left of it; made unique within the
    /// class when asked and when the class has unique names.
    virtual void SetName(std::string_view text = {}, bool unique = true);
    /// One line for the status bar.
    virtual std::string Describe() const = 0;
    /// The item is, or contains a region that plays, a synthesis model.
    virtual bool HasSynthesis() const { return false; }
    /// The item is, or contains a region that plays, a wave.
    virtual bool HasWave() const { return false; }
    /// Renders synthesis models below this item to waves.
    virtual bool ConvertSynthesis(bool /*flag*/, Item* /*owner*/) { return true; }
    /// Undoes `ConvertSynthesis`.
    virtual void RevertSynthesis() {}

    /// Appends a child; ignores 0. Returns its index or -1.
    int AddChild(ItemId child);
    /// -1 if absent.
    int IndexOfChild(ItemId child) const;
    bool HasChild(ItemId child) const { return IndexOfChild(child) >= 0; }
    /// Ignores a bad index; keeps the order.
    void RemoveChildAt(int index);
    /// The live item behind a child id, or null.
    Item* childAt(std::size_t index) const;

protected:
    /// Links the item at the tail of its class list. A number of `kNextFreeNumber` in `request` means the
    /// next free one.
    Item(Store& store, u32 classBit, ItemId request);

    void setPlainName(std::string_view text) { name_ = text; }
    void copyItemFields(const Item& source);
    /// Deletes all children from last to first.
    void deleteChildren();

private:
    friend class Store;
    Text<128> name_;
    ItemId id_ = 0;
    Store* store_;
    Item* prev_ = nullptr;
    Item* next_ = nullptr;
};

/// "waveform", "region", "layer", "synthesis model", "instrument", "MIDI track", "MIDI song" or
/// "collection".
std::string_view ItemClassWord(const Item& item);
/// 0 wave, 1 synthesis model, 2 region, 3 layer, 4 instrument, 5 track, 6 song, 7 others.
int ItemClassIndex(const Item& item);

/// Locks an item for a property sheet or player. False, with the error pair set, when it is locked already.
bool Lock(Item& item);

} // namespace kv
