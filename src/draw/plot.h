// The frame of a picture: title, lanes, axes with grid and labels, tags and legend.
#pragma once

#include <optional>

#include "draw/theme.h"
#include "draw/ticks.h"

namespace kv {

class Plot {
public:
    /// Sizes grow with the picture, and axes get room on the right for `rightMargin` units.
    Plot(Canvas& canvas, const Theme& colours, u32 width, u32 height, f64 rightMargin);

    Canvas& canvas() { return canvas_; }
    const Theme& colours() const { return colours_; }
    /// Pixels of a unit: 1 in a picture of 1200 by 600.
    f64 unit() const { return unit_; }
    /// All lanes; its edges are whole pixels.
    const Rect& area() const { return area_; }
    /// The area divided into lanes of the same height, one below the other.
    std::vector<Rect> lanes(std::size_t count) const;
    /// As many marks as there is room for along so many pixels.
    u32 marksAcross(f64 pixels) const { return static_cast<u32>(pixels / (95 * unit_)); }
    u32 marksDown(f64 pixels) const { return static_cast<u32>(pixels / (34 * unit_)); }

    struct LegendEntry {
        Colour colour;
        std::string_view text;
    };
    /// Right of the title, which comes behind it.
    void legend(std::span<const LegendEntry> entries);
    void title(std::string_view name, std::string_view details);

    void background(const Rect& lane);
    void gridAcross(const Rect& lane, const Scale& y, std::span<const Tick> ticks);
    void gridDown(const Rect& lane, const Scale& x, std::span<const Tick> ticks);
    /// A line down the lane that marks a place.
    void marker(const Rect& lane, f64 x, Colour colour);
    void dashedMarker(const Rect& lane, f64 x, Colour colour);
    /// Drawn last, over what ends at its edges.
    void frame(const Rect& lane);

    /// Labels of the area's axes. A label that would touch another one is left out; the caption stands at the
    /// left end.
    void labelsAbove(const Scale& x, std::span<const Tick> ticks, std::string_view caption);
    void labelsBelow(const Scale& x, std::span<const Tick> ticks, std::string_view caption);
    void labelsLeft(const Rect& lane, const Scale& y, std::span<const Tick> ticks,
                    std::string_view unit = {});
    /// `distance` units from the lane's right edge.
    void labelsRight(const Rect& lane, const Scale& y, std::span<const Tick> ticks,
                     std::string_view unit = {}, f64 distance = 8);

    /// Text on ground of its own; `at` is its left, middle or right top corner. Answers its right edge.
    f64 tag(std::string_view text, Point at, Colour colour, Align align = Align::Left);
    f64 tagHeight() const { return 16 * unit_; }
    f64 tagWidth(std::string_view text);

private:
    TextStyle small(Colour colour, Align align) const { return {11.5 * unit_, colour, align}; }
    std::string fitted(std::string_view text, const TextStyle& style, f64 width);
    void labels(const Scale& x, std::span<const Tick> ticks, std::string_view caption, f64 baseLine);
    void labelsBeside(const Scale& y, std::span<const Tick> ticks, std::string_view unit, f64 x, Align align);

    Canvas& canvas_;
    const Theme& colours_;
    f64 unit_, width_;
    Rect area_;
    f64 titleEnd_;
};

/// The smallest of 1, 1.5, 2, 3, 5, 7.5 times a power of ten that isn't below the value; 1 for 0 and below.
f64 niceCeiling(f64 value);

} // namespace kv
