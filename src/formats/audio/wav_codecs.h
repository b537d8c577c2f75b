// The format tags of WAV files whose samples are coded, and how the fmt chunk describes the coding.
#pragma once

#include "formats/audio/wav_chunks.h"
#include "formats/codecs/coded_stream.h"

namespace kv {

enum class WavCodecKind : u8 { Ms, Ima, Dialogic, Yamaha, Gsm, UsrGsm, Rockwell, G72x, G722, Mpeg };

/// What a tag asks of the fmt chunk.
struct WavCodec {
    u16 tag;
    WavCodecKind kind;
    u16 leastBits, mostBits; ///< per code; 0: the chunk's don't count
    u16 bits;                ///< of the wave; 0: as the chunk says
    u16 mostChannels;        ///< 0: always one, whatever the chunk says
    std::string_view channelsRefusal, bitsRefusal;
};
/// Null for a tag of plain samples or an unknown one.
const WavCodec* wavCodec(u16 tag);

/// Checks a parsed fmt chunk of a coded tag and takes it over into the wave.
bool wav_ParseCodedFmt(const WavCodec& codec, FileContext& file, Wave& wave, const WavFormat& format);

/// The coding that the fmt chunk at `fmtOffset`, a place of its contents, describes; without `decode` when it
/// describes none.
CodedForm wavCodedForm(ByteSource& source, u64 fmtOffset, std::endian order);

/// The samples of a wave whose tag is of MPEG audio, which fill a data chunk: its own header counts for
/// channels and rate. `frames` is what is known of the length, 0 for nothing, and never more than there are.
/// Without the library all stays as it was said.
void wavSettleMpeg(const FileContext& file, u64 dataStart, u64 dataBytes, u32 frames, Wave& wave);

} // namespace kv
