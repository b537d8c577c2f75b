// Cairo, opened when the first picture is drawn: linked, it would double the time that the program takes to
// start, which draws pictures but rarely.
#pragma once

#include <cairo.h>

#include "base/shared_library.h"

namespace kv {

struct CairoLibrary {
    SharedLibrary library{"libcairo2", {"libcairo.so.2"}};
    decltype(cairo_image_surface_create_for_data)* createSurface = nullptr;
    decltype(cairo_surface_destroy)* destroySurface = nullptr;
    decltype(cairo_surface_status)* surfaceStatus = nullptr;
    decltype(cairo_surface_flush)* flush = nullptr;
    decltype(cairo_surface_mark_dirty)* markDirty = nullptr;
    decltype(cairo_surface_write_to_png_stream)* writePng = nullptr;
    decltype(cairo_create)* create = nullptr;
    decltype(cairo_destroy)* destroy = nullptr;
    decltype(cairo_status)* status = nullptr;
    decltype(cairo_save)* save = nullptr;
    decltype(cairo_restore)* restore = nullptr;
    decltype(cairo_clip)* clip = nullptr;
    decltype(cairo_set_source_rgba)* setColour = nullptr;
    decltype(cairo_set_line_width)* setLineWidth = nullptr;
    decltype(cairo_set_line_join)* setLineJoin = nullptr;
    decltype(cairo_set_dash)* setDash = nullptr;
    decltype(cairo_move_to)* moveTo = nullptr;
    decltype(cairo_line_to)* lineTo = nullptr;
    decltype(cairo_rectangle)* rectangle = nullptr;
    decltype(cairo_arc)* arc = nullptr;
    decltype(cairo_new_path)* newPath = nullptr;
    decltype(cairo_close_path)* closePath = nullptr;
    decltype(cairo_stroke)* stroke = nullptr;
    decltype(cairo_fill)* fill = nullptr;
    decltype(cairo_select_font_face)* selectFont = nullptr;
    decltype(cairo_set_font_size)* setFontSize = nullptr;
    decltype(cairo_show_text)* showText = nullptr;
    decltype(cairo_text_extents)* textExtents = nullptr;

    CairoLibrary();
};

/// Stays open to the end of the process. Ask its `library` whether it is ready.
const CairoLibrary& cairo();

} // namespace kv
