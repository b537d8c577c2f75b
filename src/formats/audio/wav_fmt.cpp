#include "formats/audio/wav_fmt.h"

#include <algorithm>
#include <array>

#include "base/run_context.h"
#include "formats/audio/wav_codecs.h"
#include "formats/audio/wav_reader.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// What a format tag says of the samples.
struct TagRow {
    u16 tag;
    u32 code; ///< data format code; 0: by the bits per sample
    u16 bits; ///< per sample; 0: as the chunk says
};
constexpr TagRow kTags[] = {
    {kWavPcm, 0, 0},    {kWavFloat, kFloat32, 0}, {kWavALaw, kALaw, 8},
    {0x0172, kALaw, 8}, {kWavMuLaw, kMuLaw, 8},   {0x0171, kMuLaw, 8},
};

u32 pcmCode(u32 bits) {
    return bits <= 8 ? kPcm8 : bits <= 16 ? kPcm16 : bits <= 24 ? kPcm24 : kPcm32;
}

/// Reads the fields of a fmt chunk. False for an Extensible sub-format without a tag of its own.
bool parseFormat(ByteCursor& in, WavFormat& format) {
    const auto word = [&] { return in.integer<u16>(format.order); };
    format.tag = word();
    format.channels = word();
    format.sampleRate = in.integer<u32>(format.order);
    in.skip(4);
    format.blockAlign = word();
    format.bits = format.validBits = word();
    if (format.tag != kWavExtensible) return true;

    constexpr std::array<u8, 12> kTail{0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
    in.skip(2);
    const u16 valid = word();
    in.skip(4);
    const u32 subTag = in.integer<u32>(format.order);
    const ByteSpan tail = in.bytes(12);
    // The tail is a 16-bit pair and eight bytes; the pair follows the byte order of the file.
    std::array<u8, 12> expected = kTail;
    if (format.order == std::endian::big) {
        std::swap(expected[0], expected[1]);
        std::swap(expected[2], expected[3]);
    }
    if (!in.ok() || subTag >= 0x10000 ||
        !std::equal(tail.begin(), tail.end(), std::as_bytes(std::span(expected)).begin())) {
        return Fail("wav_Imp", "Unsupported 'Extensible' subformat GUID");
    }
    format.extensible = true;
    format.tag = static_cast<u16>(subTag);
    if (valid > 0 && valid <= format.bits) format.validBits = valid;
    return true;
}

/// The samples stand in the file as the generic reader takes them.
bool isPlain(const WavFormat& format) {
    const u32 bytes = format.bytesPerSample();
    return format.channels <= 2 && (format.tag == kWavFloat ? bytes == 4 || bytes == 8 : bytes <= 4);
}

/// Data format word of plain samples.
u32 plainWord(const WavFormat& format, u32 code) {
    if (format.tag == kWavFloat && format.bits == 64) code = kFloat64;
    if (format.tag == kWavPcm) code = pcmCode(format.bits);
    u32 word = code;
    if (code == kPcm8) word |= kUnsigned;
    if (format.order == std::endian::big && format.bytesPerSample() > 1) word |= kByteswap;
    return word;
}

} // namespace

bool wav_ParseFmt(FileContext& file, Wave& wave, WavFormat& format) {
    format.offset = file.position;
    Bytes contents(40);
    contents.resize(file.source ? file.source->readAt(file.position, contents) : 0);
    file.position += contents.size();
    ByteCursor in(contents, format.offset);
    if (!parseFormat(in, format)) return false;
    if (format.channels == 0) return Fail("wav_Imp", "No channels");
    if (const WavCodec* codec = wavCodec(format.tag); codec)
        return wav_ParseCodedFmt(*codec, file, wave, format);

    const TagRow* row = std::find_if(std::begin(kTags), std::end(kTags),
                                     [&](const TagRow& r) { return r.tag == format.tag; });
    if (row == std::end(kTags)) return Fail("wav_Imp", "Unsupported compression type");
    if (row->bits != 0) format.bits = format.validBits = row->bits;
    if (format.tag == kWavFloat && format.bits != 32 && format.bits != 64) {
        return Fail("wav_Imp", "Unsupported bits/sample for IEEE floating point samples");
    }
    // Linear samples of no size: what the block says, where that makes sense.
    if (format.bits == 0)
        format.bits = format.validBits = static_cast<u16>(format.blockAlign / format.channels * 8);
    if (format.bits == 0 || format.frameBytes() > 0x100000)
        return Fail("wav_Imp", "Unsupported compression type");

    wave.channels = std::min<u32>(format.channels, 2);
    wave.sampleRate = format.sampleRate;
    wave.bits = format.validBits;
    wave.preferredFormat = row->code != 0 ? row->code : pcmCode(wave.bits);
    if (isPlain(format))
        wave.dataFormat = plainWord(format, row->code);
    else
        wave.reader = &wavReader;
    if (format.channels > 2) {
        runContext().diagnostics.add(
            {Severity::Loss, format.offset, std::string(wave.name().view()), "fmt ",
             fmt::format("{} channels: only the first two are kept", format.channels)});
    }
    return true;
}

u32 wav_FramesFromBytes(const Wave& wave, const WavFormat& format, u64 dataBytes) {
    const f64 bytes = static_cast<f64>(dataBytes);
    if (const WavCodec* codec = wavCodec(format.tag); codec && !codec->isStream()) {
        const f64 bits = codec->kind == WavCodecKind::Gsm ? 1.625 : wave.bits;
        return saturate<u32>(bytes * 8 / (std::max(wave.channels, 1U) * bits) + 0.5);
    }
    if (wave.bits == 1 && wave.preferredFormat == kCompressed && wave.compressedKbps > 0) {
        return saturate<u32>(wave.sampleRate * bytes * 8 / (static_cast<f64>(wave.compressedKbps) * 1000) +
                             0.499);
    }
    return saturate<u32>(static_cast<f64>(dataBytes / std::max(format.frameBytes(), 1U)));
}

} // namespace kv
