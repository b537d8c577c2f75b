#include "formats/table/signatures.h"

#include <functional>

namespace kv {
namespace {

u8 byteAt(ByteSpan start, std::size_t at) {
    return std::to_integer<u8>(start[at]);
}

/// Reads from `at` on; past the end the cursor gives zeros and isn't `ok()`.
ByteCursor cursorAt(ByteSpan start, std::size_t at) {
    return ByteCursor(start.subspan(std::min(at, start.size())));
}

template <class Predicate>
bool allBytes(ByteSpan start, std::size_t at, std::size_t count, Predicate fits) {
    if (at > start.size() || count > start.size() - at) return false;
    const ByteSpan part = start.subspan(at, count);
    return std::all_of(part.begin(), part.end(), [&](std::byte b) { return fits(std::to_integer<u8>(b)); });
}

bool printable(u8 c) {
    return c >= 0x20 && c < 0x7F;
}

/// The letters of the S1000 have the codes 0..40.
bool akaiLetter(u8 c) {
    return c <= 40;
}

int soundFont(ByteSpan start, std::string_view formType, u16 version, u16 lastVersion) {
    if (!holdsAt(start, 0, "RIFF") || !holdsAt(start, 8, formType)) return 0;
    ByteCursor ifil = cursorAt(start, 32); // a standard file starts with LIST INFO and ifil
    const u16 found = ifil.u16le();
    return found >= version && found <= lastVersion ? kSignature : kNotRuledOut;
}

/// What stands behind an ID3 tag at the start; empty when that isn't within the buffer.
ByteSpan behindId3(ByteSpan start) {
    if (start.size() < 10) return {};
    std::size_t size = 0;
    for (std::size_t i = 6; i < 10; ++i) size = size << 7 | static_cast<std::size_t>(byteAt(start, i) & 0x7F);
    return start.subspan(std::min(start.size(), size + 10));
}

} // namespace

int quickTime(ByteSpan start, u32, u64) {
    if (holdsAt(start, 4, "ftypqt")) return kSignature;
    for (const std::string_view box : {"moov", "mdat", "wide", "pnot"}) {
        if (holdsAt(start, 4, box)) return kWeakSignature;
    }
    return 0;
}

int waveForm(ByteSpan start, u32, u64) {
    if (!holdsAt(start, 8, "WAVE")) return 0;
    for (const std::string_view id : {"RIFF", "RF64", "BW64", "RIFX"}) {
        if (holdsAt(start, 0, id)) return kSignature;
    }
    return 0;
}

int broadcastWave(ByteSpan start, u32, u64) {
    constexpr int kChunksLookedAt = 4;
    if (form<"RIFF", "WAVE">(start, 0, 0) == 0) return 0;
    ByteCursor chunks = cursorAt(start, 12);
    for (int i = 0; i < kChunksLookedAt; ++i) {
        const ByteSpan id = chunks.bytes(4);
        const u32 size = chunks.u32le();
        if (!chunks.ok() || textOf(id) == "data") break;
        if (textOf(id) == "bext") return kSignature;
        chunks.skip(std::size_t{size} + (size & 1));
    }
    return kNotRuledOut;
}

int aiffForm(ByteSpan start, u32, u64) {
    if (form<"FORM", "AIFF">(start, 0, 0) != 0) return kSignature;
    return form<"FORM", "AIFC">(start, 0, 0) != 0 ? kWeakSignature : 0;
}

int sunAudio(ByteSpan start, u32, u64) {
    using namespace std::string_view_literals;
    for (const std::string_view text : {".snd"sv, "dns."sv, ".sd\0"sv, "\0ds."sv}) {
        if (holdsAt(start, 0, text)) return kSignature;
    }
    return 0;
}

int wave64(ByteSpan start, u32, u64) {
    using namespace std::string_view_literals;
    constexpr auto kRiff = "\x72\x69\x66\x66\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00"sv;
    constexpr auto kWave = "\x77\x61\x76\x65\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A"sv;
    return holdsAt(start, 0, kRiff) && holdsAt(start, 24, kWave) ? kSignature : 0;
}

int soundFont1(ByteSpan start, u32, u64) {
    return soundFont(start, "sfbk", 1, 1);
}
int soundFont2(ByteSpan start, u32, u64) {
    return soundFont(start, "sfbk", 2, 3);
}
int soundFontPack(ByteSpan start, u32, u64) {
    return soundFont(start, "sfpk", 2, 2);
}

int sfzText(ByteSpan start, u32, u64) {
    constexpr std::size_t kSearchedBytes = 2048;
    constexpr std::string_view kRegion = "<region>";
    static const std::boyer_moore_horspool_searcher search(kRegion.begin(), kRegion.end());
    const std::string_view text = textOf(start.first(std::min(start.size(), kSearchedBytes)));
    return std::search(text.begin(), text.end(), search) != text.end() ? kWeakSignature : kNotRuledOut;
}

int akaiS900Sample(ByteSpan start, u32, u64) {
    ByteCursor in = cursorAt(start, 16);
    const u32 length = in.u32le();
    const u16 rate = in.u16le();
    in.skip(4);
    const char loop = static_cast<char>(in.u8le());
    in.skip(1);
    const u32 end = in.u32le();
    const u32 first = in.u32le();
    const u32 loopLength = in.u32le();
    const bool possible = in.ok() && rate != 0 && length >= first && length >= loopLength && first <= end &&
                          (loop == 'A' || loop == 'L' || loop == 'O');
    if (!possible) return 0;
    const bool blank = allBytes(start, 10, 6, [](u8 c) { return c == ' '; });
    const bool zero = allBytes(start, 10, 6, [](u8 c) { return c == 0; });
    return blank || zero ? kWeakSignature : kNotRuledOut;
}

int akaiS900Program(ByteSpan start, u32, u64) {
    // The name of the program and of the first keygroup's sample.
    if (!allBytes(start, 0, 10, printable) || !allBytes(start, 62, 10, printable)) return 0;
    const u8 numberValid = byteAt(start, 27);
    return byteAt(start, 22) == 255 && (numberValid == 0 || numberValid == 255) ? kWeakSignature : 0;
}

int akaiS1000Sample(ByteSpan start, u32 subType, u64 fileSize) {
    if (!holdsAt(start, 0, "\3") || !allBytes(start, 3, 12, akaiLetter)) return 0;
    ByteCursor in = cursorAt(start, 26);
    const u64 headerBytes = subType == 1 ? 150 : 192;
    const u64 dataBytes = u64{in.u32le()} * 2;
    if (!in.ok()) return 0;
    return headerBytes + dataBytes == fileSize ? kSignature : kWeakSignature;
}

int akaiS1000Program(ByteSpan start, u32 subType, u64 fileSize) {
    constexpr std::size_t kKeygroupsAt = 42;
    if (!holdsAt(start, 0, "\1") || !allBytes(start, 3, 12, akaiLetter)) return 0;
    const std::size_t blockBytes = subType == 1 ? 150 : 192;
    if (!holdsAt(start, blockBytes, "\2")) return 0; // the first keygroup
    return blockBytes * (1u + byteAt(start, kKeygroupsAt)) == fileSize ? kSignature : kWeakSignature;
}

int mpc1000Program(ByteSpan start, u32, u64) {
    constexpr u32 kFileBytes = 10756;
    if (!holdsAt(start, 4, "MPC1000 ") || !holdsAt(start, 12, "PGM ")) return 0;
    return ByteCursor(start).u32le() == kFileBytes ? kSignature : kWeakSignature;
}

int mpc2000Program(ByteSpan start, u32, u64) {
    // 07 04, then a count of sample names, each of 16 characters and a zero.
    ByteCursor in = cursorAt(start, 2);
    const u16 names = in.u16le();
    const bool possible = holdsAt(start, 0, "\7\4") && in.ok() && names <= 256;
    if (!possible) return 0;
    if (names == 0) return kWeakSignature;
    const ByteSpan name = in.bytes(17);
    return allBytes(name, 0, 16, printable) && byteAt(name, 16) == 0 ? kSignature : kWeakSignature;
}

int mpc3000Program(ByteSpan start, u32, u64 fileSize) {
    using namespace std::string_view_literals;
    constexpr u64 kFileBytes = 4608;
    return holdsAt(start, 0, "\7\0"sv) && fileSize == kFileBytes ? kSignature : 0;
}

int mpcSound(ByteSpan start, u32, u64) {
    // A version byte of 1, the type of the operating system, a name of 16 characters and a zero.
    constexpr std::size_t kNameEnd = 18;
    if (start.size() <= kNameEnd || byteAt(start, 0) != 1 || byteAt(start, 1) > 4) return 0;
    return allBytes(start, 2, 16, printable) && byteAt(start, kNameEnd) == 0 ? kWeakSignature : 0;
}

int korgBank(ByteSpan start, u32 subType, u64) {
    if (start.size() < 6 || !holdsAt(start, 0, "KORG") || byteAt(start, 4) != (subType & 0xFF)) return 0;
    return byteAt(start, 5) == 0 && holdsAt(start, 16, "PCG1") ? kSignature : kNotRuledOut;
}

int protrackerModule(ByteSpan start, u32, u64) {
    constexpr std::size_t kFirstVolume = 45, kHeaderBytes = 30, kSamples = 15;
    constexpr u8 kFullVolume = 64;
    if (start.size() <= kFirstVolume + kHeaderBytes * (kSamples - 1)) return 0;
    for (std::size_t i = 0; i < kSamples; ++i) {
        if (byteAt(start, kFirstVolume + kHeaderBytes * i) > kFullVolume) return 0;
    }
    return kNotRuledOut;
}

int impulseTracker(ByteSpan start, u32, u64) {
    if (holdsAt(start, 0, "ziRCONia")) return kWeakSignature; // an MMCMP-packed file
    const bool known = holdsAt(start, 0, "IMPM") || holdsAt(start, 0, "IMPI") || holdsAt(start, 0, "IMPS");
    return known ? kSignature : 0;
}

int sampleDump(ByteSpan start, u32, u64) {
    constexpr std::size_t kHeaderBytes = 21;
    if (start.size() < kHeaderBytes || !holdsAt(start, 0, "\xF0\x7E")) return 0;
    return byteAt(start, 3) == 1 && byteAt(start, kHeaderBytes - 1) == 0xF7 ? kSignature : 0;
}

int ircamSound(ByteSpan start, u32, u64) {
    ByteCursor in(start);
    const u32 magic = in.u32be();
    constexpr u32 kLittle = 0x64A30000, kBig = 0x0000A364; // around the number of a kind of machine, 1 to 4
    const u32 machine = magic >> 8 & 0xFF, machineBig = magic >> 16 & 0xFF;
    const bool little = (magic & 0xFFFF00FF) == kLittle && machine >= 1 && machine <= 4;
    const bool big = (magic & 0xFF00FFFF) == kBig && machineBig >= 1 && machineBig <= 4;
    return in.ok() && (little || big) ? kSignature : 0;
}

int matlabAudio(ByteSpan start, u32, u64) {
    using namespace std::string_view_literals;
    constexpr std::size_t kFirstNameAt = 20;
    if (holdsAt(start, 0, "MATLAB 5.0 MAT-file")) return kSignature;
    return holdsAt(start, kFirstNameAt, "samplerate\0"sv) ? kSignature : 0;
}

int sounderSound(ByteSpan start, u32, u64) {
    ByteCursor in(start);
    const u16 zero = in.u16le(), rate = in.u16le(), volume = in.u16le(), shift = in.u16le();
    const bool possible =
        in.ok() && zero == 0 && rate >= 4000 && rate <= 25000 && volume <= 10 && shift <= 10;
    return possible ? kNotRuledOut : 0;
}

int promptIndex(ByteSpan start, u32, u64 fileSize) {
    ByteCursor in(start);
    const u64 entries = in.u32le(), rate = in.u32le(), used = in.u32le();
    in.skip(4);
    const u64 size = in.u32le();
    in.skip(4);
    const u64 offset = in.u32le(), bytes = in.u32le(), text = in.u32le();
    const bool possible = in.ok() && entries >= used && used >= 1 && entries <= 4096 && rate >= 4000 &&
                          rate <= 48000 && size <= fileSize && offset >= 36 && offset + bytes <= fileSize &&
                          text < fileSize;
    return possible ? kWeakSignature : 0;
}

int aacStream(ByteSpan start, u32, u64) {
    return holdsAt(start, 0, "ADIF") ? kSignature : mpegAudio(start, 4);
}

int flacStream(ByteSpan start, u32, u64) {
    if (holdsAt(start, 0, "ID3")) start = behindId3(start);
    return holdsAt(start, 0, "fLaC") ? kSignature : 0;
}

int mpegAudio(ByteSpan start, int layer) {
    if (holdsAt(start, 0, "ID3")) {
        start = behindId3(start);
        if (holdsAt(start, 0, "fLaC")) return 0;
        // A large picture hides the stream; it mostly is of layer III.
        if (start.size() < 4 || byteAt(start, 0) != 0xFF)
            return layer == 0 || layer == 3 ? kWeakSignature : kNotRuledOut;
    }
    if (start.size() < 4 || byteAt(start, 0) != 0xFF || (byteAt(start, 1) & 0xE0) != 0xE0) return 0;
    const int version = byteAt(start, 1) >> 3 & 3;     // 1 is reserved
    const int found = 4 - (byteAt(start, 1) >> 1 & 3); // 4: no layer, which ADTS has
    const int bitRate = byteAt(start, 2) >> 4;
    const int rate = byteAt(start, 2) >> 2 & 3;
    if (layer == 4) {
        const int adtsRate = byteAt(start, 2) >> 2 & 15;
        return found == 4 && version >= 2 && adtsRate < 13 ? kWeakSignature : 0;
    }
    const bool possible = found != 4 && version != 1 && bitRate != 15 && rate != 3;
    return possible && (layer == 0 || layer == found) ? kWeakSignature : 0;
}

} // namespace kv
