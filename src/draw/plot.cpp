#include "draw/plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/text.h"

namespace kv {
namespace {

/// In units.
constexpr f64 kLeft = 60, kTop = 72, kBottom = 32, kLaneGap = 10;
constexpr f64 kEdge = 4; ///< that nothing comes nearer to the picture's edges
constexpr f64 kTitleLine = 25, kDetailsLine = 43;

/// The pixel row or column whose middle is next to a place: lines on it are sharp.
f64 sharp(f64 pixel) {
    return std::floor(pixel) + 0.5;
}

} // namespace

Plot::Plot(Canvas& canvas, const Theme& colours, u32 width, u32 height, f64 rightMargin)
    : canvas_(canvas),
      colours_(colours),
      unit_(std::clamp(std::min(width / 1200.0, height / 600.0), 0.7, 4.0)),
      width_(width),
      area_{std::round(kLeft * unit_), std::round(kTop * unit_), std::round(width - rightMargin * unit_),
            std::round(height - kBottom * unit_)},
      titleEnd_(width - kEdge * unit_) {
    canvas.fill(Rect{0, 0, width_, static_cast<f64>(height)}, colours.background);
}

std::vector<Rect> Plot::lanes(std::size_t count) const {
    const f64 gap = std::round(kLaneGap * unit_);
    const f64 height = (area_.height() - gap * static_cast<f64>(count - 1)) / static_cast<f64>(count);
    std::vector<Rect> lanes;
    for (std::size_t i = 0; i < count; ++i) {
        const f64 top = area_.top + static_cast<f64>(i) * (height + gap);
        lanes.push_back({area_.left, std::round(top), area_.right, std::round(top + height)});
    }
    return lanes;
}

// ---- Title

std::string Plot::fitted(std::string_view text, const TextStyle& style, f64 width) {
    if (canvas_.textWidth(text, style) <= width) return std::string(text);
    std::string cut;
    for (std::size_t characters = 1; characters < text.size(); ++characters) {
        std::string longer = std::string(cutToCharacters(text, characters)) + "…";
        if (canvas_.textWidth(longer, style) > width) break;
        cut = std::move(longer);
    }
    return cut;
}

void Plot::legend(std::span<const LegendEntry> entries) {
    const f64 line = 22 * unit_, gap = 6 * unit_;
    f64 right = area_.right;
    for (std::size_t i = entries.size(); i-- > 0;) {
        const TextStyle style = small(colours_.text, Align::Right);
        const f64 left = right - canvas_.textWidth(entries[i].text, style) - gap - line;
        const f64 y = (kTitleLine - 4) * unit_;
        canvas_.text(entries[i].text, {right, kTitleLine * unit_}, style);
        canvas_.line({left, y}, {left + line, y}, entries[i].colour, 2.5 * unit_);
        right = left - 3 * gap;
    }
    titleEnd_ = right;
}

void Plot::title(std::string_view name, std::string_view details) {
    const TextStyle bold{16 * unit_, colours_.text, Align::Left, true};
    canvas_.text(fitted(name, bold, titleEnd_ - area_.left), {area_.left, kTitleLine * unit_}, bold);
    const TextStyle plain = small(colours_.faintText, Align::Left);
    canvas_.text(fitted(details, plain, width_ - kEdge * unit_ - area_.left),
                 {area_.left, kDetailsLine * unit_}, plain);
}

// ---- Lanes

void Plot::background(const Rect& lane) {
    canvas_.fill(lane, colours_.plot);
}

void Plot::gridAcross(const Rect& lane, const Scale& y, std::span<const Tick> ticks) {
    for (const Tick& tick : ticks) {
        const f64 at = sharp(y.at(tick.value));
        canvas_.line({lane.left, at}, {lane.right, at},
                     tick.label.empty() ? colours_.fineGrid : colours_.grid);
    }
}

void Plot::gridDown(const Rect& lane, const Scale& x, std::span<const Tick> ticks) {
    for (const Tick& tick : ticks) {
        const f64 at = sharp(x.at(tick.value));
        canvas_.line({at, lane.top}, {at, lane.bottom},
                     tick.label.empty() ? colours_.fineGrid : colours_.grid);
    }
}

void Plot::marker(const Rect& lane, f64 x, Colour colour) {
    canvas_.line({sharp(x), lane.top}, {sharp(x), lane.bottom}, colour, 1.5 * unit_);
}

void Plot::dashedMarker(const Rect& lane, f64 x, Colour colour) {
    canvas_.dashed({sharp(x), lane.top}, {sharp(x), lane.bottom}, colour, 1.2 * unit_, 5 * unit_);
}

void Plot::frame(const Rect& lane) {
    const f64 left = lane.left - 0.5, top = lane.top - 0.5, right = lane.right + 0.5,
              bottom = lane.bottom + 0.5;
    const Point around[] = {{left, top}, {right, top}, {right, bottom}, {left, bottom}, {left, top}};
    canvas_.curve(around, colours_.frame);
}

// ---- Labels

void Plot::labels(const Scale& x, std::span<const Tick> ticks, std::string_view caption, f64 baseLine) {
    const TextStyle faint = small(colours_.faintText, Align::Right);
    const TextStyle style = small(colours_.text, Align::Left);
    canvas_.text(caption, {area_.left - 14 * unit_, baseLine}, faint);
    f64 end = caption.empty() ? 0 : area_.left - 14 * unit_ - 4 * unit_;
    for (const Tick& tick : ticks) {
        const f64 width = canvas_.textWidth(tick.label, style);
        const f64 left = std::min(x.at(tick.value) - width / 2, width_ - kEdge * unit_ - width);
        if (tick.label.empty() || left < end + 8 * unit_) continue;
        canvas_.text(tick.label, {left, baseLine}, style);
        end = left + width;
    }
}

void Plot::labelsAbove(const Scale& x, std::span<const Tick> ticks, std::string_view caption) {
    labels(x, ticks, caption, area_.top - 7 * unit_);
}

void Plot::labelsBelow(const Scale& x, std::span<const Tick> ticks, std::string_view caption) {
    labels(x, ticks, caption, area_.bottom + 18 * unit_);
}

void Plot::labelsBeside(const Scale& y, std::span<const Tick> ticks, std::string_view unit, f64 x,
                        Align align) {
    const TextStyle style = small(colours_.text, align);
    std::vector<f64> taken;
    for (const Tick& tick : ticks) {
        const f64 at = y.at(tick.value);
        const bool free = std::none_of(taken.begin(), taken.end(),
                                       [&](f64 other) { return std::abs(at - other) < 14 * unit_; });
        if (tick.label.empty() || !free) continue;
        canvas_.text(unit.empty() ? tick.label : fmt::format("{} {}", tick.label, unit), {x, at + 4 * unit_},
                     style);
        taken.push_back(at);
    }
}

void Plot::labelsLeft(const Rect& lane, const Scale& y, std::span<const Tick> ticks, std::string_view unit) {
    labelsBeside(y, ticks, unit, lane.left - 8 * unit_, Align::Right);
}

void Plot::labelsRight(const Rect& lane, const Scale& y, std::span<const Tick> ticks, std::string_view unit,
                       f64 distance) {
    labelsBeside(y, ticks, unit, lane.right + distance * unit_, Align::Left);
}

f64 Plot::tagWidth(std::string_view text) {
    return canvas_.textWidth(text, small(0, Align::Left)) + 6 * unit_;
}

f64 Plot::tag(std::string_view text, Point at, Colour colour, Align align) {
    const f64 width = tagWidth(text);
    const f64 left = at.x - (align == Align::Left ? 0 : align == Align::Centre ? width / 2 : width);
    canvas_.fill(Rect{left, at.y, left + width, at.y + tagHeight()}, colours_.label);
    canvas_.text(text, {left + 3 * unit_, at.y + 12 * unit_}, small(colour, Align::Left));
    return left + width;
}

f64 niceCeiling(f64 value) {
    if (!(value > 0)) return 1;
    const f64 power = std::pow(10, std::floor(std::log10(value)));
    for (const f64 factor : {1.0, 1.5, 2.0, 3.0, 5.0, 7.5}) {
        if (factor * power >= value) return factor * power;
    }
    return 10 * power;
}

} // namespace kv
