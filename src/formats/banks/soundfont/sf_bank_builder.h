// Builds instruments from the zones of a SoundFont: the walk that both versions share.
#pragma once

#include <bitset>
#include <functional>
#include <vector>

#include "formats/banks/soundfont/sf_tables.h"

namespace kv {

class Instrument;
class Layer;
class Region;
class Wave;

/// A row of the sample list that became a wave.
struct SfWave {
    Wave* wave = nullptr; ///< null: the row was left out
    u8 phaseGroup = 0;
    bool phaseMaster = false;
};

/// What a version does with a pair of zones whose keys and velocities meet: fills the region.
using SfZoneReader =
    std::function<void(const SfZone& preset, const SfZone& instrument, const SfWave& wave, Region& region)>;

class SfBankBuilder {
public:
    SfBankBuilder(const SfFile& file, const std::vector<SfWave>& waves, const SfZone& instrumentDefaults,
                  SfZoneReader readZone)
        : file_(file), waves_(waves), defaults_(instrumentDefaults), readZone_(std::move(readZone)) {}

    /// Makes an instrument of each preset.
    void build();

private:
    /// The layers of one preset zone, with the keys that each has in use.
    struct Target {
        struct Slot {
            Layer* layer;
            std::bitset<128> used;
        };
        Instrument& instrument;
        std::vector<Slot> slots{};

        /// Puts a region into the first layer that has its keys free, so that the sides of stereo pairs and
        /// stacked velocities end in as few layers as they can.
        void add(Region& region);
    };

    void preset(const SfGroup& group);
    void presetZone(const SfZone& zone, Instrument& instrument);
    void instrumentZone(const SfZone& preset, const SfZone& zone, Target& target);
    bool exhausted();

    const SfFile& file_;
    const std::vector<SfWave>& waves_;
    SfZone defaults_;
    SfZoneReader readZone_;
    std::vector<SfGroup> instruments_;
    std::size_t instrumentRows_ = 0; ///< before the list is cut at its end record
    u64 work_ = 0;                   ///< records gone over
    std::size_t regions_ = 0;
    bool complained_ = false;
};

/// The passes behind the fix-up: waves take over the playing of the only region that has them, and hard left
/// regions stand in the first layer of a pair.
void tidySoundFont();

} // namespace kv
