#pragma once

#include <cmath>
#include <numbers>

#include "model/workspace_test.h"

namespace kv::test {

class DrawFixture : public WorkspaceTest {
protected:
    /// A wave of float samples, each `levelAt(frame, channel)`.
    template <class Level>
    Wave* addFloats(u32 frames, u32 channels, Level levelAt, u32 rate = 44100) {
        Wave* wave = addWave("tone", frames, channels);
        wave->sampleRate = rate;
        EXPECT_TRUE(wave->samplesFloat.allocate(std::size_t{frames} * channels));
        for (u32 i = 0; i < frames * channels; ++i)
            wave->samplesFloat.data()[i] = static_cast<f32>(levelAt(i / channels, i % channels));
        wave->reloadable = false;
        return wave;
    }
    static f64 sineAt(u32 frame, f64 hertz, u32 rate = 44100) {
        return std::sin(2 * std::numbers::pi * hertz * frame / rate);
    }
};

} // namespace kv::test
