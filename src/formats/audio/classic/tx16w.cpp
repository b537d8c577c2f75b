// Waves of the Yamaha TX16W: a header of 32 bytes and 12-bit samples, two in three bytes, with the low halves
// of both in the middle one. The length is that of the attack and of the part that repeats.
#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/resampled_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 32;
constexpr std::string_view kMagic = "LM8953";
constexpr u8 kLoopedFormat = 0x49, kOneShotFormat = 0xC9;
constexpr u32 kMostLength = 0x1FFFF; ///< of each part
constexpr u32 kLeastRepeat = 64;     ///< the part that repeats in a wave without a loop
constexpr std::size_t kFilePadding = 256;

/// The rates by their number, and by the bits that stand above the two lengths where there is no number.
struct RateRow {
    u8 number;
    u32 hz;
    u8 attackBits, repeatBits;
};
constexpr RateRow kRates[] = {{1, 33333, 0x06, 0x52}, {2, 50000, 0x10, 0x00}, {3, 16667, 0xF6, 0x52}};

u32 rateOf(u8 number, u8 attackBits, u8 repeatBits) {
    for (const RateRow& row : kRates) {
        if (row.number == number) return row.hz;
    }
    for (const RateRow& row : kRates) {
        if (row.attackBits == (attackBits & 0xFE) && row.repeatBits == (repeatBits & 0xFE)) return row.hz;
    }
    return kRates[0].hz;
}

/// The slowest rate that loses nothing, or the fastest.
const RateRow& rowFor(u32 hz) {
    const RateRow* best = nullptr;
    for (const RateRow& row : kRates) {
        const bool enough = row.hz + 1 >= hz;
        if (enough && (!best || row.hz < best->hz)) best = &row;
    }
    return best ? *best : kRates[1];
}

std::size_t decode12(ByteSpan from, std::span<i16> to) {
    const std::size_t count = std::min(to.size(), from.size() * 2 / 3);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = i / 2 * 3;
        const bool second = i % 2 != 0;
        const u32 high = std::to_integer<u32>(from[at + (second ? 2 : 0)]);
        const u32 both = std::to_integer<u32>(from[at + 1]);
        to[i] = static_cast<i16>(high << 8 | (second ? (both & 0x0F) << 4 : both & 0xF0));
    }
    return count;
}

void encode12(std::span<const i16> from, Bytes& out) {
    for (std::size_t i = 0; i < from.size(); i += 2) {
        const u32 first = static_cast<u16>(from[i]);
        const u32 second = i + 1 < from.size() ? static_cast<u16>(from[i + 1]) : 0;
        for (const u32 byte : {first >> 8, (first & 0xF0) | (second >> 4 & 0x0F), second >> 8})
            out.push_back(static_cast<std::byte>(byte));
    }
}

CodedForm packedForm() {
    return {1, 3, 2, decode12, [](std::size_t bytes) { return bytes / 2; }};
}

CodedWriter packedWriter() {
    CodedWriter writer;
    writer.unitFrames = 2;
    writer.unitBytes = 3;
    writer.wholeUnits = true;
    writer.encode = encode12;
    return writer;
}

std::unique_ptr<SampleBlocks> openPacked(const Wave& wave, FileContext& file) {
    return openCoded(file.source, file.position, file.size(), wave.frames, packedForm());
}
const WaveReader packedReader{"tx16w_ImpWave", loadThroughBlocks, openPacked};

/// A length of 17 bits, with the rate's bits above it.
struct Length {
    u32 frames;
    u8 bits;
};
Length readLength(ByteCursor& in) {
    const u32 low = in.u16le();
    const u8 high = in.u8le();
    return {low | (high & 1U) << 16, high};
}
void putLength(ByteWriter& out, u32 frames, u8 bits) {
    out.u16le(static_cast<u16>(frames)).u8le(static_cast<u8>(frames >> 16 | bits));
}

u32 scaled(u32 frames, u32 from, u32 to) {
    return from == 0 ? 0 : static_cast<u32>((u64{frames} * to + from / 2) / from);
}

} // namespace

bool tx16w_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "tx16w_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    ByteCursor in(head);
    const std::string_view magic = textOf(in.bytes(6));
    in.skip(16); // nothing, and an envelope
    const u8 format = in.u8le();
    const u8 rate = in.u8le();
    const Length attack = readLength(in);
    const Length repeat = readLength(in);
    if (!in.ok() || magic != kMagic) return Fail(kContext, "Not a TX16W wave");

    Wave* wave = store().Create<Wave>(kNextFreeNumber, &packedReader);
    wave->dataFormat = kPcm12;
    wave->preferredFormat = kPcm12;
    wave->bits = 12;
    wave->sampleRate = rateOf(rate, attack.bits, repeat.bits);
    wave->sourceOffset = kHeaderBytes;
    const u64 held = std::min<u64>(packedForm().framesIn(file.size() - kHeaderBytes), 0xFFFFFFFF);
    const u64 stated = u64{attack.frames} + repeat.frames;
    wave->frames = static_cast<u32>(stated == 0 ? held : std::min(held, stated));
    if (format == kLoopedFormat) setLoop(*wave, attack.frames, stated, kLooped);
    return true;
}

bool tx16w_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    constexpr std::string_view kContext = "tx16w_Exp";
    SampleExport out = openExport(kContext, item, formatWord, perWave);
    if (!out) return false;
    const Wave& wave = *out.wave;
    const RateRow& rate = rowFor(wave.sampleRate);
    const bool sameRate = wave.sampleRate + 1 >= rate.hz && wave.sampleRate <= rate.hz + 1;
    const std::unique_ptr<SampleBlocks> blocks =
        sameRate ? std::move(out.blocks)
                 : resampled(std::move(out.blocks), wave.sampleRate, rate.hz, 4, sourceBitsOf(wave));
    if (!blocks) return false;

    const u32 frames = blocks->frames();
    std::optional<FrameLoop> loop = frameLoop(wave);
    u32 attack = frames - std::min(kLeastRepeat, frames / 2);
    u32 length = frames;
    if (loop) { // the wave ends with its loop
        attack = std::min(scaled(loop->start, wave.frames, frames), frames);
        length = std::clamp(scaled(loop->end, wave.frames, frames), attack, frames);
    }
    if (attack > kMostLength && !loop && length - kMostLength <= kMostLength) attack = kMostLength;
    if (attack > kMostLength || length - attack > kMostLength)
        return Fail(kContext, "Too long for the file format");

    if (length < frames)
        runContext().diagnostics.add(
            {Severity::Loss, 0, wave.name().str(), "samples", "the format ends with the loop"});
    reportLosses(wave, (sameRate ? kKeepsRate : 0U) | (loop ? kKeepsLoop : 0U));
    ByteWriter head;
    head.text(kMagic).fill(10).u16le(0).fill(4, 0x7F).u8le(loop ? kLoopedFormat : kOneShotFormat);
    head.u8le(rate.number);
    putLength(head, attack, rate.attackBits);
    putLength(head, length - attack, rate.repeatBits);
    head.fill(2);
    if (!file.write(head.view())) return Fail(kContext, "Writing to file failed");
    if (!writeCoded(*blocks, packedWriter(), *file.sink)) return false;
    const u64 written = kHeaderBytes + packedWriter().bytesFor(frames);
    const Bytes padding(static_cast<std::size_t>((kFilePadding - written % kFilePadding) % kFilePadding));
    return file.write(padding) || Fail(kContext, "Writing to file failed");
}

} // namespace kv
