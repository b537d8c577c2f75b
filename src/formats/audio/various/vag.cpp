#include <algorithm>
#include <cmath>
#include <optional>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/codecs/coded_stream.h"
#include "formats/codecs/playstation_adpcm.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 48;
constexpr std::size_t kNameBytes = 16;
constexpr u32 kVersion = 0x20;
constexpr u8 kEndFlags = 7; // of a block that isn't played
constexpr u8 kRepeatFlags = kPlaystationEnd | kPlaystationRepeat;

CodedForm blockForm() {
    return {1,
            kPlaystationBlockBytes,
            kPlaystationBlockFrames,
            [state = PlaystationState()](ByteSpan from, std::span<i16> to) mutable {
                return playstation_Decode(to, from, state);
            },
            {}};
}

std::unique_ptr<SampleBlocks> openVag(const Wave& wave, FileContext& file) {
    const u64 blocks = ceilDiv(wave.frames, kPlaystationBlockFrames);
    return openCoded(file.source, file.position, file.position + blocks * kPlaystationBlockBytes, wave.frames,
                     blockForm());
}

const WaveReader vagReader{"vag_ImpWave", loadThroughBlocks, openVag};

/// What the flags of the blocks tell, counted in blocks.
struct Extent {
    u64 blocks = 0; ///< that are played
    std::optional<u64> loopStart;
    bool loops = false; ///< up to the end

    /// A block can't both begin and end a loop, which means that it isn't played. So it is written twice.
    bool doubled() const { return loops && loopStart == blocks - 1; }
    u64 writtenBlocks() const { return blocks + (doubled() ? 1 : 0); }
};

Extent readExtent(ByteSource& source, u64 start, u64 bytes) {
    constexpr std::size_t kBlocksAtOnce = 4096;
    Extent extent;
    Bytes piece;
    for (u64 done = 0; done < bytes;) {
        piece.resize(
            static_cast<std::size_t>(std::min<u64>(kBlocksAtOnce * kPlaystationBlockBytes, bytes - done)));
        const std::size_t got = source.readAt(start + done, piece) / kPlaystationBlockBytes;
        if (got == 0) break;
        for (std::size_t i = 0; i < got; ++i) {
            const u8 flags = std::to_integer<u8>(piece[i * kPlaystationBlockBytes + 1]);
            if (flags >= kEndFlags) return extent;
            if ((flags & kPlaystationLoopStart) != 0) extent.loopStart = extent.blocks;
            ++extent.blocks;
            extent.loops = (flags & kRepeatFlags) == kRepeatFlags;
            if ((flags & kPlaystationEnd) != 0) return extent;
        }
        done += got * kPlaystationBlockBytes;
    }
    return extent;
}

/// How a wave lies in blocks. A loop is moved to where blocks begin.
Extent placeInBlocks(const Wave& wave, u32 frames) {
    Extent extent;
    extent.blocks = ceilDiv(frames, kPlaystationBlockFrames);
    if (!wave.params.looped() || extent.blocks == 0) return extent;
    const auto block = [&](f64 frame, u64 least, u64 most) {
        const f64 nearest = std::floor(frame / kPlaystationBlockFrames + 0.5);
        return std::clamp(saturate<u64>(nearest), least, most);
    };
    extent.loops = true;
    extent.loopStart = block(wave.params.loopStart, 0, extent.blocks - 1);
    extent.blocks = block(wave.params.loopEnd, *extent.loopStart + 1, extent.blocks);
    return extent;
}

void reportMoved(const Wave& wave, const Extent& extent) {
    if (!extent.loops) return;
    const auto at = [](u64 block) { return static_cast<f64>(block * kPlaystationBlockFrames); };
    const bool whole =
        wave.params.loopStart == at(*extent.loopStart) && wave.params.loopEnd == at(extent.blocks);
    if (whole && (wave.params.loopFlags & ~kLooped) == 0 &&
        extent.blocks * kPlaystationBlockFrames >= wave.frames)
        return;
    runContext().diagnostics.add({Severity::Loss, 0, wave.name().str(), "loop",
                                  "the format loops forward in steps of 28 frames, up to the end"});
}

/// Encodes blocks and gives them their flags.
class BlockEncoder {
public:
    explicit BlockEncoder(const Extent& extent) : extent_(extent) {}

    /// A last block may be short. What stands behind the loop is left out.
    void encode(std::span<const i16> from, Bytes& out) {
        for (std::size_t at = 0; at < from.size() && next_ < extent_.blocks; at += kPlaystationBlockFrames) {
            const std::span<const i16> samples =
                from.subspan(at, std::min(kPlaystationBlockFrames, from.size() - at));
            add(samples, out);
            if (next_ == extent_.blocks && extent_.doubled()) add(samples, out);
        }
    }

private:
    void add(std::span<const i16> samples, Bytes& out) {
        out.resize(out.size() + kPlaystationBlockBytes);
        const auto to = std::span(out).last<kPlaystationBlockBytes>();
        playstation_EncodeBlock(to, samples, state_);
        u32 flags = extent_.loops ? u32{kPlaystationRepeat} : 0;
        if (extent_.loopStart == next_) flags |= kPlaystationLoopStart;
        if (++next_ == extent_.writtenBlocks()) flags |= kPlaystationEnd;
        to[1] = static_cast<std::byte>(flags);
    }

    Extent extent_;
    PlaystationState state_;
    u64 next_ = 0;
};

CodedWriter blockWriter(const Extent& extent) {
    return {1, kPlaystationBlockFrames, kPlaystationBlockBytes, true,
            [encoder = BlockEncoder(extent)](std::span<const i16> from, Bytes& out) mutable {
                encoder.encode(from, out);
            }};
}

} // namespace

bool vag_Imp(Collection&, FileContext& file, u32) {
    Bytes header(kHeaderBytes);
    if (file.source->readAt(0, header) != header.size() || !textOf(header).starts_with("VAGp"))
        return Fail("vag_Imp", "Not a PlayStation sound");
    ByteCursor in(header);
    in.skip(12);
    const u32 stated = in.u32be();
    const u32 rate = in.u32be();
    in.skip(12);
    const std::string_view name = in.text(kNameBytes);
    if (rate == 0) return Fail("vag_Imp", "No sample rate");
    const u64 held = file.size() - kHeaderBytes;
    const Extent extent =
        readExtent(*file.source, kHeaderBytes, stated == 0 ? held : std::min<u64>(held, stated));
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &vagReader);
    if (!name.empty()) wave->SetName(AnsiToUtf8(name));
    wave->dataFormat = kAdpcm4;
    wave->preferredFormat = kPcm16; // what it decodes to
    wave->bits = 4;
    wave->sampleRate = rate;
    wave->sourceOffset = kHeaderBytes;
    wave->frames = saturate<u32>(static_cast<f64>(extent.blocks * kPlaystationBlockFrames));
    if (extent.loops) {
        wave->params.loopFlags = kLooped;
        wave->params.loopStart = static_cast<f64>(extent.loopStart.value_or(0) * kPlaystationBlockFrames);
        wave->params.loopEnd = wave->frames;
    }
    return true;
}

bool vag_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport("vag_Exp", item, formatWord, perWave);
    if (!out) return false;
    reportLosses(*out.wave, kKeepsRate | kKeepsLoop);
    const Extent extent = placeInBlocks(*out.wave, out.blocks->frames());
    reportMoved(*out.wave, extent);
    const u64 dataBytes = (extent.writtenBlocks() + 1) * kPlaystationBlockBytes;
    if (dataBytes > 0xFFFFFFFF) return Fail("vag_Exp", "The file would be too long");

    std::string name = Utf8ToAnsi(out.wave->name().view()).substr(0, kNameBytes);
    name.resize(kNameBytes);
    ByteWriter header;
    header.text("VAGp").integer<u32>(kVersion, std::endian::big).fill(4);
    header.integer(static_cast<u32>(dataBytes), std::endian::big)
        .integer(out.wave->sampleRate, std::endian::big);
    header.fill(12).text(name);
    if (!file.write(header.view())) return Fail("vag_Exp", "Writing to file failed");
    if (!writeCoded(*out.blocks, blockWriter(extent), *file.sink)) return false;
    ByteWriter end;
    end.u8le(0).u8le(kEndFlags).fill(kPlaystationBlockBytes - 2, 0x77);
    return file.write(end.view()) || Fail("vag_Exp", "Writing to file failed");
}

} // namespace kv
