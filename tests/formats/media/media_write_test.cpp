#include "formats/framework/format_table.h"
#include "media_test.h"

namespace kv {
namespace {

class MediaWrite : public test::MediaTest {};

struct Row {
    const char* description;
    const char* file;
    u32 code;
    u32 delay; ///< frames ahead of the samples that others take for samples
};
constexpr Row kRows[] = {
    {"iTunes MPEG-4 audio", "a.m4a", kCompressed, 0},
    {"iTunes MPEG-4 audio", "b.m4a", kPcm16, 0},
    {"iTunes MPEG-4 audio", "c.m4a", kPcm24, 0},
    {"iPhone ring-tone", "a.m4r", kCompressed, 0},
    {"MPEG-4 base media", "a.mp4", kCompressed, 0},
    {"Apple QuickTime movie", "a.mov", kCompressed, 0},
    {"Apple QuickTime movie", "b.mov", kPcm16, 0},
    {"Apple QuickTime movie", "c.mov", kPcm24, 0},
    {"3GPP", "a.3gp", kCompressed, 0},
    {"3GPP project 2", "a.3g2", kCompressed, 0},
    {"MPEG 2 AAC - Low Complexity", "a.aac", kCompressed, 1024},
    {"MPEG 2 AAC - Main Profile", "b.aac", kCompressed, 1024},
    {"MPEG 4 AAC - Low Complexity", "c.aac", kCompressed, 1024},
    {"MPEG 4 AAC - Main Profile", "d.aac", kCompressed, 1024},
    {"Windows Media audio 9 CBR", "a.wma", kCompressed, 0},
};

f64 signalToNoise(std::span<const f32> signal, std::span<const f32> copy) {
    f64 power = 0, noise = 1e-12;
    for (std::size_t i = 0; i < signal.size(); ++i) {
        power += static_cast<f64>(signal[i]) * static_cast<f64>(signal[i]);
        const f64 error = static_cast<f64>(signal[i]) - static_cast<f64>(copy[i]);
        noise += error * error;
    }
    return 10 * std::log10(power / noise);
}

TEST_F(MediaWrite, OtherProgramsAndWeReadIt) {
    for (const u32 channels : {1U, 2U}) {
        ASSERT_TRUE(makeTones(kFrames, 44100, channels));
        for (const Row& row : kRows) {
            SCOPED_TRACE(fmt::format("{} {}", row.file, channels));
            ASSERT_TRUE(imports("a.wav"));
            const std::vector<f32> source = samplesOf(*store().First<Wave>());
            ASSERT_TRUE(Export(rowOf(row.description), folder / row.file, store().First<Wave>(),
                               row.code | kMonoBit | kStereoBit, 160, false))
                << failure();
            const std::vector<f32> theirs = decoded(row.file);
            ASSERT_TRUE(imports(row.file)) << failure();
            Wave* back = store().First<Wave>();
            EXPECT_EQ(back->channels, channels);
            EXPECT_EQ(back->dataFormat, row.code);
            EXPECT_TRUE(back->frames == kFrames || row.file[2] == 'a' || row.file[2] == 'w') << back->frames;
            const std::vector<f32> ours = samplesOf(*back);
            for (const std::vector<f32>* samples : {&theirs, &ours}) {
                const u32 delay = samples == &theirs ? row.delay : 0;
                ASSERT_GE(samples->size(), (kFrames + delay) * channels);
                const auto content = std::span(*samples).subspan(delay * channels, source.size());
                if (row.code == kCompressed) {
                    EXPECT_GT(signalToNoise(source, content), 20);
                } else {
                    EXPECT_EQ(test::difference(source, content), 0);
                }
            }
        }
    }
}

TEST_F(MediaWrite, BitRatesSuitEverySampleRate) {
    for (const u32 rate : {4000U, 8000U, 11025U, 22050U, 48000U, 96000U}) {
        for (const u32 channels : {1U, 2U}) {
            ASSERT_TRUE(makeTones(rate / 2, rate, channels));
            for (const Row& row : kRows) {
                if (row.code != kCompressed) continue;
                SCOPED_TRACE(fmt::format("{} {} {}", row.file, rate, channels));
                ASSERT_TRUE(imports("a.wav"));
                EXPECT_TRUE(Export(rowOf(row.description), folder / row.file, store().First<Wave>(),
                                   row.code | kMonoBit | kStereoBit, 0, false))
                    << failure();
            }
        }
    }
}

TEST_F(MediaWrite, RawAacSaysWhatItIs) {
    struct Case {
        const char* description;
        int version, profile; ///< of the frame header (ISO/IEC 13818-7): 1 MPEG 2; 0 main, 1 low complexity
    };
    ASSERT_TRUE(makeTones(5000));
    for (const Case& c :
         {Case{"MPEG 2 AAC - Low Complexity", 1, 1}, Case{"MPEG 2 AAC - Main Profile", 1, 0},
          Case{"MPEG 4 AAC - Low Complexity", 0, 1}, Case{"MPEG 4 AAC - Main Profile", 0, 0}}) {
        SCOPED_TRACE(c.description);
        ASSERT_TRUE(imports("a.wav"));
        ASSERT_TRUE(
            Export(rowOf(c.description), folder / "a.aac", store().First<Wave>(), kAnyFormat, 0, false));
        const Bytes bytes = test::readFile(folder / "a.aac");
        ASSERT_EQ(bytes.at(0), std::byte{0xFF});
        EXPECT_EQ(std::to_integer<int>(bytes[1]) >> 3 & 1, c.version);
        EXPECT_EQ(std::to_integer<int>(bytes[2]) >> 6, c.profile);
    }
}

TEST_F(MediaWrite, WhatWasCodedWithLossesIsSavedAsPlainSamples) {
    ASSERT_TRUE(makeTones());
    ASSERT_TRUE(ffmpeg("-i a.wav -c:a aac coded.m4a"));
    ASSERT_TRUE(imports("coded.m4a"));
    exportAs("plain.wav");
    const std::vector<f32> expected = decoded("coded.m4a"), samples = decoded("plain.wav");
    EXPECT_EQ(samples.size(), 2 * kFrames);
    EXPECT_LE(test::difference(samples, expected), test::kStep16);
}

TEST_F(MediaWrite, TwentyFourBits) {
    ASSERT_TRUE(ffmpeg("-f lavfi -i \"aevalsrc=0.9*sin(t*2000):s=44100\" -t 0.5 -c:a pcm_s24le a.wav"));
    for (const char* file : {"a.m4a", "a.mov"}) {
        ASSERT_TRUE(imports("a.wav"));
        exportAs(file); // as it was
        EXPECT_EQ(decoded(file), decoded("a.wav")) << file;
        ASSERT_TRUE(imports(file)) << failure();
        EXPECT_EQ(store().First<Wave>()->bits, 24U) << file;
    }
}

TEST_F(MediaWrite, TextsAndPlaces) {
    ASSERT_TRUE(makeTones());
    for (const char* file : {"a.m4a", "a.mp4", "a.mov", "a.m4r", "a.3gp", "a.3g2", "a.wma"}) {
        SCOPED_TRACE(file);
        ASSERT_TRUE(imports("a.wav"));
        Wave* wave = store().First<Wave>();
        wave->SetName("J\xC3\xBCrgen");
        wave->artist = "an artist";
        wave->album = "an album";
        wave->copyright = "nobody";
        wave->comments = "a comment";
        wave->cuePoints = {{30000, 0, "third", ""}, {0, 0, "first", ""}, {10000, 5000, "second", ""}};
        const bool wma = std::string_view(file) == "a.wma";
        if (wma) {
            ASSERT_TRUE(
                Export(rowOf("Windows Media audio 9 CBR"), folder / file, wave, kAnyFormat, 0, false));
        } else {
            exportAs(file, kCompressed | kStereoBit, wave);
        }
        ASSERT_TRUE(imports(file)) << failure();
        wave = store().First<Wave>();
        EXPECT_EQ(wave->name(), "J\xC3\xBCrgen");
        EXPECT_EQ(wave->artist, "an artist");
        EXPECT_EQ(wave->album, "an album");
        EXPECT_EQ(wave->copyright, "nobody");
        EXPECT_EQ(wave->comments, "a comment");
        if (wma) continue;
        ASSERT_EQ(wave->cuePoints.size(), 3U);
        const char* labels[] = {"first", "second", "third"};
        const u32 places[] = {0, 10000, 30000};
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(wave->cuePoints[i].label, labels[i]);
            EXPECT_NEAR(wave->cuePoints[i].position, places[i], 1);
        }
    }
}

TEST_F(MediaWrite, RatesAndBitRates) {
    // What AAC hasn't goes to the next rate above.
    struct Case {
        u32 from, to;
    };
    for (const Case& c : {Case{10000, 11025}, Case{44100, 44100}, Case{192000, 96000}}) {
        ASSERT_TRUE(makeTones(10000, c.from));
        ASSERT_TRUE(imports("a.wav"));
        exportAs("a.mp4");
        ASSERT_TRUE(imports("a.mp4")) << failure();
        EXPECT_EQ(store().First<Wave>()->sampleRate, c.to);
        EXPECT_NEAR(store().First<Wave>()->frames, 10000.0 * c.to / c.from, 1);
    }
    const int row = rowOf("MPEG-4 base media");
    f32 rate = 0;
    std::string label;
    ASSERT_TRUE(formatTable().FormatOption(row, 0, rate, &label));
    EXPECT_EQ(label, "32 kbit/s");
    ASSERT_TRUE(ffmpeg("-f lavfi -i anoisesrc=d=3:r=44100 -ac 2 -c:a pcm_s16le a.wav"));
    for (const f32 asked : {64.0F, 192.0F}) {
        ASSERT_TRUE(imports("a.wav"));
        ASSERT_TRUE(Export(row, folder / "a.mp4", store().First<Wave>(), kAnyFormat, asked, false));
        ASSERT_TRUE(imports("a.mp4"));
        EXPECT_NEAR(store().First<Wave>()->compressedKbps, asked, asked / 5);
    }
}

TEST_F(MediaWrite, SaysWhatItCanNot) {
    ASSERT_TRUE(makeTones(5000));
    ASSERT_TRUE(imports("a.wav"));
    Wave* wave = store().First<Wave>();
    wave->engineer = "somebody";
    wave->cuePoints = {{100, 0, "x", ""}};
    exportAs("a.mp4");
    ASSERT_EQ(space.diagnostics.entries().size(), 1U);
    EXPECT_EQ(space.diagnostics.entries()[0].field, "engineer");
    ASSERT_TRUE(runs("test -e /dev/full")) << "no such device";
    EXPECT_FALSE(Export(rowOf("MPEG-4 base media"), "/dev/full", wave, kAnyFormat, 0, false));
    EXPECT_EQ(failure(), "mp4_Exp: Writing to file failed");
}

} // namespace
} // namespace kv
