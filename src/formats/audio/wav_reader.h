// Samples of a WAV file that are no plain run of samples of the wave's own channels.
#pragma once

#include "formats/audio/wav_fmt.h"
#include "model/sample_blocks.h"

namespace kv {

class Collection;

/// Takes the first two channels of many, the high bytes of long samples, and as many frames as are there.
extern const WaveReader wavReader;

/// Notes in the wave's private area what `wavReader` needs to find the samples again.
void rememberWavLayout(Wave& wave, const WavFormat& format, u64 dataBytes);

/// Imports a WAV file.
bool wav_Imp(Collection& collection, FileContext& file, u32 subType);

} // namespace kv
