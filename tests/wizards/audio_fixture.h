#pragma once

#include <gtest/gtest.h>

#include "model/wave_data.h"
#include "model/workspace_test.h"
#include "wizards/algorithm_table.h"

namespace kv::test {

class AudioFixture : public WorkspaceTest {
protected:
    /// Runs an algorithm on some waves, with a range when `to` is above 0.
    bool run(std::string_view text, std::vector<Item*> waves, u32 from = 0, u32 to = 0) {
        const std::optional<AlgorithmCall> call = parseAlgorithmCall(text, algorithms());
        return call && runAlgorithm(*call, {std::move(waves), to > 0, from, to}, said);
    }
    /// A looped wave of given samples.
    Wave* looped(std::vector<i16> samples, f64 start, f64 end) {
        Wave* wave = addWaveWith(std::move(samples));
        wave->params.override = true;
        wave->params.loopFlags = kLooped;
        wave->params.loopStart = start;
        wave->params.loopEnd = end;
        return wave;
    }
    static std::vector<int> samplesOf(Wave& wave) {
        const std::span<i16> data = GetInt16Data(wave);
        return {data.begin(), data.end()};
    }

    std::string said;
};

} // namespace kv::test
