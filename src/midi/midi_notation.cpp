#include "midi/midi_notation.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "base/run_context.h"
#include "midi/midi_names.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Edit event";

/// Takes words off the front of a text.
class Words {
public:
    explicit Words(std::string_view text) : left_(text) { skipBlanks(); }

    std::string_view next() {
        const std::string_view word = left_.substr(0, left_.find(' '));
        left_.remove_prefix(word.size());
        skipBlanks();
        return word;
    }
    /// The next word as a number from `least` to `most`.
    template <class T>
    bool number(std::string_view what, T& value, T least, T most) {
        const std::string_view word = next();
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (error == std::errc() && end == word.data() + word.size() && value >= least && value <= most)
            return true;
        return Fail(kContext, "\"{}\" is no {}, which goes from {} to {}", word, what, least, most);
    }
    bool startsWith(std::string_view text) const { return left_.starts_with(text); }
    void drop(std::size_t characters) { left_.remove_prefix(characters); }
    std::string_view rest() const { return left_; }
    bool end() const { return left_.empty() || Fail(kContext, "\"{}\" is too much", left_); }

private:
    void skipBlanks() { left_.remove_prefix(std::min(left_.find_first_not_of(' '), left_.size())); }
    std::string_view left_;
};

bool parseChannelMessage(Words& words, MidiEvent& event) {
    if (words.startsWith("ch=")) {
        words.drop(3);
        u32 channel = 0;
        if (!words.number<u32>("channel", channel, 1, 16)) return false;
        event.channel = static_cast<u8>(channel - 1);
    }
    if (event.status == kPitchBend) {
        i32 bend = 0;
        if (!words.number<i32>("pitch bend", bend, -8192, 8191)) return false;
        event.data1 = static_cast<u8>((bend + 8192) & 0x7F);
        event.data2 = static_cast<u8>((bend + 8192) >> 7);
        return words.end();
    }
    if (!words.number<u8>("value", event.data1, 0, 127)) return false;
    if (hasTwoDataBytes(event.status) && !words.number<u8>("second value", event.data2, 0, 127)) return false;
    return words.end();
}

bool parseMetaType(Words& words, u8& type) {
    for (const MetaKind& kind : metaKinds()) {
        if (!words.startsWith(kind.word)) continue;
        Words ahead = words;
        if (ahead.next() != kind.word) continue;
        words = ahead;
        type = kind.type;
        return true;
    }
    return words.number<u8>("meta type", type, 0, 127);
}

std::string_view withoutQuotes(std::string_view text) {
    const bool quoted =
        text.size() >= 2 && text.front() == text.back() && (text.front() == '\'' || text.front() == '"');
    return quoted ? text.substr(1, text.size() - 2) : text;
}

bool parseMeta(Words& words, MidiEvent& event) {
    if (!parseMetaType(words, event.channel)) return false;
    const std::string_view value = words.rest();
    if (value.empty()) {
        event.payload = newMetaPayload(event.channel);
        return true;
    }
    return parseMetaValue(event.channel, withoutQuotes(value), event.payload);
}

bool parseWords(Words& words, MidiEvent& event) {
    event = {};
    if (!words.number<u64>("time in ticks", event.time, 0, kMidiLengthLimit)) return false;
    const std::string_view word = words.next();
    const auto kinds = eventKinds();
    const auto kind =
        std::find_if(kinds.begin(), kinds.end(), [word](const EventKind& k) { return k.word == word; });
    if (kind == kinds.end()) {
        std::string known;
        for (const EventKind& k : kinds) known += fmt::format("{}{}", known.empty() ? "" : ", ", k.word);
        return Fail(kContext, "\"{}\" is no event; there are {}", word, known);
    }
    event.status = kind->status;
    if (event.status < kSysEx) return parseChannelMessage(words, event);
    if (event.status == kMeta) return parseMeta(words, event);
    return parseHex(words.rest(), event.payload);
}

std::string metaNotation(const MidiEventCursor& e) {
    const MetaKind* kind = metaKind(e.channel);
    const std::string type = kind ? std::string(kind->word) : fmt::format("{}", e.channel);
    switch (metaForm(e.channel)) {
        case MetaForm::Number: {
            u64 number = 0;
            for (std::size_t i = 0; i < kind->size; ++i) number = number << 8 | e.byteAt(i);
            return fmt::format("meta {} {}", type, number);
        }
        case MetaForm::Text:
            return fmt::format("meta {} '{}'", type, textFromBytes(e.body()));
        case MetaForm::Hex:
            break;
    }
    return fmt::format("meta {}{}{}", type, e.length > 0 ? " " : "", hexText(e.body()));
}

} // namespace

bool parseMidiEvent(std::string_view text, MidiEvent& event) {
    Words words(text);
    return parseWords(words, event);
}

bool parseIndexedMidiEvent(std::string_view text, u32& index, MidiEvent& event) {
    Words words(text);
    return words.number<u32>("index of an event", index, 1, 0xFFFFFFFF) && parseWords(words, event);
}

std::string midiNotation(const MidiEventCursor& e) {
    const EventKind* kind = eventKind(e.status);
    if (!kind) return {};
    if (e.status == kMeta) return fmt::format("{} {}", e.time, metaNotation(e));
    if (!e.isChannelMessage()) return fmt::format("{} {} {}", e.time, kind->word, hexText(e.body()));
    const std::string start = fmt::format("{} {} ch={} ", e.time, kind->word, e.channel + 1);
    if (e.status == kPitchBend) return start + fmt::format("{}", (e.data2 << 7 | e.data1) - 8192);
    return start +
           (hasTwoDataBytes(e.status) ? fmt::format("{} {}", e.data1, e.data2) : fmt::format("{}", e.data1));
}

} // namespace kv
