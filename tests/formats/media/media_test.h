#pragma once

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>

#include "formats/format_test.h"
#include "formats/media/media_library.h"
#include "model/store.h"

namespace kv::test {

/// Tests that go through the loadable module, most of them on what the ffmpeg program makes.
class MediaTest : public FormatTest {
protected:
    void SetUp() override {
        if (!mediaModule("test")) GTEST_SKIP() << failure();
        if (std::system("ffmpeg -version > /dev/null 2>&1") != 0)
            GTEST_SKIP() << "the program ffmpeg isn't installed";
    }
    /// Runs a program in the folder.
    bool runs(const std::string& command) const {
        const std::string line = "cd '" + folder.path().string() + "' && " + command + " > /dev/null 2>&1";
        return std::system(line.c_str()) == 0;
    }
    bool ffmpeg(const std::string& arguments) const {
        return runs("ffmpeg -v error -nostdin -y " + arguments);
    }
    /// Two tones of `frames` frames as a.wav, 16 bits.
    bool makeTones(u32 frames = kFrames, u32 rate = 44100, u32 channels = 2) const {
        return ffmpeg(
            fmt::format("-f lavfi -i \"aevalsrc=0.4*sin(t*2000)+0.1*sin(t*9000)|0.5*sin(t*3000):s={}\" "
                        "-af atrim=end_sample={} -ac {} -c:a pcm_s16le a.wav",
                        rate, frames, channels));
    }
    /// A file as the program decodes it: interleaved samples.
    std::vector<f32> decoded(const std::string& name, const std::string& options = "") const {
        if (!ffmpeg("-i " + name + " " + options + " -f f32le decoded.raw")) return {};
        const Bytes bytes = readFile(folder / "decoded.raw");
        std::vector<f32> samples(bytes.size() / sizeof(f32));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(f32));
        return samples;
    }
    bool imports(const std::string& name) { return Import(folder / name, false); }
    static std::vector<f32> samplesOf(Wave& wave) {
        if (!wave.LoadData()) return {};
        const auto data = GetFloatData(wave);
        return {data.begin(), data.end()};
    }

    static constexpr u32 kFrames = 54441; ///< no whole number of any coding's packets
};

/// The largest difference of the samples that both have.
inline f32 difference(std::span<const f32> a, std::span<const f32> b) {
    f32 most = 0;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        most = std::max(most, std::abs(a[i] - b[i]));
    return most;
}

inline constexpr f32 kStep16 = 1.0F / 32768;

} // namespace kv::test
