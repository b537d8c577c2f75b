#include "formats/audio/wav_chunks.h"

#include <array>
#include <optional>
#include <unordered_map>

#include "base/run_context.h"
#include "formats/audio/tags/id3_tag.h"
#include "formats/audio/wav_codecs.h"
#include "formats/audio/wav_fmt.h"
#include "formats/audio/wav_info.h"
#include "formats/audio/wav_reader.h"
#include "formats/audio/wav_smpl.h"
#include "formats/framework/chunks.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr int kMaxDepth = 16; // of LISTs within LISTs; real files have one
constexpr u32 kUnknown32 = 0xFFFFFFFF;
// What our own longest texts take in UTF-8.
constexpr std::size_t kLabelBytes = 4 * decltype(CuePoint::label)::kLimit;
constexpr std::size_t kNoteBytes = 4 * decltype(CuePoint::note)::kLimit;

/// Reads up to `size` bytes at a place.
Bytes readAt(FileContext& file, u64 offset, std::size_t size) {
    Bytes bytes(size);
    bytes.resize(file.source ? file.source->readAt(offset, bytes) : 0);
    return bytes;
}

/// What is known of a cue point while a file is read.
struct Cue {
    u32 name = 0;
    u32 offset = 0; ///< frames
    u32 length = 0;
    bool loopMark = false; ///< stands for the wave's loop
    std::string label, note;
};

class WavParser {
public:
    WavParser(FileContext& file, Wave& wave, u64 rangeEnd) : file_(file), wave_(wave), rangeEnd_(rangeEnd) {}

    bool walk(u64 start, u64 end, int depth);
    bool complete() const { return formatSeen_ && dataSeen_; }
    void finish();

private:
    bool form(const Chunk& chunk, u64 end, int depth);
    bool format(const Chunk& chunk);
    void data(const Chunk& chunk);
    void cues(const Chunk& chunk);
    void label(const Chunk& chunk, bool isNote);
    void labelledText(const Chunk& chunk);
    void sampler(const Chunk& chunk);
    void samplerVendorData(const SmplHeader& header, const Chunk& chunk, u64 at, const SmplLoop* loop);
    void instrument(const Chunk& chunk);
    void mesa(const Chunk& chunk);
    void tag(const Chunk& chunk);
    void sizes64(const Chunk& chunk);
    Cue* findCue(u32 name);
    u32 frameCount(u64 dataBytes) const;
    void settleFrames();
    void say(const Chunk& chunk, std::string_view field, std::string text,
             Severity severity = Severity::Warning) {
        runContext().diagnostics.add(
            {severity, chunk.start, std::string(wave_.name().view()), std::string(field), std::move(text)});
    }

    FileContext& file_;
    Wave& wave_;
    std::endian order_ = std::endian::little;
    WavFormat format_;
    bool formatSeen_ = false, dataSeen_ = false, cuesSeen_ = false;
    /// Frames as known ahead of the data: 0 or 1 unknown, negative minus the bytes per frame, above 1 a
    /// count.
    i64 frameCode_ = 0;
    u64 dataBytes_ = 0;
    u64 rangeEnd_ = 0;       ///< where the form can reach to, whatever it says
    bool openEnded_ = false; ///< the form's own size says nothing
    bool wide_ = false;      ///< 64-bit sizes stand in a chunk of their own
    std::optional<u64> wideData_, wideFrames_;
    std::vector<Cue> cues_;
    std::unordered_map<u32, std::size_t> cueByName_;
};

bool WavParser::walk(u64 start, u64 end, int depth) {
    ChunkWalker walker(*file_.source, start, end, order_);
    for (Chunk chunk; walker.next(chunk);) {
        switch (chunk.id) {
            case fourcc("RIFF"):
            case fourcc("SDSS"):
            case fourcc("RF64"):
            case fourcc("BW64"):
            case fourcc("RIFX"):
                if (depth == 0) return form(chunk, std::min(end, file_.size()), depth);
                break;
            case fourcc("ds64"):
                sizes64(chunk);
                break;
            case fourcc("fmt "):
                if (!formatSeen_ && !format(chunk)) return false;
                break;
            case fourcc("fact"): {
                const Bytes bytes = readContents(*file_.source, chunk, 4);
                ByteCursor in(bytes);
                const u32 frames = in.integer<u32>(order_);
                if (wide_ && frames == kUnknown32)
                    frameCode_ = wideFrames_ ? static_cast<i64>(*wideFrames_) : 0;
                else if (in.ok() && frames != 0)
                    frameCode_ = frames;
                break;
            }
            case fourcc("data"): {
                const bool unknown = chunk.statedSize == kUnknown32 || (chunk.statedSize == 0 && openEnded_);
                if (wide_ && chunk.statedSize == kUnknown32 && wideData_)
                    walker.setSize(chunk, *wideData_);
                else if (unknown)
                    walker.setSize(chunk, file_.size());
                // A form that says less than its data does is wrong, not the data.
                if (!wide_ && chunk.size < chunk.statedSize && !unknown) {
                    chunk.size = std::min(chunk.statedSize, rangeEnd_ - chunk.start);
                }
                if (!dataSeen_) data(chunk);
                break;
            }
            case fourcc("LIST"): {
                const Bytes type = readContents(*file_.source, chunk, 4);
                if (type.size() < 4) break;
                if (textOf(type) == "INFO")
                    wav_ParseInfoList(file_, chunk.start + 4, chunk.end(), wave_, order_);
                else if (depth < kMaxDepth && !walk(chunk.start + 4, chunk.end(), depth + 1))
                    return false;
                break;
            }
            case fourcc("cue "):
                if (!cuesSeen_) cues(chunk);
                break;
            case fourcc("labl"):
                label(chunk, false);
                break;
            case fourcc("note"):
                label(chunk, true);
                break;
            case fourcc("ltxt"):
                labelledText(chunk);
                break;
            case fourcc("smpl"):
                sampler(chunk);
                break;
            case fourcc("inst"):
                instrument(chunk);
                break;
            case fourcc("mesa"):
                mesa(chunk);
                break;
            case fourcc("ID3 "):
            case fourcc("id3 "):
                tag(chunk);
                break;
            default:
                break;
        }
    }
    return true;
}

bool WavParser::form(const Chunk& chunk, u64 end, int depth) {
    if (textOf(readAt(file_, chunk.start, 4)) != "WAVE") return Fail("wav_Imp", "Not a RIFF WAVE file");
    if (chunk.id == fourcc("RIFX")) order_ = std::endian::big;
    wide_ = chunk.id == fourcc("RF64") || chunk.id == fourcc("BW64");
    u64 formEnd = chunk.end();
    if (order_ == std::endian::big) {
        formEnd = chunk.start +
                  std::min<u64>(__builtin_bswap32(static_cast<u32>(chunk.statedSize)), end - chunk.start);
    }
    // A recorder that was cut off leaves the size open; a form too small for any wave says nothing either.
    openEnded_ = wide_ || formEnd < chunk.start + 36 || chunk.statedSize == kUnknown32;
    if (openEnded_) formEnd = end;
    if (!walk(chunk.start + 4, formEnd, depth + 1)) return false;
    return complete() || Fail("wav_Imp", "No wave data found!");
}

void WavParser::sizes64(const Chunk& chunk) {
    const Bytes bytes = readContents(*file_.source, chunk, 24);
    ByteCursor in(bytes);
    in.skip(8);
    const u64 dataSize = in.u64le(), frames = in.u64le();
    if (!in.ok()) return;
    wideData_ = dataSize;
    wideFrames_ = frames <= kUnknown32 ? frames : 0;
}

bool WavParser::format(const Chunk& chunk) {
    file_.position = chunk.start;
    format_.order = order_;
    if (!wav_ParseFmt(file_, wave_, format_)) return false;
    if (format_.extensible && !wavCodec(format_.tag)) frameCode_ = -static_cast<i64>(format_.frameBytes());
    formatSeen_ = true;
    return true;
}

void WavParser::data(const Chunk& chunk) {
    dataSeen_ = true;
    wave_.sourceOffset = chunk.start;
    dataBytes_ = chunk.size;
    if (chunk.statedSize > chunk.size && chunk.statedSize != kUnknown32 && !wide_) {
        say(chunk, "data", fmt::format("{} of {} bytes are there", chunk.size, chunk.statedSize));
    }
}

/// Settled at the end, as some writers put `fmt ` or `fact` behind the data.
u32 WavParser::frameCount(u64 dataBytes) const {
    const WavCodec* codec = wavCodec(format_.tag);
    if (codec && codec->kind == WavCodecKind::UsrGsm)
        return saturate<u32>(static_cast<f64>(dataBytes / 38 * 160));
    if (frameCode_ > 1) return saturate<u32>(static_cast<f64>(frameCode_));
    if (frameCode_ < 0) return saturate<u32>(static_cast<f64>(dataBytes / static_cast<u64>(-frameCode_)));
    return wav_FramesFromBytes(wave_, format_, dataBytes);
}

void WavParser::settleFrames() {
    wave_.frames = frameCount(dataBytes_);
    const WavCodec* codec = wavCodec(format_.tag);
    if (codec && codec->isStream()) {
        const u32 stated = frameCode_ > 1 ? wave_.frames : 0;
        const WavStream stream =
            wavStream(*codec, file_.source, format_.offset, order_, wave_.sourceOffset, dataBytes_);
        return wavSettleStream(stream, stated, format_, wave_);
    }
    const bool coded = codec != nullptr;
    const u64 held = coded ? wavCodedForm(*file_.source, format_.offset, format_.order).framesIn(dataBytes_)
                           : dataBytes_ / format_.frameBytes();
    if (coded && frameCode_ <= 1) {
        // The rule for codes knows nothing of the heads of blocks.
        wave_.frames = saturate<u32>(static_cast<f64>(std::min<u64>(wave_.frames, held)));
    } else if (wave_.frames > held) {
        runContext().diagnostics.warn(wave_.sourceOffset, "fact",
                                      fmt::format("{} frames stated, {} are there", wave_.frames, held));
        wave_.frames = saturate<u32>(static_cast<f64>(held));
    }
}

void WavParser::finish() {
    settleFrames();
    rememberWavLayout(wave_, format_, dataBytes_);
    for (const Cue& cue : cues_) {
        if (cue.loopMark && wave_.params.looped()) continue;
        CuePoint& point = wave_.cuePoints.emplace_back();
        point.position = cue.offset;
        point.length = cue.length;
        point.label = cue.label;
        point.note = cue.note;
    }
}

void WavParser::tag(const Chunk& chunk) {
    RangeSource contents(file_.source, chunk.start, chunk.size);
    TextTaker texts(wave_);
    takeTags(contents, texts);
}

Cue* WavParser::findCue(u32 name) {
    const auto found = cueByName_.find(name);
    return found == cueByName_.end() ? nullptr : &cues_[found->second];
}

void WavParser::cues(const Chunk& chunk) {
    cuesSeen_ = true;
    constexpr std::size_t kPointBytes = 24;
    Bytes bytes = readContents(*file_.source, chunk, 4);
    ByteCursor head(bytes);
    const u64 count =
        std::min<u64>(head.integer<u32>(order_), (chunk.size - std::min<u64>(chunk.size, 4)) / kPointBytes);
    bytes = readAt(file_, chunk.start + 4, static_cast<std::size_t>(count * kPointBytes));
    ByteCursor in(bytes);
    while (in.left() >= kPointBytes) {
        Cue cue;
        cue.name = in.integer<u32>(order_);
        in.skip(16);
        cue.offset = in.integer<u32>(order_);
        cueByName_.emplace(cue.name, cues_.size());
        cues_.push_back(std::move(cue));
    }
}

void WavParser::label(const Chunk& chunk, bool isNote) {
    const Bytes bytes = readContents(*file_.source, chunk, 4 + (isNote ? kNoteBytes : kLabelBytes));
    ByteCursor in(bytes);
    Cue* cue = findCue(in.integer<u32>(order_));
    if (!cue || !in.ok()) return;
    const std::string text = textFromBytes(in.bytes(in.left()));
    if (isNote) {
        cue->note = text;
        return;
    }
    cue->label = text;
    SampleParams& params = wave_.params;
    const bool start = equalIgnoringCase(text, "Loop Start"), end = equalIgnoringCase(text, "Loop End");
    if (start || end || equalIgnoringCase(text, "Loop Range")) cue->loopMark = true;
    if (params.looped()) return;
    if (start) params.loopStart = cue->offset;
    if (end) {
        params.loopEnd = static_cast<f64>(cue->offset) + 1;
        params.loopFlags |= kLooped;
    }
}

void WavParser::labelledText(const Chunk& chunk) {
    const Bytes bytes = readContents(*file_.source, chunk, 20);
    ByteCursor in(bytes);
    Cue* cue = findCue(in.integer<u32>(order_));
    const u32 length = in.integer<u32>(order_);
    const bool mark = in.text(4) == "mark";
    if (!cue || !in.ok()) return;
    if (!mark) {
        cue->length = length;
        return;
    }
    cue->loopMark = true;
    if (wave_.params.looped()) return;
    wave_.params.loopStart = cue->offset;
    wave_.params.loopEnd = static_cast<f64>(cue->offset) + length;
    wave_.params.loopFlags |= kLooped;
}

void WavParser::sampler(const Chunk& chunk) {
    const Bytes bytes = readContents(*file_.source, chunk, kSmplHeaderBytes + kSmplLoopBytes);
    ByteCursor in(bytes);
    const SmplHeader header = readSmplHeader(in, order_);
    if (!in.ok()) return say(chunk, "smpl", "too short");
    SmplLoop loop;
    const bool looped = header.loopCount > 0;
    if (looped) loop = readSmplLoop(in, order_);
    if (header.loopCount > 1) {
        say(chunk, "smpl", fmt::format("{} loops: only the first is kept", header.loopCount), Severity::Loss);
    }
    const u64 at = chunk.start + kSmplHeaderBytes + u64{header.loopCount} * kSmplLoopBytes;
    samplerVendorData(header, chunk, at, looped ? &loop : nullptr);
}

/// The data behind the loops, where two makers keep more of the tuning and the loop.
void WavParser::samplerVendorData(const SmplHeader& header, const Chunk& chunk, u64 at,
                                  const SmplLoop* loop) {
    SampleParams& params = wave_.params;
    SmplLoop adjusted = loop ? *loop : SmplLoop{};
    if (header.samplerDataSize == 28 && at < chunk.end()) {
        const Bytes bytes = readAt(file_, at, 28);
        if (bytes.size() >= 4 && textOf(bytes).starts_with("CWDT") && adjusted.end > 0) --adjusted.end;
    }
    wav_ParseSmpl(params, header, loop ? &adjusted : nullptr);
    if ((header.manufacturer & 0xFFFFFF) != 71 || header.product != 94 || header.samplerDataSize != 18)
        return;

    Bytes bytes = readAt(file_, at, 18);
    const auto byteAt = [&](std::size_t i) { return i < bytes.size() ? std::to_integer<int>(bytes[i]) : 0; };
    if (textOf(bytes).starts_with("loop") || byteAt(1) != 0) {
        bytes = readAt(file_, at + 18 + 6, 18);
        if (byteAt(1) != 0) return;
    }
    const int note = byteAt(2), tune = static_cast<i8>(byteAt(3));
    params.fineTune = tune;
    params.rootKey = static_cast<u8>(std::clamp(note - tune, 0, 127));
    switch (byteAt(6)) {
        case 0:
        case 1:
            params.loopFlags = 0;
            break;
        case 2:
            params.loopFlags = kLooped;
            break;
        case 3:
            params.loopFlags = kLooped | kLoopUntilRelease;
            break;
        default:
            break;
    }
}

void WavParser::instrument(const Chunk& chunk) {
    const Bytes bytes = readContents(*file_.source, chunk, 7);
    ByteCursor in(bytes);
    const u8 note = in.u8le();
    const i8 tune = in.s8(), gain = in.s8();
    if (!in.ok()) return;
    if (note < 128) wave_.params.rootKey = note;
    wave_.params.fineTune = tune;
    wave_.params.gainDb = gain;
}

void WavParser::mesa(const Chunk& chunk) {
    const Bytes bytes = readContents(*file_.source, chunk, 142);
    if (bytes.size() < 141) return;
    const auto byteAt = [&](std::size_t i) { return std::to_integer<u8>(bytes[i]); };
    const auto wordAt = [&](std::size_t i) {
        ByteCursor in(ByteSpan(bytes).subspan(i));
        return in.u32le();
    };
    constexpr std::string_view kAlphabet = "0123456789 ABCDEFGHIJKLMNOPQRSTUVWXYZ_+-.";
    std::string name;
    for (std::size_t i = 3; i <= 14; ++i) name += byteAt(i) < kAlphabet.size() ? kAlphabet[byteAt(i)] : '_';
    wave_.SetName(name);

    if (bytes.size() >= 142) wave_.sampleRate = wordAt(138);
    SampleParams& params = wave_.params;
    params.rootKey = static_cast<u8>(byteAt(2) - byteAt(21));
    params.fineTune = static_cast<i8>(byteAt(20));
    if (byteAt(16) == 0) return;
    if (byteAt(19) == 0) params.loopFlags = kLooped;
    if (byteAt(19) == 1) params.loopFlags = kLooped | kLoopUntilRelease;
    params.loopStart = wordAt(38);
    const u32 fraction = wordAt(42) & 0xFFFF;
    params.loopEnd = params.loopStart + wordAt(44) + fraction * 0x1p-16;
}

} // namespace

bool wav_ImpChunks(FileContext& file, u64 start, u64 end, Wave& wave) {
    if (!file.source) return Fail("wav_Imp", "No wave data found!");
    WavParser parser(file, wave, std::min(end, file.size()));
    if (!parser.walk(start, end, 0)) return false;
    if (!parser.complete()) return Fail("wav_Imp", "No wave data found!");
    parser.finish();
    return true;
}

Wave* wav_ImpEmbedded(FileContext& file, ItemId request, u64 start, u64 end, std::string_view name) {
    Wave* wave = store().Create<Wave>(request, &genericReader, name);
    if (wav_ImpChunks(file, start, end, *wave)) return wave;
    store().Delete(wave);
    return nullptr;
}

} // namespace kv
