// One running copy of an effect.
#pragma once

#include <memory>
#include <span>

#include "plugins/effect_info.h"

namespace kv {

/// Frames of every call into an effect: always the same, as some want it.
inline constexpr u32 kEffectBlock = 1024;

/// Holds what the ports of an effect are connected to. After construction: `setControl` as wanted, `start`
/// once, then for each block fill the inputs, `runBlock`, and take the outputs.
class EffectInstance {
public:
    virtual ~EffectInstance() = default;
    EffectInstance(const EffectInstance&) = delete;
    EffectInstance& operator=(const EffectInstance&) = delete;

    virtual void start() = 0;
    virtual void runBlock() = 0;

    std::span<f32> input(std::size_t i) { return buffers_[i]; }
    std::span<f32> output(std::size_t i) { return buffers_[inputs_ + i]; }
    /// `port` is one of the effect's parameters.
    void setControl(u32 port, f32 value) { controls_[port] = value; }
    /// The delay that it reports, in frames, as it stands after a block; 0 when that makes no sense.
    u32 latency() const;

protected:
    /// `ports`: how many there are of any kind. Controls start with their defaults.
    EffectInstance(const EffectInfo& effect, std::size_t ports);

    /// What to connect a port to: its audio buffer, else its control value.
    f32* placeOf(u32 port);

private:
    std::vector<u32> audioPorts_; ///< inputs, then outputs
    std::size_t inputs_;
    std::vector<std::vector<f32>> buffers_; ///< of `audioPorts_`
    std::vector<f32> controls_;             ///< by port
    i32 latencyPort_;
};

} // namespace kv
