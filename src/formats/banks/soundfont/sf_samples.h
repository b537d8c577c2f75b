// The samples of a SoundFont as waves that read on first use.
#pragma once

#include "formats/banks/soundfont/sf_tables.h"
#include "model/wave.h"

namespace kv {

/// A sample header of version 2; positions in points of the sample data.
struct Sf2Sample {
    std::string name;
    u32 start = 0, end = 0, loopStart = 0, loopEnd = 0;
    u32 rate = 0; ///< Hz
    u8 rootKey = 60;
    i8 correction = 0; ///< cents
    u16 link = 0;      ///< row of the other side
    u16 type = 0;
};
inline constexpr u16 kSf2Mono = 1, kSf2Right = 2, kSf2Left = 4, kSf2Linked = 8;
/// Bit of the type of a sample that is an Ogg Vorbis stream, in files of version 3.
inline constexpr u16 kSf3Vorbis = 0x10;

Sf2Sample readSf2Sample(ByteCursor record);

/// Points the wave at its samples: 16-bit ones, those with a third byte elsewhere, or packed ones. Sets the
/// wave's frames, limited to what is there. False with the error pair set, and no frames, when a packed
/// stream can't be read.
bool placeSf2Samples(Wave& wave, const SfFile& file, const Sf2Sample& sample, const FileContext& context);

/// Samples whose upper two bytes stand in one place and the lowest one in another.
extern const WaveReader sf24Reader;
/// Samples in a stream that the whole bank shares, packed by WavPack.
extern const WaveReader sfPackReader;
/// Samples that are an Ogg Vorbis stream of their own.
extern const WaveReader sfVorbisReader;

} // namespace kv
