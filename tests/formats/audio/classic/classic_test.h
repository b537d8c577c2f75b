#pragma once

#include <cmath>

#include "formats/format_test.h"

namespace kv::test {

class ClassicTest : public FormatTest {
protected:
    ClassicTest() { space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false; }
    static constexpr u32 kBoth = kMonoBit | kStereoBit;

    /// A wave of full range, in memory only; the right channel differs from the left one.
    Wave* signal(u32 frames, u32 channels, u32 rate = 22050) {
        std::vector<i16> samples(std::size_t{frames} * channels);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const std::size_t frame = i / channels, channel = i % channels;
            const auto value = std::lround(30000 * std::sin(static_cast<f64>(frame * (3 + channel)) * 0.02));
            samples[i] = static_cast<i16>(value);
        }
        ByteWriter chunks;
        const auto channelsField = static_cast<u16>(channels);
        addChunk(chunks, "fmt ", fmtContents(1, channelsField, rate, 16));
        addChunk(chunks, "data", int16Bytes(samples));
        return import(riff(chunks.view()), "in.wav");
    }
    /// Writes a wave by a row and reads it again.
    Wave* rewritten(std::string_view row, Wave* wave, const std::string& name, u32 wanted = kAnyFormat) {
        std::filesystem::remove(folder / name);
        EXPECT_TRUE(Export(rowOf(row), folder / name, wave, wanted, 0, false)) << row << failure();
        EXPECT_TRUE(Import(folder / name, false)) << name << failure();
        return store().First<Wave>();
    }
    std::vector<i16> samplesOf(Wave& wave) {
        EXPECT_TRUE(wave.LoadData()) << failure();
        const std::span<const i16> data = GetInt16Data(wave);
        return {data.begin(), data.end()};
    }
    static bool has(const std::string& program) {
        return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
    }
    /// Runs a command in the folder of the test.
    bool run(const std::string& command) {
        return std::system(
                   ("cd '" + folder.path().string() + "' && " + command + " >/dev/null 2>&1").c_str()) == 0;
    }
};

} // namespace kv::test
