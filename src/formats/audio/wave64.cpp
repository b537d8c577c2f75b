#include "formats/audio/wave64.h"

#include <algorithm>
#include <array>

#include "base/run_context.h"
#include "formats/audio/wav_reader.h"
#include "formats/framework/chunks.h"
#include "formats/framework/losses.h"
#include "model/collection.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

using Guid = std::array<u8, 16>;

/// Chunk ids are four characters and one common tail, but for those of the form and of the list.
constexpr Guid chunkGuid(std::string_view text) {
    constexpr u8 kTail[] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    Guid guid{};
    for (std::size_t i = 0; i < 16; ++i) guid[i] = i < 4 ? static_cast<u8>(text[i]) : kTail[i - 4];
    return guid;
}

constexpr Guid kRiff{0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                     0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
constexpr Guid kList{0xBC, 0x94, 0x5F, 0x92, 0x5A, 0x52, 0xD2, 0x11,
                     0x86, 0xDC, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
constexpr Guid kWave = chunkGuid("wave");
constexpr Guid kFmt = chunkGuid("fmt ");
constexpr Guid kFact = chunkGuid("fact");
constexpr Guid kData = chunkGuid("data");

constexpr std::size_t kFileHeaderBytes = 40;
constexpr std::size_t kChunkHeaderBytes = 24;

bool sameGuid(ByteSpan bytes, const Guid& guid) {
    return std::equal(bytes.begin(), bytes.end(), std::as_bytes(std::span(guid)).begin(),
                      std::as_bytes(std::span(guid)).end());
}

ByteSpan bytesOfGuid(const Guid& guid) {
    return std::as_bytes(std::span(guid));
}

/// The texts of the list chunk, in writing order.
struct TextRow {
    u32 id;
    std::string_view (*get)(const Wave&);
};
constexpr TextRow kTexts[] = {
    {fourcc("INAM"), [](const Wave& w) { return w.name().view(); }},
    {fourcc("IART"), [](const Wave& w) { return w.artist.view(); }},
    {fourcc("ICMT"), [](const Wave& w) { return w.comments.view(); }},
    {fourcc("ICOP"), [](const Wave& w) { return w.copyright.view(); }},
    {fourcc("IENG"), [](const Wave& w) { return w.engineer.view(); }},
};

void setText(Wave& wave, u32 id, std::string_view text) {
    switch (id) {
        case fourcc("INAM"):
            wave.SetName(text);
            break;
        case fourcc("IART"):
            wave.artist = text;
            break;
        case fourcc("ICMT"):
            wave.comments = text;
            break;
        case fourcc("ICOP"):
            wave.copyright = text;
            break;
        case fourcc("IENG"):
            wave.engineer = text;
            break;
        default:
            break;
    }
}

/// One way of storing samples, by the tag of the fmt chunk.
struct Sort {
    u16 tag;
    u32 code;
    u16 bytes;
};
constexpr Sort kSorts[] = {
    {kWavPcm, kPcm8, 1},      {kWavPcm, kPcm16, 2},   {kWavPcm, kPcm24, 3}, {kWavPcm, kPcm32, 4},
    {kWavFloat, kFloat32, 4}, {kWavMuLaw, kMuLaw, 1}, {kWavALaw, kALaw, 1},
};

class Wave64Parser {
public:
    Wave64Parser(FileContext& file, Wave& wave) : file_(file), wave_(wave) {}
    bool parse();

private:
    bool format(u64 start, u64 size);
    void list(u64 start, u64 size);
    Bytes contents(u64 start, u64 size, std::size_t limit) const;
    void settleFrames(u64 dataBytes);

    FileContext& file_;
    Wave& wave_;
    u32 fileChannels_ = 0;
    u32 sampleBytes_ = 0;
    bool formatSeen_ = false, dataSeen_ = false;
    u64 frames_ = 0;
};

Bytes Wave64Parser::contents(u64 start, u64 size, std::size_t limit) const {
    Bytes bytes(static_cast<std::size_t>(std::min<u64>(size, limit)));
    bytes.resize(file_.source->readAt(start, bytes));
    return bytes;
}

bool Wave64Parser::format(u64 start, u64 size) {
    const Bytes bytes = contents(start, size, 40);
    ByteCursor in(bytes, start);
    u16 tag = in.u16le();
    const u16 channels = in.u16le();
    wave_.sampleRate = in.u32le();
    in.skip(6);
    u32 bits = in.u16le();
    if (tag == kWavExtensible) {
        in.skip(8);
        tag = in.u16le(); // the sub-format's own number begins its GUID
    }
    if (!in.ok() && tag == kWavExtensible) return Fail("w64_Imp", "Unsupported compression type");
    if (channels == 0) return Fail("w64_Imp", "No channels");
    switch (tag) {
        case kWavPcm:
            wave_.dataFormat = bits <= 8    ? kPcm8 | kUnsigned
                               : bits <= 16 ? kPcm16
                               : bits <= 24 ? kPcm24
                                            : kPcm32;
            sampleBytes_ = bits <= 8 ? 1 : bits <= 16 ? 2 : bits <= 24 ? 3 : 4;
            break;
        case kWavFloat:
            wave_.dataFormat = bits > 32 ? kFloat64 : kFloat32;
            wave_.preferredFormat = kFloat32;
            sampleBytes_ = bits > 32 ? 8 : 4;
            break;
        case kWavALaw:
        case kWavMuLaw:
            wave_.dataFormat = tag == kWavALaw ? kALaw : kMuLaw;
            bits = 8;
            sampleBytes_ = 1;
            break;
        default:
            return Fail("w64_Imp", "Unsupported compression type");
    }
    wave_.bits = bits;
    wave_.channels = std::min<u32>(channels, 2);
    fileChannels_ = channels;
    WavFormat layout;
    layout.tag = tag;
    layout.channels = channels;
    layout.bits = static_cast<u16>(sampleBytes_ * 8);
    layout.offset = start;
    rememberWavLayout(wave_, layout, 0);
    formatSeen_ = true;
    return true;
}

void Wave64Parser::list(u64 start, u64 size) {
    const Bytes bytes = contents(start, size, 1 << 20);
    ByteCursor in(bytes, start);
    for (u32 left = in.u32le(); left > 0 && in.left() >= 8; --left) {
        const u32 id = in.u32le();
        const u32 length = in.u32le();
        if (length > in.left()) break;
        const ByteSpan text = in.bytes(length);
        std::u16string wide;
        for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
            const auto unit =
                static_cast<char16_t>(loadInteger<u16>(text.subspan(i).first<2>(), std::endian::little));
            if (unit == 0) break;
            wide += unit;
        }
        setText(wave_, id, WideToUtf8(wide));
        if (length % 2 != 0) in.skip(1);
    }
}

bool Wave64Parser::parse() {
    Bytes header = contents(0, kFileHeaderBytes, kFileHeaderBytes);
    if (!isWave64Header(header)) return Fail("w64_Imp", "Not a Sonic Foundry/Sony Wave64 file");
    u64 dataBytes = 0;
    const u64 total = file_.size();
    for (u64 at = kFileHeaderBytes; at < total && total - at > kChunkHeaderBytes;) {
        header = contents(at, kChunkHeaderBytes, kChunkHeaderBytes);
        if (header.size() < kChunkHeaderBytes) break;
        const ByteSpan guid = ByteSpan(header).first(16);
        const u64 stated = loadInteger<u64>(ByteSpan(header).last(8).first<8>(), std::endian::little);
        if (stated < kChunkHeaderBytes) break; // would never get on
        const u64 start = at + kChunkHeaderBytes;
        const u64 size = std::min(stated - kChunkHeaderBytes, total - start);
        if (sameGuid(guid, kFmt)) {
            if (!formatSeen_ && !format(start, size)) return false;
        } else if (sameGuid(guid, kFact)) {
            const Bytes bytes = contents(start, size, 8);
            ByteCursor in(bytes);
            frames_ = std::min<u64>(in.u64le(), 0xFFFFFFFF);
        } else if (sameGuid(guid, kData)) {
            if (!dataSeen_) {
                dataSeen_ = true;
                wave_.sourceOffset = start;
                dataBytes = size;
            }
        } else if (sameGuid(guid, kList)) {
            list(start, size);
        }
        if (stated > total - at) break;
        at += std::min((stated + 7) & ~u64{7}, total - at);
    }
    if (!formatSeen_) return Fail("w64_Imp", "Couldn't find fmt chunk!");
    if (!dataSeen_) return Fail("w64_Imp", "Couldn't find data chunk!");
    settleFrames(dataBytes);
    return true;
}

void Wave64Parser::settleFrames(u64 dataBytes) {
    const u64 held = dataBytes / (u64{fileChannels_} * sampleBytes_);
    u64 frames = frames_;
    if (frames == 0) frames = std::min<u64>(held, 0x80000000);
    frames = std::min<u64>(frames, 0x7FFFFFFF8 / std::max(wave_.bits, 1U));
    wave_.frames = static_cast<u32>(std::min<u64>({frames, held, 0xFFFFFFFF}));
    wave_.sourcePrivate[3] = static_cast<u32>(dataBytes);
    wave_.sourcePrivate[4] = static_cast<u32>(dataBytes >> 32);
    if (fileChannels_ > 2) wave_.reader = &wavReader;
}

/// The head of a chunk; `size` counts it.
ByteWriter& chunk(ByteWriter& out, const Guid& guid, u64 size) {
    return out.bytes(bytesOfGuid(guid)).u64le(size);
}

/// The list chunk, if there is any text.
void writeTexts(ByteWriter& out, const Wave& wave) {
    u32 count = 0;
    ByteWriter texts;
    for (const TextRow& row : kTexts) {
        const std::u16string wide = Utf8ToWide(row.get(wave));
        if (wide.empty()) continue;
        ++count;
        texts.u32le(row.id).u32le(static_cast<u32>(wide.size() * 2));
        for (const char16_t unit : wide) texts.u16le(unit);
    }
    if (count == 0) return;
    chunk(out, kList, kChunkHeaderBytes + 4 + texts.size()).u32le(count).bytes(texts.view()).pad(8);
}

} // namespace

bool isWave64Header(ByteSpan start) {
    return start.size() >= kFileHeaderBytes && sameGuid(start.first(16), kRiff) &&
           sameGuid(start.subspan(24, 16), kWave);
}

bool w64_Imp(Collection&, FileContext& file, u32) {
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &genericReader);
    if (Wave64Parser(file, *wave).parse()) return true;
    store().Delete(wave);
    return false;
}

bool w64_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    if (classOf(item.id()) != kWaveClass) return Fail("w64_Exp", "The file format can not save this item");
    const auto& wave = static_cast<const Wave&>(item);
    if (perWave) formatWord |= wave.preferredFormat & kCodeMask;
    const Sort* sort = std::find_if(std::begin(kSorts), std::end(kSorts),
                                    [&](const Sort& s) { return s.code == (formatWord & kCodeMask); });
    if (sort == std::end(kSorts)) return Fail("w64_Exp", "Unsupported subformat");
    const std::unique_ptr<SampleBlocks> blocks = openSamples(wave, encodesFromFloat(formatWord));
    const u32 channels = blocks ? writableChannels(wave.channels, formatWord) : 0;
    if (channels == 0) return false;

    reportLosses(wave, kKeepsRate | kKeepsTexts);
    const u32 block = channels * sort->bytes;
    const u64 dataBytes = u64{blocks->frames()} * block;
    ByteWriter head;
    chunk(head, kFmt, 40).u16le(sort->tag).u16le(static_cast<u16>(channels)).u32le(wave.sampleRate);
    head.u32le(wave.sampleRate * block)
        .u16le(static_cast<u16>(block))
        .u16le(static_cast<u16>(sort->bytes * 8));
    if (sort->tag != kWavPcm) chunk(head, kFact, 32).u64le(blocks->frames());
    // The texts stand ahead of the data, and no padding behind it: a widespread reader takes all that
    // follows for samples.
    writeTexts(head, wave);
    chunk(head, kData, kChunkHeaderBytes + dataBytes);

    ByteWriter form;
    chunk(form, kRiff, kFileHeaderBytes + head.size() + dataBytes).bytes(bytesOfGuid(kWave));

    u32 word = formatWord & (kCodeMask | kMonoBit | kStereoBit);
    if (sort->code == kPcm8) word |= kUnsigned;
    if (!file.write(form.view()) || !file.write(head.view())) {
        return Fail("w64_Exp", "Writing to file failed");
    }
    return writeSamples(*blocks, word, *file.sink);
}

} // namespace kv
