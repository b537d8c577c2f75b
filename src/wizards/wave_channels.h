// Mono and stereo.
#pragma once

#include "model/item_id.h"

namespace kv {

class Wave;

enum class MonoMode : u8 {
    Average,
    Left,
    Right,
    Split,      ///< a second wave takes the right channel
    IfIdentical ///< left as it is when the channels differ
};

/// Makes a stereo wave mono; others stay. With `fixPhase` a right channel that is the left one inverted is
/// turned first. `second`, which may be null, takes the wave that `Split` makes, asked to have `idRequest`.
/// False with the error pair set when the samples can't be had.
bool ConvertToMono(Wave& wave, MonoMode mode, bool fixPhase = false, Wave** second = nullptr,
                   ItemId idRequest = kNextFreeNumber);

/// Makes a mono wave stereo: both channels alike, or with `other`, a mono wave, as the other side; the longer
/// one tells the length. False with the error pair set when that can't be done.
bool ConvertToStereo(Wave& wave, Wave* other = nullptr, bool otherIsLeft = false);

} // namespace kv
