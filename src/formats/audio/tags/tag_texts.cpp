#include "formats/audio/tags/tag_texts.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/text.h"
#include "formats/framework/gain_tags.h"
#include "model/wave.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::size_t kMostTextBytes = 65536, kMostChapterTexts = 2000;

constexpr TextRow kRows[] = {
    {"TITLE", [](const Wave& w) { return w.name().view(); },
     [](Wave& w, std::string_view t) { w.SetName(t); }},
    {"ARTIST", [](const Wave& w) { return w.artist.view(); },
     [](Wave& w, std::string_view t) { w.artist = t; }},
    {"ALBUM", [](const Wave& w) { return w.album.view(); }, [](Wave& w, std::string_view t) { w.album = t; }},
    {"ENGINEER", [](const Wave& w) { return w.engineer.view(); },
     [](Wave& w, std::string_view t) { w.engineer = t; }},
    {"COPYRIGHT", [](const Wave& w) { return w.copyright.view(); },
     [](Wave& w, std::string_view t) { w.copyright = t; }},
    {"COMMENT", [](const Wave& w) { return w.comments.view(); },
     [](Wave& w, std::string_view t) { w.comments = t; }},
};

/// Other names that programs use.
struct Alias {
    std::string_view name, row;
};
constexpr Alias kAliases[] = {
    {"DESCRIPTION", "COMMENT"}, {"COMMENTS", "COMMENT"}, {"PERFORMER", "ARTIST"}, {"ENCODED-BY", "ENGINEER"}};

std::string_view rowName(std::string_view name) {
    for (const Alias& alias : kAliases) {
        if (equalIgnoringCase(alias.name, name)) return alias.row;
    }
    return name;
}

i64 placeOf(std::string_view text) {
    return std::max(-1, WideToInt(text.substr(0, 20), -1));
}

} // namespace

std::span<const TextRow> textRows() {
    return kRows;
}

void TextTaker::take(std::string_view name, std::string_view text) {
    text = text.substr(0, kMostTextBytes);
    takeGainTag(wave_, name, text);
    const std::pair<std::string_view, i64*> places[] = {
        {"LOOPSTART", &loopStart_}, {"LOOPLENGTH", &loopLength_}, {"LOOPEND", &loopEnd_}};
    for (const auto& [placeName, place] : places) {
        if (equalIgnoringCase(name, placeName)) *place = placeOf(text);
    }
    if (equalIgnoringCase(name, "CUESHEET") && marks_.empty()) marks_ = readCueSheet(text);
    if (toUpper(name).starts_with("CHAPTER") && chapters_.size() < kMostChapterTexts)
        chapters_.emplace(toUpper(name), text);
    const std::string_view known = rowName(name);
    for (const TextRow& row : kRows) {
        if (!equalIgnoringCase(row.name, known) || text.empty()) continue;
        if (std::ranges::find(taken_, row.name) != taken_.end()) continue;
        taken_.push_back(row.name);
        row.set(wave_, textFromBytes(bytesOf(text)));
    }
}

void TextTaker::take(std::string_view comment) {
    const std::size_t at = comment.find('=');
    if (at != std::string_view::npos) take(comment.substr(0, at), comment.substr(at + 1));
}

void TextTaker::finish() {
    setLoop();
    setMarkers();
}

void TextTaker::setMarkers() {
    // Chapters of Vorbis comments: CHAPTER001=00:01:02.500, and CHAPTER001NAME.
    for (const auto& [name, text] : chapters_) {
        const std::optional<f64> start = readTimestamp(text);
        const auto label = chapters_.find(name + "NAME");
        if (start) marks_.push_back({*start, 0, label == chapters_.end() ? std::string() : label->second});
    }
    if (!wave_.cuePoints.empty()) return;
    const auto frameAt = [&](f64 seconds) { return saturate<u32>(seconds * wave_.sampleRate + 0.5); };
    for (std::size_t i = 0; i < marks_.size(); ++i) {
        CuePoint cue;
        cue.position = frameAt(marks_[i].start);
        if (cue.position >= wave_.frames) continue;
        // A chapter that ends where the next one begins, or the file, is a place; else it is a range.
        const u32 end = frameAt(marks_[i].end), slack = wave_.sampleRate / 500;
        const u32 next = i + 1 < marks_.size() ? frameAt(marks_[i + 1].start) : wave_.frames;
        if (end > cue.position && u64{end} + slack < next) cue.length = end - cue.position;
        cue.label = textFromBytes(bytesOf(marks_[i].label));
        wave_.cuePoints.push_back(std::move(cue));
    }
}

void TextTaker::setLoop() {
    if (loopStart_ < 0 || wave_.params.looped()) return;
    const i64 end = loopLength_ > 0 ? loopStart_ + loopLength_ : loopEnd_;
    if (end <= loopStart_ || loopStart_ >= wave_.frames) return;
    wave_.params.override = true;
    wave_.params.loopStart = static_cast<f64>(loopStart_);
    wave_.params.loopEnd = static_cast<f64>(std::min<i64>(end, wave_.frames));
    wave_.params.loopFlags = kLooped;
}

std::vector<std::string> commentsOf(const Wave& wave, f64 loopScale) {
    std::vector<std::string> all;
    for (const TextRow& row : kRows) {
        const std::string_view text = row.get(wave);
        if (!text.empty()) all.push_back(fmt::format("{}={}", row.name, text));
    }
    const SampleParams& params = wave.params;
    if (loopScale > 0 && params.looped()) {
        const u32 start = saturate<u32>(params.loopStart * loopScale + 0.5);
        const u32 end = saturate<u32>(params.loopEnd * loopScale + 0.5);
        all.push_back(fmt::format("LOOPSTART={}", start));
        all.push_back(fmt::format("LOOPLENGTH={}", end - std::min(start, end)));
    }
    return all;
}

void takeVorbisComments(ByteSpan block, TextTaker& texts) {
    ByteCursor in(block);
    in.skip(in.u32le()); // the maker of the encoder
    for (u32 left = in.u32le(); left > 0 && in.ok(); --left) {
        const u32 size = in.u32le();
        texts.take(textOf(in.bytes(std::min<std::size_t>(size, in.ok() ? in.left() : 0))));
    }
}

} // namespace kv
