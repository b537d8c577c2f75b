#include "formats/framework/gain_tags.h"

#include <algorithm>
#include <charconv>

#include "base/text.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {

void takeGainTag(Wave& wave, std::string_view name, std::string_view text) {
    if (!settings().load.bTakeGain) return;
    const bool replayGain = equalIgnoringCase(name, "REPLAYGAIN_TRACK_GAIN");
    if (!replayGain && !equalIgnoringCase(name, "R128_TRACK_GAIN")) return;
    while (text.starts_with(' ') || text.starts_with('+')) text.remove_prefix(1);
    f32 gain = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), gain);
    std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    while (unit.starts_with(' ')) unit.remove_prefix(1);
    const bool fits = unit.empty() || (replayGain && equalIgnoringCase(unit, "dB"));
    if (error != std::errc() || !fits || !(gain >= -32768 && gain <= 32767)) return;
    constexpr f32 kMost = 96;
    wave.params.gainDb = std::clamp(replayGain ? gain : gain / 256, -kMost, kMost);
    wave.params.override = true;
}

} // namespace kv
