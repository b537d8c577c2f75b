#include "formats/audio/wav_codecs.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/wav_reader.h"
#include "formats/codecs/aac_stream.h"
#include "formats/codecs/first_channels.h"
#include "formats/codecs/mpeg_encoder.h"
#include "formats/codecs/mpeg_stream.h"
#include "formats/codecs/vorbis_stream.h"
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

constexpr WavCodec stream(u16 tag, Kind kind) {
    return {tag, kind, 0, 0, 1, 0, {}, {}};
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
    stream(0x00B0, Kind::Aac),
    stream(0x00FF, Kind::Aac),
    stream(0x0180, Kind::Aac),
    stream(0x2006, Kind::Aac),
    stream(0x2007, Kind::Aac),
    stream(0x4143, Kind::Aac),
    stream(0xA106, Kind::Aac),
    stream(0x674F, Kind::Vorbis),
    stream(0x6750, Kind::Vorbis),
    stream(0x6751, Kind::Vorbis),
    stream(0x676F, Kind::Vorbis),
    stream(0x6770, Kind::Vorbis),
    stream(0x6771, Kind::Vorbis),
};

constexpr u32 kCodeOfBits[] = {0, 0, kAdpcm2, kAdpcm3, kAdpcm4, kAdpcm5};

constexpr std::size_t kMostCoefficients = 256; // a block names its pair by a byte
constexpr std::size_t kExtensibleBytes = 22;   // ahead of what a tag adds to an Extensible chunk
constexpr std::size_t kFmtBytes = 18 + kExtensibleBytes + 4 + kMostCoefficients * 4;

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
    if (fmt.tag == kWavExtensible) {
        in.skip(6);
        fmt.tag = static_cast<u16>(in.integer<u32>(order));
        in.skip(12);
    }
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
        case Kind::Aac:
        case Kind::Vorbis:
            break;
    }
    return {};
}

/// MPEG audio tells its bit rate behind the fields that all fmt chunks have: of layer III by the size of its
/// blocks. For the others the mean of bytes a second counts.
bool parseStreamFmt(const WavCodec& codec, FileContext& file, Wave& wave, const WavFormat& format) {
    constexpr f32 kUsualKbps = 128;
    constexpr u32 kLeastBits = 8000;
    Bytes bytes(26);
    bytes.resize(file.source->readAt(format.offset, bytes));
    ByteCursor in(bytes, format.offset);
    in.skip(8);
    const u32 bytesPerSecond = in.integer<u32>(format.order);
    in.skip(8);
    const u32 bits = in.integer<u32>(format.order); // of layer III: flags
    const u16 modeOrSize = in.integer<u16>(format.order);
    if (codec.kind != Kind::Mpeg || format.extensible) {
        wave.compressedKbps = static_cast<f32>(bytesPerSecond) * 8 / 1000;
    } else if (format.tag == kWavMpeg) {
        if ((modeOrSize & 8) != 0 && (modeOrSize & 7) != 0) return Fail("wav_Imp", kMpegChannels);
        wave.compressedKbps = bits < kLeastBits ? kUsualKbps : static_cast<f32>(bits) / 1000;
    } else {
        const f32 unit = format.sampleRate < 28000 ? 72000 : 144000;
        wave.compressedKbps = static_cast<f32>(modeOrSize) * static_cast<f32>(format.sampleRate) / unit;
    }
    wave.channels = std::min<u32>(format.channels, 2);
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
    if (codec.isStream()) return parseStreamFmt(codec, file, wave, format);
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

WavStream wavStream(const WavCodec& codec, const std::shared_ptr<ByteSource>& file, u64 fmtOffset,
                    std::endian order, u64 dataStart, u64 dataBytes) {
    WavStream stream{codec.kind, std::make_shared<RangeSource>(file, dataStart, dataBytes), {}};
    constexpr std::size_t kExtension = 18, kMostConfig = 64, kUsualConfig = 2, kDelay = 28;
    constexpr u16 kBare = 0x00FF;
    Bytes bytes(kExtension + kMostConfig);
    bytes.resize(file->readAt(fmtOffset, bytes));
    ByteCursor in(bytes);
    if (codec.tag == kWavMp3) {
        // Other writers have values here that have nothing to do with their streams.
        in.skip(kDelay);
        if (in.integer<u16>(order) == kMp3Delay) {
            stream.extra = kMp3Delay;
            stream.lead = kMp3Delay + 1; // with the frame that the decoder adds
        }
    }
    if (codec.kind != Kind::Aac) return stream;
    const bool extensible = in.integer<u16>(order) == kWavExtensible;
    in.skip(kExtension - 4);
    std::size_t size = in.integer<u16>(order);
    if (extensible) {
        size -= std::min(size, kExtensibleBytes);
        in.skip(kExtensibleBytes);
    }
    if (size != kUsualConfig && codec.tag != kBare) return stream;
    const ByteSpan config = in.bytes(std::min(size, in.left()));
    stream.config.assign(config.begin(), config.end());
    return stream;
}

namespace {

std::optional<PackedStreamInfo> probe(const WavStream& stream) {
    switch (stream.kind) {
        case Kind::Aac:
            return probeAac(stream.data, stream.config);
        case Kind::Vorbis:
            return probeVorbis(stream.data);
        default:
            return probeMpeg(stream.data);
    }
}

} // namespace

void wavSettleStream(const WavStream& stream, u32 frames, WavFormat& format, Wave& wave) {
    const std::optional<PackedStreamInfo> info = probe(stream);
    if (!info) {
        runContext().diagnostics.warn(wave.sourceOffset, "data", runContext().error.message);
        return;
    }
    format.channels = static_cast<u16>(info->channels);
    wave.channels = std::min(info->channels, 2U);
    wave.sampleRate = info->sampleRate;
    const u64 there = info->frames - std::min<u64>(info->frames, stream.lead);
    const u64 stated = frames > stream.extra ? frames - stream.extra : there;
    wave.frames = static_cast<u32>(std::min<u64>({stated, there, std::numeric_limits<u32>::max()}));
}

std::unique_ptr<SampleBlocks> wavOpenStream(const WavStream& stream, u32 channels, const Wave& wave) {
    const auto open = [&] {
        switch (stream.kind) {
            case Kind::Aac:
                return openBareAac(stream.data, stream.config, 0, wave.frames, channels);
            case Kind::Vorbis:
                return openVorbis(stream.data, 0, wave.frames, channels);
            default:
                return openMpeg(stream.data, stream.lead, wave.frames, channels);
        }
    };
    return firstChannels(open(), wave.channels);
}

} // namespace kv
