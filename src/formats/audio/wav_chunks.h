// The chunks of RIFF WAVE, for WAV files and for the many formats that hold some of them.
// Documents: Microsoft/IBM "Multimedia Programming Interface and Data Specifications 1.0" and its 1994
// update; EBU Tech 3306 (RF64).
#pragma once

#include <bit>

#include "base/file_context.h"
#include "formats/framework/chunks.h"
#include "model/item_id.h"

namespace kv {

class Wave;
struct SampleParams;

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

/// Header of a smpl chunk, and one of its loops.
struct SmplHeader {
    u32 manufacturer = 0, product = 0;
    u32 samplePeriod = 0; ///< ns
    u32 unityNote = 60;
    u32 pitchFraction = 0; ///< of a semitone, as a fraction of 2^32
    u32 smpteFormat = 0, smpteOffset = 0;
    u32 loopCount = 0;
    u32 samplerDataSize = 0;
};
struct SmplLoop {
    u32 id = 0;
    u32 type = 0;           ///< 0 forward, 1 bi-directional, 2 reverse
    u32 start = 0, end = 0; ///< frames; the end is part of the loop
    u32 fraction = 0;       ///< of a frame behind the end, as a fraction of 2^32
    u32 playCount = 0;
};
inline constexpr std::size_t kSmplHeaderBytes = 36;
inline constexpr std::size_t kSmplLoopBytes = 24;

SmplHeader readSmplHeader(ByteCursor& in, std::endian order = std::endian::little);
SmplLoop readSmplLoop(ByteCursor& in, std::endian order = std::endian::little);
void writeSmplHeader(ByteWriter& out, const SmplHeader& header);
void writeSmplLoop(ByteWriter& out, const SmplLoop& loop);

/// Takes a smpl chunk over into `params`; `loop` may be null.
void wav_ParseSmpl(SampleParams& params, const SmplHeader& header, const SmplLoop* loop);
/// Fills a smpl chunk from a wave of `frames` frames; `header.loopCount` tells whether `loop` counts.
void wav_BuildSmpl(SmplHeader& header, SmplLoop& loop, const Wave& wave, u32 frames);

/// Reads a fmt chunk's contents at `file.position` and takes them over into the wave. False with the error
/// pair set for what can't be read.
bool wav_ParseFmt(FileContext& file, Wave& wave, WavFormat& format);

/// Walks the items of a LIST INFO between two places of the file.
void wav_ParseInfoList(FileContext& file, u64 start, u64 end, Wave& wave);
/// One INFO item at `file.position`.
void wav_ParseInfoItem(FileContext& file, Wave& wave, u32 id, u64 size);

/// The frames that a data chunk of `dataBytes` holds.
u32 wav_FramesFromBytes(const Wave& wave, const WavFormat& format, u64 dataBytes);

/// Reads a RIFF form, or a bare run of chunks, into the wave. False with the error pair set when it is no
/// wave or one that can't be read.
bool wav_ImpChunks(FileContext& file, u64 start, u64 end, Wave& wave);

/// A wave from a WAV file that lies between two places of another file; null on failure.
Wave* wav_ImpEmbedded(FileContext& file, ItemId request, u64 start, u64 end, std::string_view name);

} // namespace kv
