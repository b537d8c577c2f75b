#include "draw/theme.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace kv {
namespace {

constexpr Theme kLight{
    .background = 0xFFFFFFFF,
    .plot = 0xFFFBFCFD,
    .frame = 0xFFB9C2CC,
    .grid = 0xFFE1E6EB,
    .fineGrid = 0xFFF0F3F5,
    .text = 0xFF1F2933,
    .faintText = 0xFF5F6B78,
    .peaks = 0xFF90BCE4,
    .body = 0xFF2D6DB3,
    .first = 0xFF2D6DB3,
    .second = 0xFFD9722E,
    .firstArea = 0x302D6DB3,
    .loop = 0xFF23874F,
    .loopArea = 0x1C2FA865,
    .cue = 0xFFA86E00,
    .cueArea = 0x18D99A1C,
    .seam = 0xFFC93A3A,
    .label = 0xD8FBFCFD,
};

constexpr Theme kDark{
    .background = 0xFF15181C,
    .plot = 0xFF1A1E23,
    .frame = 0xFF4A5561,
    .grid = 0xFF2C333B,
    .fineGrid = 0xFF22282E,
    .text = 0xFFE7EBEF,
    .faintText = 0xFF9AA6B2,
    .peaks = 0xFF386A9B,
    .body = 0xFF7FBBF2,
    .first = 0xFF7FBBF2,
    .second = 0xFFF2A25F,
    .firstArea = 0x307FBBF2,
    .loop = 0xFF5CCB8A,
    .loopArea = 0x1E5CCB8A,
    .cue = 0xFFE5B64A,
    .cueArea = 0x1AE5B64A,
    .seam = 0xFFFF7B72,
    .label = 0xD81A1E23,
};

/// Lightness from 0.12 to 0.96 in equal steps in the colour space Oklab (B. Ottosson, 2020), the hue turning
/// from violet over red to yellow, as colourful as sRGB allows.
constexpr u32 kHeat[] = {0x07001E, 0x190034, 0x2D0043, 0x44004E, 0x5D0056, 0x780059,
                         0x940058, 0xB00052, 0xCB1045, 0xDE3436, 0xED5224, 0xF77014,
                         0xFC8D21, 0xFDAA42, 0xFBC56C, 0xF8DE9B, 0xF8F3D5};

} // namespace

const Theme& theme(bool dark) {
    return dark ? kDark : kLight;
}

Colour heatColour(f64 level) {
    constexpr std::size_t kSteps = std::size(kHeat) - 1;
    const f64 at = level > 0 ? std::min(level, 1.0) * kSteps : 0;
    const std::size_t index = std::min(static_cast<std::size_t>(at), kSteps - 1);
    const f64 part = at - static_cast<f64>(index);
    Colour colour = 0xFF;
    for (const int shift : {16, 8, 0}) {
        const auto channel = [&](u32 rgb) { return static_cast<f64>(rgb >> shift & 0xFF); };
        const f64 low = channel(kHeat[index]), high = channel(kHeat[index + 1]);
        colour = colour << 8 | static_cast<u32>(std::lround(low + (high - low) * part));
    }
    return colour;
}

} // namespace kv
