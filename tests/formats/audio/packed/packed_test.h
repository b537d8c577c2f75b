// Files of packed audio: other programs, and sounds to pack.
#pragma once

#include <cmath>
#include <cstdlib>
#include <random>

#include "formats/format_test.h"
#include "model/sample_blocks.h"

namespace kv::test {

inline bool has(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

class PackedTest : public FormatTest {
protected:
    /// Runs a command in the test's folder.
    bool run(const std::string& command) {
        return std::system(
                   ("cd '" + folder.path().string() + "' && (" + command + ") >/dev/null 2>&1").c_str()) == 0;
    }
    /// A WAV file with bytes of noise as samples.
    Bytes noise(u16 channels, u16 bits, u32 frames, bool isFloat = false) {
        std::mt19937 random(bits + channels);
        ByteWriter data, chunks;
        for (u32 i = 0; i < frames * channels; ++i) {
            if (isFloat)
                data.u32le(std::bit_cast<u32>(static_cast<f32>(random()) / 0x1p31F - 1));
            else
                for (u16 n = 0; n < bits; n = static_cast<u16>(n + 8)) data.u8le(static_cast<u8>(random()));
        }
        addChunk(chunks, "fmt ", fmtContents(isFloat ? 3 : 1, channels, 44100, bits));
        addChunk(chunks, "data", data.view());
        return riff(chunks.view());
    }
    /// A WAV file with quiet tones, which every lossy codec keeps well.
    Bytes tones(u16 channels, u32 rate, u32 frames) {
        ByteWriter data, chunks;
        for (u32 i = 0; i < frames; ++i) {
            for (u32 c = 0; c < channels; ++c) {
                const f64 v = 8000 * std::sin(i * (440.0 + 200 * c) * 6.283 / rate);
                data.u16le(static_cast<u16>(static_cast<i16>(v)));
            }
        }
        addChunk(chunks, "fmt ", fmtContents(1, channels, rate, 16));
        addChunk(chunks, "data", data.view());
        return riff(chunks.view());
    }
    void exportTo(const std::string& row, const std::string& name, u32 wanted = kAnyFormat, f32 bitRate = 0) {
        ASSERT_TRUE(Export(rowOf(row), folder / name, store().First<Wave>(), wanted, bitRate, false))
            << failure();
    }
    Wave* importFile(const std::string& name) {
        return Import(folder / name, true) ? store().First<Wave>() : nullptr;
    }
    /// The bytes of the first data chunk of a WAV file.
    Bytes dataOf(const std::string& name) {
        const Bytes file = readFile(folder / name);
        const std::size_t at = textOf(file).find("data");
        if (at == std::string_view::npos) return {};
        const u64 size = loadInteger<u32>(ByteSpan(file).subspan(at + 4).first<4>(), std::endian::little);
        const auto whole = static_cast<std::size_t>(std::min<u64>(size, file.size() - at - 8));
        return {file.begin() + static_cast<std::ptrdiff_t>(at + 8),
                file.begin() + static_cast<std::ptrdiff_t>(at + 8 + whole)};
    }
    /// All samples of a file as floats.
    std::vector<f32> samplesOf(const std::string& name) {
        const Wave* wave = importFile(name);
        const auto blocks = wave ? openSamples(*wave, true) : nullptr;
        EXPECT_TRUE(blocks) << name << ": " << failure();
        if (!blocks) return {};
        std::vector<f32> samples(std::size_t{blocks->frames()} * blocks->channels());
        EXPECT_TRUE(blocks->read(std::span(samples))) << name << ": " << failure();
        return samples;
    }
    static f32 largestDifference(std::span<const f32> a, std::span<const f32> b) {
        f32 most = 0;
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
            most = std::max(most, std::abs(a[i] - b[i]));
        return most;
    }
};

#define KV_NEEDS(program) \
    if (!kv::test::has(program)) GTEST_SKIP() << program << " is not installed"

} // namespace kv::test
