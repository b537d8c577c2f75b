// The switches that say which features of the model are in use.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// Index of a switch in a `ParameterSet`, in stored order.
enum class Switch : u8 {
    MultiLayering,
    InstrumentArticulation,
    LayerArticulation,
    RegionArticulation,
    FractionalLoops,
    ReverseLoops, ///< and bi-directional ones
    ReleaseLoops,
    Lfo2,
    LfoShapes,
    Lfo1ToPitch,
    ControllersToLfo,
    ControllersToFilter,
    Eg2,
    SixStageEnvelopes,
    KeyToPitch,
    LowPass,
    ReverbAndChorus,
    ChannelCommandDepths,
    DlsWaveFlags,
    MasterTuning,
    KeyAndVelocityToFilter,
    VelocityToAttack,
    LfoRamp,
    PitchBend,
    StartOffset,
    EndOffset,
    CompressedFormats,
    AfterTouchToVolume,
    KeyToVolumeAndPan,
    MoreFilterTypes,
    TriggerType,
    Equaliser,
    DrumKits,
};
inline constexpr std::size_t kSwitchCount = 33;

/// The switches' names, by index.
std::span<const std::string_view, kSwitchCount> switchNames();

struct ParameterSet {
    std::array<u8, kSwitchCount> switches;

    constexpr ParameterSet() { switches.fill(1); }
    constexpr bool operator[](Switch s) const { return switches[static_cast<std::size_t>(s)] != 0; }
    constexpr void set(Switch s, bool on) { switches[static_cast<std::size_t>(s)] = on ? 1 : 0; }
    friend bool operator==(const ParameterSet&, const ParameterSet&) = default;
};

} // namespace kv
