// Writing of RIFF WAVE files.
#pragma once

#include <optional>

#include "base/file_context.h"
#include "formats/codecs/coded_stream.h"

namespace kv {

class Item;
class SampleBlocks;
class Wave;

/// Sub-types of the writer besides 0.
inline constexpr u32 kWavSubExtensible = 0xFFFE;
inline constexpr u32 kWavSubBare = 0xFFFFFFFF; ///< smpl ahead of the data, and nothing behind it
inline constexpr u32 kWavSubMs = 0x02;         ///< four-bit codes are Microsoft's
inline constexpr u32 kWavSubIma = 0x11;        ///< four-bit codes are the IMA's
inline constexpr u32 kWavSubYamaha = 0x20;     ///< four-bit codes are Yamaha's
inline constexpr u32 kWavSubUsrGsm = 0x303;    ///< GSM stands in a modem's records
inline constexpr u32 kWavSubCwdt = 0x54445743; ///< "CWDT": as samplers want it, with their own data

/// How a wave's samples stand behind a fmt chunk of their own, as other formats have it too.
struct WavEncoding {
    Bytes fmt;                        ///< the whole chunk
    u32 word = 0;                     ///< data format word that plain samples are written in
    u32 frameBytes = 0;               ///< of plain samples
    bool linear = true;               ///< of tag 1, without a fact chunk
    std::optional<CodedWriter> coded; ///< writes the samples in place of the word
    std::optional<Bytes> packed;      ///< the samples themselves, in place of both

    u64 bytesFor(u32 frames) const;
};
/// False with the error pair set when the format word can't be written.
bool wavEncoding(const Wave& wave, u32 formatWord, u32 subType, WavEncoding& encoding);
/// Writes samples as `wavEncoding` laid them out. False with the error pair set on failure.
bool writeEncoded(SampleBlocks& blocks, const WavEncoding& encoding, ByteSink& sink);
/// The data format codes of plain samples that `wavEncoding` takes.
u32 wavPlainCodes();

/// All of a WAV file but its samples.
struct WavParts {
    WavEncoding encoding;
    Bytes head;        ///< up to the first sample
    u64 dataBytes = 0; ///< of samples
    Bytes tail;        ///< behind the last sample, pad byte included
};

/// Lays out the file for `frames` frames of the wave, around samples that were packed before if
/// `parts.encoding` has some. False with the error pair set when the format word can't be written.
bool wavParts(const Wave& wave, u32 frames, u32 formatWord, u32 subType, WavParts& parts);

/// Builds a whole file in memory.
bool wav_Build(Item& item, Bytes& file, u32 formatWord, u32 subType, f32 kbps);

/// Writes a file as a stream: samples go through block by block, nothing is patched. Only those that are to
/// be compressed are packed in memory first.
bool wav_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps);

} // namespace kv
