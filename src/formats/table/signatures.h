// Detect functions: what the first bytes of each format look like. Where a fixed text at a fixed place
// decides, the table's row names it by one of the templates; the others are functions of their own.
//
// All of them work on any buffer, also an empty one; a signature that is cut short doesn't match.
#pragma once

#include <algorithm>

#include "base/bytes.h"
#include "formats/framework/format_row.h"

namespace kv {

/// A text, also with zero bytes, as a template argument.
template <std::size_t N>
struct Literal {
    char text[N];
    constexpr Literal(const char (&from)[N]) { std::copy_n(from, N, text); }
    constexpr std::string_view view() const { return {text, N - 1}; }
};

inline constexpr int kSignature = 6;     ///< the signature matches
inline constexpr int kWeakSignature = 4; ///< a few plausible fields, a frame sync
inline constexpr int kNotRuledOut = 2;

inline bool holdsAt(ByteSpan start, std::size_t at, std::string_view text) {
    return at <= start.size() && textOf(start.subspan(at)).starts_with(text);
}

/// `Magic` at the offset `At`.
template <Literal Magic, std::size_t At = 0, int Score = kSignature>
int magic(ByteSpan start, u32, u64) {
    return holdsAt(start, At, Magic.view()) ? Score : 0;
}

/// Either of two texts at the start.
template <Literal First, Literal Second>
int eitherMagic(ByteSpan start, u32, u64) {
    return holdsAt(start, 0, First.view()) || holdsAt(start, 0, Second.view()) ? kSignature : 0;
}

/// A chunk file: `Id`, a size of four bytes, `Form`.
template <Literal Id, Literal Form, int Score = kSignature>
int form(ByteSpan start, u32, u64) {
    return holdsAt(start, 0, Id.view()) && holdsAt(start, 8, Form.view()) ? Score : 0;
}

/// A text at either of two places.
template <Literal Magic, std::size_t At, std::size_t OrAt>
int magicAtEither(ByteSpan start, u32, u64) {
    return holdsAt(start, At, Magic.view()) || holdsAt(start, OrAt, Magic.view()) ? kSignature : 0;
}

/// A chunk file of either of two forms.
template <Literal Id, Literal Form, Literal OrForm>
int eitherForm(ByteSpan start, u32 subType, u64 fileSize) {
    return std::max(form<Id, Form>(start, subType, fileSize), form<Id, OrForm>(start, subType, fileSize));
}

/// `First` at the start, and `Second` at `At` for a full score, else `Lone`.
template <Literal First, Literal Second, std::size_t At, int Lone>
int magicPair(ByteSpan start, u32, u64) {
    if (!holdsAt(start, 0, First.view())) return 0;
    return holdsAt(start, At, Second.view()) ? kSignature : Lone;
}

/// Ogg pages of any codec but Opus, which has a row of its own.
inline int oggStream(ByteSpan start, u32, u64) {
    constexpr std::size_t kCodecAt = 28, kCodecBytes = 7;
    if (!holdsAt(start, 0, "OggS") || holdsAt(start, kCodecAt, "OpusHead")) return 0;
    return start.size() >= kCodecAt + kCodecBytes ? kSignature : kNotRuledOut;
}

/// A MIDI system exclusive message of a maker, any channel, with the given model or format number.
template <u8 Maker, u8 Model>
int sysEx(ByteSpan start, u32, u64) {
    const char head[] = {'\xF0', static_cast<char>(Maker)};
    const char model[] = {static_cast<char>(Model)};
    return holdsAt(start, 0, {head, 2}) && holdsAt(start, 3, {model, 1}) ? kSignature : 0;
}

/// RIFF WAVE with a format tag in the first chunk, which is where all writers put "fmt ".
template <u16 Tag>
int waveOfTag(ByteSpan start, u32, u64) {
    const char tag[] = {static_cast<char>(Tag & 0xFF), static_cast<char>(Tag >> 8)};
    return form<"RIFF", "WAVE">(start, 0, 0) != 0 && holdsAt(start, 20, {tag, 2}) ? kSignature : 0;
}

/// An MPEG audio frame (ISO 11172-3, 13818-3) of one layer, 0 for any; layer 4 stands for the ADTS frames
/// of AAC (ISO 13818-7). Behind an ID3 tag too long to look behind it, layer III is supposed.
int mpegAudio(ByteSpan start, int layer);
template <int Layer>
int mpegLayer(ByteSpan start, u32, u64) {
    return mpegAudio(start, Layer);
}

int aacStream(ByteSpan start, u32 subType, u64 fileSize);  ///< ADTS or ADIF
int flacStream(ByteSpan start, u32 subType, u64 fileSize); ///< also behind an ID3 tag
int quickTime(ByteSpan start, u32 subType, u64 fileSize);  ///< its brand, or a box that begins older movies
int waveForm(ByteSpan start, u32 subType, u64 fileSize);   ///< RIFF WAVE, or its 64-bit or big-endian form
int broadcastWave(ByteSpan start, u32 subType, u64 fileSize); ///< WAVE with an early "bext" chunk, else 2
int aiffForm(ByteSpan start, u32 subType, u64 fileSize); ///< AIFF; AIFF-C is left to a row of its own, if any
int sunAudio(ByteSpan start, u32 subType, u64 fileSize); ///< of Sun, NeXT and DEC in either byte order
int wave64(ByteSpan start, u32 subType, u64 fileSize);
int soundFont1(ByteSpan start, u32 subType, u64 fileSize);    ///< "sfbk" of major version 1, else 2
int soundFont2(ByteSpan start, u32 subType, u64 fileSize);    ///< "sfbk" of major version 2 or 3, else 2
int soundFontPack(ByteSpan start, u32 subType, u64 fileSize); ///< "sfpk" of major version 2, else 2
int sfzText(ByteSpan start, u32 subType, u64 fileSize);       ///< 4 with an early "<region>", else 2
int akaiS900Sample(ByteSpan start, u32 subType, u64 fileSize);
int akaiS900Program(ByteSpan start, u32 subType, u64 fileSize);
int akaiS1000Sample(ByteSpan start, u32 subType, u64 fileSize);  ///< sub-type 1 S1000, 3 S3000
int akaiS1000Program(ByteSpan start, u32 subType, u64 fileSize); ///< sub-type 1 S1000, 3 S3000
int mpc1000Program(ByteSpan start, u32 subType, u64 fileSize);
int mpc2000Program(ByteSpan start, u32 subType, u64 fileSize);
int mpc3000Program(ByteSpan start, u32 subType, u64 fileSize);
int mpcSound(ByteSpan start, u32 subType, u64 fileSize);
int korgBank(ByteSpan start, u32 subType, u64 fileSize);         ///< the sub-type's low byte is the product
int protrackerModule(ByteSpan start, u32 subType, u64 fileSize); ///< 2 when the sample volumes are possible
int impulseTracker(ByteSpan start, u32 subType, u64 fileSize);   ///< module, instrument or sample
int sampleDump(ByteSpan start, u32 subType, u64 fileSize);       ///< a dump header (MIDI 1.0)
int ircamSound(ByteSpan start, u32 subType, u64 fileSize);       ///< of any machine, in either byte order
int matlabAudio(ByteSpan start, u32 subType, u64 fileSize);      ///< version 5, or a version 4 with a rate
int sounderSound(ByteSpan start, u32 subType, u64 fileSize);     ///< a few plausible fields
int promptIndex(ByteSpan start, u32 subType, u64 fileSize);      ///< fields that agree with each other

} // namespace kv
