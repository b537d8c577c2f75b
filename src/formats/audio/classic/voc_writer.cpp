#include <algorithm>
#include <charconv>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/audio/classic/voc_layout.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "voc_Exp";
constexpr u16 kFirstVersion = 0x010A, kSecondVersion = 0x0114;

/// How sounds are announced.
struct Announcement {
    VocBlock kind = VocBlock::Sound; ///< Extended stands for a pair of blocks
    u16 divisor = 0;
    bool exactRate = true;
};

/// Divisors nearest to a rate.
u8 soundDivisor(u32 hz) {
    return static_cast<u8>(256 - std::clamp((1'000'000 + hz / 2) / std::max(hz, 1U), 1U, 256U));
}
u16 extendedDivisor(u32 hz, u32 channels) {
    const u64 perSecond = std::max<u64>(u64{hz} * channels, 1);
    return static_cast<u16>(65536 - std::clamp<u64>((256'000'000 + perSecond / 2) / perSecond, 1, 65536));
}

/// The oldest kind of block that holds the samples and, unless the old style is asked for, the rate.
Announcement announce(const SampleExport& out, bool oldStyle) {
    const u32 hz = out.wave->sampleRate;
    Announcement found;
    const bool bytes = (out.word & kPcm8) != 0;
    if (bytes && out.channels == 1) {
        const u8 divisor = soundDivisor(hz);
        found = {VocBlock::Sound, divisor, vocRate(divisor) == hz};
        if (found.exactRate || oldStyle) return found;
    }
    if (bytes) {
        const u16 divisor = extendedDivisor(hz, out.channels);
        found = {VocBlock::Extended, divisor, vocExtendedRate(divisor, out.channels) == hz};
        if (found.exactRate || oldStyle) return found;
    }
    return {VocBlock::NewSound, 0, true};
}

ByteWriter& blockHead(ByteWriter& out, VocBlock kind, u64 bytes) {
    return out.u8le(static_cast<u8>(kind)).u16le(static_cast<u16>(bytes)).u8le(static_cast<u8>(bytes >> 16));
}

u32 fieldBytes(VocBlock kind) {
    return kind == VocBlock::NewSound ? 12 : kind == VocBlock::More ? 0 : 2;
}

/// The head of a block of samples and its fields.
Bytes soundHead(const SampleExport& out, const Announcement& how, VocBlock kind, u64 dataBytes) {
    ByteWriter head;
    if (kind == VocBlock::Extended) {
        blockHead(head, VocBlock::Extended, 4).u16le(how.divisor).u8le(0);
        head.u8le(static_cast<u8>(out.channels - 1));
        kind = VocBlock::Sound;
    }
    blockHead(head, kind, fieldBytes(kind) + dataBytes);
    if (kind == VocBlock::Sound) {
        const u16 divisor =
            how.kind == VocBlock::Sound ? how.divisor : u16{soundDivisor(out.wave->sampleRate)};
        head.u8le(static_cast<u8>(divisor)).u8le(0);
    } else if (kind == VocBlock::NewSound) {
        const u32 code = out.word & kCodeMask;
        const auto* codec = std::find_if(std::begin(kVocCodecs), std::end(kVocCodecs),
                                         [code](const VocCodec& c) { return (c.word & kCodeMask) == code; });
        head.u32le(out.wave->sampleRate).u8le(static_cast<u8>(codec->bits));
        head.u8le(static_cast<u8>(out.channels)).u16le(codec->number).u32le(0);
    }
    return head.take();
}

/// What stands between samples.
struct Event {
    u32 frame;
    VocBlock kind; ///< Repeat, EndRepeat or Marker
    u16 value = 0;
};

/// A marker's number is what its label begins with, if that is one, else its place among the markers.
u16 markerNumber(const CuePoint& cue, std::size_t index) {
    u16 number = 0;
    const std::string_view label = cue.label;
    if (std::from_chars(label.data(), label.data() + label.size(), number).ec == std::errc()) return number;
    return static_cast<u16>(index + 1);
}

std::vector<Event> eventsOf(const Wave& wave, const std::optional<FrameLoop>& loop, u32 frames) {
    std::vector<Event> events;
    for (std::size_t i = 0; i < wave.cuePoints.size(); ++i) {
        const CuePoint& cue = wave.cuePoints[i];
        events.push_back({std::min(cue.position, frames), VocBlock::Marker, markerNumber(cue, i)});
    }
    if (loop) {
        events.push_back({loop->start, VocBlock::Repeat, kVocForever});
        events.push_back({loop->end, VocBlock::EndRepeat});
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const Event& a, const Event& b) { return a.frame < b.frame; });
    return events;
}

Bytes eventBytes(const Event& event) {
    ByteWriter out;
    if (event.kind == VocBlock::EndRepeat) return blockHead(out, event.kind, 0).take();
    return blockHead(out, event.kind, 2).u16le(event.value).take();
}

/// Writes the samples up to a frame, in as many blocks as they take.
class SoundWriter {
public:
    SoundWriter(const SampleExport& out, const Announcement& how, ByteSink& sink)
        : out_(out), how_(how), sink_(sink), kind_(how.kind) {}

    bool writeTo(u32 frame) {
        const u32 frameBytes = out_.channels * out_.sampleBytes;
        while (done_ < frame) {
            const u32 room = (kVocMostBlockBytes - fieldBytes(kind_)) / frameBytes;
            const u32 frames = std::min(room, frame - done_);
            const std::unique_ptr<SampleBlocks> part = nextFrames(*out_.blocks, frames);
            const u32 word = out_.word | ((out_.word & kPcm8) != 0 ? kUnsigned : 0);
            if (!sink_.write(soundHead(out_, how_, kind_, u64{frames} * frameBytes)))
                return Fail(kContext, "Writing to file failed");
            if (!writeSamples(*part, word, sink_)) return false;
            done_ += frames;
            kind_ = VocBlock::More;
        }
        return true;
    }

private:
    const SampleExport& out_;
    const Announcement& how_;
    ByteSink& sink_;
    VocBlock kind_; ///< of the next block
    u32 done_ = 0;
};

u32 keptOf(const Wave& wave, const Announcement& how, bool loop) {
    const bool plainCues = std::all_of(wave.cuePoints.begin(), wave.cuePoints.end(), [](const CuePoint& cue) {
        return cue.length == 0 && cue.note.empty();
    });
    const bool plainTexts =
        wave.artist.empty() && wave.album.empty() && wave.engineer.empty() && wave.copyright.empty();
    return (how.exactRate ? kKeepsRate : 0U) | (loop ? kKeepsLoop : 0U) | (plainCues ? kKeepsCues : 0U) |
           (plainTexts ? kKeepsTexts : 0U);
}

} // namespace

bool voc_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32) {
    const SampleExport out = openExport(kContext, item, formatWord, perWave);
    if (!out) return false;
    const Wave& wave = *out.wave;
    const u32 frames = out.blocks->frames();
    const Announcement how = announce(out, subType == kVocOldStyle);
    const std::optional<FrameLoop> loop = frameLoop(wave);
    reportLosses(wave, keptOf(wave, how, loop.has_value()));

    const u16 version = how.kind == VocBlock::NewSound ? kSecondVersion : kFirstVersion;
    ByteWriter head;
    head.text(kVocTitle).u16le(kVocHeaderBytes).u16le(version).u16le(static_cast<u16>(~version + 0x1234));
    if (!wave.comments.empty()) {
        const std::string text = Utf8ToAnsi(wave.comments);
        blockHead(head, VocBlock::Text, text.size() + 1).text(text).u8le(0);
    }
    if (!file.write(head.view())) return Fail(kContext, "Writing to file failed");
    SoundWriter sounds(out, how, *file.sink);
    for (const Event& event : eventsOf(wave, loop, frames)) {
        if (!sounds.writeTo(event.frame)) return false;
        if (!file.write(eventBytes(event))) return Fail(kContext, "Writing to file failed");
    }
    if (!sounds.writeTo(frames)) return false;
    const std::byte end{};
    return file.write({&end, 1}) || Fail(kContext, "Writing to file failed");
}

} // namespace kv
