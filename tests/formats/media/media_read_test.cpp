#include "formats/codecs/amr_frames.h"
#include "media_test.h"

namespace kv {
namespace {

class MediaRead : public test::MediaTest {};

TEST_F(MediaRead, LengthsAndSamplesOfEveryContainer) {
    struct Case {
        const char* file;
        const char* options;
        u32 frames; ///< 0: as many as the other program decodes
        u32 code;
    };
    // Containers without a record of an encoder's padding give whole packets.
    constexpr Case kCases[] = {
        {"a.m4a", "-c:a aac", kFrames, kCompressed},
        {"b.m4a", "-c:a alac", kFrames, kPcm16},
        {"c.m4a", "-c:a alac -sample_fmt s32p", kFrames, kPcm24},
        {"a.mp4", "-c:a aac -movflags frag_keyframe+empty_moov", 0, kCompressed},
        {"b.mp4", "-c:a libmp3lame", kFrames, kCompressed},
        {"a.3gp", "-ar 44100 -c:a aac", kFrames, kCompressed},
        {"a.3g2", "-ar 44100 -c:a aac", kFrames, kCompressed},
        {"a.mov", "-c:a pcm_s16le", kFrames, kPcm16},
        {"b.mov", "-c:a pcm_s24be", kFrames, kPcm24},
        {"c.mov", "-c:a pcm_f32le", kFrames, kFloat32},
        {"d.mov", "-c:a pcm_u8", kFrames, kPcm8},
        {"e.mov", "-c:a aac", kFrames, kCompressed},
        {"f.mov", "-c:a pcm_alaw", kFrames, kALaw},
        {"a.mka", "-c:a flac", kFrames, kPcm16},
        {"b.mka", "-c:a pcm_s24le", kFrames, kPcm24},
        {"c.mka", "-c:a libvorbis", 0, kCompressed},
        {"d.mka", "-c:a libopus -ar 48000", (kFrames * 480 + 440) / 441, kCompressed},
        {"a.mkv", "-c:a aac", 0, kCompressed},
        {"b.mkv", "-c:a ac3", 0, kCompressed},
        {"a.avi", "-c:a pcm_s16le", kFrames, kPcm16},
        {"b.avi", "-c:a libmp3lame", 0, kCompressed},
        {"c.avi", "-c:a adpcm_ima_wav", 0, kCompressed},
        {"a.mpg", "-c:a mp2", 0, kCompressed},
        {"b.mpeg", "-c:a ac3", 0, kCompressed},
        {"a.wma", "-c:a wmav2", 0, kCompressed},
        {"a.asf", "-c:a wmav1", 0, kCompressed},
        {"a.caf", "-c:a alac", kFrames, kPcm16}, // codings that readers of their own leave to libav
        {"b.caf", "-c:a libopus -ar 48000", 0, kCompressed},
        {"a.ogg", "-c:a flac", kFrames, kPcm16},
        {"a.oga", "-c:a flac -sample_fmt s32", kFrames, kPcm24},
    };
    ASSERT_TRUE(makeTones());
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.file);
        if (!ffmpeg(fmt::format("-i a.wav {} {}", c.options, c.file))) {
            ADD_FAILURE() << "ffmpeg can't write it";
            continue;
        }
        const std::vector<f32> expected = decoded(c.file);
        ASSERT_TRUE(imports(c.file)) << failure();
        Wave* wave = store().First<Wave>();
        EXPECT_EQ(store().count(kWaveClass), 1U);
        EXPECT_EQ(wave->channels, 2U);
        EXPECT_EQ(wave->frames, c.frames != 0 ? c.frames : expected.size() / 2);
        EXPECT_EQ(wave->dataFormat, c.code);
        EXPECT_EQ(wave->preferredFormat, c.code == kCompressed ? kPcm16 : c.code);
        EXPECT_FALSE(wave->resident());
        space.diagnostics.clear();
        const std::vector<f32> samples = samplesOf(*wave);
        ASSERT_EQ(samples.size(), 2U * wave->frames);
        EXPECT_LE(samples.size(), expected.size());
        // Plain bytes are spread over the whole range here, and not there.
        EXPECT_LE(test::difference(samples, expected), c.code == kPcm8 ? 1.0F / 128 : test::kStep16);
        EXPECT_TRUE(space.diagnostics.entries().empty()) << "nothing was missing";
    }
}

TEST_F(MediaRead, EveryTrackIsAWave) {
    ASSERT_TRUE(makeTones());
    ASSERT_TRUE(
        ffmpeg("-i a.wav -f lavfi -i testsrc=s=64x48:d=1 -map 0:a -map 1:v -map 0:a "
               "-c:v mpeg4 -c:a:0 flac -c:a:1 pcm_s16le -ac:a:1 1 -ar:a:1 8000 "
               "-metadata:s:a:0 title=Schl\xC3\xA4ge two.mkv"));
    ASSERT_TRUE(imports("two.mkv")) << failure();
    ASSERT_EQ(store().count(kWaveClass), 2U);
    std::vector<Wave*> waves;
    for (Wave& wave : store().all<Wave>()) waves.push_back(&wave);
    EXPECT_EQ(waves[0]->name(), "Schl\xC3\xA4ge");
    EXPECT_EQ(waves[0]->frames, kFrames);
    EXPECT_EQ(waves[1]->name(), "Track 2");
    EXPECT_EQ(waves[1]->sampleRate, 8000U);
    EXPECT_EQ(waves[1]->channels, 1U);
    EXPECT_LE(test::difference(samplesOf(*waves[1]), decoded("two.mkv", "-map 0:a:1")), test::kStep16);
    EXPECT_LE(test::difference(samplesOf(*waves[0]), decoded("two.mkv", "-map 0:a:0")), test::kStep16);
}

TEST_F(MediaRead, OfManyChannelsTheFirstTwo) {
    ASSERT_TRUE(makeTones());
    ASSERT_TRUE(ffmpeg("-i a.wav -af \"pan=5.1|c0=0.5*c0|c1=c1|c2=0.1*c0|c4=c0\" -c:a pcm_s16le six.mov"));
    ASSERT_TRUE(imports("six.mov")) << failure();
    Wave* wave = store().First<Wave>();
    EXPECT_EQ(wave->channels, 2U);
    ASSERT_EQ(space.diagnostics.entries().size(), 1U);
    EXPECT_EQ(space.diagnostics.entries()[0].text, "6 channels: only the first two are kept");
    EXPECT_LE(test::difference(samplesOf(*wave), decoded("six.mov", "-af \"pan=stereo|c0=c0|c1=c1\"")),
              test::kStep16);
}

TEST_F(MediaRead, TextsAndChapters) {
    ASSERT_TRUE(makeTones(88200));
    test::writeFile(folder / "meta.txt",
                    bytesOf(";FFMETADATA1\ntitle=Gr\xC3\xBC\xC3\x9F"
                            "e\nartist=A\nalbum=B\ncomment=C\n"
                            "copyright=D\nencoded_by=E\n"
                            "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=500\ntitle=one\n"
                            "[CHAPTER]\nTIMEBASE=1/1000\nSTART=500\nEND=1000\ntitle=two\n"
                            "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1500\nEND=2000\ntitle=three\n"));
    struct Case {
        const char* file;
        const char* coding;
        bool chapters, engineer;
    };
    constexpr Case kCases[] = {{"t.m4a", "aac", true, false},
                               {"t.mp4", "aac", true, false},
                               {"t.mka", "flac", true, true},
                               {"t.wma", "wmav2", true, true}};
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.file);
        ASSERT_TRUE(
            ffmpeg(fmt::format("-i a.wav -i meta.txt -map 0 -map_metadata 1 -c:a {} {}", c.coding, c.file)));
        ASSERT_TRUE(imports(c.file)) << failure();
        const Wave* wave = store().First<Wave>();
        EXPECT_EQ(wave->name(),
                  "Gr\xC3\xBC\xC3\x9F"
                  "e");
        EXPECT_EQ(wave->artist, "A");
        EXPECT_EQ(wave->album, "B");
        EXPECT_EQ(wave->comments, "C");
        EXPECT_EQ(wave->copyright, "D");
        EXPECT_EQ(wave->engineer, c.engineer ? "E" : "");
        ASSERT_EQ(wave->cuePoints.size(), 3U);
        EXPECT_EQ(wave->cuePoints[1].position, 22050U);
        EXPECT_EQ(wave->cuePoints[2].position, 66150U);
        EXPECT_EQ(wave->cuePoints[2].label, "three");
    }
}

TEST_F(MediaRead, SpeechWithAndWithoutAHeader) {
    ASSERT_TRUE(makeTones(16000, 8000, 1));
    if (!runs("sox a.wav -C 4 a.amr-nb && mv a.amr-nb a.amr")) GTEST_SKIP() << "sox writes no AMR here";
    ASSERT_TRUE(imports("a.amr")) << failure();
    EXPECT_EQ(store().First<Wave>()->frames, 16000U);
    const std::vector<f32> samples = samplesOf(*store().First<Wave>());
    EXPECT_LE(test::difference(samples, decoded("a.amr")), test::kStep16);

    // The same frames, their bits the other way round behind four bits of type.
    const Bytes file = test::readFile(folder / "a.amr");
    constexpr std::size_t kFileBytes = 20, kIf2Bytes = 19, kBits = 148; // of a frame at 7.4 kbit/s
    Bytes frames;
    for (std::size_t at = 6; at + kFileBytes <= file.size(); at += kFileBytes) {
        const std::size_t to = frames.size();
        frames.resize(to + kIf2Bytes);
        frames[to] = std::byte{4};
        for (std::size_t bit = 0; bit < kBits; ++bit) {
            if ((file[at + 1 + bit / 8] & std::byte(0x80 >> bit % 8)) != std::byte{0})
                frames[to + (bit + 4) / 8] |= std::byte(1 << (bit + 4) % 8);
        }
    }
    EXPECT_EQ(amrFileOfIf2(frames), file);
    test::writeFile(folder / "a.cod", frames);
    ASSERT_TRUE(imports("a.cod")) << failure();
    EXPECT_EQ(samplesOf(*store().First<Wave>()), samples);
}

TEST(AmrIf2, StopsAtWhatIsNoFrame) {
    EXPECT_TRUE(amrFileOfIf2({}).empty());
    const u8 reserved[] = {12, 0, 0};
    EXPECT_TRUE(amrFileOfIf2(std::as_bytes(std::span(reserved))).empty());
    const u8 cut[] = {15, 7, 1, 2, 3}; // no data, then less than a frame
    EXPECT_EQ(amrFileOfIf2(std::as_bytes(std::span(cut))).size(), 7U);
}

TEST_F(MediaRead, MonkeysAudio) {
    // No program at hand writes it; a frame of silence is a mark alone.
    constexpr u32 kBlocks = 73728, kLast = 1000;
    ByteWriter out;
    out.text("MAC ").u16le(3990).u16le(0).u32le(52).u32le(24).u32le(8).u32le(0).u32le(16).u32le(0).u32le(0);
    out.fill(16);
    out.u16le(2000).u16le(0x20).u32le(kBlocks).u32le(kLast).u32le(2).u16le(16).u16le(2).u32le(44100);
    const auto data = static_cast<u32>(out.size() + 8);
    out.u32le(data).u32le(data + 8);
    for (int frame = 0; frame < 2; ++frame) out.u32le(0x80000000).u32le(3); // flags follow; both sides silent
    ASSERT_TRUE(import(out.view(), "a.ape")) << failure();
    Wave* wave = store().First<Wave>();
    EXPECT_EQ(wave->frames, kBlocks + kLast);
    EXPECT_EQ(wave->preferredFormat, kPcm16);
    EXPECT_EQ(samplesOf(*wave), std::vector<f32>(2 * (kBlocks + kLast)));
}

TEST(MediaLibrary, NamesWhatToInstall) {
    RunContext context;
    const RunContextScope scope(context);
    const MediaLibrary library({"no-such-module.so"});
    EXPECT_EQ(library.module("m4a_Imp"), nullptr);
    EXPECT_EQ(context.error.context, "m4a_Imp");
    EXPECT_EQ(context.error.message,
              "The library no-such-module.so could not be opened. Please install the package kelvane-libav, "
              "which also needs libavformat59 and libavcodec59.");
}

} // namespace
} // namespace kv
