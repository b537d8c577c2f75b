// The chunks of a WAV file that packed forms keep beside their samples, so that loops, root keys and markers
// come through them.
#pragma once

#include <vector>

#include "base/bytes.h"

namespace kv {

class Wave;

/// The chunks of a WAV file, apart from its samples.
struct WavMetadata {
    Bytes head; ///< up to the first sample
    Bytes tail; ///< behind the last one and its padding
};

/// Lays out a WAV file for `frames` frames. False, with the error pair set, when there is no such file.
bool wavMetadata(const Wave& wave, u32 frames, u32 formatWord, WavMetadata& metadata);
/// The wave has something that is kept in no other place: a loop, a tuning, markers.
bool needsWavMetadata(const Wave& wave);

/// Takes loop, tuning, texts and markers over from the chunks of a WAV file that stand in `chunks` without
/// their form: header after contents, those of samples without contents. What the wave has of samples stays.
void takeWavChunks(ByteSpan chunks, Wave& wave);

/// The chunks of a form, one by one with their headers; the form's own header comes first.
std::vector<Bytes> splitWav(const WavMetadata& metadata);

} // namespace kv
