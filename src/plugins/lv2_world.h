// The LV2 plug-ins that are installed.
#pragma once

#include <mutex>
#include <optional>

#include "plugins/effect_instance.h"
#include "plugins/lilv_library.h"

namespace kv {

/// What lilv knows, at one time. Lilv isn't meant for several threads: hold `mutex` around its calls.
class Lv2World {
public:
    Lv2World();
    ~Lv2World();
    Lv2World(const Lv2World&) = delete;
    Lv2World& operator=(const Lv2World&) = delete;

    /// What an LV2 port is to the host.
    enum class PortRole : u8 {
        AudioIn,
        AudioOut,
        ControlIn,
        ControlOut,
        AtomIn,
        AtomOut,
        Unconnected, ///< of any other kind, but need not be connected
        Unknown,     ///< must be connected and can't be
    };
    PortRole roleOf(const LilvPlugin& plugin, const LilvPort& port) const;

    std::vector<const LilvPlugin*> plugins() const;
    const LilvPlugin* find(const std::string& uri) const; ///< null: there is none
    /// With bounds and defaults for a sample rate. Nothing when the plug-in has no audio inputs or outputs or
    /// more than two.
    std::optional<EffectInfo> describe(const LilvPlugin& plugin, f64 sampleRate) const;
    LilvNodePtr node(const char* uri) const;
    LilvWorld* get() const { return world_; }

    mutable std::mutex mutex;

private:
    std::string needsOf(const LilvPlugin& plugin) const;
    EffectParameter describeControl(const LilvPlugin& plugin, const LilvPort& port, u32 index) const;

    LilvWorld* world_;
    LilvNodePtr audio_, control_, atom_, input_, output_, optional_;
    LilvNodePtr toggled_, integer_, logarithmic_, perSampleRate_;
};

/// All usable and unusable LV2 effects, looked for anew; without lilv none and a problem.
EffectList scanLv2();

/// An effect with bounds and defaults for a sample rate in Hz. Nothing with the error pair set when there is
/// none; nothing when the plug-in is no effect.
std::optional<EffectInfo> lv2AtRate(const std::string& uri, u32 sampleRate);

/// Null with the error pair set on failure. `effect` is one of `lv2AtRate`.
std::unique_ptr<EffectInstance> startLv2(const EffectInfo& effect, u32 sampleRate);

} // namespace kv
