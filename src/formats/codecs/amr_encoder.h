// Packing into AMR narrow-band speech by libopencore-amrnb, which is opened when it is first needed.
#pragma once

#include <span>

#include "formats/codecs/packing_sink.h"

namespace kv {

inline constexpr u32 kAmrSampleRate = 8000; ///< Hz

/// How the frames stand in the file.
enum class AmrForm : u8 { Storage, InterfaceFormat2 };

/// The rates that speech is packed at, in kbit/s, rising.
std::span<const f32> amrRates();

/// Begins a run of frames, without a mark ahead of them, of mono samples of `kAmrSampleRate`; of the rates
/// the nearest to `kbps` counts. The sound comes 5 ms late out of any decoder, which a file can't tell: the
/// last frame has what is left of it, but for sound of whole frames (20 ms), which stays as long as it is.
/// `out` must outlive the encoder. Null with the error pair set on failure.
std::unique_ptr<PackingSink> makeAmrEncoder(ByteSink& out, f32 kbps, AmrForm form);

} // namespace kv
