// The record tables of a SoundFont, built from what is saved.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/bytes.h"
#include "formats/banks/soundfont/sf_zone.h"
#include "formats/framework/bank_contents.h"

namespace kv {

struct Articulation;

/// A version's way of telling what shapes a sound.
struct SfVersionWriter {
    SfZone defaults;
    SfZone (*zoneOf)(const Articulation& articulation);
    void (*addPlaying)(SfZone& zone, const Articulation& articulation, const Region& region,
                       const Wave& wave);
    std::string_view context, tooMany; ///< for the failure of more records than the tables can count
};

/// The sides of a stereo pair.
struct SfLink {
    u16 type = 1; ///< mono
    u16 other = 0;
};

class SfBankLists {
public:
    SfBankLists(const BankContents& contents, const SfVersionWriter& version)
        : contents_(contents), version_(version) {}

    /// Each layer becomes an instrument of the bank. When that makes more records than 16 bits can count,
    /// layers that are alike share one, and what they differ by goes to the presets' zones. False with the
    /// error pair set when that isn't enough.
    bool build();

    /// The tables in file order, without the samples' own.
    struct Table {
        std::string_view id;
        ByteSpan bytes;
    };
    std::vector<Table> tables() const;
    /// By the wave's place in the list.
    std::span<const SfLink> links() const { return links_; }

private:
    /// Records with their number.
    struct Records {
        ByteWriter bytes;
        u32 count = 0;
    };
    /// Bags with their generators and modulators, for presets or for instruments.
    struct Zones {
        Records bags, generators, modulators;
    };
    /// A region as a zone of an instrument.
    struct RegionZone {
        SfRange keys, velocities;
        SfZone zone;
    };
    struct LayerZones {
        std::optional<SfZone> global;
        std::vector<RegionZone> regions;
    };

    void pair(const Instrument& instrument);
    LayerZones zonesOf(const Instrument& owner, const Layer& layer, std::size_t index) const;
    void preset(const Instrument& instrument, bool share);
    u16 instrument(const LayerZones& layer, const std::string& name);
    u16 sharedInstrument(const LayerZones& layer, const std::string& name);
    void start();
    void finish();
    void addBag(Zones& zones);
    void addRange(Zones& zones, Generator number, const SfRange& range);
    void addDifferences(Zones& zones, const SfZone& zone, const SfZone& base);
    void addGenerator(Zones& zones, u16 number, u16 amount);
    void addModulator(Zones& zones, std::size_t slot, i16 amount);

    const BankContents& contents_;
    const SfVersionWriter& version_;
    std::unordered_map<ItemId, u16> waveIndex_;
    std::vector<SfLink> links_;
    Records presets_, instruments_;
    Zones presetZones_, instrumentZones_;
    std::unordered_map<std::string, u16> shared_; ///< instruments by what they hold
    bool tooMany_ = false;
};

/// A text as the 20 bytes of an item's name.
void addSfName(ByteWriter& to, std::string_view name);
/// The same for the mark that ends a list.
void addSfEnd(ByteWriter& to, std::string_view mark);

} // namespace kv
