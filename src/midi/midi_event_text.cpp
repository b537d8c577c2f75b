#include "midi/midi_event_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "midi/midi_names.h"
#include "model/key_name.h"
#include "model/workspace.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

std::string_view gmResetName(u8 value) {
    switch (value) {
        case 1:
            return "GM1";
        case 2:
            return "Off";
        case 3:
            return "GM2";
        default:
            return "";
    }
}

std::string universalText(const MidiEventCursor& e) {
    constexpr u8 kGeneralMidi = 9;
    if (e.byteAt(2) == kGeneralMidi) return fmt::format("<GM Reset: {}>", gmResetName(e.byteAt(3)));
    if (e.length == 5) return fmt::format("<GM message {:2X}, {:2X}>", e.byteAt(2), e.byteAt(3));
    return fmt::format("<GM message {:2X}, {} Bytes>", e.byteAt(2), e.length);
}

std::string rolandText(const MidiEventCursor& e) {
    const bool partMode =
        e.byteAt(3) == 0x12 && e.byteAt(4) == 0x40 && e.byteAt(5) < 16 && e.byteAt(6) == 0x15;
    if (partMode) return fmt::format("<Roland GS, Part {} mode={}>", e.byteAt(5), e.byteAt(7));
    return fmt::format("<Roland GS, {} Bytes>", e.length);
}

std::string sysExText(const MidiEventCursor& e) {
    switch (e.byteAt(0)) {
        case 0x7E:
            if (e.length > 4) return universalText(e);
            break;
        case 0x7F:
            return fmt::format("<GM realtime, {} Bytes>", e.length);
        case 0x41:
            if (e.length >= 8 && e.byteAt(2) == 0x42) return rolandText(e);
            break;
        case 0x43:
            if (e.length >= 7 && e.byteAt(2) == 0x4C) return fmt::format("<Yamaha XG, {} Bytes>", e.length);
            break;
        default:
            break;
    }
    return fmt::format("<Manuf: {:2X}h, {} Bytes>", e.byteAt(0), e.length);
}

std::string tempoText(const MidiEventCursor& e) {
    const u32 tempo = e.tempo();
    std::string text = fmt::format("{:.5f} ms/4th", tempo / 1000.0);
    if (tempo != 0) text += fmt::format(" ({} bpm)", std::lround(60000000.0 / tempo));
    return text;
}

std::string keyText(const MidiEventCursor& e) {
    const int accidentals = static_cast<i8>(e.byteAt(0));
    std::string text = "C ";
    if (accidentals != 0)
        text = fmt::format("{} {} ", std::abs(accidentals), accidentals < 0 ? "flats" : "sharps");
    return text + (e.byteAt(1) != 0 ? "minor" : "major");
}

std::string signatureText(const MidiEventCursor& e) {
    const u32 exponent = e.byteAt(1);
    const u32 unit = exponent < 32 ? u32{1} << exponent : 0;
    return fmt::format("{}/{}, {} ticks/click, {} (32/4)", e.byteAt(0), unit, e.byteAt(2), e.byteAt(3));
}

/// The text of a meta event, cut to 99 bytes but not within a character.
std::string lineOf(ByteSpan text) {
    constexpr std::size_t kMost = 99;
    if (text.size() <= kMost) return textFromBytes(text);
    std::size_t end = kMost;
    while (end > kMost - 3 && (std::to_integer<u8>(text[end]) & 0xC0) == 0x80) --end;
    const ByteSpan whole = text.first(end);
    return textFromBytes(isUtf8(textOf(whole)) ? whole : text.first(kMost));
}

std::string metaText(const MidiEventCursor& e) {
    switch (e.channel) {
        case kMetaSequenceNumber:
            return fmt::format("{}", e.byteAt(0) << 8 | e.byteAt(1));
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
        case 6:
        case 7:
            return lineOf(e.body());
        case kMetaChannelPrefix:
        case kMetaChannelGroup:
            return fmt::format("{}", e.byteAt(0));
        case kMetaTempo:
            return tempoText(e);
        case kMetaSmpteOffset:
            return fmt::format("{}:{}:{}:{}:{}", e.byteAt(0), e.byteAt(1), e.byteAt(2), e.byteAt(3),
                               e.byteAt(4));
        case kMetaTimeSignature:
            return signatureText(e);
        case kMetaKeySignature:
            return keyText(e);
        default:
            return fmt::format("<{} Bytes>", e.length);
    }
}

} // namespace

std::string eventParameters(const MidiEventCursor& e, const AppSettings& settings) {
    switch (e.status) {
        case kNoteOff:
        case kNoteOn:
        case kPolyPressure:
            return fmt::format("{}, {}", KeyName(e.data1, settings), e.data2);
        case kControlChange:
            return fmt::format("{}, {}", controllerName(e.data1), e.data2);
        case kProgramChange:
            return fmt::format("{}", e.data1);
        case kPitchBend:
            return fmt::format("{:.5f}", ((e.data2 - 64) * 128 + e.data1) / 8192.0);
        case kSysEx:
        case kSysExMore:
            return sysExText(e);
        case kMeta:
            if (e.channel == kMetaEndOfTrack) return metaName(e.channel);
            return metaName(e.channel) + ": " + metaText(e);
        default:
            return {};
    }
}

EventRows::EventRows(const Track& track, std::size_t limit)
    : settings_(settings()),
      cursor_(ByteSpan(track.events).first(std::min(limit, track.events.size()))),
      more_(track.events.size() > limit) {}

bool EventRows::next(EventRow& row) {
    if (!cursor_.next()) {
        if (more_) row = {"<more>", "...", "...", "Only first 64KB of data are shown!"};
        return std::exchange(more_, false);
    }
    const EventKind* kind = eventKind(cursor_.status);
    // The column is filled anew by every event but this one, which shows what stood above it.
    if (cursor_.status != kChannelPressure) parameters_ = eventParameters(cursor_, settings_);
    row.ticks = fmt::format("{}", cursor_.time);
    row.channel = cursor_.isChannelMessage() ? fmt::format("{}", cursor_.channel + 1) : std::string();
    row.event = kind ? kind->name : std::string_view();
    row.parameters = parameters_;
    return true;
}

std::string songSheetText(const Song& song) {
    const std::string rate = song.division < 0 ? fmt::format("{} ticks/frame, {} frames/s",
                                                             song.division & 0xFF, song.division / 256)
                                               : fmt::format("{} ticks/4th", song.division);
    return fmt::format("-  {} track{}, {}, {} events, {} Bytes  -", song.childIds.size(),
                       plural(song.childIds.size()), rate, song.eventCount, song.dataSize);
}

std::string trackSheetText(const Track& track) {
    return fmt::format("{} events, {} Bytes", track.eventCount, track.dataSize);
}

} // namespace kv
