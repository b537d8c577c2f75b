#include "formats/audio/chunked/au.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/chunked/packets.h"
#include "formats/audio/chunked/wave_notes.h"
#include "formats/framework/losses.h"
#include "model/collection.h"
#include "model/wave.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 24;
constexpr u32 kUnknownSize = 0xFFFFFFFF;

struct Encoding {
    u32 number;
    u32 code; ///< of plain samples
    PacketCoding coding = PacketCoding::None;
    u32 bits = 0; ///< of a code of packets
};
constexpr Encoding kEncodings[] = {
    {1, kMuLaw},
    {2, kPcm8},
    {3, kPcm16},
    {4, kPcm24},
    {5, kPcm32},
    {6, kFloat32},
    {7, kFloat64},
    {23, 0, PacketCoding::G726, 4}, // G.721
    {24, 0, PacketCoding::G722, 4},
    {25, 0, PacketCoding::G726, 3}, // G.723
    {26, 0, PacketCoding::G726, 5},
    {27, kALaw},
};

/// The texts that a file begins with: of Sun and NeXT, and of DEC, both in either byte order.
struct Magic {
    std::string_view text;
    std::endian order;
};
using namespace std::string_view_literals;
constexpr Magic kMagics[] = {
    {".snd"sv, std::endian::big},
    {"dns."sv, std::endian::little},
    {".sd\0"sv, std::endian::big},
    {"\0ds."sv, std::endian::little},
};

std::string infoText(ByteSource& source, u64 end) {
    constexpr u64 kMostBytes = 6000;
    Bytes bytes(static_cast<std::size_t>(std::min(end - kHeaderBytes, kMostBytes)));
    bytes.resize(source.readAt(kHeaderBytes, bytes));
    return textFromBytes(bytes);
}

} // namespace

bool au_Imp(Collection&, FileContext& file, u32) {
    Bytes header(kHeaderBytes);
    FileContext start = file;
    start.position = 0;
    header.resize(start.read(header));
    const auto* magic = std::find_if(std::begin(kMagics), std::end(kMagics),
                                     [&](const Magic& m) { return textOf(header).starts_with(m.text); });
    if (magic == std::end(kMagics)) return Fail("au_Imp", "Not a Sun/NeXT/DEC audio file");
    ByteCursor in(header);
    in.skip(4);
    const auto next = [&] { return in.integer<u32>(magic->order); };
    const u64 offset = std::max<u64>(next(), kHeaderBytes);
    const u32 size = next(), number = next(), rate = next(), channels = next();
    if (!in.ok()) return Fail("au_Imp", "The header is too short");

    const auto* encoding = std::find_if(std::begin(kEncodings), std::end(kEncodings),
                                        [&](const Encoding& e) { return e.number == number; });
    if (encoding == std::end(kEncodings)) return Fail("au_Imp", "Encoding {} is not supported", number);
    const u64 there = file.size() - std::min(offset, file.size());
    const u64 bytes = size == kUnknownSize || size == 0 ? there : size;
    Wave* wave = nullptr;
    if (encoding->coding == PacketCoding::None) {
        const bool swapped = magic->order == std::endian::big && (encoding->code & kByteswapCodes) != 0;
        const u32 word = encoding->code | (swapped ? kByteswap : 0);
        wave = importWhole(file, {word, channels, rate, offset, bytes, 0}, "au_Imp");
    } else {
        const PacketLayout layout{.coding = encoding->coding,
                                  .bits = encoding->bits,
                                  .channels = channels,
                                  .rate = rate,
                                  .offset = offset,
                                  .bytes = bytes};
        wave = importPackets(file, layout, "au_Imp");
    }
    if (!wave) return false;
    if (offset > kHeaderBytes && offset <= file.size()) wave->comments = infoText(*file.source, offset);
    return true;
}

bool au_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport samples = openExport("au_Exp", item, formatWord, perWave);
    if (!samples) return false;
    const u32 code = samples.word & kCodeMask;
    const auto* encoding = std::find_if(std::begin(kEncodings), std::end(kEncodings), [&](const Encoding& e) {
        return e.code == code && e.coding == PacketCoding::None;
    });
    if (encoding == std::end(kEncodings)) return Fail("au_Exp", "Unsupported subformat");

    const Wave& wave = *samples.wave;
    reportLosses(wave, kKeepsRate | kKeepsTexts);
    if (!wave.artist.empty() || !wave.album.empty() || !wave.engineer.empty() || !wave.copyright.empty())
        noteLoss(wave, "artist, album, engineer, copyright", "the format has no place for it");
    // At least four bytes of text, ended by a zero.
    const std::size_t textBytes = (wave.comments.size() + 8) / 8 * 8;
    const u64 dataBytes = samples.dataBytes();
    ByteWriter head;
    head.text(".snd").u32be(static_cast<u32>(kHeaderBytes + textBytes));
    head.u32be(dataBytes < kUnknownSize ? static_cast<u32>(dataBytes) : kUnknownSize);
    head.u32be(encoding->number).u32be(wave.sampleRate).u32be(samples.channels);
    head.text(wave.comments).fill(textBytes - wave.comments.size());
    if (!file.write(head.view())) return Fail("au_Exp", "Writing to file failed");
    return writeSamples(*samples.blocks, samples.word | (samples.sampleBytes > 1 ? kByteswap : 0),
                        *file.sink);
}

} // namespace kv
