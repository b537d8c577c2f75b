// Files that hold nothing but coded samples.
#pragma once

#include "base/file_context.h"
#include "formats/codecs/coded_stream.h"

namespace kv {

class Collection;
class Item;
class Wave;
struct RawSource;
struct WaveReader;

enum class RawCoding : u8 {
    G721,
    G722,
    G723,
    G726,
    Dialogic,
    Yamaha,
    Rockwell,
    GsmDouble,
    GsmPlain,
    UsrGsm,
    UsrGsmB
};

/// In the sub-type of a G.7xx row: first codes stand in the high bits of a byte. The low byte has the bits of
/// a code, 0 for what has to be asked.
inline constexpr u32 kCodedBigEndian = 0x100;

/// Reads a file as one mono wave at the encoding's usual rate. Asks for the bits of a code where the row
/// doesn't say and `RawSource::codeBits` neither. A file for the double frames of GSM that has the marks of
/// plain frames or of a modem's records all over is taken as what it is.
bool importCoded(FileContext& file, RawCoding coding, u32 subType);
template <RawCoding Coding>
bool coded_Imp(Collection&, FileContext& file, u32 subType) {
    return importCoded(file, Coding, subType);
}

/// Writes a wave, of two channels their average. Dialogic files may hold plain samples, and have the rate of
/// the sub-type, or of 6, 8 or 11 kHz by a `bitRate` of 6 or 11 or any other. False with the error pair set.
bool exportCoded(Item& item, FileContext& file, RawCoding coding, u32 formatWord, u32 subType, f32 bitRate);
template <RawCoding Coding>
bool coded_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool, f32 bitRate) {
    return exportCoded(item, file, Coding, formatWord, subType, bitRate);
}

/// Rates that a G.722 row writes, in kbit/s.
f32 g722_Options(int index, u32 subType, std::string* label);

/// The wave is read by one of these; then takes another rate, offset and bit order for it.
bool reinterpretCoded(Wave& wave, const RawSource& source, u64 fileSize);

} // namespace kv
