#include "model/sample_blocks.h"

#include <random>

#include "model/wave_data.h"
#include "samples/data_format.h"
#include "samples/kernels.h"
#include "samples/stored_form.h"
#include "workspace_test.h"

namespace kv {
namespace {

class Samples : public test::WorkspaceTest {
protected:
    /// A wave of stored bytes in a file of its own.
    Wave* storedWave(ByteSpan bytes, u32 word, u32 channels, u32 frames) {
        const auto path = folder / ("stored" + std::to_string(store().count(kWaveClass)));
        test::writeFile(path, bytes);
        Wave* wave = store().Create<Wave>(kNextFreeNumber, &genericReader, "stored");
        wave->sourceFile = path;
        wave->dataFormat = word;
        wave->channels = channels;
        wave->frames = frames;
        return wave;
    }
    Bytes randomBytes(std::size_t count) {
        Bytes bytes(count);
        for (std::byte& b : bytes) b = static_cast<std::byte>(random() & 0xFF);
        return bytes;
    }

    test::TempFolder folder;
    std::mt19937 random{7};
};

constexpr u32 kReadable[] = {kPcm8,  kPcm12, kPcm16,     kPcm20,      kPcm24,          kPcm32,    kFloat64,
                             kMuLaw, kALaw,  kDeltaPcm8, kDeltaPcm16, kByteDeltaPcm16, kRevMuLaw, kRevALaw};

TEST_F(Samples, StreamsGiveWhatLoadingGives) {
    constexpr u32 kFrames = 70001; // odd, and more than a block
    for (const u32 code : kReadable) {
        for (const u32 flags :
             {0U, kUnsigned, kByteswap, kPaddedMsb, kSequential, kUnsigned | kByteswap | kPaddedMsb}) {
            for (const u32 channels : {1U, 2U}) {
                const u32 word = code | flags;
                const u64 bytes = StoredForm(word).storedBytes(u64{kFrames} * channels);
                Wave* wave =
                    storedWave(randomBytes(static_cast<std::size_t>(bytes)), word, channels, kFrames);
                MemorySink streamed, loaded;
                const u32 target = StoredForm(word).isFloat() ? kFloat32 : kPcm16;
                ASSERT_TRUE(gen_ExpWave(streamed, *wave, target | kMonoBit | kStereoBit))
                    << space.error.message;
                ASSERT_TRUE(wave->LoadData()) << space.error.message;
                ASSERT_TRUE(gen_ExpWave(loaded, *wave, target | kMonoBit | kStereoBit));
                EXPECT_EQ(streamed.take(), loaded.take()) << std::hex << word << " channels " << channels;
                store().Delete(wave);
            }
        }
    }
}

TEST_F(Samples, RefusalsHaveTheirMessages) {
    struct Case {
        u32 word, channels, frames;
        const char* message;
    };
    const Case cases[] = {
        {kPcm16, 1, 0, "Zero length"},
        {kPcm16, 0, 4, "No channels"},
        {kPcm16, 3, 4, "Too many channels"},
        {kGsm, 1, 4, "Invalid format for generic import function!"},
        {kPcm16 | kPcm8, 1, 4, "Invalid format for generic import function!"},
        {kPcm16, 1, 9, "Reading from file failed"},
        {kPcm16, 2, 0xFFFFFFFF, "Reading from file failed"},
        {kPcm20 | kSequential, 2, 0xFFFFFFFF, "Reading from file failed"},
    };
    for (const Case& c : cases) {
        Wave* wave = storedWave(Bytes(16), c.word, c.channels, c.frames);
        EXPECT_FALSE(wave->LoadData());
        EXPECT_EQ(space.error.context, "gen_ImpWave");
        EXPECT_EQ(space.error.message, c.message);
    }
    Wave* gone = storedWave(Bytes(16), kPcm16, 1, 8);
    std::filesystem::remove(gone->sourceFile);
    EXPECT_FALSE(gone->LoadData());
    EXPECT_EQ(space.error.context, "Read wave-data from disk");
    EXPECT_EQ(space.error.message, "Could not open file");
    MemorySink sink;
    EXPECT_FALSE(gen_ExpWave(sink, *gone, kPcm16));
}

TEST_F(Samples, SequentialPlanesAreInterleaved) {
    ByteWriter planes;
    for (const int s : {1, 2, 3, 11, 12, 13}) planes.u16le(static_cast<u16>(s));
    Wave* wave = storedWave(planes.view(), kPcm16 | kSequential, 2, 3);
    ASSERT_TRUE(wave->LoadData());
    const auto samples = wave->samples16.span();
    EXPECT_EQ(std::vector<i16>(samples.begin(), samples.end()), (std::vector<i16>{1, 11, 2, 12, 3, 13}));
    MemorySink back;
    ASSERT_TRUE(gen_ExpWave(back, *wave, kPcm16 | kSequential | kStereoBit));
    EXPECT_EQ(back.take(), planes.take());
    Wave* mono = storedWave(back.view(), kPcm16 | kSequential, 1, 0);
    mono->frames = 0;
    EXPECT_FALSE(mono->LoadData());
}

TEST_F(Samples, ChannelsAreAdapted) {
    const Wave* stereo = addWaveWith({-3, 0, 100, 101, 32767, 32767}, 2);
    MemorySink mono;
    ASSERT_TRUE(gen_ExpWave(mono, *stereo, kPcm16 | kMonoBit));
    ByteCursor in(mono.view());
    for (const int wanted : {-1, 100, 32767}) EXPECT_EQ(in.s16le(), wanted); // truncated towards zero
    const Wave* single = addWaveWith({5, -6});
    MemorySink doubled;
    ASSERT_TRUE(gen_ExpWave(doubled, *single, kPcm16 | kStereoBit));
    ByteCursor two(doubled.view());
    for (const int wanted : {5, 5, -6, -6}) EXPECT_EQ(two.s16le(), wanted);
    // Mixed as floats, not as integers, for what is written from floats.
    MemorySink deep;
    ASSERT_TRUE(gen_ExpWave(deep, *stereo, kPcm24 | kMonoBit));
    ByteCursor three(deep.view());
    EXPECT_EQ(three.u8le(), 0x80); // -1.5 in 16 bits is -384 in 24
    EXPECT_EQ(three.u16le(), 0xFFFE);
}

TEST_F(Samples, TwentyFourBitsFromIntegersAreThoseByWayOfFloat) {
    std::vector<i16> all(65536);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<i16>(i);
    Wave* wave = addWaveWith(all);
    MemorySink direct, byFloat;
    ASSERT_TRUE(gen_ExpWave(direct, *wave, kPcm24 | kMonoBit));
    ASSERT_FALSE(GetFloatData(*wave).empty());
    DropInt16Data(*wave, true);
    ASSERT_TRUE(gen_ExpWave(byFloat, *wave, kPcm24 | kMonoBit));
    EXPECT_EQ(direct.take(), byFloat.take());
}

TEST_F(Samples, WhatIsStoredAsWantedIsCopied) {
    for (const u32 word : {kMuLaw, kPcm32, kFloat64, kPcm24 | kByteswap, kDeltaPcm8}) {
        const Bytes bytes = randomBytes(static_cast<std::size_t>(StoredForm(word).storedBytes(2000)));
        const Wave* wave = storedWave(bytes, word, 2, 1000);
        MemorySink sink;
        ASSERT_TRUE(gen_ExpWave(sink, *wave, word | kStereoBit));
        EXPECT_EQ(sink.take(), bytes) << std::hex << word;
    }
}

TEST_F(Samples, CancellingStopsBothWays) {
    Wave* wave = storedWave(Bytes(20000), kPcm16, 1, 10000);
    ui.cancel = true;
    EXPECT_FALSE(wave->LoadData());
    EXPECT_FALSE(wave->resident());
    MemorySink sink;
    EXPECT_FALSE(gen_ExpWave(sink, *wave, kPcm8 | kMonoBit));
    EXPECT_EQ(space.error.message, "Cancelled");
}

TEST_F(Samples, MarkersLeaveTheSourceToTheReader) {
    static bool called;
    called = false;
    static constexpr WaveReader kReader{"test_ImpWave", [](Wave&, FileContext& file) {
                                            called = true;
                                            return !file.source && Fail("test_ImpWave", "no medium");
                                        }};
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &kReader, "cd");
    wave->sourceFile = "<AKAI CD: 1.A>";
    wave->frames = 5;
    EXPECT_FALSE(wave->LoadData());
    EXPECT_TRUE(called);
    EXPECT_EQ(space.error.message, "no medium");
}

} // namespace
} // namespace kv
