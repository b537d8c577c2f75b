// What the store and the drivers call for and what is not built yet. Each function does its part of the
// job as far as it exists and says here what is missing; when the real one is built, it leaves this file.
#pragma once

namespace kv {

class Item;
class Track;
class Wave;

/// Missing: rendering of synthesis models and of songs; both answer with a failure.
bool renderSynthesis(Item& item);
Wave* renderSong(Item& songOrTrack, bool stereo);

/// Missing: the synth voices in the SysEx events of a track ahead of its first Note On (Yamaha voice dumps,
/// Roland MT-32 dumps), to be added to the collection as synthesis models. Nothing is recognised yet.
void scanVoiceDumps(Track& track);

} // namespace kv
