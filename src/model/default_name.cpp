#include "model/default_name.h"

#include <fmt/format.h>

#include "model/store.h"

namespace kv {
namespace {

/// The name part of a path without its extension, at most 112 characters.
std::string_view stem(std::string_view path) {
    const std::size_t slash = path.find_last_of("/\\:");
    if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
    const std::size_t point = path.rfind('.');
    if (point != std::string_view::npos && point > 0 && path[point - 1] != '.') path = path.substr(0, point);
    return cutToCharacters(path, 112);
}

} // namespace

std::string_view ordinalEnding(u32 number) {
    if (number % 100 >= 11 && number % 100 <= 13) return "th";
    switch (number % 10) {
        case 1:
            return "st";
        case 2:
            return "nd";
        case 3:
            return "rd";
        default:
            return "th";
    }
}

std::string defaultName(const Item& item, std::string_view base) {
    switch (classOf(item.id())) {
        case kWaveClass: {
            const u32 n = item.store().nextWaveName();
            return n > 1 ? fmt::format("{} {}", stem(base), n - 1) : std::string(stem(base));
        }
        case kInstrumentClass: {
            const u32 n = item.store().nextInstrumentName();
            return fmt::format("{}: {}{} instrument", stem(base), n, ordinalEnding(n));
        }
        default:
            return std::string(ItemClassWord(item));
    }
}

} // namespace kv
