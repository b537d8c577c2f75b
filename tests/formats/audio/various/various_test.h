#pragma once

#include <cmath>
#include <cstdlib>

#include "formats/format_test.h"
#include "model/sample_blocks.h"
#include "samples/kernels.h"

namespace kv::test {

/// Files of these formats beside those of other programs.
class VariousTest : public FormatTest {
protected:
    /// Runs a command in the test's folder; false when it fails or isn't there.
    bool run(const std::string& command) const {
        const std::string line = "cd '" + folder.path().string() + "' && { " + command + "; } >log 2>&1";
        return std::system(line.c_str()) == 0; // NOLINT: a test's own commands
    }
    /// The samples that ffmpeg finds in a file.
    std::vector<i16> samplesByFfmpeg(const std::string& name, const std::string& options = {}) const {
        if (!run("ffmpeg -v error -y " + options + " -i " + name + " -f s16le other.pcm")) return {};
        return int16s(readFile(folder / "other.pcm"));
    }
    static std::vector<i16> int16s(const Bytes& bytes) {
        std::vector<i16> samples;
        ByteCursor in(bytes);
        while (in.left() >= 2) samples.push_back(in.s16le());
        return samples;
    }
    /// The samples of the first wave, by way of its blocks.
    static std::vector<i16> samplesOf(const Wave& wave) {
        std::vector<i16> samples(wave.sampleCount());
        const auto blocks = openSamples(wave, false);
        if (!blocks || !blocks->read(std::span(samples))) samples.clear();
        return samples;
    }
    Wave* open(const std::string& name, int row = kDetectRow) {
        return Import(folder / name, false, row) ? store().First<Wave>() : nullptr;
    }
    /// A tone with some noise in it.
    static std::vector<i16> tone(std::size_t count, f64 level = 20000) {
        std::vector<i16> samples(count);
        u32 noise = 1;
        for (std::size_t i = 0; i < count; ++i) {
            noise = noise * 1664525 + 1013904223;
            samples[i] =
                static_cast<i16>(level * std::sin(static_cast<f64>(i) * 0.05) + (noise >> 24) - 128.0);
        }
        return samples;
    }
};

} // namespace kv::test
