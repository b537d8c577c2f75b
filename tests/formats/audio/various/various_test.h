#pragma once

#include <sys/mman.h>
#include <unistd.h>

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
    /// Beginnings of a file, and the file with each byte of its header changed, is refused or read without
    /// harm.
    void damage(const Bytes& good, const std::string& name) {
        const int row =
            formatTable().RowByExtension(std::filesystem::path(name).extension().string(), kWaveClass);
        const int file = ::memfd_create("damaged", 0); // many small files are slow on a disk
        const std::string path = "/proc/self/fd/" + std::to_string(file);
        const auto read = [&](ByteSpan bytes) {
            ASSERT_EQ(::ftruncate(file, 0), 0);
            ASSERT_EQ(::pwrite(file, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
            if (!Import(path, false, row)) return;
            for (Wave& wave : store().all<Wave>()) {
                if (wave.sampleCount() < 1 << 24) (void)wave.LoadData();
            }
        };
        for (std::size_t size = 0; size < good.size(); size += size < 200 ? 1 : 13)
            read(ByteSpan(good).first(size));
        for (std::size_t at = 0; at < std::min<std::size_t>(good.size(), 160); ++at) {
            for (const int value : {0, 0x7F, 0x80, 0xFF}) {
                Bytes bad = good;
                bad[at] = static_cast<std::byte>(value);
                read(bad);
            }
        }
        ::close(file);
    }
};

} // namespace kv::test
