#include "formats/codecs/amr_frames.h"
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

/// How alike two sounds are when the second is `delay` frames late: 1 the same, 0 nothing.
f64 correlation(std::span<const f32> sound, std::span<const f32> copy, std::size_t delay) {
    f64 both = 0, one = 1e-12, other = 1e-12;
    for (std::size_t i = 0; i < sound.size() && i + delay < copy.size(); ++i) {
        const f64 a = static_cast<f64>(sound[i]), b = static_cast<f64>(copy[i + delay]);
        both += a * b;
        one += a * a;
        other += b * b;
    }
    return both / std::sqrt(one * other);
}

class SpeechWrite : public test::MediaTest {
protected:
    static constexpr u32 kFrameSamples = 160, kDelay = 40; ///< 20 and 5 ms
    /// A tone that rises, as a.wav of 16 bits.
    bool makeSweep(u32 frames, u32 rate, u32 channels) const {
        return ffmpeg(
            fmt::format("-f lavfi -i \"aevalsrc=0.4*sin((2000+1500*t)*t):s={}\" -af atrim=end_sample={} "
                        "-ac {} -c:a pcm_s16le a.wav",
                        rate, frames, channels));
    }
    bool exportFirst(std::string_view description, const char* name, f32 kbps) {
        return Export(rowOf(description), folder / name, store().First<Wave>(), kAnyFormat, kbps, false);
    }
    static constexpr std::string_view kStorage = "MIME AMR file storage", kIf2 = "3GPP AMR if-format 2'";
};

TEST_F(SpeechWrite, EveryRateInBothForms) {
    constexpr u32 kLength = 12000;                                     // 75 frames
    constexpr std::size_t kBytes[] = {13, 14, 16, 18, 20, 21, 27, 32}; // RFC 4867, with the byte of the type
    ASSERT_TRUE(makeSweep(kLength, 8000, 1));
    for (std::size_t mode = 0; mode < std::size(kBytes); ++mode) {
        std::string label;
        const f32 kbps = formatTable().row(rowOf(kStorage))->optionsFn(static_cast<int>(mode), 0, &label);
        SCOPED_TRACE(label);
        ASSERT_TRUE(imports("a.wav"));
        const std::vector<f32> source = samplesOf(*store().First<Wave>());
        ASSERT_TRUE(exportFirst(kStorage, "a.amr", kbps) && exportFirst(kIf2, "a.cod", kbps)) << failure();
        const Bytes file = test::readFile(folder / "a.amr"), frames = test::readFile(folder / "a.cod");
        EXPECT_EQ(file.size(), 6 + 75 * kBytes[mode]);
        EXPECT_EQ(amrFileOfIf2(frames), file);

        const std::vector<f32> theirs = decoded("a.amr");
        EXPECT_EQ(theirs.size(), 75 * kFrameSamples);
        EXPECT_GT(correlation(source, theirs, kDelay), 0.9);
        EXPECT_LT(correlation(source, theirs, kDelay + 4), correlation(source, theirs, kDelay));
        EXPECT_LT(correlation(source, theirs, kDelay - 4), correlation(source, theirs, kDelay));
        for (const char* name : {"a.cod", "a.amr"}) {
            ASSERT_TRUE(imports(name)) << failure();
            EXPECT_LE(test::difference(samplesOf(*store().First<Wave>()), theirs), test::kStep16) << name;
        }
        // A rate of its own, with what stands between the frames, stays what it was, as does the length.
        ASSERT_TRUE(exportFirst(kStorage, "b.amr", 0)) << failure();
        EXPECT_EQ(test::readFile(folder / "b.amr").size(), 6 + 75 * kBytes[mode]);

        if (!runs(fmt::format("sox a.wav -C {} -t amr-nb c.amr", mode))) continue;
        EXPECT_EQ(test::readFile(folder / "c.amr"), file);
    }
    EXPECT_EQ(formatTable().row(rowOf(kStorage))->optionsFn(std::size(kBytes), 0, nullptr), 0);
}

TEST_F(SpeechWrite, OtherRatesAndStereo) {
    struct Case {
        u32 length, rate, channels, frames;
    };
    constexpr Case kCases[] = {{120, 8000, 1, 1},   {121, 8000, 1, 2},     {1, 8000, 1, 1},
                               {160, 8000, 1, 1},   {44100, 44100, 2, 50}, {5000, 11025, 1, 23},
                               {9001, 4000, 2, 113}};
    for (const Case& c : kCases) {
        SCOPED_TRACE(fmt::format("{} at {} Hz", c.length, c.rate));
        ASSERT_TRUE(makeSweep(c.length, c.rate, c.channels));
        ASSERT_TRUE(imports("a.wav"));
        ASSERT_TRUE(exportFirst(kStorage, "a.amr", 12.2F)) << failure();
        EXPECT_EQ(test::readFile(folder / "a.amr").size(), 6 + 32 * c.frames);
        const std::vector<f32> theirs = decoded("a.amr");
        EXPECT_EQ(theirs.size(), c.frames * kFrameSamples);
        if (c.length < 1000) continue;
        ASSERT_TRUE(ffmpeg("-i a.wav -ar 8000 -ac 1 -c:a pcm_s16le b.wav"));
        EXPECT_GT(correlation(decoded("b.wav"), theirs, kDelay), 0.9);
    }
}

TEST(AmrIf2, TakesOnlyWholeFramesOfAKnownType) {
    Bytes frame(32);
    frame[0] = std::byte{7 << 3 | 4};
    EXPECT_EQ(if2OfAmrFrame(frame).size(), 31U);
    EXPECT_TRUE(if2OfAmrFrame(ByteSpan(frame).first(31)).empty());
    EXPECT_TRUE(if2OfAmrFrame({}).empty());
    frame[0] = std::byte{9 << 3 | 4};
    EXPECT_TRUE(if2OfAmrFrame(frame).empty());
    frame[0] = std::byte{15 << 3 | 4};
    EXPECT_EQ(if2OfAmrFrame(frame), Bytes{std::byte{15}});
}

} // namespace
} // namespace kv
