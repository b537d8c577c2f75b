// Instruments, their layers, and the layers' regions.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "model/articulation.h"
#include "model/item.h"
#include "model/sample_params.h"

namespace kv {

class SynthModel;
class Wave;

/// A range of keys and velocities that plays a wave or a synthesis model.
class Region final : public Item {
public:
    static constexpr u32 kClass = kRegionClass;

    /// A region over the given ranges; a wave number other than 0 becomes its child.
    Region(Store& store, ItemId request, u32 waveNumber = 0, u8 keyLow = 0, u8 keyHigh = 127, u8 velLow = 0,
           u8 velHigh = 127);
    /// A copy that shares the wave and has its own copy of a synthesis model.
    Region(Store& store, const Region& source, ItemId request);
    ~Region() override;

    u8 phaseGroup = 0; ///< 0 none, else 1..255
    u8 phaseMaster = 0;
    u8 trigger = 0; ///< type in the low nibble, alternate group in the high one
    u8 keyLow, keyHigh;
    u8 velLow, velHigh;
    u8 pedalUp = 1, pedalDown = 1;
    u8 keyGroup = 0; ///< exclusion group, 0 none, else 1..15
    u8 selfNonExclusive = 0;
    SampleParams params;
    Articulation articulation;
    /// What a synthesis conversion made: first the owner of the model, then layers and regions.
    std::vector<Item*> conversion;

    void FixUp() override;
    void SetName(std::string_view, bool) override {}
    std::string Describe() const override;
    bool HasSynthesis() const override;
    bool HasWave() const override;
    bool ConvertSynthesis(bool flag, Item* owner) override;
    void RevertSynthesis() override;
};

/// Regions that don't overlap in keys, in ascending key order once fixed up.
class Layer final : public Item {
public:
    static constexpr u32 kClass = kLayerClass;

    /// A wave number other than 0 gives one region over all keys and velocities.
    Layer(Store& store, ItemId request, u32 waveNumber = 0);
    /// A deep copy.
    Layer(Store& store, const Layer& source, ItemId request);
    ~Layer() override;

    bool drum = false; ///< the instrument's drum flag
    Articulation articulation;
    std::array<u32, 128> keyMap{}; ///< wave number per key, for readers of formats that store it so

    void FixUp() override;
    void SetName(std::string_view text, bool unique) override;
    std::string Describe() const override;
    bool HasSynthesis() const override;
    bool HasWave() const override;
    bool ConvertSynthesis(bool flag, Item* owner) override;
    void RevertSynthesis() override;

private:
    void rebuildByKeys();
};

class Instrument final : public Item {
public:
    static constexpr u32 kClass = kInstrumentClass;
    static constexpr u32 kDrumKit = 1U << 21; ///< bit of `patch`

    /// The given number of layers is created, each with one region for the wave. An explicit number gives
    /// the program number too.
    Instrument(Store& store, ItemId request, u32 waveNumber = 0, u32 layerCount = 0,
               std::string_view name = {}, bool unique = true);
    /// A deep copy.
    Instrument(Store& store, const Instrument& source, ItemId request);
    ~Instrument() override;

    u32 patch = 0; ///< bits 0..6 program, 7..13 CC32 bank, 14..20 CC0 bank, 21 drum kit
    Text<1500> comment;
    Articulation articulation;

    u32 program() const { return patch & 127; }
    u32 bankLsb() const { return patch >> 7 & 127; }
    u32 bankMsb() const { return patch >> 14 & 127; }
    bool drumKit() const { return (patch & kDrumKit) != 0; }

    void FixUp() override;
    std::string Describe() const override;
    bool HasSynthesis() const override;
    bool HasWave() const override;
    bool ConvertSynthesis(bool flag, Item* owner) override;
    void RevertSynthesis() override;
};

/// A trigger type of a region, with its name.
struct TriggerType {
    u8 value;
    std::string_view name;
};
std::span<const TriggerType> triggerTypes();

Wave* RegionWave(const Region& region);
SynthModel* RegionSynth(const Region& region);
/// The region's own record when it overrides, else its wave's; without a wave a plain one.
SampleParams effectiveParams(const Region& region);
/// LoopFlag bits by the same rule.
u16 effectiveLoopFlags(const Region& region);
/// The first region whose key range holds the key, or null.
Region* LayerRegionAtKey(const Layer& layer, int key);
/// No region of the layer overlaps the range in both key and velocity.
bool LayerRangeIsFree(const Layer& layer, int keyLow, int keyHigh, int velLow, int velHigh);
/// Some region of one overlaps one of the other; without velocity, the other's count as 0..127.
bool LayersOverlap(const Layer& layer, const Layer& other, bool withVelocity);
/// A flag for each key in use.
std::array<bool, 128> KeyUsage(const Layer& layer);
Instrument* InstrumentOfLayer(const Layer& layer);
Layer* LayerOfRegion(const Region& region);
Layer* LayerOfSynth(const SynthModel& model);

inline constexpr u32 kNoWaveNumber = 0xFFFFFF;
/// Turns the layer's key map into regions, one for each run of keys with the same live wave.
void KeyMapToRegions(Layer& layer);
void KeyMapToRegions(Layer& layer, const std::array<u32, 128>& waveNumbers);

/// Instruments by the plain patch word.
bool patchBefore(const Item& a, const Item& b);
/// Drum flag first, then program, then the banks.
bool programBefore(const Item& a, const Item& b);
/// Ignoring case.
bool nameBefore(const Item& a, const Item& b);

} // namespace kv
