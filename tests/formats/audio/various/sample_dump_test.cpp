#include "formats/audio/various/various_test.h"

namespace kv {
namespace {

class SampleDump : public test::VariousTest {
protected:
    /// A dump of 16-bit samples with the given packet numbers, each packet full of its place in the list.
    static Bytes dump(std::span<const u8> numbers, u32 frames, u32 period = 22676, u8 loopType = 0x7F,
                      u32 loopStart = 0, u32 loopEnd = 0) {
        ByteWriter out;
        out.u8le(0xF0).u8le(0x7E).u8le(5).u8le(1).u8le(7).u8le(0).u8le(16);
        for (const u32 value : {period, frames, loopStart, loopEnd}) {
            for (u32 shift = 0; shift < 21; shift += 7) out.u8le(static_cast<u8>(value >> shift & 0x7F));
        }
        out.u8le(loopType).u8le(0xF7);
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            ByteWriter packet;
            packet.u8le(0x7E).u8le(5).u8le(2).u8le(numbers[i]);
            const u32 word = (static_cast<u32>(i + 1) ^ 0x8000) << 5;
            for (int sample = 0; sample < 40; ++sample)
                packet.u8le(word >> 14 & 0x7F).u8le(word >> 7 & 0x7F).u8le(word & 0x7F);
            u8 sum = 0;
            for (const std::byte b : packet.view()) sum ^= std::to_integer<u8>(b);
            out.u8le(0xF0).bytes(packet.view()).u8le(sum).u8le(0xF7);
        }
        return out.take();
    }
};

TEST_F(SampleDump, PacketsFindTheirPlace) {
    struct Case {
        std::vector<u8> numbers;
        u32 frames;
        std::vector<i16> wanted; ///< of each packet's place
        bool warns;
    };
    const Case cases[] = {
        {{0, 1, 2}, 120, {1, 2, 3}, false},   {{0, 1, 1, 2}, 120, {1, 3, 4}, false}, // sent again
        {{0, 2}, 120, {1, 0, 2}, true},                                              // one is lost
        {{0, 2, 1}, 400, {1, 0, 2}, true}, // goes on from there: 129
        {{0, 1}, 120, {1, 2}, false},      // the end is missing
        {{5}, 400, {0, 0, 0, 0, 0, 1}, true},
    };
    for (const Case& c : cases) {
        space.diagnostics.clear();
        Wave* wave = import(dump(c.numbers, c.frames), "a.sds");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->frames,
                  std::min<std::size_t>(c.frames,
                                        c.numbers == std::vector<u8>{0, 2, 1} ? 400 : c.wanted.size() * 40));
        const std::vector<i16> samples = samplesOf(*wave);
        for (std::size_t packet = 0; packet < c.wanted.size(); ++packet) {
            EXPECT_EQ(samples[packet * 40], c.wanted[packet]) << packet;
            EXPECT_EQ(samples[packet * 40 + 39], c.wanted[packet]) << packet;
        }
        EXPECT_EQ(!space.diagnostics.entries().empty(), c.warns);
    }
    // The number of a packet has 7 bits.
    std::vector<u8> numbers(300);
    for (std::size_t i = 0; i < numbers.size(); ++i) numbers[i] = static_cast<u8>(i & 127);
    const std::vector<i16> samples = samplesOf(*import(dump(numbers, 12000), "a.sds"));
    ASSERT_EQ(samples.size(), 12000U);
    EXPECT_EQ(samples[11999], 300);
}

TEST_F(SampleDump, HeaderTellsRateAndLoop) {
    space.settings.load.bAutoBid2Fwd = space.settings.load.bAutoRev2Fwd = false;
    struct Case {
        u32 period;
        u8 loopType;
        u32 rate;
        u16 flags;
    };
    for (const Case& c :
         {Case{22676, 0, 44100, kLooped}, Case{45351, 1, 22050, kLooped | kLoopBidirectional},
          Case{20833, 0x7F, 48000, 0}, Case{100000, 2, 10000, 0}, Case{0, 0, 44100, kLooped}}) {
        const u8 numbers[] = {0, 1};
        Wave* wave = import(dump(numbers, 80, c.period, c.loopType, 10, 69), "a.sds");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->sampleRate, c.rate);
        EXPECT_EQ(wave->params.loopFlags, c.flags);
        if (c.flags == 0) continue;
        EXPECT_EQ(wave->params.loopStart, 10);
        EXPECT_EQ(wave->params.loopEnd, 70);
    }
    // Two dumps and a stray message in one file.
    const u8 one[] = {0};
    ByteWriter file;
    file.bytes(dump(one, 40)).text("\xF0\x43\x10\xF7").bytes(dump(one, 30));
    ASSERT_TRUE(import(file.view(), "a.sds"));
    ASSERT_EQ(store().count(kWaveClass), 2U);
    for (Wave& wave : store().all<Wave>()) EXPECT_EQ(samplesOf(wave), std::vector<i16>(wave.frames, 1));
}

TEST_F(SampleDump, EveryWidthComesBack) {
    const std::vector<i16> samples = tone(1000, 32000);
    const std::pair<u32, u32> cases[] = {
        {kPcm8, 0xFF00}, {kPcm12, 0xFFF0}, {kPcm16, 0xFFFF}, {kPcm20, 0xFFFF}, {kPcm24, 0xFFFF}};
    for (const auto& [code, mask] : cases) {
        Wave* wave = import(wavWith(samples));
        wave->params.loopFlags = kLooped;
        wave->params.loopStart = 17;
        wave->params.loopEnd = 999;
        exportAs("a.sds", code | kMonoBit);
        wave = open("a.sds");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->sampleRate, 44100U);
        EXPECT_EQ(wave->params.loopStart, 17);
        EXPECT_EQ(wave->params.loopEnd, 999);
        std::vector<i16> wanted = samples;
        for (i16& s : wanted) s = static_cast<i16>(s & static_cast<i16>(mask));
        EXPECT_EQ(samplesOf(*wave), wanted) << std::hex << code;
    }
}

TEST_F(SampleDump, IsThatOfOtherPrograms) {
    const std::vector<i16> samples = tone(1010);
    ASSERT_TRUE(import(wavWith(samples), "a.wav"));
    exportAs("a.sds");
    if (!run("sndfile-convert -pcm16 a.sds b.wav && sndfile-convert -pcm16 a.wav c.sds && sndfile-convert "
             "-pcm24 a.wav d.sds"))
        GTEST_SKIP() << "no sndfile-convert";
    // That program garbles the last, short packet, also of its own files.
    const std::vector<i16> other = samplesOf(*open("b.wav"));
    ASSERT_EQ(other.size(), samples.size());
    EXPECT_TRUE(std::equal(samples.begin(), samples.begin() + 1000, other.begin()));
    for (const char* name : {"c.sds", "d.sds"}) {
        Wave* wave = open(name);
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->sampleRate, 44100U);
        EXPECT_EQ(wave->params.loopFlags, 0);
        EXPECT_EQ(samplesOf(*wave), samples) << name;
    }
}

TEST_F(SampleDump, RefusesWhatHasNoPlace) {
    const std::vector<i16> samples(1 << 21, 1);
    ASSERT_TRUE(import(wavWith(samples)));
    EXPECT_FALSE(Export(rowOf("MIDI SDS"), folder / "a.sds", store().First<Wave>(), kAnyFormat, 0, false));
    EXPECT_EQ(failure(), "sds_Exp: A sample dump has at most 2097151 frames");
}

} // namespace
} // namespace kv
