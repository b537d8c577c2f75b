// Voice recordings, telephone prompts and sample dumps: no program here writes them, but what stands behind
// their headers others decode.
#include "formats/audio/classic/classic_test.h"
#include "model/store.h"

namespace kv {
namespace {

class Speech : public test::ClassicTest {
protected:
    /// What a program makes of a part of a file, as 16-bit samples.
    std::vector<i16> peerDecodes(const Bytes& file, std::size_t from, std::size_t bytes,
                                 const std::string& command) {
        test::writeFile(folder / "codes", ByteSpan(file).subspan(from, bytes));
        EXPECT_TRUE(run(command));
        const Bytes decoded = test::readFile(folder / "peer.s16");
        std::vector<i16> samples;
        for (ByteCursor in(decoded); in.left() >= 2;) samples.push_back(in.s16le());
        return samples;
    }
    /// Other decoders round otherwise, so that theirs drift a little: the noise to that.
    static f64 noiseToSignal(std::span<const i16> ours, std::span<const i16> theirs) {
        f64 noise = ours.size() == theirs.size() ? 0 : 1e12, signal = 1;
        for (std::size_t i = 0; i < std::min(ours.size(), theirs.size()); ++i) {
            noise += std::pow(static_cast<f64>(ours[i] - theirs[i]), 2);
            signal += std::pow(static_cast<f64>(ours[i]), 2);
        }
        return noise / signal;
    }
    static std::string lossOf(const Workspace& space) {
        return space.diagnostics.entries().empty() ? "" : space.diagnostics.entries()[0].field;
    }
    static void addName(ByteWriter& out, std::string_view name) {
        out.u8le(static_cast<u8>(name.size())).text(name);
    }
    static Bytes sdx(u8 bits, u32 frames, u8 loopType, std::size_t reserved, ByteSpan samples,
                     std::string_view name =
                         "Gl\xF6"
                         "ckchen") {
        ByteWriter out;
        out.text("SDX:Sample Dump eXchange\r\n\x1A").u8le(1);
        addName(out, name);
        out.u8le(0).u8le(0).u16le(7).u8le(bits).u32le(31250).u32le(frames).u32le(2).u32le(4).u8le(loopType);
        return out.fill(reserved).bytes(samples).take();
    }
    static Bytes covox(u8 kind, u8 divisor, ByteSpan samples) {
        ByteWriter out;
        out.text("\xFF\x55\xFF\xAA\xFF\x55\xFF\xAA").u8le(kind).u8le(divisor).fill(6).bytes(samples);
        return out.take();
    }
    /// Two prompts, the second one ahead of the first, in a directory of four.
    static Bytes prompts() {
        ByteWriter out;
        out.u32le(4).u32le(6000).u32le(2).u32le(0).u32le(109).u32le(0);
        out.u32le(90).u32le(10).u32le(100);
        out.u32le(0).u32le(0).u32le(0);
        out.u32le(72).u32le(18).u32le(0);
        out.u32le(0).u32le(0).u32le(0);
        for (u8 i = 0; i < 28; ++i) out.u8le(static_cast<u8>(i * 37));
        return out.text("one\r\n").u8le(0).fill(3).take();
    }
};

TEST_F(Speech, NomadRecordingsAreG721) {
    if (!has("ffmpeg")) GTEST_SKIP() << "ffmpeg decodes the codes";
    Wave* wave = rewritten("Creative Labs Nomad", signal(3001, 1, 8000), "a.nvf");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->sampleRate, 8000U);
    EXPECT_EQ(wave->dataFormat, kAdpcm4);
    EXPECT_FALSE(wave->resident());
    const Bytes file = test::readFile(folder / "a.nvf");
    ASSERT_EQ(file.size(), 44 + 1501U);
    constexpr u8 kHeader[] = {'N', 'V', 'F',  ' ',  1, 0,    0,    0,    0x20, 0, 0,    0, 'V',  'F', 'M',
                              'T', 1,   0,    0,    0, 0x14, 0,    0,    0,    0, 0x7D, 0, 0,    1,   0,
                              0,   0,   0x40, 0x1F, 0, 0,    0x80, 0x3E, 0,    0, 2,    0, 0x10, 0};
    EXPECT_TRUE(std::ranges::equal(ByteSpan(file).first(44), std::as_bytes(std::span(kHeader))));
    const std::vector<i16> theirs = peerDecodes(
        file, 44, 1501, "ffmpeg -v error -y -f g726 -code_size 4 -ar 8000 -i codes -f s16le peer.s16");
    EXPECT_LT(noiseToSignal(samplesOf(*wave), theirs), 1e-3);
    EXPECT_EQ(theirs.size(), 3002U) << "codes come in pairs";

    space.diagnostics.clear();
    wave = rewritten("Creative Labs Nomad", signal(4410, 2, 44100), "b.nvf");
    EXPECT_EQ(wave->frames, 800U);
    EXPECT_EQ(lossOf(space), "sampleRate");
}

TEST_F(Speech, PromptsAreDialogicAdpcm) {
    if (!has("sox")) GTEST_SKIP() << "sox decodes the codes";
    Wave* source = signal(3001, 1, 6000);
    source->SetName("\xC3\xA4 prompt");
    Wave* wave = rewritten("Annotated speech", source, "a.vap");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->sampleRate, 6000U);
    EXPECT_EQ(wave->name(), "\xC3\xA4 prompt");
    const Bytes file = test::readFile(folder / "a.vap");
    ASSERT_EQ(file.size(), 36 + 1501 + 9U);
    const std::vector<i16> theirs =
        peerDecodes(file, 36, 1501, "sox -t vox -r 6000 codes -t raw -e signed -b 16 -L peer.s16");
    EXPECT_LT(noiseToSignal(samplesOf(*wave), theirs), 1e-3);
}

TEST_F(Speech, EveryPromptIsAWave) {
    const Bytes file = prompts();
    ASSERT_TRUE(import(file, "a.vap")) << failure();
    std::vector<Wave*> waves;
    for (Wave& wave : store().all<Wave>()) waves.push_back(&wave);
    ASSERT_EQ(waves.size(), 2U);
    EXPECT_EQ(waves[0]->name(), "one");
    EXPECT_EQ(waves[0]->frames, 20U);
    EXPECT_EQ(waves[1]->frames, 36U);
    if (!has("sox")) return;
    const std::string sox = "sox -t vox -r 6000 codes -t raw -e signed -b 16 -L peer.s16";
    EXPECT_LT(noiseToSignal(samplesOf(*waves[0]), peerDecodes(file, 90, 10, sox)), 1e-4);
    EXPECT_LT(noiseToSignal(samplesOf(*waves[1]), peerDecodes(file, 72, 18, sox)), 1e-4);
}

TEST_F(Speech, CovoxSamples) {
    constexpr u8 kSamples[] = {0x80, 0xFF, 0x00, 0x81, 0xFF, 0xAA, 0xAA, 0xAA};
    struct Case {
        std::size_t bytes;
        u32 frames;
        u8 divisor;
        u32 rate;
    };
    for (const Case& c : {Case{4, 4, 149, 8008}, Case{8, 4, 108, 11048}, Case{7, 7, 0, 8000}}) {
        Wave* wave = import(covox(8, c.divisor, std::as_bytes(std::span(kSamples)).first(c.bytes)), "a.v8");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->frames, c.frames);
        EXPECT_EQ(wave->sampleRate, c.rate);
        const std::vector<i16> samples = samplesOf(*wave);
        EXPECT_EQ(samples[0] >> 8, 0);
        EXPECT_GT(samples[1], 32000);
        EXPECT_EQ(samples[2], -32768);
    }
    EXPECT_FALSE(import(covox(0x84, 149, std::as_bytes(std::span(kSamples))), "b.v8"));
    EXPECT_EQ(space.error.message, "Unsupported subformat");
}

TEST_F(Speech, DumpsAsPlainFiles) {
    constexpr i16 kSamples[] = {0, 1000, -1000, 32767, -32768, 5};
    ByteWriter data;
    for (const i16 sample : kSamples) data.u16le(static_cast<u16>(sample ^ 0x8000));
    struct Case {
        u32 frames;
        u8 loopType;
        std::size_t reserved;
        u16 loop;
    };
    for (const Case& c : {Case{6, 0, 1, kLooped}, Case{6, 1, 3, kLooped | kLoopBidirectional},
                          Case{0, 0x7F, 3, 0}, Case{99, 0x7F, 3, 0}}) {
        const Bytes file = sdx(16, c.frames, c.loopType, c.reserved, data.view());
        Wave* wave = import(file, "a.sdx");
        ASSERT_TRUE(wave) << failure();
        EXPECT_EQ(wave->name(),
                  "Gl\xC3\xB6"
                  "ckchen");
        EXPECT_EQ(wave->sampleRate, 31250U);
        EXPECT_EQ(wave->params.loopFlags, c.loop);
        if (c.loop != 0) {
            EXPECT_EQ(wave->params.loopStart, 2);
            EXPECT_EQ(wave->params.loopEnd, 5);
        }
        const std::vector<i16> samples = samplesOf(*wave);
        EXPECT_TRUE(std::ranges::equal(samples, kSamples)) << c.frames;
        if (c.reserved == 3 && has("ffmpeg")) {
            EXPECT_EQ(samples, peerDecodes(file, 0, file.size(),
                                           "ffmpeg -v error -y -f sdx -i codes -f s16le peer.s16"));
        }
    }
    constexpr u8 kBytes[] = {0x80, 0x00, 0xFF};
    Wave* wave = import(sdx(8, 3, 0x7F, 1, std::as_bytes(std::span(kBytes))), "b.sdx");
    ASSERT_TRUE(wave);
    EXPECT_EQ(wave->frames, 3U);
    EXPECT_EQ(wave->dataFormat & kCodeMask, kPcm8);
    EXPECT_FALSE(import(sdx(15, 3, 0x7F, 1, std::as_bytes(std::span(kBytes))), "c.sdx"));
}

TEST_F(Speech, CutAndLyingFiles) {
    const Bytes codes(20);
    ByteWriter nvf;
    nvf.text("NVF ").u32le(1).u32le(32).text("VFMT").u32le(1).u32le(20).u32le(32000);
    nvf.u16le(1).u16le(0).u32le(8000).u32le(16000).u16le(2).u16le(16).bytes(codes);
    const std::pair<const char*, Bytes> files[] = {{"a.nvf", nvf.take()},
                                                   {"a.vap", prompts()},
                                                   {"a.v8", covox(8, 149, codes)},
                                                   {"a.sdx", sdx(16, 10, 0, 1, codes)}};
    for (const auto& [name, whole] : files) {
        ASSERT_TRUE(import(whole, name)) << name << failure();
        for (std::size_t size = 0; size < whole.size(); ++size) {
            if (!import(ByteSpan(whole).first(size), name)) continue;
            for (Wave& wave : store().all<Wave>()) EXPECT_TRUE(wave.LoadData()) << name << size;
        }
        for (std::size_t at = 0; at + 4 <= whole.size(); ++at) {
            ByteWriter bytes;
            bytes.bytes(whole).patchU32le(at, 0xFFFFFFFF);
            if (!import(bytes.view(), name)) continue;
            for (Wave& wave : store().all<Wave>()) EXPECT_TRUE(wave.LoadData()) << name << at;
        }
    }
}

} // namespace
} // namespace kv
