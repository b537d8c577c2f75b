// What the pictures show: columns of a waveform, spectra, spectrograms.
#include <limits>
#include <random>

#include "draw/draw_fixture.h"
#include "draw/spectra.h"
#include "draw/wave_columns.h"

namespace kv {
namespace {

class DrawMeasures : public test::DrawFixture {};

TEST_F(DrawMeasures, ColumnsCoverEachFrameOnce) {
    std::mt19937 random(1);
    std::uniform_real_distribution<f64> level(-1, 1);
    Wave* wave = addFloats(
        70001, 2, [&](u32, u32) { return level(random); }, 100);
    struct Case {
        FrameSpan span;
        u32 columns;
    };
    for (const Case& c : {Case{{0, 70001}, 7}, Case{{16000, 70000}, 1000}, Case{{5, 6}, 1}}) {
        const auto start = [&](u64 n) {
            return c.span.from + static_cast<u32>(n * c.span.count() / c.columns);
        };
        WaveColumns measured;
        ASSERT_TRUE(measureColumns(*wave, c.span, c.columns, measured));
        ASSERT_EQ(measured.channels.size(), 2U);
        for (u32 channel = 0; channel < 2; ++channel) {
            ASSERT_EQ(measured.channels[channel].size(), c.columns);
            for (u32 i = 0; i < c.columns; ++i) {
                f32 least = 2, most = -2;
                f64 squares = 0;
                for (u32 frame = start(i); frame < start(i + 1); ++frame) {
                    const f32 x = wave->samplesFloat.data()[2 * frame + channel];
                    least = std::min(least, x);
                    most = std::max(most, x);
                    squares += static_cast<f64>(x * x);
                }
                EXPECT_EQ(measured.channels[channel][i].least, least);
                EXPECT_EQ(measured.channels[channel][i].most, most);
                EXPECT_NEAR(measured.channels[channel][i].rms, std::sqrt(squares / (start(i + 1) - start(i))),
                            1e-5);
            }
        }
    }
}

TEST_F(DrawMeasures, PiecesOverlap) {
    Wave* wave = addFloats(40000, 2, [](u32 frame, u32 channel) { return frame * 2 + channel; });
    WavePiece pieces[] = {{{16380, 16390}}, {{39990, 40000}}, {{16385, 16386}}};
    ASSERT_TRUE(readPieces(*wave, pieces));
    for (const WavePiece& piece : pieces) {
        for (u32 i = 0; i < piece.span.count(); ++i) {
            EXPECT_EQ(piece.channels[0][i], static_cast<f32>((piece.span.from + i) * 2));
            EXPECT_EQ(piece.channels[1][i], static_cast<f32>((piece.span.from + i) * 2 + 1));
        }
    }
}

TEST_F(DrawMeasures, StreamsWhatIsFinite) {
    Wave* wave = addFloats(4, 1, [](u32 frame, u32) {
        constexpr f64 kOdd[] = {std::numeric_limits<f64>::quiet_NaN(), std::numeric_limits<f64>::infinity(),
                                -1e20, 0.5};
        return kOdd[frame];
    });
    std::vector<f32> came;
    ASSERT_TRUE(streamFrames(*wave, {0, 4}, [&](std::span<const f32> samples, u32) {
        came.insert(came.end(), samples.begin(), samples.end());
    }));
    EXPECT_EQ(came, (std::vector<f32>{0, 0, -1e6F, 0.5F}));
    ui.cancel = true;
    EXPECT_FALSE(streamFrames(*wave, {0, 4}, [](std::span<const f32>, u32) {}));
}

TEST_F(DrawMeasures, SpectrumReadsSines) {
    for (const u32 frames : {600U, 5000U, 44100U, 200000U}) {
        for (const f64 hertz : {1000.0, 997.3, 12345.6}) {
            Wave* wave = addFloats(frames, 2, [&](u32 frame, u32 channel) {
                return channel == 0 ? sineAt(frame, hertz) : 0.01 * sineAt(frame, hertz / 2);
            });
            Spectrum spectrum;
            ASSERT_TRUE(measureSpectrum(*wave, {0, frames}, spectrum));
            const Partial left = strongestPartial(spectrum.channels[0], spectrum.binHz);
            const Partial right = strongestPartial(spectrum.channels[1], spectrum.binHz);
            EXPECT_NEAR(left.hertz, hertz, spectrum.binHz * 0.2) << frames;
            EXPECT_NEAR(left.level, 0, 0.6) << frames << ' ' << hertz;
            EXPECT_NEAR(right.hertz, hertz / 2, spectrum.binHz * 0.2) << frames;
            EXPECT_NEAR(right.level, -40, 0.6) << frames << ' ' << hertz;
        }
    }
    // All of the span counts: a tone in its last windows only is the quieter for that.
    Wave* late =
        addFloats(200000, 1, [](u32 frame, u32) { return frame < 150000 ? 0 : sineAt(frame, 1000); });
    Spectrum spectrum;
    ASSERT_TRUE(measureSpectrum(*late, {0, 200000}, spectrum));
    EXPECT_NEAR(strongestPartial(spectrum.channels[0], spectrum.binHz).level, -6, 1.2);
    ASSERT_TRUE(measureSpectrum(*late, {150000, 200000}, spectrum));
    EXPECT_NEAR(strongestPartial(spectrum.channels[0], spectrum.binHz).level, 0, 0.6);
}

TEST_F(DrawMeasures, SpectrumOfWhatHasNoTone) {
    std::mt19937 random(1);
    std::normal_distribution<f64> noise(0, 0.1);
    Wave* waves[] = {addFloats(100000, 1, [](u32, u32) { return 0; }),
                     addFloats(100000, 1, [](u32, u32) { return 0.5; }),
                     addFloats(100000, 1, [&](u32, u32) { return noise(random); }),
                     addFloats(1, 1, [](u32, u32) { return 1; })};
    for (Wave* wave : waves) {
        Spectrum spectrum;
        ASSERT_TRUE(measureSpectrum(*wave, {0, wave->frames}, spectrum));
        EXPECT_EQ(strongestPartial(spectrum.channels[0], spectrum.binHz).level,
                  static_cast<f64>(kLeastLevel));
    }
    Spectrum constant;
    ASSERT_TRUE(measureSpectrum(*waves[1], {0, 100000}, constant));
    EXPECT_NEAR(constant.channels[0][0], -6.02, 0.01); // 0 Hz
}

TEST_F(DrawMeasures, SpectrogramFollowsATone) {
    constexpr u32 kFrames = 100000, kColumns = 50;
    Wave* wave = addFloats(kFrames, 2, [](u32 frame, u32 channel) {
        return channel == 0 ? sineAt(frame, frame < kFrames / 2 ? 1000 : 5000) : 0;
    });
    const auto levelAt = [](const Spectrogram& s, std::size_t channel, std::size_t column, f64 hertz) {
        return levelBetween(s.column(channel, column), s.bins, s.binHz, hertz - 20, hertz + 20);
    };
    for (const u32 columns : {kColumns, 5000U}) { // many frames a column, few frames a column
        Spectrogram s;
        ASSERT_TRUE(measureSpectrogram(*wave, {0, kFrames}, columns, s));
        ASSERT_EQ(s.columns, columns);
        for (std::size_t i = columns / 20; i < columns; i += columns / 10) { // 5 %, 15 %, ...
            if (i == columns / 2) continue;
            const bool early = i < columns / 2;
            EXPECT_NEAR(levelAt(s, 0, i, early ? 1000 : 5000), 0, 1.5) << i;
            EXPECT_LT(levelAt(s, 0, i, early ? 5000 : 1000), -60) << i;
            EXPECT_EQ(levelAt(s, 1, i, 1000), kLeastLevel) << i;
        }
        EXPECT_NEAR(s.most, 0, 1.5);
    }
    // Windows look beyond the span, not beyond the wave.
    Spectrogram part;
    ASSERT_TRUE(measureSpectrogram(*wave, {20000, 21000}, 100, part));
    EXPECT_NEAR(levelAt(part, 0, 0, 1000), 0, 1.5);
    EXPECT_LT(levelAt(part, 0, 0, 5000), -60);
    ASSERT_TRUE(measureSpectrogram(*wave, {0, 3}, 100, part));
    EXPECT_EQ(part.columns, 3U);
    EXPECT_NEAR(levelAt(part, 0, 0, 1000), -6, 1.5); // half of its window
}

} // namespace
} // namespace kv
