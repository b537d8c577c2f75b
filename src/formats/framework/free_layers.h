// Where regions go that no file puts into a layer: the first one that has their keys free.
#pragma once

#include <array>
#include <bitset>
#include <vector>

#include "base/integers.h"

namespace kv {

class Instrument;
class Layer;
class Region;

/// Adds regions to an instrument without layers of its own. A layer never gives keys free again, so for each
/// key the search begins where it was free last.
class FreeLayers {
public:
    explicit FreeLayers(Instrument& instrument) : instrument_(instrument) {}

    /// Puts the region into the first layer with all of its keys free, which may be a new one.
    void place(Region& region);
    /// The layers made so far.
    std::size_t count() const { return slots_.size(); }

private:
    struct Slot {
        Layer* layer;
        std::bitset<128> used{};
    };

    Instrument& instrument_;
    std::vector<Slot> slots_;
    std::array<u32, 128> firstFree_{}; ///< by key: no layer before this one has it free
};

} // namespace kv
