// Audio effects of other makers that are installed on this machine, as they describe themselves.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

enum class EffectKind : u8 { Ladspa, Lv2 };
std::string_view nameOf(EffectKind kind); ///< "LADSPA", "LV2"

/// A value of a parameter that has a name.
struct ScalePoint {
    f32 value;
    std::string label;
};

struct EffectParameter {
    std::string symbol; ///< one word, which no other parameter of the effect has
    std::string label;
    f32 minimum = 0, maximum = 0; ///< both included; infinite where the effect names no bound
    f32 defaultValue = 0;
    bool toggled = false; ///< off at 0 or below, on above
    bool integer = false, logarithmic = false;
    u32 port = 0; ///< its number among the effect's ports
    std::vector<ScalePoint> scalePoints;

    /// The nearest value that it can have.
    f32 limited(f32 value) const;
};

struct EffectInfo {
    std::string id; ///< "ladspa:LIBRARY:LABEL", or the URI of an LV2 plug-in
    std::string name, maker;
    EffectKind kind = EffectKind::Ladspa;
    std::vector<u32> inputs, outputs; ///< the audio ports, one or two of each
    i32 latencyPort = -1;             ///< the control output that tells the delay in frames; -1: none
    std::vector<EffectParameter> parameters;
    std::string needs;   ///< what the effect asks for and isn't offered here; empty: it can be used
    std::string library; ///< LADSPA: the file
    u32 index = 0;       ///< LADSPA: the place in the file
};

/// All effects with one or two audio inputs and outputs, and what went wrong with others.
struct EffectList {
    std::vector<EffectInfo> effects;   ///< by name
    std::vector<std::string> problems; ///< sentences, each of which names the library

    /// The effects that `text` names: by id, or by name, or by the label at the end of an id, ignoring case;
    /// several when a name isn't unique.
    std::vector<const EffectInfo*> find(std::string_view text) const;
};

/// What is installed, of one kind or of both: LADSPA libraries in the folders of LADSPA_PATH, or in the usual
/// ones without it, and LV2 bundles where lilv finds them. Bounds that depend on the sample rate are those
/// at 44.1 kHz. The first call takes a second or so; later ones answer from memory unless one of the paths
/// has changed.
std::shared_ptr<const EffectList> installedEffects(std::optional<EffectKind> kind = {});
/// Makes the next `installedEffects` look again.
void forgetInstalledEffects();

/// A word of letters, digits and underscores made from a label: "Delay time (s)" is "delay_time_s".
std::string effectSymbol(std::string_view label);

} // namespace kv
