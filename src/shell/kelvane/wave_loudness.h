// Loudness of the waves that `info` shows, when it is asked for.
#pragma once

#include <optional>

#include "model/wave.h"
#include "shell/kelvane/commands.h"
#include "wizards/wave_statistics.h"

namespace kv {

/// Measures one wave after the other. A wave that can't be measured is reported, and the rest goes on.
class WaveLoudness {
public:
    std::optional<EbuLoudness> of(const Wave& wave) {
        EbuLoudness loudness{};
        if (measureLoudness(wave, {}, loudness)) return loudness;
        reportFailure();
        ++failures_;
        return {};
    }
    u32 failures() const { return failures_; }

private:
    u32 failures_ = 0;
};

} // namespace kv
