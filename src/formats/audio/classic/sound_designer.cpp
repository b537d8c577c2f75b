// Sound Designer I. Document: "Sound Designer I File Format" (Digidesign, 1990). A header of 1336 bytes, the
// memory of a Macintosh program, and 16-bit samples; all big-endian.
#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::size_t kHeaderBytes = 1336;
constexpr u16 kVersion = 32;
constexpr u32 kNoLoop = 0xFFFFFFFF;

// Places of the fields that matter; what is not named here is the program's own and 0.
constexpr std::size_t kZoom = 56, kScale = 62, kFileSize = 184, kFileName = 254, kMarkers = 348, kLoop = 752,
                      kComment = 764, kRate = 1020, kCodeType = 1030, kRelease = 1324;
constexpr std::size_t kMarkerCount = 10;
constexpr u8 kForward = 1, kBackAndForth = 2;

/// Text of at most `most` bytes behind its length.
std::string pascalText(ByteCursor& in, std::size_t most) {
    const u8 length = in.u8le();
    const ByteSpan field = in.bytes(most);
    return fieldText(field.first(std::min<std::size_t>(length, field.size())));
}
void putPascal(ByteWriter& out, std::string_view text, std::size_t most) {
    const std::string stored = Utf8ToAnsi(text).substr(0, most);
    out.u8le(static_cast<u8>(stored.size())).text(stored).fill(most - stored.size());
}

/// Places are counted in bytes of samples.
Bytes buildHeader(const Wave& wave, u64 dataBytes, const std::optional<FrameLoop>& loop) {
    ByteWriter out;
    const auto at = [&out](std::size_t place) -> ByteWriter& { return out.fill(place - out.size()); };
    out.u16be(kHeaderBytes).u16be(kVersion);
    at(kZoom).u16be(static_cast<u16>(-256)).u32be(1);
    at(kScale).u32be(327).u8le(4).u8le(0);
    putPascal(out, "%Scale", 33);
    out.u32be(1).u16be(0);
    putPascal(out, "sec", 33);
    at(kFileSize).u32be(static_cast<u32>(dataBytes));
    at(kFileName);
    putPascal(out, wave.name(), 31);
    at(kMarkers);
    for (std::size_t i = 0; i < kMarkerCount; ++i) {
        const CuePoint* cue = i < wave.cuePoints.size() ? &wave.cuePoints[i] : nullptr;
        out.u8le(cue ? 0 : 1).u8le(0).u32be(cue ? cue->position * 2 : 0);
        putPascal(out, cue ? cue->label.view() : "Untitled", 32);
        out.u8le(0);
    }
    at(kLoop).u32be(loop ? loop->start * 2 : kNoLoop).u32be(loop ? loop->end * 2 : kNoLoop);
    at(kComment);
    putPascal(out, wave.comments, 255);
    at(kRate).u32be(wave.sampleRate).u32be(1'000'000 / std::max(wave.sampleRate, 1U)).u16be(16);
    at(kCodeType);
    putPascal(out, "Linear", 33);
    at(kRelease).u32be(kNoLoop).u32be(kNoLoop);
    out.u8le(loop && loop->alternates ? kBackAndForth : kForward).u8le(kForward);
    at(kHeaderBytes);
    return out.take();
}

void readMarkers(ByteSpan head, Wave& wave) {
    ByteCursor in(head.subspan(kMarkers));
    for (std::size_t i = 0; i < kMarkerCount; ++i) {
        const bool isFree = in.u8le() != 0;
        in.skip(1);
        CuePoint cue;
        cue.position = in.u32be() / 2;
        cue.label = pascalText(in, 32);
        in.skip(1);
        if (!isFree && cue.position <= wave.frames) wave.cuePoints.push_back(cue);
    }
}

} // namespace

bool sd1_Imp(Collection&, FileContext& file, u32) {
    constexpr std::string_view kContext = "sd1_Imp";
    const Bytes head = headOf(file, kHeaderBytes);
    if (head.size() < kHeaderBytes) return Fail(kContext, "Not a Sound Designer file");
    const auto at = [&head](std::size_t place) { return ByteCursor(ByteSpan(head).subspan(place), place); };
    const u32 headerBytes = at(0).u16be();
    ByteCursor in = at(kRate);
    SampleLayout layout;
    layout.rate = in.u32be();
    in.skip(4);
    const u32 bits = in.u16be();
    if (headerBytes != kHeaderBytes) return Fail(kContext, "Not a Sound Designer file");
    if (bits != 16) return Fail(kContext, "Unsupported subformat");
    layout.word = kPcm16 | kByteswap;
    layout.offset = kHeaderBytes;
    layout.bytes = file.size() - kHeaderBytes;
    const u32 stated = at(kFileSize).u32be();
    if (stated != 0) layout.bytes = std::min<u64>(layout.bytes, stated);
    Wave* wave = importSamples(file, layout, kContext);
    if (!wave) return false;

    in = at(kFileName);
    wave->SetName(pascalText(in, 65));
    in = at(kComment);
    wave->comments = pascalText(in, 255);
    in = at(kLoop);
    const u32 loopStart = in.u32be();
    const u32 loopEnd = in.u32be();
    const bool alternates = at(kRelease + 8).u8le() == kBackAndForth;
    if (loopEnd != kNoLoop)
        setLoop(*wave, loopStart / 2, loopEnd / 2,
                static_cast<u16>(kLooped | (alternates ? kLoopBidirectional : 0)));
    readMarkers(head, *wave);
    return true;
}

bool sd1_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    constexpr std::string_view kContext = "sd1_Exp";
    const SampleExport out = openExport(kContext, item, formatWord, perWave);
    if (!out || !sizeFits(kContext, out.dataBytes() + kHeaderBytes)) return false;
    const Wave& wave = *out.wave;
    const std::optional<FrameLoop> loop = frameLoop(wave, true);
    const bool allMarkers = wave.cuePoints.size() <= kMarkerCount;
    reportLosses(wave, kKeepsRate | (loop ? kKeepsLoop : 0U) | (allMarkers ? kKeepsCues : 0U));
    if (!file.write(buildHeader(wave, out.dataBytes(), loop)))
        return Fail(kContext, "Writing to file failed");
    return writeSamples(*out.blocks, out.word | kByteswap, *file.sink);
}

} // namespace kv
