// The wave files of home computers, early sound cards and the first samplers.
#pragma once

#include "formats/framework/format_row.h"

namespace kv {

// Each is the import or export function of a format row; none uses a sub-type but where it says so.

/// FORM 8SVX and 16SV (EA IFF 85): one wave, or one for each octave of an instrument.
bool svx_Imp(Collection& collection, FileContext& file, u32 subType);
/// Plain 8-bit samples.
bool svx_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// FORM MAUD, of an Amiga sound card.
bool maud_Imp(Collection& collection, FileContext& file, u32 subType);

/// Creative Voice Files with all their blocks.
bool voc_Imp(Collection& collection, FileContext& file, u32 subType);
/// Sub-type of the writer: only what the first cards play.
inline constexpr u32 kVocOldStyle = 1;
bool voc_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

bool samplevision_Imp(Collection& collection, FileContext& file, u32 subType);

bool avr_Imp(Collection& collection, FileContext& file, u32 subType);

bool dwd_Imp(Collection& collection, FileContext& file, u32 subType);
bool dwd_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// Huffman-coded samples of the Macintosh, with a MacBinary header or without.
bool hcom_Imp(Collection& collection, FileContext& file, u32 subType);

bool tx16w_Imp(Collection& collection, FileContext& file, u32 subType);
bool tx16w_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// Waves of the SY85 and its relatives.
bool sy_Imp(Collection& collection, FileContext& file, u32 subType);

/// Recordings of NOMAD players; what is written becomes mono of 8 kHz.
bool nvf_Imp(Collection& collection, FileContext& file, u32 subType);
bool nvf_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// Covox sounds of plain samples.
bool v8_Imp(Collection& collection, FileContext& file, u32 subType);

/// Sample dumps in a form of their own.
bool sdx_Imp(Collection& collection, FileContext& file, u32 subType);

/// Indexed files of annotated prompts: each prompt becomes a wave; a file with one is written.
bool vap_Imp(Collection& collection, FileContext& file, u32 subType);
bool vap_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

bool sd1_Imp(Collection& collection, FileContext& file, u32 subType);
bool sd1_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

/// Sub-type of Sound Designer II: both forks in one file, as MacBinary has them. Else the file is the data
/// fork, and the resource fork is looked for beside it.
inline constexpr u32 kSd2Flat = 1;
bool sd2_Imp(Collection& collection, FileContext& file, u32 subType);
bool sd2_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv
