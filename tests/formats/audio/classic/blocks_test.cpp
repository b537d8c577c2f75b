// Files built by hand: what no program at hand writes.
#include "formats/audio/classic/classic_test.h"

namespace kv {
namespace {

class Blocks : public test::ClassicTest {
protected:
    struct Block {
        u8 kind;
        Bytes contents;
    };
    static Bytes bytes(std::initializer_list<int> values) {
        Bytes out;
        for (const int value : values) out.push_back(static_cast<std::byte>(value));
        return out;
    }
    static Bytes voc(const std::vector<Block>& blocks) {
        ByteWriter out;
        out.text("Creative Voice File\x1A").u16le(26).u16le(0x010A).u16le(0x1129);
        for (const Block& block : blocks) {
            out.u8le(block.kind).u16le(static_cast<u16>(block.contents.size())).u8le(0);
            out.bytes(block.contents);
        }
        return out.u8le(0).take();
    }
    /// The samples of a voice as unsigned bytes.
    std::vector<int> bytesOfVoice(const std::vector<Block>& blocks) {
        Wave* wave = import(voc(blocks), "a.voc");
        EXPECT_TRUE(wave) << failure();
        std::vector<int> out;
        if (!wave) return out;
        for (const i16 sample : samplesOf(*wave)) out.push_back((sample + 32768) / 257);
        return out;
    }
    /// An 8SVX form with a header of these counts and these samples.
    static Bytes svx(std::array<u32, 3> counts, u8 octaves, u32 bodyBytes, std::string_view form = "8SVX") {
        ByteWriter chunks;
        chunks.text("NAME").u32be(5).text("piano").u8le(0);
        chunks.text("VHDR").u32be(20).u32be(counts[0]).u32be(counts[1]).u32be(counts[2]);
        chunks.u16be(8000).u8le(octaves).u8le(0).u32be(0x8000);
        chunks.text("BODY").u32be(bodyBytes);
        for (u32 i = 0; i < bodyBytes; ++i) chunks.u8le(static_cast<u8>(i));
        ByteWriter out;
        return out.text("FORM")
            .u32be(static_cast<u32>(4 + chunks.size()))
            .text(form)
            .bytes(chunks.view())
            .take();
    }
};

TEST_F(Blocks, VoicesOfManyBlocks) {
    const Block first{1, bytes({6, 0, 1, 2, 3})}; // 4000 Hz
    struct Case {
        const char* what;
        std::vector<Block> blocks;
        std::vector<int> samples;
    };
    const Case cases[] = {
        {"continued", {first, {2, bytes({4, 5})}, {2, {}}, {2, bytes({6})}}, {1, 2, 3, 4, 5, 6}},
        {"silence", {first, {3, bytes({1, 0, 6})}, {2, bytes({9})}}, {1, 2, 3, 127, 127, 9}},
        {"silence at half the rate",
         {first, {3, bytes({0, 0, 6})}, {3, bytes({0, 0, 131})}},
         {1, 2, 3, 127, 127}},
        {"sounds", {first, {1, bytes({6, 0, 7})}}, {1, 2, 3, 7}},
        {"a sound of two channels is left out",
         {first, {8, bytes({0, 0, 0, 1})}, {1, bytes({6, 0, 7, 7})}},
         {1, 2, 3}},
        {"unknown blocks and codecs",
         {first, {77, bytes({1})}, {1, bytes({6, 99, 7})}, {2, bytes({8})}},
         {1, 2, 3}},
        {"four bits", {{1, bytes({6, 1, 100, 0x35, 0x7D, 0x80})}}, {100, 103, 108, 123, 101, 97, 99}},
        {"2.6 bits", {{1, bytes({6, 2, 100, 0x6F, 0x01})}}, {100, 103, 110, 100, 102, 103, 105}},
        {"two bits", {{1, bytes({6, 3, 100, 0x5B, 0xC6})}}, {100, 101, 104, 102, 99, 93, 97, 103, 99}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::vector<int> samples = bytesOfVoice(c.blocks);
        EXPECT_EQ(samples.size(), c.samples.size());
        EXPECT_EQ(samples, c.samples);
        EXPECT_EQ(store().First<Wave>()->sampleRate, 4000U);
    }
}

TEST_F(Blocks, VoicesWithTextsMarkersAndRepeats) {
    const Block sound{1, bytes({6, 0, 1, 2, 3, 4})};
    const Block more{2, Bytes(40)};
    Wave* wave = import(voc({{5, bytes({'a', 'b', 0})},
                             sound,
                             {6, bytes({9, 0})},
                             {4, bytes({1, 2})},
                             more,
                             {7, {}},
                             more,
                             {5, bytes({'c', 0xE9})}}),
                        "a.voc");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->comments, "ab\nc\xC3\xA9");
    ASSERT_EQ(wave->cuePoints.size(), 1U);
    EXPECT_EQ(wave->cuePoints[0], (CuePoint{4, 0, "513", ""}));
    EXPECT_TRUE(wave->params.looped());
    EXPECT_EQ(wave->params.loopStart, 4);
    EXPECT_EQ(wave->params.loopEnd, 44);
    EXPECT_EQ(wave->frames, 84U);
    // A repeat without an end goes to the end of the sound.
    wave = import(voc({sound, {6, bytes({9, 0})}, more}), "a.voc");
    EXPECT_EQ(wave->params.loopEnd, 44);
    // A recorder that was stopped knew no size.
    ByteWriter open;
    open.bytes(ByteSpan(voc({})).first(26)).u8le(1).fill(3).u8le(6).u8le(0).fill(50, 0x80);
    wave = import(open.view(), "a.voc");
    EXPECT_EQ(wave->frames, 50U);
    EXPECT_FALSE(import(voc({{3, bytes({1, 0, 6})}}), "a.voc"));
    EXPECT_EQ(failure(), "voc_Imp: No sound in the file");
}

TEST_F(Blocks, VoicesHaveAWaveForEachOctave) {
    import(svx({4, 8, 16}, 3, 12 * 7), "a.iff");
    u32 octave = 0;
    for (const Wave& wave : store().all<Wave>()) {
        EXPECT_EQ(wave.name(), fmt::format("piano (octave {})", octave + 1));
        EXPECT_EQ(wave.frames, 12U << octave);
        EXPECT_EQ(wave.params.loopStart, 4U << octave);
        EXPECT_EQ(wave.params.loopEnd, 12U << octave);
        EXPECT_EQ(wave.params.rootKey, 71 - 12 * octave); // 500 Hz is B4
        EXPECT_NEAR(wave.params.gainDb, -6.02, 0.01);
        ++octave;
    }
    EXPECT_EQ(octave, 3U);
    Wave* wave = import(svx({4, 0, 0}, 1, 13, "16SV"), "a.iff");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->name(), "piano");
    EXPECT_EQ(samplesOf(*wave), (std::vector<i16>{0x0001, 0x0203, 0x0405, 0x0607, 0x0809, 0x0A0B}));
    EXPECT_FALSE(wave->params.looped());
}

TEST_F(Blocks, FieldsOfAvr) {
    ByteWriter out;
    out.text("2BIT").text("eight ch").u16be(0).u16be(8).u16be(0).u16be(0xFFFF).u16be(0xFF45);
    out.u32be(0x06000000 + 44100).u32be(20).u32be(3).u32be(17).fill(6).text("aracters").fill(12);
    out.text("user").fill(60).fill(20, 0x80).fill(9);
    Wave* wave = import(out.view(), "a.avr");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->name(), "eight characters");
    EXPECT_EQ(wave->comments, "user");
    EXPECT_EQ(wave->sampleRate, 44100U);
    EXPECT_EQ(wave->frames, 20U);
    EXPECT_EQ(wave->params.rootKey, 0x45);
    EXPECT_EQ(wave->params.loopStart, 3);
    EXPECT_EQ(wave->params.loopEnd, 17);
    EXPECT_EQ(samplesOf(*wave)[0], 128);
}

TEST_F(Blocks, LoopsAndMarkersOfSamplevision) {
    ByteWriter out;
    out.text("SOUND SAMPLE DATA 2.1 ");
    out.text("comment").fill(53, ' ').text("name").fill(26, ' ').u32le(50).fill(100);
    out.u16le(0).u32le(0xFFFFFFFF).u32le(0).u8le(0).u16le(0).u32le(5).u32le(40).u8le(2).u16le(0);
    for (int i = 2; i < 8; ++i) out.u32le(1).u32le(2).u8le(1).u16le(0);
    out.text("here").fill(6, ' ').u32le(25);
    for (int i = 1; i < 8; ++i) out.fill(10, ' ').u32le(0xFFFFFFFF);
    out.u8le(69).u32le(32000).u32le(0).u32le(0);
    Wave* wave = import(out.view(), "a.smp");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->name(), "name");
    EXPECT_EQ(wave->comments, "comment");
    EXPECT_EQ(wave->sampleRate, 32000U);
    EXPECT_EQ(wave->params.rootKey, 69);
    EXPECT_EQ(wave->params.loopFlags, kLooped | kLoopBidirectional);
    EXPECT_EQ(wave->params.loopStart, 5);
    EXPECT_EQ(wave->params.loopEnd, 40);
    ASSERT_EQ(wave->cuePoints.size(), 1U);
    EXPECT_EQ(wave->cuePoints[0], (CuePoint{25, 0, "here", ""}));
}

/// The header of a wave from the SY85's own demonstration disk, as its description prints it.
constexpr u8 kSyHeader[] = {0x53, 0x59, 0x38, 0x30, 0x20, 0x57, 0x41, 0x56, 0x45, 0x31, 0x00, 0x00, 0x00,
                            0x00, 0x00, 0x20, 0xAA, 0x00, 0x3C, 0x00, 0x19, 0xC2, 0x00, 0x00, 0x00, 0x00,
                            0x57, 0x3F, 0x57, 0x80, 0x00, 0x00, 0x57, 0x7F, 0x00, 0x01, 0x3F, 0x00, 0x00,
                            0x00, 0x28, 0x3F, 0x3F, 0xFF, 0x0C, 0x60, 0x54, 0x03, 0x00, 0x2F, 0x01, 0x40,
                            0x2E, 0x01, 0x00, 0x2F, 0x01, 0x7F, 0x01, 0x76, 0x00, 0x2C, 0x06, 0x17};

TEST_F(Blocks, FieldsOfAnSyWave) {
    ByteWriter out;
    out.bytes(std::as_bytes(std::span(kSyHeader))).fill(1024 - sizeof kSyHeader);
    for (u32 i = 0; i < 0x5780; ++i) out.u16be(static_cast<u16>(i));
    Bytes file = out.take();
    Wave* wave = import(file, "samp.w02");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->frames, 0x5780U);
    EXPECT_EQ(wave->sampleRate, 16667U);
    EXPECT_EQ(wave->params.rootKey, 60);
    EXPECT_FALSE(wave->params.looped());
    EXPECT_EQ(samplesOf(*wave)[0x1234], 0x1234);
    for (const auto& [type, flags] :
         {std::pair{2, +kLooped}, {3, kLooped | kLoopBidirectional}, {6, kLooped | kLoopReverse}}) {
        file[0x18] = static_cast<std::byte>(type);
        wave = import(file, "samp.w02");
        EXPECT_EQ(wave->params.loopFlags, flags);
        EXPECT_EQ(wave->params.loopStart, 0x5740);
        EXPECT_EQ(wave->params.loopEnd, 0x5780);
    }
}

TEST_F(Blocks, HcomWithoutAMacBinaryHeader) {
    // A tree of three leaves, of differences: 0, 5 and -5.
    ByteWriter out;
    out.text("HCOM").u32be(6).u32be(0).u32be(1).u32be(2).u16be(5);
    for (const int number : {1, 2, -1, 0, 3, 4, -1, 5, -1, -5}) out.u16be(static_cast<u16>(number));
    out.u8le(0).u8le(0x80).u32be(0b10'0'11'11'10'0'0U << 21);
    Wave* wave = import(out.view(), "a.hcom");
    ASSERT_TRUE(wave) << failure();
    EXPECT_EQ(wave->sampleRate, 11025U);
    std::vector<int> values;
    for (const i16 sample : samplesOf(*wave)) values.push_back((sample + 32768) / 257);
    EXPECT_EQ(values, (std::vector<int>{0x80, 0x85, 0x85, 0x80, 0x7B, 0x80}));
}

TEST_F(Blocks, Tx16wRatesWithoutANumber) {
    for (const auto& [attackBits, repeatBits, rate] : {std::tuple<u8, u8, u32>{0x06, 0x52, 33333},
                                                       {0x10, 0x00, 50000},
                                                       {0xF6, 0x52, 16667},
                                                       {0, 0, 33333}}) {
        ByteWriter out;
        out.text("LM8953").fill(16).u8le(0x49).u8le(0).u16le(10).u8le(attackBits).u16le(20).u8le(repeatBits);
        out.fill(2).fill(45);
        Wave* wave = import(out.view(), "a.w42");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->sampleRate, rate);
        EXPECT_EQ(wave->frames, 30U);
        EXPECT_EQ(wave->params.loopStart, 10);
    }
}

} // namespace
} // namespace kv
