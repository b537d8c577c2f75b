// Where the regions of an instrument stand: in the layer that a file names, or in the first that has room.
#pragma once

#include <bitset>
#include <vector>

#include "formats/framework/chunks.h"

namespace kv {

class Instrument;
class Layer;
class Region;

/// The chunks of connection blocks that belong to an item; of size 0: there is none.
struct DlsArticulators {
    Chunk art1, art2;
};

/// What placing may cost in a whole file. Honest banks stay far below; hostile ones must not run on.
struct DlsPlacementBudget {
    u64 searches = 200'000'000; ///< layers that are looked at
    std::size_t layers = 8192;  ///< that are made only because a number calls for them
};

class DlsLayers {
public:
    DlsLayers(Instrument& instrument, DlsPlacementBudget& budget)
        : instrument_(instrument), budget_(budget) {}

    struct Slot {
        Layer* layer;
        std::bitset<128> used{}; ///< keys
        DlsArticulators articulators{};
    };

    /// Puts a region, whose key range must be in order, into layer `number` counted from 1; where its keys
    /// are taken there, or with number 0, into the first layer that has them free, which may be a new one.
    void place(Region& region, u32 number);
    /// Makes sure that there are `number` layers. Null for number 0, or when the budget is used up.
    Slot* at(u32 number);

    std::vector<Slot>& slots() { return slots_; }

private:
    Slot& add();
    Slot& firstFree(const std::bitset<128>& keys);

    Instrument& instrument_;
    DlsPlacementBudget& budget_;
    std::vector<Slot> slots_;
};

} // namespace kv
