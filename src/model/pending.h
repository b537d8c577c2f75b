// What the store and the drivers call for and what is not built yet. Each function does its part of the
// job as far as it exists and says here what is missing; when the real one is built, it leaves this file.
#pragma once

#include <memory>

#include "base/integers.h"

namespace kv {

class Item;
class SampleBlocks;
class Track;
class Wave;

/// Missing: rendering of synthesis models and of songs; both answer with a failure.
bool renderSynthesis(Item& item);
Wave* renderSong(Item& songOrTrack, bool stereo);

/// Missing: the synth voices in the SysEx events of a track ahead of its first Note On (Yamaha voice dumps,
/// Roland MT-32 dumps), to be added to the collection as synthesis models. Nothing is recognised yet.
void scanVoiceDumps(Track& track);

/// Samples of `fromHz` as samples of `toHz`, in a quality of 0 to 5; null with the error pair set on failure.
/// Missing: all but what has that rate already, which is handed back as it is.
std::unique_ptr<SampleBlocks> resampled(std::unique_ptr<SampleBlocks> blocks, u32 fromHz, u32 toHz,
                                        u32 quality);

} // namespace kv
