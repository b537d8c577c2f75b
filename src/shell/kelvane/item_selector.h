// Items as the command line names them: "wave:2" counts from 1 in list order, wave:"NAME" goes by name.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "model/item_id.h"

namespace kv {

class Item;

/// The selectors of all items that the store holds, as `info` shows them and `--item` takes them.
class ItemSelectors {
public:
    ItemSelectors();
    /// "wave:2"
    std::string of(const Item& item) const;

private:
    std::unordered_map<ItemId, u32> positions_;
};

/// The item of a selector; null with the error pair set when there is none.
Item* selectItem(std::string_view selector);

} // namespace kv
