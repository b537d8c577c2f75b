#include "shell/kelvane/item_selector.h"

#include <fmt/format.h>

#include <charconv>

#include "base/run_context.h"
#include "model/workspace.h"

namespace kv {
namespace {

struct ClassName {
    std::string_view name;
    u32 bit;
};
constexpr ClassName kNames[] = {
    {"wave", kWaveClass},        {"instrument", kInstrumentClass},
    {"layer", kLayerClass},      {"region", kRegionClass},
    {"song", kSongClass},        {"track", kTrackClass},
    {"model", kSynthModelClass}, {"collection", kCollectionClass},
};

template <class Match>
Item* firstOf(u32 classBit, Match match) {
    u32 position = 0;
    for (Item* item = store().FirstItem(classBit); item && classOf(item->id()) == classBit;
         item = store().NextItem(*item)) {
        if (match(*item, ++position)) return item;
    }
    return nullptr;
}

} // namespace

ItemSelectors::ItemSelectors() {
    for (const ClassName& row : kNames) {
        firstOf(row.bit, [&](const Item& item, u32 position) {
            positions_[item.id()] = position;
            return false;
        });
    }
}

std::string ItemSelectors::of(const Item& item) const {
    for (const ClassName& row : kNames) {
        if (row.bit == classOf(item.id())) return fmt::format("{}:{}", row.name, positions_.at(item.id()));
    }
    return {};
}

Item* selectItem(std::string_view selector) {
    const std::size_t colon = selector.find(':');
    const std::string_view word = selector.substr(0, colon);
    std::string_view which =
        colon == std::string_view::npos ? std::string_view("1") : selector.substr(colon + 1);
    for (const ClassName& row : kNames) {
        if (row.name != word) continue;
        u32 number = 0;
        const auto [end, error] = std::from_chars(which.data(), which.data() + which.size(), number);
        const bool byNumber = error == std::errc() && end == which.data() + which.size();
        if (!byNumber && which.size() >= 2 && which.front() == '"' && which.back() == '"') {
            which = which.substr(1, which.size() - 2);
        }
        Item* item = firstOf(row.bit, [&](const Item& each, u32 position) {
            return byNumber ? position == number : equalIgnoringCase(each.name(), which);
        });
        if (!item) Fail("convert", "There is no {} {}", word, which);
        return item;
    }
    Fail("convert", "\"{}\" names no item: use wave:N, instrument:N, layer:N, region:N, song:N or track:N",
         selector);
    return nullptr;
}

} // namespace kv
