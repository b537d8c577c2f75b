#include "formats/banks/soundfont/sf_zone.h"

#include <algorithm>

namespace kv {
namespace {

constexpr u16 kFalling = 0x100; // direction flag of a source: from 1 to 0
constexpr u16 kBipolar = 0x200;

enum class Polarity : u8 { Any, Bipolar, Unipolar };

/// A modulator with a meaning: what it is known by, and the words that it is written with.
struct Slot {
    u8 source;
    Polarity polarity;
    u8 destination;
    u8 amountSource;
    i16 initial;
    u16 writtenSource;
    u16 writtenAmountSource = 0;
    bool falling = false; ///< the amount counts for a source that falls
};

using enum Polarity;
constexpr Slot kSlots[kSlotCount] = {
    {2, Any, kAttackModEnv, 0, 0, 0x0002},
    {2, Any, kAttackVolEnv, 0, 0, 0x0002},
    {2, Any, kInitialAttenuation, 0, 960, 0x0502, 0, true},
    {3, Bipolar, kInitialAttenuation, 0, 0, 0x0203},
    {3, Unipolar, kInitialAttenuation, 0, 0, 0x0003},
    {13, Any, kInitialAttenuation, 0, 0, 0x000D},
    {0x81, Any, kModLfoToVolume, 0, 0, 0x0081},
    {13, Any, kModLfoToVolume, 0, 0, 0x000D},
    {14, Bipolar, kFineTune, 0, 0, 0x000E}, // written without the flag that it's known by
    {0x81, Any, kModLfoToPitch, 0, 0, 0x0081},
    {13, Any, kModLfoToPitch, 0, 0, 0x000D},
    {0x81, Any, kVibLfoToPitch, 0, 50, 0x0081},
    {13, Any, kVibLfoToPitch, 0, 50, 0x000D},
    {2, Any, kInitialFilterFc, 2, -2400, 0x0102, 0x0D02, true},
    {3, Any, kInitialFilterFc, 0, 0, 0x0003},
    {0x81, Any, kInitialFilterFc, 0, 0, 0x0081},
    {13, Any, kInitialFilterFc, 0, 0, 0x000D},
    {0x81, Any, kModLfoToFilterFc, 0, 0, 0x0081},
    {13, Any, kModLfoToFilterFc, 0, 0, 0x000D},
    {3, Bipolar, kPan, 0, 0, 0x0203},
    {0x8A, Bipolar, kPan, 0, 500, 0x028A},
    {0xDB, Any, kReverbEffectsSend, 0, 200, 0x00DB},
    {0xDD, Any, kChorusEffectsSend, 0, 200, 0x00DD},
};

i16 negated(i16 amount) {
    return static_cast<i16>(std::min(-amount, 32767));
}

bool fits(const Slot& slot, const SfModulator& modulator) {
    const bool bipolar = (modulator.source & kBipolar) != 0;
    return (modulator.source & 0xFF) == slot.source && modulator.destination == slot.destination &&
           (modulator.amountSource & 0xFF) == slot.amountSource &&
           (slot.polarity == Any || bipolar == (slot.polarity == Bipolar));
}

} // namespace

SfZone presetZoneDefaults() {
    SfZone zone;
    zone.generators[kKeyRange] = zone.generators[kVelRange] = SfRange().amount();
    return zone;
}

SfZone instrumentZoneDefaults() {
    SfZone zone = presetZoneDefaults();
    for (const Generator time :
         {kDelayModLfo, kDelayVibLfo, kDelayModEnv, kAttackModEnv, kHoldModEnv, kDecayModEnv, kReleaseModEnv,
          kDelayVolEnv, kAttackVolEnv, kHoldVolEnv, kDecayVolEnv, kReleaseVolEnv}) {
        zone.generators[time] = -12000;
    }
    for (const Generator none : {kKeynum, kVelocity, kOverridingRootKey}) zone.generators[none] = -1;
    zone.generators[kInitialFilterFc] = 13500;
    zone.generators[kScaleTuning] = 100;
    for (std::size_t i = 0; i < kSlotCount; ++i) zone.slots[i] = kSlots[i].initial;
    return zone;
}

std::optional<SlotAmount> slotOf(const SfModulator& modulator) {
    for (std::size_t i = 0; i < kSlotCount; ++i) {
        if (!fits(kSlots[i], modulator)) continue;
        const bool falling = (modulator.source & kFalling) != 0;
        return SlotAmount{i, falling == kSlots[i].falling ? modulator.amount : negated(modulator.amount)};
    }
    return {};
}

SfModulator modulatorOf(std::size_t slot, i16 amount) {
    const Slot& row = kSlots[slot];
    return {row.writtenSource, row.destination, amount, row.writtenAmountSource, 0};
}

} // namespace kv
