#include "model/parameter_set.h"

namespace kv {

std::span<const std::string_view, kSwitchCount> switchNames() {
    static constexpr std::string_view kNames[kSwitchCount] = {
        "Base: Multi-layering support",
        "Base: Per instrument articulation",
        "Base: Per layer articulation",
        "Base: Per region articulation",
        "Waves: Fractional loop-points",
        "Waves: Reverse and bi-directional loops",
        "Waves: Sampled Release loops",
        "LFOs: LFO2 (Pitch LFO)",
        "LFOs: Selectable LFO shapes",
        "LFOs: LFO1 (Modulation LFO) to pitch",
        "LFOs: ModWheel/ChPressure to LFO depths",
        "Effects: ModWheel/ChPressure to Filter",
        "EGs: EG2 (Modulation EG)",
        "EGs: Six-stage DAHDSR envelopes",
        "Pitch: Key-number to Pitch",
        "Effects: Low pass filter",
        "Effects: Reverb and Chorus",
        "Mixer: Channel command depths",
        "Waves: DLS waveform flags",
        "Pitch: Master tuning",
        "Effects: Key and Velocity to Filter",
        "EGs: Velocity to Attack",
        "LFOs: Ramp time",
        "Pitch: Pitch-bend to Pitch",
        "Waves: Start address offset",
        "Waves: End address offset",
        "Waves: Compressed data formats",
        "Volume: After-touch to Volume",
        "Mixing: Key-number to Volume and Pan",
        "Effects: Additional filter types",
        "Regions: Trigger type",
        "Effects: EQ",
        "Base: Drum kit support",
    };
    return kNames;
}

} // namespace kv
