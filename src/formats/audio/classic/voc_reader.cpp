#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/audio/classic/creative_adpcm.h"
#include "formats/audio/classic/voc_layout.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "voc_Imp";
constexpr u64 kMostSilence = 1 << 25; ///< frames in all, of a few bytes each: a bound for hostile files
constexpr u8 kMiddle = 0x80;          ///< of unsigned 8-bit samples
constexpr std::size_t kMostMarkers = 4096;
constexpr std::size_t kTextBytes = 4096;

/// Bytes in a file.
struct Piece {
    u64 start, bytes;
};

/// Samples of one codec from one or more blocks, or silence.
struct Run {
    const VocCodec* codec = nullptr; ///< none: silence
    u8 reference = 0;                ///< of a coded run
    std::vector<Piece> pieces;
    u64 bytes = 0;
    u64 frames = 0;
};

struct Voice {
    u32 rate = 0, channels = 0;
    const VocCodec* codec = nullptr; ///< of the first sound
    std::vector<Run> runs;
    u64 frames = 0;
    std::string text;
    std::vector<CuePoint> markers;
    u64 loopStart = 0, loopEnd = 0;
};

/// The pieces of a run as one source.
class PiecesSource final : public ByteSource {
public:
    PiecesSource(std::shared_ptr<ByteSource> whole, const Run& run)
        : whole_(std::move(whole)), pieces_(run.pieces), size_(run.bytes) {}
    u64 size() const override { return size_; }
    std::size_t readAt(u64 offset, std::span<std::byte> to) override {
        std::size_t done = 0;
        for (const Piece& piece : pieces_) {
            if (offset >= piece.bytes) {
                offset -= piece.bytes;
                continue;
            }
            const auto count =
                static_cast<std::size_t>(std::min<u64>(piece.bytes - offset, to.size() - done));
            const std::size_t got = whole_->readAt(piece.start + offset, to.subspan(done, count));
            done += got;
            if (got != count || done == to.size()) break;
            offset = 0;
        }
        return done;
    }

private:
    std::shared_ptr<ByteSource> whole_;
    std::vector<Piece> pieces_;
    u64 size_;
};

CodedForm formOf(const Run& run, u32 channels) {
    if (run.codec->coded16) return creativeForm16(channels);
    if (!run.codec->coded) return plainForm(run.codec->word, channels);
    const CreativeBits bits = run.codec->bits == 4   ? CreativeBits::Four
                              : run.codec->bits == 3 ? CreativeBits::TwoPointSix
                                                     : CreativeBits::Two;
    return creativeForm(bits, run.reference);
}

const VocCodec* codecOf(u16 number, u16 bits = 0) {
    for (const VocCodec& codec : kVocCodecs) {
        if (codec.number == number && (bits == 0 || codec.bits == bits)) return &codec;
    }
    return nullptr;
}

class VocParser {
public:
    explicit VocParser(ByteSource& source) : source_(source) {}
    bool parse(Voice& voice);

private:
    struct Block {
        VocBlock kind;
        u64 start, bytes;
        u64 end() const { return start + bytes; }
    };
    bool next(Block& block);
    bool take(const Block& block, Voice& voice);
    bool sound(const Block& block, Voice& voice);
    bool newSound(const Block& block, Voice& voice);
    bool begin(Voice& voice, const VocCodec* codec, u32 rate, u32 channels, Piece data);
    void silence(const Block& block, Voice& voice);
    static void add(Voice& voice, Piece piece);
    Bytes contents(const Block& block, std::size_t most) {
        Bytes bytes(static_cast<std::size_t>(std::min<u64>(block.bytes, most)));
        bytes.resize(source_.readAt(block.start, bytes));
        return bytes;
    }

    ByteSource& source_;
    u64 at_ = 0;
    u64 silence_ = 0;                ///< frames so far
    const VocCodec* last_ = nullptr; ///< of the last sound
    bool open_ = false;              ///< the last run can go on
    struct {
        bool present = false;
        u32 rate = 0, channels = 0;
        u8 codec = 0;
    } extended_;
};

bool VocParser::next(Block& block) {
    Bytes bytes(4);
    bytes.resize(source_.readAt(at_, bytes));
    ByteCursor in(bytes);
    block.kind = static_cast<VocBlock>(in.u8le());
    if (!in.ok() || block.kind == VocBlock::End) return false;
    u64 size = in.u16le();
    size |= u64{in.u8le()} << 16;
    if (!in.ok()) return false;
    const bool holdsSound = block.kind == VocBlock::Sound || block.kind == VocBlock::NewSound;
    block.start = at_ + 4;
    const u64 room = source_.size() - std::min(source_.size(), block.start);
    block.bytes = size == 0 && holdsSound ? room : std::min(size, room); // a stream knew no size
    at_ = block.end();
    return true;
}

/// Puts bytes behind those of the last run.
void VocParser::add(Voice& voice, Piece piece) {
    if (piece.bytes == 0) return;
    Run& run = voice.runs.back();
    run.pieces.push_back(piece);
    run.bytes += piece.bytes;
    const u64 frames = formOf(run, voice.channels).framesIn(run.bytes);
    voice.frames += frames - run.frames;
    run.frames = frames;
}

bool VocParser::begin(Voice& voice, const VocCodec* codec, u32 rate, u32 channels, Piece data) {
    last_ = nullptr; // what continues a sound that can't be taken is left out as well
    if (!codec) return Fail(kContext, "Unsupported compression type");
    if (channels == 0 || channels > 2) return Fail(kContext, "Too many channels");
    if (codec->coded && channels != 1) return Fail(kContext, "Unsupported compression type");
    if (voice.codec && channels != voice.channels) return Fail(kContext, "The number of channels changes");
    if (!voice.codec) {
        voice.codec = codec;
        voice.rate = rate;
        voice.channels = channels;
    }
    last_ = codec;
    open_ = true;
    if (!codec->coded) {
        voice.runs.push_back({codec, 0, {}, 0, 0});
        add(voice, data);
        return true;
    }
    if (data.bytes == 0) return true;
    Bytes reference(1);
    source_.readAt(data.start, reference);
    voice.runs.push_back({codecOf(0), 0, {}, 0, 0});
    add(voice, {data.start, 1});
    voice.runs.push_back({codec, std::to_integer<u8>(reference[0]), {}, 0, 0});
    add(voice, {data.start + 1, data.bytes - 1});
    return true;
}

bool VocParser::sound(const Block& block, Voice& voice) {
    const Bytes bytes = contents(block, 2);
    ByteCursor in(bytes);
    const u8 divisor = in.u8le();
    const u8 number = in.u8le();
    if (!in.ok()) return true; // cut off: what came before stands
    const Piece data{block.start + 2, block.bytes - 2};
    if (!extended_.present) return begin(voice, codecOf(number), vocRate(divisor), 1, data);
    extended_.present = false;
    return begin(voice, codecOf(extended_.codec), extended_.rate, extended_.channels, data);
}

bool VocParser::newSound(const Block& block, Voice& voice) {
    const Bytes bytes = contents(block, 12);
    ByteCursor in(bytes);
    const u32 rate = in.u32le();
    const u8 bits = in.u8le();
    const u8 channels = in.u8le();
    const u16 number = in.u16le();
    in.skip(4);
    if (!in.ok()) return true;
    if (rate == 0) return Fail(kContext, "No sample rate");
    const Piece data{block.start + 12, block.bytes - 12};
    return begin(voice, codecOf(number, bits), rate, channels, data);
}

void VocParser::silence(const Block& block, Voice& voice) {
    const Bytes bytes = contents(block, 3);
    ByteCursor in(bytes);
    u64 frames = u64{in.u16le()} + 1;
    const u32 rate = vocRate(in.u8le());
    if (!in.ok()) return;
    // Some writers give silence a divisor of its own: what counts is how long it lasts. A rate that no
    // divisor has is that of other kinds of blocks, which the divisor can only come near to.
    if (voice.rate != 0 && (rate > voice.rate + voice.rate / 50 || rate + rate / 50 < voice.rate))
        frames = (frames * voice.rate + rate / 2) / rate;
    if (!voice.codec) return; // ahead of all sound: of no rate yet
    frames = std::min(frames, kMostSilence - silence_);
    silence_ += frames;
    voice.runs.push_back({nullptr, 0, {}, 0, frames});
    voice.frames += frames;
    open_ = false;
}

/// False with the error pair set for what ends the file.
bool VocParser::take(const Block& block, Voice& voice) {
    switch (block.kind) {
        case VocBlock::Sound:
            return sound(block, voice);
        case VocBlock::NewSound:
            return newSound(block, voice);
        case VocBlock::More:
            if (!last_) return true;
            if (!open_) voice.runs.push_back({last_, kMiddle, {}, 0, 0});
            open_ = true;
            add(voice, {block.start, block.bytes});
            return true;
        case VocBlock::Silence:
            silence(block, voice);
            return true;
        case VocBlock::Marker:
            if (const Bytes bytes = contents(block, 2);
                bytes.size() == 2 && voice.markers.size() < kMostMarkers) {
                CuePoint cue;
                cue.position = static_cast<u32>(std::min<u64>(voice.frames, 0xFFFFFFFF));
                cue.label = fmt::format("{}", ByteCursor(bytes).u16le());
                voice.markers.push_back(cue);
            }
            return true;
        case VocBlock::Text:
            if (voice.text.size() < kTextBytes)
                voice.text += (voice.text.empty() ? "" : "\n") + fieldText(contents(block, kTextBytes));
            return true;
        case VocBlock::Repeat:
            voice.loopStart = voice.frames;
            voice.loopEnd = ~u64{0}; // unless an end comes
            return true;
        case VocBlock::EndRepeat:
            if (voice.loopEnd == ~u64{0}) voice.loopEnd = voice.frames;
            return true;
        case VocBlock::Extended: {
            const Bytes bytes = contents(block, 4);
            ByteCursor in(bytes);
            const u16 divisor = in.u16le();
            extended_.codec = in.u8le();
            extended_.channels = in.u8le() == 1 ? 2 : 1;
            extended_.rate = vocExtendedRate(divisor, extended_.channels);
            extended_.present = in.ok();
            return true;
        }
        default:
            return true;
    }
}

bool VocParser::parse(Voice& voice) {
    Bytes head(kVocHeaderBytes);
    head.resize(source_.readAt(0, head));
    ByteCursor in(head);
    const std::string_view title = textOf(in.bytes(kVocTitle.size()));
    at_ = in.u16le();
    if (!in.ok() || title != kVocTitle) return Fail(kContext, "Not a Creative Voice file");
    for (Block block; next(block);) {
        if (!take(block, voice) && !voice.codec) return false; // else what came before stands
    }
    if (!voice.codec) return Fail(kContext, "No sound in the file");
    voice.loopEnd = std::min(voice.loopEnd, voice.frames);
    return true;
}

std::unique_ptr<SampleBlocks> openVoice(const Wave& wave, FileContext& file) {
    Voice voice;
    if (!file.source) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    if (!VocParser(*file.source).parse(voice)) return nullptr;
    std::vector<SamplePart> parts;
    for (const Run& run : voice.runs) {
        const u32 frames = static_cast<u32>(std::min<u64>(run.frames, 0xFFFFFFFF));
        if (frames == 0) continue;
        SamplePart part{nullptr, frames};
        if (run.codec)
            part.blocks = openCoded(std::make_shared<PiecesSource>(file.source, run), 0, run.bytes, frames,
                                    formOf(run, voice.channels));
        parts.push_back(std::move(part));
    }
    return joinedParts(std::move(parts), wave.channels, wave.frames);
}
const WaveReader vocReader{"voc_ImpWave", loadThroughBlocks, openVoice};

} // namespace

bool voc_Imp(Collection&, FileContext& file, u32) {
    Voice voice;
    if (!VocParser(*file.source).parse(voice)) return false;
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &vocReader);
    wave->dataFormat = voice.codec->word;
    wave->preferredFormat = voice.codec->coded     ? kPcm8
                            : voice.codec->coded16 ? kPcm16
                                                   : voice.codec->word & kCodeMask;
    wave->bits = voice.codec->bits;
    wave->channels = voice.channels;
    wave->sampleRate = voice.rate;
    wave->frames = static_cast<u32>(std::min<u64>(voice.frames, 0xFFFFFFFF));
    wave->comments = voice.text;
    wave->cuePoints = std::move(voice.markers);
    setLoop(*wave, voice.loopStart, voice.loopEnd, kLooped);
    return true;
}

} // namespace kv
