#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "draw/picture_parts.h"
#include "draw/spectra.h"
#include "model/key_name.h"
#include "model/wave.h"

namespace kv {
namespace {

/// A level for each pixel; where bins are closer than pixels their highest counts.
std::vector<f32> levelsAlong(const std::vector<f32>& levels, f64 binHz, const Scale& x) {
    std::vector<f32> along;
    for (f64 pixel = x.low; pixel <= x.high; ++pixel)
        along.push_back(levelBetween(levels.data(), levels.size(), binHz, x.valueAt(pixel - 0.5),
                                     x.valueAt(pixel + 0.5)));
    return along;
}

std::vector<Point> curveOf(const std::vector<f32>& levels, const Scale& x, const Scale& y) {
    std::vector<Point> points;
    points.reserve(levels.size() + 2); // for the corners of an area
    for (const f32 level : levels)
        points.push_back({x.low + static_cast<f64>(points.size()), y.at(static_cast<f64>(level))});
    return points;
}

/// "440.2 Hz (A4 +1 cent)"
std::string pitchText(f64 hertz) {
    constexpr int kKeys = 128;
    const f64 key = frequencyToKey(hertz);
    const f64 nearest = std::round(key);
    std::string text = fmt::format("{:.1f} Hz", hertz);
    if (nearest >= 0 && nearest < kKeys)
        text += fmt::format(" ({} {:+.0f} cents)", KeyName(static_cast<int>(nearest)), (key - nearest) * 100);
    return text;
}

/// Decibels from below the lowest level to above the highest, in tens, with `low` and `high` still to be set.
Scale levelScale(const std::vector<std::vector<f32>>& curves) {
    constexpr f64 kLeastRange = 60, kMostRange = 140;
    f32 least = 0, most = kLeastLevel;
    for (const auto& levels : curves) {
        const auto [low, high] = std::minmax_element(levels.begin(), levels.end());
        least = std::min(least, *low);
        most = std::max(most, *high);
    }
    const f64 top = most <= kLeastLevel ? 0 : std::ceil((static_cast<f64>(most) + 3) / 10) * 10;
    const f64 bottom = std::floor((static_cast<f64>(least) - 3) / 10) * 10;
    return {std::clamp(bottom, top - kMostRange, top - kLeastRange), top, 0, 1};
}

} // namespace

bool drawSpectrum(Plot& plot, const Wave& wave, FrameSpan span) {
    Spectrum spectrum;
    if (!measureSpectrum(wave, span, spectrum)) return false;
    const Rect& area = plot.area();
    const f64 highest = wave.sampleRate / 2.0;
    const f64 lowest = std::min(20.0, highest / 100);
    const Scale x = logScale(lowest, highest, area.left, area.right);
    std::vector<std::vector<f32>> curves;
    for (const auto& levels : spectrum.channels) curves.push_back(levelsAlong(levels, spectrum.binHz, x));
    Scale y = levelScale(curves);
    y.low = area.bottom;
    y.high = area.top;
    const auto levels = levelTicks(y.from, y.to, plot.marksDown(area.height()));
    const auto frequencies = frequencyTicks(lowest, highest);

    const Colour colours[] = {plot.colours().first, plot.colours().second};
    const Plot::LegendEntry legend[] = {{colours[0], "Left"}, {colours[1], "Right"}};
    if (wave.channels == 2) plot.legend(legend);
    std::string details = waveDetails(wave, span);
    const auto loudest = std::max_element(
        spectrum.channels.begin(), spectrum.channels.end(), [&](const auto& a, const auto& b) {
            return strongestPartial(a, spectrum.binHz).level < strongestPartial(b, spectrum.binHz).level;
        });
    const Partial strongest = strongestPartial(*loudest, spectrum.binHz);
    if (strongest.level > static_cast<f64>(kLeastLevel))
        details += fmt::format("  ·  strongest: {}, {:.1f} dB", pitchText(strongest.hertz), strongest.level);
    plot.title(wave.name().view(), details);
    plot.labelsBelow(x, frequencies, "Hz");
    plot.labelsLeft(area, y, levels, "dB");
    plot.background(area);
    plot.gridDown(area, x, frequencies);
    plot.gridAcross(area, y, levels);
    plot.canvas().within(area, [&] {
        for (std::size_t c = curves.size(); c-- > 0;) {
            const std::vector<Point> curve = curveOf(curves[c], x, y);
            if (c == 0) {
                std::vector<Point> outline = curve;
                outline.push_back({area.right, area.bottom + 1});
                outline.push_back({area.left, area.bottom + 1});
                plot.canvas().fill(outline, plot.colours().firstArea);
            }
            plot.canvas().curve(curve, colours[c], 1.3 * plot.unit());
        }
        if (strongest.level > static_cast<f64>(kLeastLevel) && strongest.hertz >= lowest)
            plot.canvas().dot({x.at(strongest.hertz), y.at(strongest.level)}, 3.5 * plot.unit(),
                              plot.colours().seam);
    });
    plot.frame(area);
    return true;
}

bool drawSpectrogram(Plot& plot, const Wave& wave, FrameSpan span) {
    constexpr f64 kRange = 90; // dB
    const Rect& area = plot.area();
    Spectrogram spectrogram;
    if (!measureSpectrogram(wave, span, static_cast<u32>(area.width()), spectrogram)) return false;
    const bool silent = spectrogram.most <= kLeastLevel;
    const f64 most = silent ? 0 : std::ceil(static_cast<f64>(spectrogram.most) / 10) * 10;

    const Scale seconds = timeScale(wave, span, area);
    const auto secondTicks = timeTicks(seconds.from, seconds.to, plot.marksAcross(area.width()));
    const f64 highest = wave.sampleRate / 2.0;
    std::vector<Tick> frequencies = frequencyTicks(std::min(100.0, highest / 20), highest);
    std::erase_if(frequencies, [](const Tick& tick) { return tick.label.empty(); });
    for (Tick& tick : frequencies)
        tick.label = tick.value < 1000 ? fmt::format("{:g} Hz", tick.value)
                                       : fmt::format("{:g} kHz", tick.value / 1000);

    plot.title(wave.name().view(), waveDetails(wave, span));
    plot.labelsBelow(seconds, secondTicks, "time");
    const Scale frames{static_cast<f64>(span.from), static_cast<f64>(span.to), area.left, area.right};
    plot.labelsAbove(frames, linearTicks(frames.from, frames.to, plot.marksAcross(area.width()), 1),
                     "frames");
    const std::vector<Rect> lanes = plot.lanes(wave.channels);
    for (std::size_t c = 0; c < lanes.size(); ++c) {
        const Rect& lane = lanes[c];
        const Scale y = melScale(0, highest, lane.bottom, lane.top);
        std::vector<f64> edges;
        for (f64 pixel = lane.top; pixel <= lane.bottom; ++pixel) edges.push_back(y.valueAt(pixel));
        const auto width = static_cast<std::size_t>(lane.width());
        plot.canvas().colourPixels(lane, [&](u32 across, u32 down) {
            const f32* levels = spectrogram.column(c, across * spectrogram.columns / width);
            const f32 level =
                levelBetween(levels, spectrogram.bins, spectrogram.binHz, edges[down + 1], edges[down]);
            return heatColour((static_cast<f64>(level) - most + kRange) / kRange);
        });
        plot.labelsLeft(lane, y, frequencies);
        plot.frame(lane);
    }
    nameLanes(plot, lanes);

    const f64 left = std::round(area.right + 14 * plot.unit());
    const Rect bar{left, area.top, left + std::round(14 * plot.unit()), area.bottom};
    const Scale y{most - kRange, most, bar.bottom, bar.top};
    plot.canvas().colourPixels(bar,
                               [&](u32, u32 down) { return heatColour(1 - (down + 0.5) / bar.height()); });
    plot.labelsRight(bar, y, levelTicks(y.from, y.to, plot.marksDown(bar.height())), "dB", 5);
    plot.frame(bar);
    return true;
}

} // namespace kv
