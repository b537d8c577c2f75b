// The fmt chunk of WAV files: how the samples are stored.
#pragma once

#include <bit>

#include "base/file_context.h"

namespace kv {

class Wave;

/// Format tags of the fmt chunk: plain samples, and MPEG audio of all layers and of layer III.
enum WavTag : u16 {
    kWavPcm = 0x0001,
    kWavFloat = 0x0003,
    kWavALaw = 0x0006,
    kWavMuLaw = 0x0007,
    kWavMpeg = 0x0050,
    kWavMp3 = 0x0055,
    kWavExtensible = 0xFFFE,
};

/// The fmt chunk as it stands. For Extensible, `tag` is that of the sub-format.
struct WavFormat {
    u16 tag = 0;
    bool extensible = false;
    u16 channels = 0;
    u32 sampleRate = 0;
    u16 blockAlign = 0;
    u16 bits = 0;      ///< per stored sample
    u16 validBits = 0; ///< of them, with a meaning
    u64 offset = 0;    ///< place of the chunk's contents in the file
    std::endian order = std::endian::little;

    u32 bytesPerSample() const { return (u32{bits} + 7) / 8; }
    u32 frameBytes() const { return bytesPerSample() * channels; }
};

/// Reads a fmt chunk's contents at `file.position` and takes them over into the wave. False with the error
/// pair set for what can't be read.
bool wav_ParseFmt(FileContext& file, Wave& wave, WavFormat& format);

/// The frames that a data chunk of `dataBytes` holds.
u32 wav_FramesFromBytes(const Wave& wave, const WavFormat& format, u64 dataBytes);

} // namespace kv
