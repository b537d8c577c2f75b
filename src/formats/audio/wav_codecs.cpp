#include "formats/audio/wav_codecs.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/wav_reader.h"
#include "formats/codecs/mpeg_stream.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

using Kind = WavCodecKind;

constexpr std::string_view kMsRefusal = "Unsupported or invalid MS ADPCM file",
                           kImaRefusal = "Unsupported or invalid IMA ADPCM file";
constexpr std::string_view kGsmRefusal = "Can only handle (the standard!) mono GSM",
                           kDialogicMono = "Can only handle mono Dialogic ADPCM format",
                           kDialogicRefusal = "Unsupported or invalid Dialogic ADPCM file",
                           kYamahaChannels = "> 2ch Yamaha ADPCM not supported",
                           kYamahaBits = "Unsupported bits/sample for Yamaha ADPCM format",
                           kRockwellMono = "Can only handle mono Rockwell ADPCM format",
                           kRockwellRefusal = "Unsupported or invalid Rockwell ADPCM file",
                           kMpegChannels = "Can't handle mixed channel mode MPEG streams",
                           kG72xBits = "Invalid no bits/sample for CCITT G.721/.723/.726 ADPCM encoding";

constexpr WavCodec g72x(u16 tag) {
    return {tag, Kind::G72x, 2, 5, 0, 0, {}, kG72xBits};
}

constexpr WavCodec kCodecs[] = {
    {0x0002, Kind::Ms, 4, 4, 4, 2, kMsRefusal, kMsRefusal},
    {0x0011, Kind::Ima, 2, 4, 0, 2, kImaRefusal, kImaRefusal},
    {0x0017, Kind::Dialogic, 4, 4, 4, 1, kDialogicMono, kDialogicRefusal},
    {0x0020, Kind::Yamaha, 4, 4, 4, 2, kYamahaChannels, kYamahaBits},
    {0x0031, Kind::Gsm, 0, 0, 2, 1, kGsmRefusal, {}},
    {0x1000, Kind::Gsm, 0, 0, 2, 1, kGsmRefusal, {}},
    {0x0303, Kind::UsrGsm, 0, 0, 2, 1, kGsmRefusal, {}},
    {0x003B, Kind::Rockwell, 2, 4, 0, 1, kRockwellMono, kRockwellRefusal},
    {0x0300, Kind::Rockwell, 2, 4, 0, 1, kRockwellMono, kRockwellRefusal},
    g72x(0x0014),
    g72x(0x0040),
    g72x(0x0042),
    g72x(0x0045),
    g72x(0x0059),
    g72x(0x0064),
    g72x(0x0085),
    g72x(0x008B),
    g72x(0x0093),
    g72x(0x0123),
    g72x(0x0140),
    g72x(0x4243),
    g72x(0xA105),
    g72x(0xA107),
    {0x0065, Kind::G722, 0, 0, 4, 0, {}, {}},
    {kWavMpeg, Kind::Mpeg, 0, 0, 1, 2, kMpegChannels, {}},
    {kWavMp3, Kind::Mpeg, 0, 0, 1, 2, kMpegChannels, {}},
};

constexpr u32 kCodeOfBits[] = {0, 0, kAdpcm2, kAdpcm3, kAdpcm4, kAdpcm5};

constexpr std::size_t kMostCoefficients = 256; // a block names its pair by a byte
constexpr std::size_t kFmtBytes = 18 + 4 + kMostCoefficients * 4;

/// The fields of a fmt chunk that matter for coded samples.
struct CodedFmt {
    u16 tag = 0, channels = 0, blockAlign = 0, bits = 0, samplesPerBlock = 0;
    std::vector<MsCoefficients> coefficients;
};

CodedFmt readFmt(ByteSource& source, u64 offset, std::endian order) {
    Bytes sizeBytes(4);
    if (offset < 4 || source.readAt(offset - 4, sizeBytes) != 4) return {};
    ByteCursor sizeIn(sizeBytes);
    Bytes bytes(std::min<std::size_t>(sizeIn.integer<u32>(order), kFmtBytes));
    bytes.resize(source.readAt(offset, bytes));
    ByteCursor in(bytes);
    const auto word = [&] { return in.integer<u16>(order); };
    CodedFmt fmt;
    fmt.tag = word();
    fmt.channels = word();
    in.skip(8);
    fmt.blockAlign = word();
    fmt.bits = word();
    in.skip(2);
    fmt.samplesPerBlock = word();
    const std::size_t count = std::min<std::size_t>({word(), kMostCoefficients, in.left() / 4});
    for (std::size_t i = 0; i < count; ++i) {
        const auto c1 = static_cast<i16>(word());
        fmt.coefficients.push_back({c1, static_cast<i16>(word())});
    }
    return fmt;
}

CodedForm formOf(const CodedFmt& fmt) {
    const WavCodec* codec = wavCodec(fmt.tag);
    if (!codec) return {};
    const u32 stated = fmt.samplesPerBlock != 0 ? fmt.samplesPerBlock : 0x10000 * 2; // unknown: all of it
    switch (codec->kind) {
        case Kind::Ms:
            return msForm(fmt.channels, fmt.blockAlign, stated, fmt.coefficients);
        case Kind::Ima:
            return imaForm({fmt.channels, fmt.bits, fmt.blockAlign, stated});
        case Kind::Dialogic:
            return dialogicForm();
        case Kind::Yamaha:
            return yamahaForm(fmt.channels == 2);
        case Kind::Gsm:
            return gsmForm(false, fmt.blockAlign);
        case Kind::UsrGsm:
            return usrGsmForm();
        case Kind::Rockwell:
            return rockwellForm(fmt.bits);
        case Kind::G72x:
            return g726Form(fmt.bits, true);
        case Kind::G722:
            return g722Form(8, true);
        case Kind::Mpeg:
            break;
    }
    return {};
}

/// The fields behind those that all fmt chunks have tell the bit rate: of layer III by the size of its
/// blocks.
bool parseMpegFmt(FileContext& file, Wave& wave, const WavFormat& format) {
    constexpr f32 kUsualKbps = 128;
    constexpr u32 kLeastBits = 8000;
    Bytes bytes(26);
    bytes.resize(file.source->readAt(format.offset, bytes));
    ByteCursor in(bytes, format.offset);
    in.skip(20);
    const u32 bits = in.integer<u32>(format.order); // of layer III: flags
    const u16 modeOrSize = in.integer<u16>(format.order);
    if (format.tag == kWavMpeg) {
        if ((modeOrSize & 8) != 0 && (modeOrSize & 7) != 0) return Fail("wav_Imp", kMpegChannels);
        wave.compressedKbps = bits < kLeastBits ? kUsualKbps : static_cast<f32>(bits) / 1000;
    } else {
        const f32 unit = format.sampleRate < 28000 ? 72000 : 144000;
        wave.compressedKbps = static_cast<f32>(modeOrSize) * static_cast<f32>(format.sampleRate) / unit;
    }
    wave.channels = format.channels;
    wave.sampleRate = format.sampleRate;
    wave.bits = 1;
    wave.preferredFormat = kCompressed;
    wave.reader = &wavReader;
    return true;
}

} // namespace

const WavCodec* wavCodec(u16 tag) {
    const auto* found = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                     [tag](const WavCodec& c) { return c.tag == tag; });
    return found == std::end(kCodecs) ? nullptr : found;
}

CodedForm wavCodedForm(ByteSource& source, u64 fmtOffset, std::endian order) {
    return formOf(readFmt(source, fmtOffset, order));
}

bool wav_ParseCodedFmt(const WavCodec& codec, FileContext& file, Wave& wave, const WavFormat& format) {
    if (codec.mostChannels != 0 && format.channels > codec.mostChannels)
        return Fail("wav_Imp", codec.channelsRefusal);
    if (codec.mostBits != 0 && (format.bits < codec.leastBits || format.bits > codec.mostBits))
        return Fail("wav_Imp", codec.bitsRefusal);
    if (codec.kind == Kind::Mpeg) return parseMpegFmt(file, wave, format);
    if (!wavCodedForm(*file.source, format.offset, format.order).decode)
        return Fail("wav_Imp",
                    codec.bitsRefusal.empty() ? "Unsupported compression type" : codec.bitsRefusal);
    wave.channels = codec.mostChannels == 0 ? 1 : format.channels;
    wave.sampleRate = format.sampleRate;
    wave.bits = codec.bits != 0 ? codec.bits : format.bits;
    const bool byBits = codec.kind == Kind::Rockwell || codec.kind == Kind::G72x;
    const bool gsm = codec.kind == Kind::Gsm || codec.kind == Kind::UsrGsm;
    wave.preferredFormat = byBits ? kCodeOfBits[format.bits] : gsm ? 0 : kAdpcm4;
    wave.reader = &wavReader;
    if (codec.mostChannels == 0 && format.channels > 1) {
        runContext().diagnostics.warn(
            format.offset, "fmt ", fmt::format("{} channels stated, the codes are of one", format.channels));
    }
    return true;
}

void wavSettleMpeg(const FileContext& file, u64 dataStart, u64 dataBytes, u32 frames, Wave& wave) {
    const auto stream = std::make_shared<RangeSource>(file.source, dataStart, dataBytes);
    const std::optional<PackedStreamInfo> info = probeMpeg(stream);
    if (!info) {
        runContext().diagnostics.warn(dataStart, "data", runContext().error.message);
        return;
    }
    wave.channels = info->channels;
    wave.sampleRate = info->sampleRate;
    const u32 there = static_cast<u32>(std::min<u64>(info->frames, std::numeric_limits<u32>::max()));
    wave.frames = frames == 0 ? there : std::min(frames, there);
}

} // namespace kv
