#include "draw/cairo_library.h"

namespace kv {

CairoLibrary::CairoLibrary() {
    library.bind(createSurface, "cairo_image_surface_create_for_data")
        .bind(destroySurface, "cairo_surface_destroy")
        .bind(surfaceStatus, "cairo_surface_status")
        .bind(flush, "cairo_surface_flush")
        .bind(markDirty, "cairo_surface_mark_dirty")
        .bind(writePng, "cairo_surface_write_to_png_stream")
        .bind(create, "cairo_create")
        .bind(destroy, "cairo_destroy")
        .bind(status, "cairo_status")
        .bind(save, "cairo_save")
        .bind(restore, "cairo_restore")
        .bind(clip, "cairo_clip")
        .bind(setColour, "cairo_set_source_rgba")
        .bind(setLineWidth, "cairo_set_line_width")
        .bind(setLineJoin, "cairo_set_line_join")
        .bind(setDash, "cairo_set_dash")
        .bind(moveTo, "cairo_move_to")
        .bind(lineTo, "cairo_line_to")
        .bind(rectangle, "cairo_rectangle")
        .bind(arc, "cairo_arc")
        .bind(newPath, "cairo_new_path")
        .bind(closePath, "cairo_close_path")
        .bind(stroke, "cairo_stroke")
        .bind(fill, "cairo_fill")
        .bind(selectFont, "cairo_select_font_face")
        .bind(setFontSize, "cairo_set_font_size")
        .bind(showText, "cairo_show_text")
        .bind(textExtents, "cairo_text_extents");
}

const CairoLibrary& cairo() {
    static const CairoLibrary& library = *new CairoLibrary;
    return library;
}

} // namespace kv
