#include "plugins/effect_instance.h"

#include <algorithm>
#include <cmath>

namespace kv {

namespace {
constexpr f32 kMaxLatency = 10'000'000; ///< frames; what is above is no delay but a fault
}

EffectInstance::EffectInstance(const EffectInfo& effect, std::size_t ports)
    : audioPorts_(effect.inputs),
      inputs_(effect.inputs.size()),
      controls_(ports),
      latencyPort_(effect.latencyPort) {
    audioPorts_.insert(audioPorts_.end(), effect.outputs.begin(), effect.outputs.end());
    buffers_.assign(audioPorts_.size(), std::vector<f32>(kEffectBlock));
    for (const EffectParameter& parameter : effect.parameters)
        controls_[parameter.port] = parameter.defaultValue;
}

f32* EffectInstance::placeOf(u32 port) {
    const auto found = std::find(audioPorts_.begin(), audioPorts_.end(), port);
    if (found == audioPorts_.end()) return &controls_[port];
    return buffers_[static_cast<std::size_t>(found - audioPorts_.begin())].data();
}

u32 EffectInstance::latency() const {
    if (latencyPort_ < 0) return 0;
    const f32 frames = controls_[static_cast<std::size_t>(latencyPort_)];
    return frames >= 0 && frames <= kMaxLatency ? static_cast<u32>(std::lround(frames)) : 0;
}

} // namespace kv
