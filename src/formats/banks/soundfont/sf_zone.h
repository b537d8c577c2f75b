// What a zone of a SoundFont says: its generators, and the modulators that have a meaning here.
// Document: "SoundFont Technical Specification 2.04" (Creative/E-mu, 2006).
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// Numbers of the generators that the code names; the others go through tables.
enum Generator : u8 {
    kStartAddrsOffset = 0,
    kEndAddrsOffset = 1,
    kStartloopAddrsOffset = 2,
    kEndloopAddrsOffset = 3,
    kStartAddrsCoarseOffset = 4,
    kModLfoToPitch = 5,
    kVibLfoToPitch = 6,
    kModEnvToPitch = 7,
    kInitialFilterFc = 8,
    kInitialFilterQ = 9,
    kModLfoToFilterFc = 10,
    kModEnvToFilterFc = 11,
    kEndAddrsCoarseOffset = 12,
    kModLfoToVolume = 13,
    kChorusEffectsSend = 15,
    kReverbEffectsSend = 16,
    kPan = 17,
    kDelayModLfo = 21,
    kFreqModLfo = 22,
    kDelayVibLfo = 23,
    kFreqVibLfo = 24,
    kDelayModEnv = 25,
    kAttackModEnv = 26,
    kHoldModEnv = 27,
    kDecayModEnv = 28,
    kSustainModEnv = 29,
    kReleaseModEnv = 30,
    kKeynumToModEnvHold = 31,
    kKeynumToModEnvDecay = 32,
    kDelayVolEnv = 33,
    kAttackVolEnv = 34,
    kHoldVolEnv = 35,
    kDecayVolEnv = 36,
    kSustainVolEnv = 37,
    kReleaseVolEnv = 38,
    kKeynumToVolEnvHold = 39,
    kKeynumToVolEnvDecay = 40,
    kInstrumentIndex = 41,
    kKeyRange = 43,
    kVelRange = 44,
    kStartloopAddrsCoarseOffset = 45,
    kKeynum = 46,
    kVelocity = 47,
    kInitialAttenuation = 48,
    kEndloopAddrsCoarseOffset = 50,
    kCoarseTune = 51,
    kFineTune = 52,
    kSampleId = 53,
    kSampleModes = 54,
    kSamplePitch = 55, ///< version 1 only
    kScaleTuning = 56,
    kExclusiveClass = 57,
    kOverridingRootKey = 58,
};
inline constexpr std::size_t kGeneratorCount = 60;
inline constexpr std::size_t kSlotCount = 23;

/// Both ends of a range, as the two bytes of a generator's amount.
struct SfRange {
    u8 low = 0, high = 127;

    static constexpr SfRange of(i16 amount) {
        return {static_cast<u8>(amount & 0xFF), static_cast<u8>(static_cast<u16>(amount) >> 8)};
    }
    constexpr i16 amount() const { return static_cast<i16>(low | high << 8); }
    /// Limited to 0..127; empty when `low` is above `high`.
    constexpr SfRange operator&(const SfRange& other) const {
        return {low > other.low ? low : other.low, high < other.high ? high : other.high};
    }
    constexpr bool empty() const { return low > high; }
    friend bool operator==(const SfRange&, const SfRange&) = default;
};

/// The amounts of a zone. What refers to another table (`instrument`, `sampleID`) is kept aside: its number
/// has no sign.
struct SfZone {
    std::array<i16, kGeneratorCount> generators{};
    std::array<i16, kSlotCount> slots{};
    int target = -1; ///< instrument or sample; -1: the zone has none

    SfRange range(Generator which) const { return SfRange::of(generators[which]); }
};

/// What a zone of a preset starts from: all is added to the instrument's, so all is 0.
SfZone presetZoneDefaults();
/// What a zone of an instrument starts from.
SfZone instrumentZoneDefaults();

/// A modulator as stored.
struct SfModulator {
    u16 source = 0;
    u16 destination = 0;
    i16 amount = 0;
    u16 amountSource = 0;
    u16 transform = 0;
};

/// The slot that a modulator belongs to, with its amount turned into the slot's direction; nothing for one
/// that has no place in the model.
struct SlotAmount {
    std::size_t slot;
    i16 amount;
};
std::optional<SlotAmount> slotOf(const SfModulator& modulator);
/// The modulator that a slot is written as.
SfModulator modulatorOf(std::size_t slot, i16 amount);

} // namespace kv
