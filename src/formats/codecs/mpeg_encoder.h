// Packing into MPEG audio: layer III by libmp3lame, layer II by libtwolame, which are opened when they are
// first needed.
#pragma once

#include <span>

#include "formats/codecs/packing_sink.h"

namespace kv {

enum class MpegRate : u8 { Constant, Average, Variable };

struct MpegSettings {
    u32 channels = 1;
    u32 sampleRate = 0; ///< Hz, one of `mpegSampleRates`
    MpegRate rate = MpegRate::Constant;
    f32 kbps = 128;          ///< the next rate that there is counts
    bool lengthFrame = true; ///< layer III: the first frame tells the length, where `out` can be patched
};

/// The sample rates of MPEG audio of versions 1, 2 and, for layer III only, 2.5, rising.
std::span<const u32> mpegSampleRates(int layer);
/// The next of them for a rate, the highest for what is above.
u32 mpegRateFor(u32 rate, int layer);

/// Frames that layer III puts ahead of the samples.
inline constexpr u32 kMp3Delay = 1104;

/// What the qualities of variable rates come to for stereo at 44.1 kHz, in kbit/s, rising.
std::span<const u32> mp3VariableRates();
/// Bit rates of layer II, all versions, in kbit/s.
std::span<const u32> mp2Rates();

/// Begins a layer III stream of float samples. A frame that tells its length tells what the encoder put
/// around the samples, too. `out` must outlive the encoder. Null with the error pair set on failure.
std::unique_ptr<PackingSink> makeMp3Encoder(ByteSink& out, const MpegSettings& settings);
/// Begins a layer II stream of a constant rate.
std::unique_ptr<PackingSink> makeMp2Encoder(ByteSink& out, const MpegSettings& settings);

} // namespace kv
