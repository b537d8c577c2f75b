// What the store and the drivers call for and what is not built yet. Each function does its part of the
// job as far as it exists and says here what is missing; when the real one is built, it leaves this file.
#pragma once

#include "base/integers.h"

namespace kv {

class Item;
class Wave;

/// Missing: loop unrolling; loops stay as they are, flags included.
void UnrollLoops(bool bidirectional, bool reverse);
void unrollWaveLoop(Wave& wave, bool bidirectional, bool reverse);
/// Missing: all of the automatic work after an import that needs articulation or changes samples.
void moveArticulationUp();
void SplitStereo();
void MergeStereo();
void AppendLoopTail();
/// Missing: rendering of synthesis models and of songs; both answer with a failure.
bool renderSynthesis(Item& item);
Wave* renderSong(Item& songOrTrack, bool stereo);

} // namespace kv
