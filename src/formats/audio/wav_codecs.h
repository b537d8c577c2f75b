// The format tags of WAV files whose samples are coded, and how the fmt chunk describes the coding.
#pragma once

#include "formats/audio/wav_fmt.h"
#include "formats/codecs/coded_stream.h"

namespace kv {

enum class WavCodecKind : u8 {
    Ms,
    Ima,
    Dialogic,
    Yamaha,
    Gsm,
    UsrGsm,
    Rockwell,
    G72x,
    G722,
    Mpeg,
    Aac,
    Vorbis
};

/// What a tag asks of the fmt chunk.
struct WavCodec {
    u16 tag;
    WavCodecKind kind;
    u16 leastBits, mostBits; ///< per code; 0: the chunk's don't count
    u16 bits;                ///< of the wave; 0: as the chunk says
    u16 mostChannels;        ///< 0: always one, whatever the chunk says
    std::string_view channelsRefusal, bitsRefusal;

    /// A stream with a decoder of its own, whose headers count for channels and rate.
    bool isStream() const { return kind >= WavCodecKind::Mpeg; }
};
/// Null for a tag of plain samples or an unknown one.
const WavCodec* wavCodec(u16 tag);

/// Checks a parsed fmt chunk of a coded tag and takes it over into the wave.
bool wav_ParseCodedFmt(const WavCodec& codec, FileContext& file, Wave& wave, const WavFormat& format);

/// The coding that the fmt chunk at `fmtOffset`, a place of its contents, describes; without `decode` when it
/// describes none.
CodedForm wavCodedForm(ByteSource& source, u64 fmtOffset, std::endian order);

/// A stream within a WAV file: its codec, the data chunk that it fills, and what the fmt chunk adds.
struct WavStream {
    WavCodecKind kind;
    std::shared_ptr<ByteSource> data;
    Bytes config;  ///< of AAC
    u32 lead = 0;  ///< frames that the encoder put ahead, if the fmt chunk tells them as our writer does
    u32 extra = 0; ///< frames that the fact chunk counts for them
};
WavStream wavStream(const WavCodec& codec, const std::shared_ptr<ByteSource>& file, u64 fmtOffset,
                    std::endian order, u64 dataStart, u64 dataBytes);
/// Sets channels, rate and length by the stream. `frames` is what is known of the length, 0 for nothing, and
/// never more than there are. Without the library all stays as it was said.
void wavSettleStream(const WavStream& stream, u32 frames, WavFormat& format, Wave& wave);
/// The samples of a stream with `channels` channels. Null with the error pair set on failure.
std::unique_ptr<SampleBlocks> wavOpenStream(const WavStream& stream, u32 channels, const Wave& wave);

} // namespace kv
