// The kinds of media files: what stands in one, and what libav calls it.
#pragma once

#include <string>
#include <string_view>

#include "base/integers.h"

namespace kv {

/// The sub-type of a format's row.
enum MediaKind : u32 {
    kMediaM4a,
    kMediaM4r,
    kMediaMp4,
    kMediaMov,
    kMedia3gp,
    kMedia3g2,
    kMediaMatroska,
    kMediaAvi,
    kMediaMpeg,
    kMediaAsf,
    kMediaWma,
    kMediaAmr,
    kMediaAmrIf2,
    kMediaApe,
    kMediaAiff, ///< these have readers of their own, which leave some codecs to libav
    kMediaCaf,
    kMediaOgg,
    kMediaAac, ///< MPEG 4, low complexity; all of these are only written
    kMediaAacMain,
    kMediaAacMpeg2,
    kMediaAacMpeg2Main,
    kMediaKindCount,
};

struct MediaKindRow {
    std::string_view importContext, exportContext; ///< of failures
    const char* demuxer = nullptr;                 ///< libavformat's name
    const char* muxer = nullptr;                   ///< libavformat's name; null: can't be written
    const char* encoder = nullptr;                 ///< for "Compressed"
    const char* encoder16 = nullptr;               ///< for 16 and 24 bits, if the kind has them
    const char* encoder24 = nullptr;
    const char* encoderOptions = "";
    f64 leastKbps = 0;       ///< that the encoder takes
    bool keepsTexts = false; ///< all but the engineer
    bool keepsEngineer = false;
    bool keepsCues = false;
    u32 edgeFrames = 0; ///< that decoders drop at the start, and that an encoder still holds at the end
};
/// The row of a kind; that of the first one for a number that is none.
const MediaKindRow& mediaKind(u32 kind);

/// The rate nearest to `rate`, and not below it where possible, that the kind's lossy encoder takes, in Hz.
u32 encoderRate(const MediaKindRow& kind, u32 rate);

/// Bit rates of the kinds that are written with a lossy encoder (the OptionsFn of their rows).
f32 media_Options(int index, u32 subType, std::string* label);

} // namespace kv
