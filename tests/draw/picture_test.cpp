// Pictures as a whole: where colours stand, what is refused, what no wave must break.
#include <algorithm>
#include <limits>

#include "base/run_context.h"
#include "draw/canvas.h"
#include "draw/draw_fixture.h"
#include "draw/theme.h"
#include "draw/wave_picture.h"

namespace kv {
namespace {

constexpr PictureKind kKinds[] = {PictureKind::Waveform, PictureKind::Spectrum, PictureKind::Spectrogram,
                                  PictureKind::Loop};

class Pictures : public test::DrawFixture {
protected:
    void SetUp() override {
        Image image{10, 10, std::vector<u32>(100)};
        if (!Canvas::create(image)) GTEST_SKIP() << runContext().error.message;
    }
    Image draw(const Wave& wave, PictureOptions options) {
        Image image;
        EXPECT_TRUE(drawPicture(wave, options, image)) << runContext().error.message;
        EXPECT_EQ(image.pixels.size(), std::size_t{options.width} * options.height);
        return image;
    }
    static u32 at(const Image& image, u32 x, u32 y) { return image.pixels[std::size_t{y} * image.width + x]; }
    /// Pixels of a colour in some columns.
    static std::size_t count(const Image& image, Colour colour, u32 left, u32 right) {
        std::size_t found = 0;
        for (u32 y = 0; y < image.height; ++y) {
            for (u32 x = left; x < right; ++x) found += at(image, x, y) == colour;
        }
        return found;
    }
};

TEST_F(Pictures, WaveformsStandWhereTheyShould) {
    // Noise at half of full scale in the second half of the right channel alone.
    Wave* wave = addFloats(400000, 2, [](u32 frame, u32 channel) {
        return channel == 1 && frame >= 200000 ? (frame * 7919 % 101 - 50.0) / 100 : 0;
    });
    wave->params.loopFlags = kLooped;
    wave->params.loopStart = 300000;
    wave->params.loopEnd = 400000;
    const Image image = draw(*wave, {});
    const Colour peaks = theme(false).peaks;
    EXPECT_LT(count(image, peaks, 60, 590), 1100U); // lines of silence at most
    EXPECT_GT(count(image, peaks, 610, 860), 250U * 40);
    constexpr u32 kMiddleOfLeft = 194, kMiddleOfRight = 446;
    EXPECT_NE(at(image, 700, kMiddleOfLeft - 20), peaks);
    EXPECT_EQ(at(image, 700, kMiddleOfRight), theme(false).body);
    EXPECT_EQ(count(image, theme(false).loop, 60, 860), 0U);
    EXPECT_GT(count(image, theme(false).loop, 868, 873), 400U); // the start's line
    const Image part = draw(*wave, {.span = {200000, 300000}});
    EXPECT_GT(count(part, peaks, 60, 590), 530U * 40);
    EXPECT_EQ(at(draw(*wave, {.dark = true}), 2, 2), theme(true).background);
}

TEST_F(Pictures, SpectrogramsAndSpectraShowTones) {
    Wave* wave = addFloats(100000, 1, [](u32 frame, u32) { return sineAt(frame, 5000); });
    const Image image = draw(*wave, {.kind = PictureKind::Spectrogram});
    u32 brightest = 0, row = 0;
    for (u32 y = 75; y < 565; ++y) {
        const u32 light = (at(image, 500, y) >> 8 & 0xFF);
        if (light > brightest) {
            brightest = light;
            row = y;
        }
    }
    EXPECT_NEAR(row, 268, 4); // 5 kHz on the mel scale
    EXPECT_GT(brightest, 0xE0U);
    const Image spectrum = draw(*wave, {.kind = PictureKind::Spectrum});
    EXPECT_GT(count(spectrum, theme(false).seam, 930, 945), 10U); // the dot on the peak
    EXPECT_EQ(count(spectrum, theme(false).seam, 60, 930), 0U);
}

TEST_F(Pictures, LoopSeams) {
    // A loop of whole periods: what is played lies on what is beyond.
    const auto tone = [](u32 frame, u32) { return 0.5 * sineAt(frame, 441); };
    Wave* wave = addFloats(10000, 1, tone);
    wave->params.loopFlags = kLooped;
    wave->params.loopStart = 3000;
    wave->params.loopEnd = 4000;
    const auto apart = [&] {
        return count(draw(*wave, {.kind = PictureKind::Loop}), theme(false).second, 60, 1170);
    };
    const std::size_t together = apart();
    wave->params.loopEnd = 4050;
    EXPECT_GT(apart(), together * 3 / 2);
    wave->params.loopEnd = 3003; // shorter than what is shown
    draw(*wave, {.kind = PictureKind::Loop});
    wave->params.loopStart = 0; // to the ends of the wave
    wave->params.loopEnd = 10000;
    EXPECT_LT(apart(), 100U); // only in the legend
}

TEST_F(Pictures, RefuseWhatCannotBeDrawn) {
    Wave* wave = addFloats(1000, 1, [](u32, u32) { return 0.1; });
    const auto refused = [&](PictureOptions options) {
        Image image;
        EXPECT_FALSE(drawPicture(*wave, options, image));
        EXPECT_EQ(runContext().error.context, "draw");
        return runContext().error.message;
    };
    EXPECT_NE(refused({.width = 16385}).find("16385x600"), std::string::npos);
    refused({.height = 0});
    refused({.width = 159});
    EXPECT_EQ(refused({.span = {1000, 2000}}),
              "\"tone\" has 1000 frames, but none from 1000 on that could be shown");
    refused({.span = {5, 5}});
    EXPECT_EQ(refused({.kind = PictureKind::Loop}), "\"tone\" has no loop");
    for (const auto& [start, end, flags] : {std::tuple{-1.0, 5.0, 1},
                                            {5.0, 1001.0, 1},
                                            {9.0, 9.0, 1},
                                            {9.0, 5.0, 1},
                                            {std::nan(""), 5.0, 1},
                                            {5.0, std::nan(""), 1},
                                            {5.0, 50.0, 3}}) {
        wave->params.loopStart = start;
        wave->params.loopEnd = end;
        wave->params.loopFlags = static_cast<u16>(flags);
        EXPECT_NE(refused({.kind = PictureKind::Loop}).find("The loop of"), std::string::npos);
        draw(*wave, {}); // the marker can be left out
    }
    wave->sampleRate = 0;
    refused({});
    wave->sampleRate = 1;
    wave->frames = 0;
    EXPECT_EQ(refused({}), "\"tone\" is empty");
    wave->frames = 1001; // the samples aren't there
    Image image;
    EXPECT_FALSE(drawPicture(*wave, {}, image));
}

TEST_F(Pictures, DrawOddWaves) {
    const f64 odd[] = {std::nan(""), std::numeric_limits<f64>::infinity(), -1e30, 0.5, 0};
    for (const u32 frames : {1U, 2U, 5U, 50U, 5000U}) {
        for (const u32 channels : {1U, 2U}) {
            for (const u32 rate : {1U, 44100U, 0xFFFFFFFFU}) {
                Wave* wave = addFloats(
                    frames, channels, [&](u32 frame, u32) { return odd[frame % 5]; }, rate);
                wave->SetName("\xFF\n\x01 na\xC3");
                wave->params.loopFlags = kLooped;
                wave->params.loopEnd = frames;
                for (u32 i = 0; i < 3000; ++i)
                    wave->cuePoints.push_back({i * 1500000, i * 3000000, "\xFE", ""});
                for (const PictureKind kind : kKinds)
                    draw(*wave, {.kind = kind, .width = 160, .height = 120});
            }
        }
    }
}

TEST_F(Pictures, BecomePngFiles) {
    Wave* wave = addFloats(1000, 1, [](u32, u32) { return 0.1; });
    Image image = draw(*wave, {.width = 300, .height = 200});
    MemorySink sink;
    ASSERT_TRUE(writePng(image, sink));
    const Bytes bytes = sink.take();
    ASSERT_GT(bytes.size(), 200U);
    EXPECT_EQ(textOf(bytes).substr(1, 3), "PNG");
    EXPECT_EQ(static_cast<u8>(bytes[18]) * 256 + static_cast<u8>(bytes[19]), 300);
    EXPECT_EQ(static_cast<u8>(bytes[22]) * 256 + static_cast<u8>(bytes[23]), 200);
    Image empty;
    EXPECT_FALSE(writePng(empty, sink));
}

} // namespace
} // namespace kv
