// Tags that tell by how much a player is to change a file's volume.
#pragma once

#include <string_view>

namespace kv {

class Wave;

/// Takes the gain of a track over into the wave's, if the setting `load.bTakeGain` is on: ReplayGain
/// ("REPLAYGAIN_TRACK_GAIN", as "-6.5 dB") or that of Opus files ("R128_TRACK_GAIN", RFC 7845, in 1/256 dB).
/// Nothing happens for other names and for texts that are no gain.
void takeGainTag(Wave& wave, std::string_view name, std::string_view text);

} // namespace kv
