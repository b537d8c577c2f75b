#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "draw/picture_parts.h"
#include "draw/wave_columns.h"
#include "model/wave.h"

namespace kv {
namespace {

/// A waveform as it is drawn: the samples themselves if each has room enough, else columns of them.
struct Shape {
    WaveColumns columns;
    WavePiece samples;

    bool measure(const Wave& wave, FrameSpan span, u32 pixels) {
        if (span.count() > 2 * pixels) return measureColumns(wave, span, pixels, columns);
        samples.span = span;
        return readPieces(wave, {&samples, 1});
    }
    f64 peak() const {
        f32 peak = columns.peak;
        for (const auto& channel : samples.channels) {
            for (const f32 x : channel) peak = std::max(peak, std::abs(x));
        }
        return static_cast<f64>(peak);
    }
};

/// Full scale, unless the wave is louder or so quiet that it would look like silence.
f64 levelShown(f64 peak) {
    constexpr f64 kQuiet = 0.1;
    return peak > 1 || (peak > 0 && peak < kQuiet) ? niceCeiling(peak) : 1;
}

/// Fills the columns from `from[i]` to `to[i]`; each area is at least a pixel high and reaches to where the
/// one before ended.
void fillColumns(Plot& plot, std::span<const f32> from, std::span<const f32> to, f64 left, const Scale& y,
                 Colour colour) {
    std::vector<Point> outline;
    outline.reserve(2 * from.size());
    const auto add = [&](std::size_t i, f32 level, f64 shift) {
        outline.push_back({left + static_cast<f64>(i) + 0.5, y.at(static_cast<f64>(level)) + shift});
    };
    for (std::size_t i = 0; i < to.size(); ++i) add(i, i > 0 ? std::max(to[i], from[i - 1]) : to[i], -0.5);
    for (std::size_t i = from.size(); i-- > 0;) add(i, i > 0 ? std::min(from[i], to[i - 1]) : from[i], 0.5);
    plot.canvas().fill(outline, colour);
}

void drawColumns(Plot& plot, const std::vector<WaveColumn>& columns, f64 left, const Scale& y) {
    std::vector<f32> from, to;
    for (const WaveColumn& c : columns) {
        from.push_back(c.least);
        to.push_back(c.most);
    }
    fillColumns(plot, from, to, left, y, plot.colours().peaks);
    // The body is what of this lies below the level that is heard: not every column has some of it.
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const std::size_t first = i;
        while (i < columns.size() && from[i] <= columns[i].rms && to[i] >= -columns[i].rms) {
            from[i] = std::max(from[i], -columns[i].rms);
            to[i] = std::min(to[i], columns[i].rms);
            ++i;
        }
        if (i > first)
            fillColumns(plot, std::span(from).subspan(first, i - first),
                        std::span(to).subspan(first, i - first), left + static_cast<f64>(first), y,
                        plot.colours().body);
    }
}

void drawSamples(Plot& plot, const std::vector<f32>& samples, u32 first, const Scale& x, const Scale& y) {
    std::vector<Point> points;
    points.reserve(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        points.push_back(
            {x.at(static_cast<f64>(first) + static_cast<f64>(i)), y.at(static_cast<f64>(samples[i]))});
    plot.canvas().curve(points, plot.colours().body, 1.4 * plot.unit());
    if (std::abs(x.high - x.low) / static_cast<f64>(samples.size()) < 7 * plot.unit()) return;
    for (const Point& point : points) plot.canvas().dot(point, 2.4 * plot.unit(), plot.colours().body);
}

/// Amplitudes of 0 dB, -6 dB and so on, above and below zero.
std::vector<Tick> decibelTicks(f64 most) {
    constexpr f64 kStep = 6;
    constexpr int kCount = 4;
    std::vector<Tick> ticks;
    const f64 highest = std::floor(20 * std::log10(most) / kStep + 1e-6) * kStep;
    for (int i = 0; i < kCount; ++i) {
        const f64 level = highest - i * kStep;
        const f64 amplitude = std::pow(10, level / 20);
        for (const f64 value : {amplitude, -amplitude})
            ticks.push_back({value, fmt::format("{:.0f}", level)});
    }
    return ticks;
}

/// Loop and cue points over the lanes of a waveform.
class Markers {
public:
    Markers(Plot& plot, const Wave& wave, const Scale& frames) : plot_(plot), wave_(wave), frames_(frames) {}

    void areas();
    /// `taken` is the right edge of what stands in the left top corner.
    void lines(f64 taken);

private:
    bool shows(f64 frame) const { return frame >= frames_.from && frame <= frames_.to; }
    f64 cut(f64 frame) const { return std::clamp(frame, frames_.from, frames_.to); }
    bool loopShows() const {
        return wave_.params.looped() && wave_.params.loopStart < frames_.to &&
               wave_.params.loopEnd > frames_.from && wave_.params.loopStart < wave_.params.loopEnd;
    }
    void area(f64 from, f64 to, Colour colour) {
        const Rect& all = plot_.area();
        plot_.canvas().fill(Rect{frames_.at(cut(from)), all.top, frames_.at(cut(to)), all.bottom}, colour);
    }
    void loop();
    std::vector<std::size_t> shownCues() const;
    void cueLabel(const CuePoint& cue, std::size_t number);

    Plot& plot_;
    const Wave& wave_;
    const Scale& frames_;
    std::array<f64, 3> ends_{}; ///< of the labels in each of some rows
};

void Markers::areas() {
    if (loopShows()) area(wave_.params.loopStart, wave_.params.loopEnd, plot_.colours().loopArea);
    std::size_t left = 500; // more than anyone could tell apart
    for (const CuePoint& cue : wave_.cuePoints) {
        const f64 from = cue.position, to = from + cue.length;
        if (cue.length == 0 || from >= frames_.to || to <= frames_.from) continue;
        area(from, to, plot_.colours().cueArea);
        if (--left == 0) return;
    }
}

void Markers::loop() {
    const Rect& all = plot_.area();
    for (const f64 frame : {wave_.params.loopStart, wave_.params.loopEnd}) {
        if (shows(frame)) plot_.marker(all, frames_.at(frame), plot_.colours().loop);
    }
    const f64 from = frames_.at(cut(wave_.params.loopStart)), to = frames_.at(cut(wave_.params.loopEnd));
    const f64 half = plot_.tagWidth("loop") / 2 + 2 * plot_.unit();
    plot_.tag("loop",
              {std::clamp((from + to) / 2, all.left + half, all.right - half),
               all.bottom - plot_.tagHeight() - 4 * plot_.unit()},
              plot_.colours().loop, Align::Centre);
}

void Markers::cueLabel(const CuePoint& cue, std::size_t number) {
    constexpr std::size_t kLabelCharacters = 28;
    const Rect& all = plot_.area();
    const f64 gap = 3 * plot_.unit();
    std::string text(cue.label.view());
    if (text.empty()) text = std::to_string(number);
    const std::string_view cutText = cutToCharacters(text, kLabelCharacters);
    if (cutText.size() < text.size()) text = std::string(cutText) + "…";
    const f64 left = std::min(frames_.at(cue.position) + gap, all.right - plot_.tagWidth(text) - gap);
    for (std::size_t row = 0; row < ends_.size(); ++row) {
        if (left < ends_[row]) continue;
        const f64 top = all.top + 4 * plot_.unit() + static_cast<f64>(row) * plot_.tagHeight();
        ends_[row] = plot_.tag(text, {left, top}, plot_.colours().cue) + gap;
        return;
    }
}

/// The cue points that show, from the left; one of many on a pixel will do.
std::vector<std::size_t> Markers::shownCues() const {
    const std::vector<CuePoint>& cues = wave_.cuePoints;
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < cues.size(); ++i) {
        if (shows(cues[i].position)) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return cues[a].position < cues[b].position; });
    f64 last = -1;
    std::erase_if(order, [&](std::size_t i) {
        const f64 x = frames_.at(cues[i].position);
        if (x - last < 1) return true;
        last = x;
        return false;
    });
    return order;
}

void Markers::lines(f64 taken) {
    const std::vector<std::size_t> cues = shownCues();
    for (const std::size_t i : cues) {
        plot_.dashedMarker(plot_.area(), frames_.at(wave_.cuePoints[i].position), plot_.colours().cue);
    }
    if (loopShows()) loop();
    ends_.fill(0);
    ends_[0] = taken;
    for (const std::size_t i : cues) cueLabel(wave_.cuePoints[i], i + 1);
}

} // namespace

bool drawWaveform(Plot& plot, const Wave& wave, FrameSpan span) {
    const Rect& area = plot.area();
    Shape shape;
    if (!shape.measure(wave, span, static_cast<u32>(area.width()))) return false;

    const Scale frames{static_cast<f64>(span.from), static_cast<f64>(span.to), area.left, area.right};
    const Scale seconds = timeScale(wave, span, area);
    const auto frameTicks = linearTicks(frames.from, frames.to, plot.marksAcross(area.width()), 1);
    const auto secondTicks = timeTicks(seconds.from, seconds.to, plot.marksAcross(area.width()));
    const f64 most = levelShown(shape.peak());
    const std::vector<Rect> lanes = plot.lanes(wave.channels);
    const auto levels = linearTicks(-most, most, std::min(plot.marksDown(lanes[0].height()), 10U));
    Markers markers(plot, wave, frames);

    plot.title(wave.name().view(), waveDetails(wave, span));
    plot.labelsAbove(frames, frameTicks, "frames");
    plot.labelsBelow(seconds, secondTicks, "time");
    for (const Rect& lane : lanes) plot.background(lane);
    markers.areas();
    for (std::size_t i = 0; i < lanes.size(); ++i) {
        const Rect& lane = lanes[i];
        const f64 room = 4 * plot.unit(); // ends of the scale stand off the frame
        const Scale y{-most, most, lane.bottom - room, lane.top + room};
        plot.gridAcross(lane, y, levels);
        plot.gridDown(lane, seconds, secondTicks);
        plot.labelsLeft(lane, y, levels);
        plot.labelsRight(lane, y, decibelTicks(most), "dB");
        plot.canvas().within(lane, [&] {
            if (shape.samples.channels.empty())
                drawColumns(plot, shape.columns.channels[i], lane.left, y);
            else
                drawSamples(plot, shape.samples.channels[i], span.from, frames, y);
        });
    }
    const f64 named = nameLanes(plot, lanes);
    plot.canvas().within(area, [&] { markers.lines(named); });
    for (const Rect& lane : lanes) plot.frame(lane);
    return true;
}

} // namespace kv
