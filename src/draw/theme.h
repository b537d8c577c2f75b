// Colours of pictures.
#pragma once

#include "draw/canvas.h"

namespace kv {

struct Theme {
    Colour background, plot, frame, grid, fineGrid;
    Colour text, faintText;
    Colour peaks, body;    ///< of a waveform: from least to most, and what the ear hears
    Colour first, second;  ///< curves; the first channel or what is played, the other
    Colour firstArea;      ///< below the first
    Colour loop, loopArea; ///< marker, and what is between the two
    Colour cue, cueArea;
    Colour seam;
    Colour label; ///< behind text that stands on a curve
};

const Theme& theme(bool dark);

/// Black over purple and red to yellow, evenly in lightness; `level` from 0 to 1, what is outside is cut.
Colour heatColour(f64 level);

} // namespace kv
