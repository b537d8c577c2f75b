// The neutral record of everything that shapes a sound.
#pragma once

#include <type_traits>

#include "base/integers.h"

namespace kv {

class Instrument;

struct Articulation {
    bool enabled = false; ///< the record is in force at this level
    f32 masterTune = 0;   ///< semitones

    friend bool operator==(const Articulation&, const Articulation&) = default;
};
static_assert(std::is_trivially_copyable_v<Articulation>);

} // namespace kv
