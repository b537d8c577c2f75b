// Against streams that other programs packed: tests/data/packed/make.py.
#include <cmath>
#include <functional>
#include <random>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "formats/codecs/flac_stream.h"
#include "formats/codecs/vorbis_stream.h"
#include "formats/codecs/wavpack_stream.h"
#include "places.h"
#include "test_support.h"

namespace kv {
namespace {

constexpr u32 kFrames = 3000;
constexpr std::string_view kShort = "Reading from file failed";

/// The signal of make.py.
i32 generated(u32 frame, u32 channel) {
    const auto phase = static_cast<i32>(frame * (2000 + 1000 * channel) % 65536) - 32768;
    return phase * (32768 - std::abs(phase)) >> 14;
}

struct Codec {
    const char* name;
    SharedLibrary library;
    decltype(&probeWavPack) probe;
    decltype(&openWavPack) open;
};
Codec wavPack{"WavPack", {"libwavpack1", {"libwavpack.so.1"}}, probeWavPack, openWavPack};
Codec vorbis{"Ogg Vorbis", {"libvorbisfile3", {"libvorbisfile.so.3"}}, probeVorbis, openVorbis};
Codec flac{"FLAC", {"libflac12", {"libFLAC.so.12"}}, probeFlac, openFlac};

struct Stream {
    const char* file;
    const Codec& codec;
    u32 channels, bits;
    bool isFloat;
    std::function<f64(i32 v, u32 frame)> expected; ///< working form of what was packed, from the signal
};
void PrintTo(const Stream& stream, std::ostream* out) {
    *out << stream.file;
}
const Stream kStreams[] = {
    {"mono8.wv", wavPack, 1, 8, false, [](i32 v, u32) { return (v >> 8) * 257 + 128; }},
    {"stereo16.wv", wavPack, 2, 16, false, [](i32 v, u32) { return v; }},
    {"mono24.wv", wavPack, 1, 24, true,
     [](i32 v, u32 i) { return (v * 256 + static_cast<i32>(i % 251)) / 0x1p23; }},
    {"mono32.wv", wavPack, 1, 32, true,
     [](i32 v, u32 i) { return static_cast<f32>(v * 65536 + static_cast<i32>(i)) / 0x1p31F; }},
    {"stereo-float.wv", wavPack, 2, 32, true, [](i32 v, u32) { return v / 0x1p15; }},
    {"mono8.flac", flac, 1, 8, false, [](i32 v, u32) { return (v >> 8) * 257 + 128; }},
    {"stereo16.flac", flac, 2, 16, false, [](i32 v, u32) { return v; }},
    {"mono24.flac", flac, 1, 24, true,
     [](i32 v, u32 i) { return (v * 256 + static_cast<i32>(i % 251)) / 0x1p23; }},
    {"mono.ogg", vorbis, 1, 0, true, [](i32 v, u32) { return v / 0x1p15; }},
    {"stereo.ogg", vorbis, 2, 0, true, [](i32 v, u32) { return v / 0x1p15; }},
};

Bytes bytesIn(std::string_view name) {
    return test::readFile(std::filesystem::path(KV_SOURCE_DIR "/tests/data/packed") / name);
}
std::shared_ptr<ByteSource> sourceOf(Bytes bytes) {
    return std::make_shared<MemorySource>(std::move(bytes));
}

/// All samples in working form, read in steps of `step` frames; what comes before a failure.
template <class T>
std::vector<f64> samplesOf(SampleBlocks& blocks, u32 step) {
    std::vector<f64> all;
    std::vector<T> part;
    for (u32 done = 0; done < blocks.frames(); done += step) {
        part.resize(std::min(step, blocks.frames() - done) * blocks.channels());
        if (!blocks.read(std::span<T>(part))) return all;
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}
std::vector<f64> samplesOf(SampleBlocks& blocks, u32 step = kFrames) {
    return blocks.isFloat() ? samplesOf<f32>(blocks, step) : samplesOf<i16>(blocks, step);
}

class PackedStream : public testing::TestWithParam<Stream> {
protected:
    void SetUp() override {
        if (!codec().library.ready(codec().name)) GTEST_SKIP() << runContext().error.message;
        runContext() = {};
    }
    const Stream& stream() const { return GetParam(); }
    const Codec& codec() const { return GetParam().codec; }
    std::unique_ptr<SampleBlocks> open(Bytes bytes, u64 start = 0, u32 frames = kFrames) const {
        return codec().open(sourceOf(std::move(bytes)), start, frames, stream().channels);
    }
    const Bytes packed = bytesIn(GetParam().file);
};

TEST_P(PackedStream, SaysWhatItHolds) {
    const auto info = codec().probe(sourceOf(packed));
    ASSERT_TRUE(info) << runContext().error.message;
    EXPECT_EQ(info->channels, stream().channels);
    EXPECT_EQ(info->sampleRate, 44100U);
    EXPECT_EQ(info->frames, kFrames);
    EXPECT_EQ(info->bits, stream().bits);
    EXPECT_EQ(info->isFloat, stream().isFloat);
}

/// WavPack and FLAC bit by bit, Vorbis with an error 40 dB below the signal.
TEST_P(PackedStream, HoldsWhatWasPacked) {
    const auto blocks = open(packed);
    ASSERT_TRUE(blocks) << runContext().error.message;
    EXPECT_EQ(blocks->isFloat(), stream().isFloat);
    const std::vector<f64> got = samplesOf(*blocks);
    ASSERT_EQ(got.size(), kFrames * stream().channels) << runContext().error.message;
    const bool exact = &codec() != &vorbis;
    f64 signal = 0, error = 0;
    for (u32 i = 0; i < got.size(); ++i) {
        const u32 frame = i / stream().channels, channel = i % stream().channels;
        const f64 expected = stream().expected(generated(frame, channel), frame);
        ASSERT_TRUE(!exact || got[i] == expected) << "sample " << i << ": " << got[i] << ", not " << expected;
        signal += expected * expected;
        error += (got[i] - expected) * (got[i] - expected);
    }
    EXPECT_LT(error, signal * 1e-4);
}

TEST_P(PackedStream, MiddleEqualsThatOfTheWhole) {
    const std::vector<f64> whole = samplesOf(*open(packed));
    for (const u32 start : {1U, 511U, 512U, 1234U, kFrames - 700}) {
        const auto blocks = open(packed, start, 700);
        ASSERT_TRUE(blocks) << start;
        const std::vector<f64> got = samplesOf(*blocks, 37);
        const auto from = whole.begin() + start * stream().channels;
        EXPECT_EQ(got, std::vector<f64>(from, from + 700 * stream().channels)) << start;
    }
}

TEST_P(PackedStream, RefusesWhatItDoesNotHold) {
    const struct {
        Bytes bytes;
        u64 start;
        u32 frames, channels;
        std::string_view message;
    } cases[] = {
        {packed, 0, kFrames + 1, stream().channels, kShort},
        {packed, kFrames, 1, stream().channels, kShort},
        {packed, ~u64{0}, 2, stream().channels, kShort},
        {packed, 0, 0, stream().channels, "Zero length"},
        {packed, 0, 1, stream().channels + 1, "Wrong number of channels"},
        {{}, 0, 1, 1, "Not a"},
        {Bytes(5000), 0, 1, 1, "Not a"},
        {bytesIn(&codec() == &wavPack ? "mono.ogg" : "mono8.wv"), 0, 1, 1, "Not a"},
    };
    for (const auto& c : cases) {
        runContext().error = {};
        EXPECT_FALSE(codec().open(sourceOf(c.bytes), c.start, c.frames, c.channels));
        EXPECT_EQ(runContext().error.context, codec().name);
        EXPECT_TRUE(runContext().error.message.starts_with(c.message)) << runContext().error.message;
    }
}

TEST_P(PackedStream, CutShortGivesTheBeginningAndFails) {
    const std::vector<f64> whole = samplesOf(*open(packed));
    for (std::size_t size = 0; size < packed.size(); size += 1 + size / 16) {
        runContext().error = {};
        const auto source = sourceOf({packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(size)});
        const auto info = codec().probe(source);
        const auto frames = static_cast<u32>(info ? std::min<u64>(info->frames, kFrames) : kFrames);
        const auto blocks = codec().open(source, 0, frames, stream().channels);
        std::vector<f64> got;
        if (blocks) got = samplesOf(*blocks, 100);
        ASSERT_LT(got.size(), whole.size());
        EXPECT_TRUE(std::equal(got.begin(), got.end(), whole.begin())) << "cut at " << size;
        const bool all = blocks && got.size() == frames * stream().channels;
        EXPECT_TRUE(all || runContext().error.context == codec().name) << "cut at " << size;
    }
}

TEST_P(PackedStream, SurvivesChangedBytes) {
    std::mt19937 random(7);
    for (int i = 0; i < 300; ++i) {
        Bytes changed = packed;
        for (int n = 1 + i % 3; n > 0; --n)
            changed[random() % changed.size()] = static_cast<std::byte>(random());
        runContext().error = {};
        const auto blocks = open(changed, i % 2 == 0 ? 0 : 1000, 2000);
        const bool whole = blocks && samplesOf(*blocks, 100).size() == 2000 * stream().channels;
        EXPECT_TRUE(whole || !runContext().error.message.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(Of, PackedStream, testing::ValuesIn(kStreams), [](const auto& row) {
    std::string name = row.param.file;
    std::erase_if(name, [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); });
    return name;
});

class Packed : public testing::Test {
protected:
    void SetUp() override {
        for (const Codec* codec : {&wavPack, &vorbis, &flac})
            if (!codec->library.ready(codec->name)) GTEST_SKIP() << runContext().error.message;
        runContext() = {};
    }
};

TEST_F(Packed, DamagedBlockIsNoted) {
    Bytes bytes = bytesIn("stereo16.wv");
    bytes[bytes.size() / 2] ^= std::byte{0x10};
    const auto blocks = openWavPack(sourceOf(bytes), 0, kFrames, 2);
    ASSERT_TRUE(blocks);
    const std::vector<f64> got = samplesOf(*blocks, 1000);
    ASSERT_EQ(got.size(), 2 * kFrames);
    EXPECT_EQ(got.front(), generated(0, 0));
    EXPECT_EQ(got.back(), generated(kFrames - 1, 1));
    EXPECT_EQ(runContext().diagnostics.entries().size(), 1U);
}

/// A length is believed only as far as the bytes can hold it: it's what callers allocate by.
TEST_F(Packed, LengthBeyondAllReasonIsRefused) {
    Bytes bytes = bytesIn("mono8.wv");
    // Frames of the whole, in the first block's header; the block ends in a checksum of itself.
    const u32 blockBytes = ByteCursor(ByteSpan(bytes).subspan(4)).u32le() + 8;
    std::fill_n(bytes.begin() + 12, 3, std::byte{0xFF});
    ByteCursor words(ByteSpan(bytes).first(blockBytes - 6));
    u32 sum = ~0U;
    while (words.left() > 0) sum = sum * 3 + words.u16le();
    const Bytes stored = ByteWriter().u32le(sum).take();
    std::ranges::copy(stored, bytes.begin() + blockBytes - 4);
    EXPECT_FALSE(probeWavPack(sourceOf(bytes)));
    EXPECT_EQ(runContext().error.message, kShort);
}

TEST_F(Packed, ChainedStreamOfOtherChannelsEndsTheReading) {
    Bytes bytes = bytesIn("mono.ogg");
    const Bytes more = bytesIn("stereo.ogg");
    bytes.insert(bytes.end(), more.begin(), more.end());
    EXPECT_FALSE(openVorbis(sourceOf(bytes), 0, 2 * kFrames, 1));
    EXPECT_EQ(runContext().error.message, kShort);
    const auto blocks = openVorbis(sourceOf(bytes), 0, kFrames, 1);
    ASSERT_TRUE(blocks);
    EXPECT_EQ(samplesOf(*blocks, 1000).size(), kFrames);
}

/// In a process of its own, which finds broken files in place of the libraries.
TEST(PackedDeathTest, MissingLibraryIsNamedWithItsPackage) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    test::TempFolder folder;
    for (const char* name : {"libwavpack.so.1", "libvorbisfile.so.3", "libFLAC.so.12"})
        test::writeFile(folder / name,
                        bytesOf("no library, but long enough to be taken for one at first glance"));
    ::setenv("LD_LIBRARY_PATH", folder.path().c_str(), 1);
    const auto tryAll = [] {
        for (const Codec* codec : {&wavPack, &vorbis, &flac}) {
            if (codec->probe(sourceOf(bytesIn("mono.ogg")))) std::exit(1);
            std::fprintf(stderr, "%s: %s\n", runContext().error.context.c_str(),
                         runContext().error.message.c_str());
        }
        std::exit(0);
    };
    EXPECT_EXIT(
        tryAll(), testing::ExitedWithCode(0),
        "WavPack: The library libwavpack.so.1 could not be opened. Please install the package "
        "libwavpack1.\nOgg Vorbis: The library libvorbisfile.so.3 could not be opened. Please install "
        "the package libvorbisfile3.\nFLAC: The library libFLAC.so.12 could not be opened. Please install "
        "the "
        "package libflac12.");
    ::unsetenv("LD_LIBRARY_PATH");
}

} // namespace
} // namespace kv
