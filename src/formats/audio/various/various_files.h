// Files without a header of their own making, and formats that are seldom seen.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Plain samples behind a header of fixed size, or none.
enum class FixedLayout { Psion, Sounder, Sndtool, CdRaw };
bool importFixed(FileContext& file, FixedLayout layout);
template <FixedLayout Layout>
bool fixed_Imp(Collection&, FileContext& file, u32) {
    return importFixed(file, Layout);
}

/// The linear samples of a DVD without the packets around them: stereo, 16 or 24 bits.
bool importDvd(FileContext& file, u32 bits, u32 rateHz);
template <u32 Bits, u32 RateHz>
bool dvd_Imp(Collection&, FileContext& file, u32) {
    return importDvd(file, Bits, RateHz);
}

/// Bytes of mu-law by its formula, without the segments of G.711.
bool u255law_Imp(Collection& collection, FileContext& file, u32 subType);
bool u255law_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps);

/// Numbers in text, a frame in each line. Integers of up to 16 bits are taken for such samples, longer ones
/// for samples of 24 or 32 bits, and numbers with a point for a full scale of 1. Comments begin with ";",
/// among them "; Sample Rate 44100" and "; Channels 2"; where they say so, a first column of times is passed
/// over.
bool asciiAudio_Imp(Collection& collection, FileContext& file, u32 subType);
bool asciiAudio_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps);

/// The WAV files in a package of the Unreal engine, each as a wave.
bool uax_Imp(Collection& collection, FileContext& file, u32 subType);

/// PlayStation sounds. The writer moves loops to whole blocks and leaves out what stands behind them.
bool vag_Imp(Collection& collection, FileContext& file, u32 subType);
bool vag_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps);

/// Shorten. What the packed file held besides its samples is kept, as far as it is that of a WAV file.
bool shn_Imp(Collection& collection, FileContext& file, u32 subType);
bool shn_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps);

/// Files of MIDI Sample Dump messages.
bool sds_Imp(Collection& collection, FileContext& file, u32 subType);
bool sds_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps);

/// Formats that libsndfile reads and writes; to the writer a sub-type is the `SndfileFormat`.
bool sndfile_Imp(Collection& collection, FileContext& file, u32 subType);
bool exportSndfile(Item& item, FileContext& file, u32 formatWord, u32 format, bool perWave);
template <auto Format>
bool sndfile_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    return exportSndfile(item, file, formatWord, static_cast<u32>(Format), perWave);
}

} // namespace kv
