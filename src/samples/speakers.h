// Speakers of a channel layout.
#pragma once

#include <string_view>

#include "base/integers.h"

namespace kv {

/// Name of a speaker bit, long ("front-left") or short ("l"); "unknown" or "x" for what is none.
std::string_view SpeakerName(u32 bit, bool shortName);
/// The mask of speakers that a number of channels stands for when nothing else is said.
u32 DefaultChannelMask(u32 channels);
/// The n-th set bit, from 0, among the low 18 of a mask; 0 if there are too few.
u32 NthSpeaker(u32 n, u32 mask);

} // namespace kv
