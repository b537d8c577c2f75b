#include "formats/banks/soundfont/sf_bank_lists.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "base/run_context.h"
#include "formats/banks/soundfont/sf_tables.h"
#include "model/articulation_levels.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr u32 kMostRecords = 65535; // that an index of 16 bits can tell

/// A text in the 8-bit form of old files where that can tell it, else in UTF-8; cut to a number of bytes.
std::string storedText(std::string_view text, std::size_t bytes) {
    const std::string ansi = Utf8ToAnsi(text);
    if (AnsiToUtf8(ansi) == text) return ansi.substr(0, bytes);
    while (!isUtf8(text.substr(0, bytes))) --bytes; // not within a character
    return std::string(text.substr(0, bytes));
}

/// Readers end a list where a name begins like its end mark.
std::string unlikeEndMarks(std::string stored) {
    for (const std::string_view mark : {"EOP", "EOI", "EOS"}) {
        if (stored.starts_with(mark)) stored[1] = 'o';
    }
    return stored;
}

u16 bankOf(const Instrument& instrument) {
    constexpr u16 kDrumBank = 128;
    if (instrument.drumKit()) return kDrumBank;
    if (instrument.bankMsb() != 0 && instrument.bankLsb() != 0) {
        runContext().diagnostics.add({Severity::Loss, 0, instrument.name().str(), "patch",
                                      "only one of two bank numbers can be told"});
    }
    return static_cast<u16>(instrument.bankMsb() != 0 ? instrument.bankMsb() : instrument.bankLsb());
}

} // namespace

void addSfEnd(ByteWriter& to, std::string_view mark) {
    to.text(mark).fill(kSfNameBytes - mark.size());
}

void addSfName(ByteWriter& to, std::string_view name) {
    addSfEnd(to, unlikeEndMarks(storedText(name, kSfNameBytes)));
}

// ---- The tables

bool SfBankLists::build() {
    links_.resize(contents_.waves.size());
    for (std::size_t i = 0; i < contents_.waves.size(); ++i) {
        waveIndex_[contents_.waves[i]->id()] = static_cast<u16>(i);
    }
    for (const Instrument* one : contents_.instruments) pair(*one);
    for (const bool share : {false, true}) {
        start();
        for (const Instrument* one : contents_.instruments) {
            if (!tooMany_) preset(*one, share);
        }
        finish();
        if (!tooMany_) return true;
    }
    return Fail(version_.context, version_.tooMany);
}

void SfBankLists::pair(const Instrument& owner) {
    struct Side {
        const Region* region;
        u16 wave;
    };
    std::map<u8, std::vector<Side>> groups;
    forEachLayer(owner, [&](const Layer& layer, std::size_t) {
        forEachRegion(layer, [&](const Region& region, const Wave& wave) {
            if (region.phaseGroup != 0) groups[region.phaseGroup].push_back({&region, waveIndex_[wave.id()]});
        });
    });
    constexpr u16 kMono = 1, kRight = 2, kLeft = 4;
    for (const auto& [number, sides] : groups) {
        for (const Side& one : sides) {
            if (links_[one.wave].type != kMono) continue;
            const auto other = std::find_if(sides.begin(), sides.end(), [&](const Side& side) {
                return (side.region->phaseMaster != 0) != (one.region->phaseMaster != 0) &&
                       side.region->keyLow == one.region->keyLow &&
                       side.region->keyHigh == one.region->keyHigh && side.wave != one.wave &&
                       links_[side.wave].type == kMono;
            });
            if (other == sides.end()) continue;
            const bool oneIsLeft = one.region->phaseMaster == 0;
            links_[one.wave] = {oneIsLeft ? kLeft : kRight, other->wave};
            links_[other->wave] = {oneIsLeft ? kRight : kLeft, one.wave};
        }
    }
}

SfBankLists::LayerZones SfBankLists::zonesOf(const Instrument& owner, const Layer& layer,
                                             std::size_t index) const {
    LayerZones zones;
    const Articulation average = articulationRange(&owner, index, index);
    bool alike = true;
    forEachRegion(layer, [&](const Region& region, const Wave& wave) {
        Articulation own = region.articulation;
        if (own.enabled) {
            own.enabled = average.enabled;
            alike = alike && own == average;
        }
        const Articulation sounding = resolveArticulation(&owner, &layer, &region);
        RegionZone& added = zones.regions.emplace_back();
        added.keys = {region.keyLow, region.keyHigh};
        added.velocities = {region.velLow, region.velHigh};
        added.zone = version_.zoneOf(sounding);
        added.zone.target = waveIndex_.at(wave.id());
        version_.addPlaying(added.zone, sounding, region, wave);
    });
    if (alike) zones.global = version_.zoneOf(average);
    return zones;
}

void SfBankLists::preset(const Instrument& owner, bool share) {
    addSfName(presets_.bytes, owner.name());
    presets_.bytes.u16le(static_cast<u16>(owner.program())).u16le(bankOf(owner));
    presets_.bytes.u16le(static_cast<u16>(presetZones_.bags.count)).fill(12);
    ++presets_.count;
    // Layers of one preset are told apart by a number at the end of the name.
    const std::size_t layers = owner.childIds.size();
    const std::size_t digits = layers < 2 ? 0 : layers < 11 ? 1 : 2;
    const std::string stem = storedText(owner.name(), kSfNameBytes - digits);
    forEachLayer(owner, [&](const Layer& layer, std::size_t index) {
        if (tooMany_) return;
        const std::string name =
            digits == 0 ? stem : stem + fmt::format("{:0{}}", index % (digits == 1 ? 10 : 100), digits);
        const LayerZones zones = zonesOf(owner, layer, index);
        addBag(presetZones_);
        const u16 made = share ? sharedInstrument(zones, name) : instrument(zones, name);
        addGenerator(presetZones_, kInstrumentIndex, made);
    });
}

u16 SfBankLists::instrument(const LayerZones& layer, const std::string& name) {
    addSfEnd(instruments_.bytes, unlikeEndMarks(name));
    instruments_.bytes.u16le(static_cast<u16>(instrumentZones_.bags.count));
    if (instruments_.count >= kMostRecords) tooMany_ = true;

    SfZone base = version_.defaults;
    const SfZone global = layer.global.value_or(base);
    if (global.generators != base.generators || global.slots != base.slots) {
        addBag(instrumentZones_);
        addDifferences(instrumentZones_, global, base);
        base = global;
    }
    for (const RegionZone& region : layer.regions) {
        addBag(instrumentZones_);
        addRange(instrumentZones_, kKeyRange, region.keys);
        addRange(instrumentZones_, kVelRange, region.velocities);
        addDifferences(instrumentZones_, region.zone, base);
        addGenerator(instrumentZones_, kSampleId, static_cast<u16>(region.zone.target));
    }
    return static_cast<u16>(instruments_.count++);
}

// ---- Sharing

namespace {

/// Generators that a preset's zone can't have: they stand for one sample's playing.
bool instrumentOnly(std::size_t number) {
    switch (number) {
        case kStartAddrsOffset:
        case kEndAddrsOffset:
        case kStartloopAddrsOffset:
        case kEndloopAddrsOffset:
        case kStartAddrsCoarseOffset:
        case kEndAddrsCoarseOffset:
        case kStartloopAddrsCoarseOffset:
        case kEndloopAddrsCoarseOffset:
        case kKeyRange:
        case kVelRange:
        case kKeynum:
        case kVelocity:
        case kSampleModes:
        case kExclusiveClass:
        case kOverridingRootKey:
            return true;
        default:
            return false;
    }
}

/// Generators with a range that reaches as far to one side of their initial amount as to the other.
bool symmetric(std::size_t number) {
    switch (number) {
        case kModLfoToPitch:
        case kVibLfoToPitch:
        case kModEnvToPitch:
        case kModLfoToFilterFc:
        case kModEnvToFilterFc:
        case kModLfoToVolume:
        case kPan:
        case kKeynumToModEnvHold:
        case kKeynumToModEnvDecay:
        case kKeynumToVolEnvHold:
        case kKeynumToVolEnvDecay:
        case kCoarseTune:
        case kFineTune:
            return true;
        default:
            return false;
    }
}

/// What can be taken off a generator in all of some zones: all of it where the zones agree. Zones that differ
/// from others by an offset alone are equal without it. What remains must lie within the generator's range,
/// as players limit it before they add the preset's part.
int commonOffset(std::size_t number, int least, int most, int initial) {
    if (symmetric(number)) return ((least + most) >> 1) - initial;
    if (least >= initial) return least - initial;
    if (most <= initial) return most - initial;
    return 0;
}

std::string contentOf(const std::vector<u16>& words) {
    return std::string(textOf(std::as_bytes(std::span(words))));
}

} // namespace

u16 SfBankLists::sharedInstrument(const LayerZones& layer, const std::string& name) {
    LayerZones rest{std::nullopt, layer.regions};
    if (rest.regions.empty()) return instrument(rest, name);
    const SfRange velocities = rest.regions[0].velocities;
    const bool sameVelocities =
        std::all_of(rest.regions.begin(), rest.regions.end(),
                    [&](const RegionZone& region) { return region.velocities == velocities; });
    if (sameVelocities) {
        addRange(presetZones_, kVelRange, velocities);
        for (RegionZone& region : rest.regions) region.velocities = SfRange();
    }
    for (std::size_t number = 0; number < kGeneratorCount; ++number) {
        if (instrumentOnly(number)) continue;
        const auto amount = [&](const RegionZone& region) { return region.zone.generators[number]; };
        const auto [least, most] =
            std::minmax_element(rest.regions.begin(), rest.regions.end(),
                                [&](const auto& a, const auto& b) { return amount(a) < amount(b); });
        const int offset =
            commonOffset(number, amount(*least), amount(*most), version_.defaults.generators[number]);
        if (offset == 0 || offset != saturate<i16>(offset)) continue;
        addGenerator(presetZones_, static_cast<u16>(number), static_cast<u16>(offset));
        for (RegionZone& region : rest.regions) {
            region.zone.generators[number] = static_cast<i16>(amount(region) - offset);
        }
    }
    std::vector<u16> words;
    for (const RegionZone& region : rest.regions) {
        words.push_back(static_cast<u16>(region.keys.amount()));
        words.push_back(static_cast<u16>(region.velocities.amount()));
        words.push_back(static_cast<u16>(region.zone.target));
        words.insert(words.end(), region.zone.generators.begin(), region.zone.generators.end());
        words.insert(words.end(), region.zone.slots.begin(), region.zone.slots.end());
    }
    const auto [known, added] = shared_.try_emplace(contentOf(words), u16{0});
    if (added) known->second = instrument(rest, name);
    return known->second;
}

// ---- Records

void SfBankLists::start() {
    presets_ = instruments_ = {};
    presetZones_ = instrumentZones_ = {};
    tooMany_ = contents_.waves.size() > kMostRecords;
}

void SfBankLists::addBag(Zones& zones) {
    if (zones.generators.count > kMostRecords || zones.modulators.count > kMostRecords ||
        zones.bags.count >= kMostRecords) {
        tooMany_ = true;
    }
    zones.bags.bytes.u16le(static_cast<u16>(zones.generators.count));
    zones.bags.bytes.u16le(static_cast<u16>(zones.modulators.count));
    ++zones.bags.count;
}

void SfBankLists::addRange(Zones& zones, Generator number, const SfRange& range) {
    if (range != SfRange()) addGenerator(zones, number, static_cast<u16>(range.amount()));
}

void SfBankLists::addDifferences(Zones& zones, const SfZone& zone, const SfZone& base) {
    for (std::size_t slot = 0; slot < kSlotCount; ++slot) {
        if (zone.slots[slot] != base.slots[slot]) addModulator(zones, slot, zone.slots[slot]);
    }
    for (std::size_t number = 0; number < kGeneratorCount; ++number) {
        if (zone.generators[number] != base.generators[number])
            addGenerator(zones, static_cast<u16>(number), static_cast<u16>(zone.generators[number]));
    }
}

void SfBankLists::addGenerator(Zones& zones, u16 number, u16 amount) {
    zones.generators.bytes.u16le(number).u16le(amount);
    ++zones.generators.count;
}

void SfBankLists::addModulator(Zones& zones, std::size_t slot, i16 amount) {
    constexpr std::size_t kVelToVolumeSlot = 2;
    constexpr std::size_t kModulatorBytes = 10;
    SfModulator modulator = modulatorOf(slot, amount);
    Records& records = zones.modulators;
    const bool rising = slot == kVelToVolumeSlot && amount < 0;
    if (rising) modulator.source = 0x0102;
    records.bytes.u16le(modulator.source).u16le(modulator.destination);
    records.bytes.u16le(static_cast<u16>(modulator.amount)).u16le(modulator.amountSource);
    records.bytes.u16le(modulator.transform);
    ++records.count;
    if (!rising) return;
    records.bytes.fill(kModulatorBytes); // such a record has always taken two places
    ++records.count;
}

/// Readers find the end of the last zone in the record behind it.
void SfBankLists::finish() {
    addSfEnd(presets_.bytes, "EOP");
    presets_.bytes.fill(4).u16le(static_cast<u16>(presetZones_.bags.count)).fill(12);
    addSfEnd(instruments_.bytes, "EOI");
    instruments_.bytes.u16le(static_cast<u16>(instrumentZones_.bags.count));
    addBag(presetZones_);
    addBag(instrumentZones_);
    presetZones_.modulators.bytes.fill(10);
    instrumentZones_.modulators.bytes.fill(10);
    addGenerator(presetZones_, 0, static_cast<u16>(instruments_.count));
    addGenerator(instrumentZones_, kPan, 0);
}

std::vector<SfBankLists::Table> SfBankLists::tables() const {
    return {{"phdr", presets_.bytes.view()},
            {"pbag", presetZones_.bags.bytes.view()},
            {"pmod", presetZones_.modulators.bytes.view()},
            {"pgen", presetZones_.generators.bytes.view()},
            {"inst", instruments_.bytes.view()},
            {"ibag", instrumentZones_.bags.bytes.view()},
            {"imod", instrumentZones_.modulators.bytes.view()},
            {"igen", instrumentZones_.generators.bytes.view()}};
}

} // namespace kv
