#include "draw/canvas.h"

#include <algorithm>
#include <numbers>
#include <string>

#include "base/run_context.h"
#include "base/text.h"
#include "draw/cairo_library.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "draw";

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo().destroySurface(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, DestroySurface>;

/// A surface over the pixels of the image; null with the error pair set.
Surface surfaceOver(Image& image, cairo_format_t format) {
    if (!cairo().library.ready(kContext)) return nullptr;
    constexpr u32 kMost = 32767; // the library's own limit
    const std::size_t count = std::size_t{image.width} * image.height;
    if (image.width - 1 >= kMost || image.height - 1 >= kMost || image.pixels.size() < count) {
        Fail(kContext, "Pictures of {} by {} pixels can't be drawn", image.width, image.height);
        return nullptr;
    }
    Surface surface(cairo().createSurface(reinterpret_cast<unsigned char*>(image.pixels.data()), format,
                                          static_cast<int>(image.width), static_cast<int>(image.height),
                                          static_cast<int>(image.width * sizeof(u32))));
    if (cairo().surfaceStatus(surface.get()) == CAIRO_STATUS_SUCCESS) return surface;
    Fail(kContext, "Out of memory");
    return nullptr;
}

/// The longest part of the text from its start that is valid UTF-8 without control characters.
std::string drawable(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const std::string_view one = cutToCharacters(text, 1);
        const auto first = static_cast<unsigned char>(one[0]);
        if (one.size() == 1 && first >= 0x80) break;
        if (first < 0x20 || first == 0x7F)
            valid += ' ';
        else
            valid += one;
        text = text.substr(one.size());
    }
    return valid;
}

} // namespace

struct Canvas::State {
    struct Destroy {
        void operator()(cairo_t* drawing) const { cairo().destroy(drawing); }
    };
    Image* image;
    Surface surface;
    std::unique_ptr<cairo_t, Destroy> context{cairo().create(surface.get())};
    bool fonts = true; ///< text can be drawn: an attempt that fails would end all drawing

    cairo_t* get() const { return context.get(); }
    void use(Colour colour) const {
        const auto part = [&](int shift) { return static_cast<f64>(colour >> shift & 0xFF) / 255; };
        cairo().setColour(get(), part(16), part(8), part(0), part(24));
    }
    void trace(std::span<const Point> points) const {
        cairo().newPath(get());
        for (const Point& point : points) cairo().lineTo(get(), point.x, point.y);
    }
    void stroke(Colour colour, f64 width) const {
        use(colour);
        cairo().setLineWidth(get(), width);
        cairo().stroke(get());
    }
    void useFont(const TextStyle& style) const {
        cairo().selectFont(get(), "sans", CAIRO_FONT_SLANT_NORMAL,
                           style.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo().setFontSize(get(), style.size);
    }
    bool findFonts() const;
};

/// Whether there is a font to draw with, tried on a context of its own.
bool Canvas::State::findFonts() const {
    const std::unique_ptr<cairo_t, Destroy> trial(cairo().create(surface.get()));
    cairo_text_extents_t extents{};
    cairo().selectFont(trial.get(), "sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo().textExtents(trial.get(), "0", &extents);
    return cairo().status(trial.get()) == CAIRO_STATUS_SUCCESS;
}

Canvas::Canvas(std::unique_ptr<State> state) : state_(std::move(state)) {}

Canvas::~Canvas() {
    cairo().flush(state_->surface.get());
}

std::unique_ptr<Canvas> Canvas::create(Image& image) {
    Surface surface = surfaceOver(image, CAIRO_FORMAT_ARGB32);
    if (!surface) return nullptr;
    auto state = std::make_unique<State>(State{&image, std::move(surface)});
    if (cairo().status(state->get()) != CAIRO_STATUS_SUCCESS) {
        Fail(kContext, "Out of memory");
        return nullptr;
    }
    cairo().setLineJoin(state->get(), CAIRO_LINE_JOIN_ROUND);
    state->fonts = state->findFonts();
    return std::unique_ptr<Canvas>(new Canvas(std::move(state)));
}

void Canvas::fill(const Rect& area, Colour colour) {
    cairo().newPath(state_->get());
    cairo().rectangle(state_->get(), area.left, area.top, area.width(), area.height());
    state_->use(colour);
    cairo().fill(state_->get());
}

void Canvas::fill(std::span<const Point> outline, Colour colour) {
    state_->trace(outline);
    cairo().closePath(state_->get());
    state_->use(colour);
    cairo().fill(state_->get());
}

void Canvas::line(Point from, Point to, Colour colour, f64 width) {
    const Point ends[] = {from, to};
    curve(ends, colour, width);
}

void Canvas::dashed(Point from, Point to, Colour colour, f64 width, f64 dash) {
    cairo().setDash(state_->get(), &dash, 1, 0);
    line(from, to, colour, width);
    cairo().setDash(state_->get(), nullptr, 0, 0);
}

void Canvas::curve(std::span<const Point> points, Colour colour, f64 width) {
    state_->trace(points);
    state_->stroke(colour, width);
}

void Canvas::dot(Point centre, f64 radius, Colour colour) {
    cairo().newPath(state_->get());
    cairo().arc(state_->get(), centre.x, centre.y, radius, 0, 2 * std::numbers::pi);
    state_->use(colour);
    cairo().fill(state_->get());
}

void Canvas::text(std::string_view text, Point at, const TextStyle& style) {
    if (!state_->fonts || text.empty()) return;
    const f64 before = style.align == Align::Left     ? 0
                       : style.align == Align::Centre ? textWidth(text, style) / 2
                                                      : textWidth(text, style);
    state_->useFont(style);
    state_->use(style.colour);
    cairo().moveTo(state_->get(), at.x - before, at.y);
    cairo().showText(state_->get(), drawable(text).c_str());
    cairo().newPath(state_->get());
}

f64 Canvas::textWidth(std::string_view text, const TextStyle& style) {
    if (!state_->fonts) return 0;
    cairo_text_extents_t extents{};
    state_->useFont(style);
    cairo().textExtents(state_->get(), drawable(text).c_str(), &extents);
    return extents.x_advance;
}

void Canvas::colourPixels(const Rect& area, const std::function<Colour(u32 x, u32 y)>& colourAt) {
    Image& image = *state_->image;
    const auto edge = [](f64 pixel, u32 most) { return std::min(saturate<u32>(pixel), most); };
    const u32 left = edge(area.left, image.width), right = edge(area.right, image.width);
    const u32 top = edge(area.top, image.height), bottom = edge(area.bottom, image.height);
    cairo().flush(state_->surface.get());
    for (u32 y = top; y < bottom; ++y) {
        u32* const row = image.pixels.data() + std::size_t{y} * image.width;
        for (u32 x = left; x < right; ++x) row[x] = colourAt(x - left, y - top);
    }
    cairo().markDirty(state_->surface.get());
}

void Canvas::beginClip(const Rect& area) {
    cairo().save(state_->get());
    cairo().newPath(state_->get());
    cairo().rectangle(state_->get(), area.left, area.top, area.width(), area.height());
    cairo().clip(state_->get());
}

void Canvas::endClip() {
    cairo().restore(state_->get());
}

bool writePng(Image& image, ByteSink& sink) {
    const Surface surface = surfaceOver(image, CAIRO_FORMAT_RGB24);
    if (!surface) return false;
    const auto write = [](void* to, const unsigned char* data, unsigned int size) {
        const ByteSpan bytes = std::as_bytes(std::span(data, size));
        return static_cast<ByteSink*>(to)->write(bytes) ? CAIRO_STATUS_SUCCESS : CAIRO_STATUS_WRITE_ERROR;
    };
    const cairo_status_t status = cairo().writePng(surface.get(), write, &sink);
    if (status == CAIRO_STATUS_SUCCESS) return true;
    return Fail(kContext, status == CAIRO_STATUS_NO_MEMORY ? "Out of memory" : "Writing to file failed");
}

} // namespace kv
