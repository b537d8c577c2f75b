#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/run_context.h"
#include "draw/picture_parts.h"
#include "draw/wave_columns.h"
#include "model/wave.h"

namespace kv {
namespace {

/// A loop with the frames around both of its ends.
class LoopSeam {
public:
    /// The ends are rounded to whole frames. Shows `reach` frames on each side.
    LoopSeam(const Wave& wave, i64 reach)
        : start_(std::llround(wave.params.loopStart)),
          end_(std::llround(wave.params.loopEnd)),
          reach_(reach) {
        const auto around = [&](i64 frame) {
            return WavePiece{{static_cast<u32>(std::max<i64>(frame - reach, 0)),
                              static_cast<u32>(std::min<i64>(frame + reach, wave.frames))}};
        };
        pieces_[0] = around(start_);
        pieces_[1] = around(end_);
    }

    bool read(const Wave& wave) { return readPieces(wave, pieces_); }

    /// What is played `offset` frames behind the seam, which is negative ahead of it.
    f32 played(std::size_t channel, i64 offset) const {
        const i64 length = end_ - start_;
        const i64 within = (offset % length + length) % length;
        return sample(channel, start_ + within);
    }
    /// The wave as it goes on where the loop turns back, and as it came to where the loop begins.
    bool hasBeyond(i64 offset) const { return holds(frameBeyond(offset)); }
    f32 beyond(std::size_t channel, i64 offset) const { return sample(channel, frameBeyond(offset)); }

    i64 start() const { return start_; }
    i64 end() const { return end_; }
    i64 reach() const { return reach_; }

private:
    i64 frameBeyond(i64 offset) const { return (offset < 0 ? start_ : end_) + offset; }
    bool holds(i64 frame) const {
        return std::any_of(std::begin(pieces_), std::end(pieces_), [&](const WavePiece& piece) {
            return frame >= piece.span.from && frame < piece.span.to;
        });
    }
    f32 sample(std::size_t channel, i64 frame) const {
        for (const WavePiece& piece : pieces_) {
            if (frame >= piece.span.from && frame < piece.span.to)
                return piece.channels[channel][static_cast<std::size_t>(frame - piece.span.from)];
        }
        return 0;
    }

    i64 start_, end_, reach_;
    WavePiece pieces_[2];
};

bool checkLoop(const Wave& wave) {
    const SampleParams& loop = wave.params;
    const auto name = wave.name().view();
    if (!loop.looped()) return Fail("draw", "\"{}\" has no loop", name);
    if ((loop.loopFlags & (kLoopBidirectional | kLoopReverse)) != 0)
        return Fail("draw", "The loop of \"{}\" runs backwards, so that its ends don't meet", name);
    if (!(loop.loopStart >= 0) || !(loop.loopEnd <= wave.frames) ||
        std::llround(loop.loopStart) >= std::llround(loop.loopEnd))
        return Fail("draw", "The loop of \"{}\" lies outside of it", name);
    return true;
}

/// How much both sides of the seam differ, in dB of what is played there; empty when nothing can be compared.
std::string differenceText(const LoopSeam& seam, std::size_t channels) {
    f64 signal = 0, difference = 0;
    bool compared = false;
    for (std::size_t c = 0; c < channels; ++c) {
        for (i64 i = -seam.reach(); i < seam.reach(); ++i) {
            if (!seam.hasBeyond(i)) continue;
            const auto played = static_cast<f64>(seam.played(c, i)),
                       beyond = static_cast<f64>(seam.beyond(c, i));
            signal += played * played;
            difference += (played - beyond) * (played - beyond);
            compared = true;
        }
    }
    if (!compared) return {};
    if (difference == 0) return "  ·  no difference across the seam";
    return signal > 0 ? fmt::format("  ·  difference across the seam: {:.1f} dB",
                                    10 * std::log10(difference / signal))
                      : std::string();
}

struct Curves {
    std::vector<Point> played, before, behind; ///< frames and levels
    f64 least = 0, most = 0;
};

Curves curvesOf(const LoopSeam& seam, std::size_t channel) {
    Curves curves;
    const auto add = [&](std::vector<Point>& to, i64 offset, f32 level) {
        const auto y = static_cast<f64>(level);
        if (to.empty() && &to == &curves.played) curves.least = curves.most = y;
        curves.least = std::min(curves.least, y);
        curves.most = std::max(curves.most, y);
        to.push_back({static_cast<f64>(offset), y});
    };
    for (i64 i = -seam.reach(); i < seam.reach(); ++i) {
        add(curves.played, i, seam.played(channel, i));
        if (seam.hasBeyond(i)) add(i < 0 ? curves.before : curves.behind, i, seam.beyond(channel, i));
    }
    return curves;
}

void drawLane(Plot& plot, const Rect& lane, const Curves& curves, const Scale& x) {
    const f64 height = curves.most - curves.least;
    const f64 room = height > 0 ? height * 0.08 : std::max(std::abs(curves.most) * 0.1, 0.001);
    const Scale y{curves.least - room, curves.most + room, lane.bottom, lane.top};
    const auto levels = linearTicks(y.from, y.to, std::min(plot.marksDown(lane.height()), 10U));
    plot.gridAcross(lane, y, levels);
    plot.labelsLeft(lane, y, levels);
    const auto draw = [&](std::vector<Point> points, Colour colour, f64 width, f64 dot) {
        for (Point& point : points) point = {x.at(point.x), y.at(point.y)};
        plot.canvas().curve(points, colour, width * plot.unit());
        for (const Point& point : points) plot.canvas().dot(point, dot * plot.unit(), colour);
    };
    plot.canvas().within(lane, [&] {
        const f64 seam = x.at(0);
        plot.marker(lane, seam, plot.colours().seam);
        draw(curves.before, plot.colours().second, 4, 2); // seen beside what lies on it
        draw(curves.behind, plot.colours().second, 4, 2);
        draw(curves.played, plot.colours().first, 1.4, 2);
        const f64 top = lane.bottom - plot.tagHeight() - 4 * plot.unit(), gap = 6 * plot.unit();
        plot.tag("end of the loop", {seam - gap, top}, plot.colours().seam, Align::Right);
        plot.tag("start of the loop", {seam + gap, top}, plot.colours().seam);
    });
    plot.frame(lane);
}

/// Frame numbers ahead of the seam and behind it: the loop's end meets its start.
void labelFrames(Plot& plot, const LoopSeam& seam, const Scale& x) {
    std::vector<Tick> ticks;
    const auto reach = static_cast<f64>(seam.reach());
    const u32 most = std::max(plot.marksAcross(plot.area().width() / 2), 1U);
    for (const Tick& tick : linearTicks(-reach, reach, 2 * most, 1)) {
        const auto offset = static_cast<i64>(tick.value);
        if (offset == 0)
            ticks.push_back({0, fmt::format("{} = {}", grouped(seam.end()), grouped(seam.start()))});
        else
            ticks.push_back({tick.value, grouped((offset < 0 ? seam.end() : seam.start()) + offset)});
    }
    plot.labelsAbove(x, ticks, "frames");
}

} // namespace

bool drawLoopSeam(Plot& plot, const Wave& wave, FrameSpan) {
    constexpr f64 kFrameUnits = 6; // each frame's room
    const Rect& area = plot.area();
    if (!checkLoop(wave)) return false;
    LoopSeam seam(wave, std::max<i64>(std::llround(area.width() / (2 * kFrameUnits * plot.unit())), 8));
    if (!seam.read(wave)) return false;

    const Plot::LegendEntry legend[] = {{plot.colours().first, "played: loop end, then loop start"},
                                        {plot.colours().second, "before the start, behind the end"}};
    plot.legend(legend);
    const i64 length = seam.end() - seam.start();
    plot.title(wave.name().view(), fmt::format("loop {} to {}  ·  {} frames, {:.1f} ms{}",
                                               grouped(seam.start()), grouped(seam.end()), grouped(length),
                                               1000.0 * static_cast<f64>(length) / wave.sampleRate,
                                               differenceText(seam, wave.channels)));
    const auto reach = static_cast<f64>(seam.reach());
    const Scale x{-reach, reach, area.left, area.right};
    const auto offsets = linearTicks(-reach, reach, plot.marksAcross(area.width()), 1);
    labelFrames(plot, seam, x);
    plot.labelsBelow(x, offsets, "frames");
    const std::vector<Rect> lanes = plot.lanes(wave.channels);
    for (std::size_t c = 0; c < lanes.size(); ++c) {
        plot.background(lanes[c]);
        plot.gridDown(lanes[c], x, offsets);
        drawLane(plot, lanes[c], curvesOf(seam, c), x);
    }
    nameLanes(plot, lanes);
    return true;
}

} // namespace kv
