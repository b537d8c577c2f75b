// Drawing on an image: lines, areas and text, with smooth edges. All coordinates are in pixels, from the top
// left corner of the image.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string_view>

#include "base/byte_sink.h"
#include "draw/image.h"

namespace kv {

using Colour = u32; ///< 0xAARRGGBB, not premultiplied

struct Point {
    f64 x, y;
};

struct Rect {
    f64 left, top, right, bottom;

    f64 width() const { return right - left; }
    f64 height() const { return bottom - top; }
    f64 middle() const { return (top + bottom) / 2; }
};

enum class Align : u8 { Left, Centre, Right };

struct TextStyle {
    f64 size; ///< of the font, in pixels
    Colour colour;
    Align align = Align::Left; ///< which of its points stands at the given x
    bool bold = false;
};

class Canvas {
public:
    /// Draws on an image that lives longer and isn't resized meanwhile. Null with the error pair set when
    /// the drawing library isn't there or memory is out.
    static std::unique_ptr<Canvas> create(Image& image);
    ~Canvas();

    void fill(const Rect& area, Colour colour);
    void fill(std::span<const Point> outline, Colour colour);
    void line(Point from, Point to, Colour colour, f64 width = 1);
    /// Dashes and gaps of `dash` pixels.
    void dashed(Point from, Point to, Colour colour, f64 width, f64 dash);
    void curve(std::span<const Point> points, Colour colour, f64 width = 1);
    void dot(Point centre, f64 radius, Colour colour);
    /// `at` is on the base line. Text that isn't valid UTF-8 is drawn as far as it is.
    void text(std::string_view text, Point at, const TextStyle& style);
    f64 textWidth(std::string_view text, const TextStyle& style);
    /// Colours each pixel of an area of whole pixels by `colourAt(x, y)`, counted from its left top corner.
    void colourPixels(const Rect& area, const std::function<Colour(u32 x, u32 y)>& colourAt);

    /// What is drawn by `draw()` appears inside `area` only.
    template <class Draw>
    void within(const Rect& area, Draw draw) {
        beginClip(area);
        draw();
        endClip();
    }

private:
    struct State;
    explicit Canvas(std::unique_ptr<State> state);
    void beginClip(const Rect& area);
    void endClip();
    std::unique_ptr<State> state_;
};

/// Writes an image as PNG, without transparency. False with the error pair set on failure.
bool writePng(Image& image, ByteSink& sink);

} // namespace kv
