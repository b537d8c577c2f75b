// The one table of algorithms.
#pragma once

#include "wizards/algorithm.h"

namespace kv {

/// All of them, in the order in which lists show them.
std::span<const Algorithm> algorithms();

/// Its parts.
std::span<const Algorithm> audioAlgorithms();
std::span<const Algorithm> midiAlgorithms();

} // namespace kv
