#include "samples/tag_set.h"

#include <algorithm>
#include <array>

#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::array<std::string_view, kSourceTags> kNames{"File name",
                                                           "File format",
                                                           "Data format",
                                                           "Name/title",
                                                           "Sub-title",
                                                           "Artist",
                                                           "Composer",
                                                           "Performer",
                                                           "Conductor",
                                                           "Publisher",
                                                           "Engineer",
                                                           "Album",
                                                           "Track number",
                                                           "Genre",
                                                           "Date/Year",
                                                           "Comments",
                                                           "Copyright",
                                                           "URL",
                                                           "Track gain adjustment",
                                                           "Album gain adjustment",
                                                           "EBU R 128 programme loudness",
                                                           "EBU R 128 loudness range",
                                                           "Peak value",
                                                           "Reference",
                                                           "Cue points",
                                                           "Time code",
                                                           "Level chunk format"};

constexpr std::size_t kLongestText = 0xFFFFF;

bool isBlank(char c) {
    return static_cast<u8>(c) <= ' ';
}

} // namespace

std::string_view tagName(u32 index) {
    return index < kNames.size() ? kNames[index] : "Unknown";
}

void KvTagSet::set(u32 index, std::string text) {
    if (index < slots_.size()) slots_[index] = text.empty() ? std::nullopt : std::optional(std::move(text));
}

void KvTagSet::SetTextAnsi(u32 index, std::string_view text) {
    text = text.substr(0, std::min(text.find('\0'), kLongestText));
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    std::string clean(text);
    for (char& c : clean) {
        if ((static_cast<u8>(c) < ' ' && c != '\n' && c != '\r') || c == 127) c = ' ';
    }
    set(index, AnsiToUtf8(clean));
}

void KvTagSet::SetTextAuto(u32 index, ByteSpan bytes) {
    bytes = bytes.first(std::min(bytes.size(), kLongestText));
    const std::string_view text = textOf(bytes);
    const bool wide = text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF");
    if (wide || isUtf8(text))
        set(index, textFromBytes(bytes));
    else
        SetTextAnsi(index, text);
}

void KvTagSet::SetTextWide(u32 index, std::u16string_view text) {
    set(index, WideToUtf8(text.substr(0, text.find(u'\0'))));
}

std::optional<std::string> KvTagSet::GetTextUtf8(u32 index) const {
    return index < slots_.size() ? slots_[index] : std::nullopt;
}

std::optional<std::string> KvTagSet::GetTextAnsi(u32 index) const {
    const std::optional<std::string> text = GetTextUtf8(index);
    return text ? std::optional(Utf8ToAnsi(*text)) : std::nullopt;
}

std::optional<std::u16string> KvTagSet::GetTextWide(u32 index) const {
    const std::optional<std::string> text = GetTextUtf8(index);
    return text ? std::optional(Utf8ToWide(*text)) : std::nullopt;
}

void AddCueText(KvTagSet& tags, u32 id, std::string_view text) {
    constexpr auto kCues = static_cast<u32>(KvTag::CuePoints);
    std::string list = tags.GetTextUtf8(kCues).value_or("");
    if (!list.empty()) list += ',';
    list += std::to_string(id) + "=\"";
    std::copy_if(text.begin(), text.end(), std::back_inserter(list), [](char c) { return c != '"'; });
    tags.SetTextAuto(kCues, bytesOf(list + '"'));
}

std::optional<CueText> ParseCueText(std::string_view list, u32 index, std::size_t limit) {
    bool quoted = false;
    for (; index > 0; --index) {
        std::size_t at = 0;
        for (; at < list.size() && (quoted || list[at] != ','); ++at) quoted ^= list[at] == '"';
        if (at == list.size()) return {};
        list.remove_prefix(at + 1);
    }
    while (!list.empty() && list.front() == ' ') list.remove_prefix(1);
    if (list.empty()) return {};
    CueText cue;
    const std::size_t equals = std::min(list.find('='), list.size());
    cue.id = static_cast<u32>(WideToInt(list.substr(0, equals), 0));
    list.remove_prefix(std::min(equals + 1, list.size()));
    const bool inQuotes = list.starts_with('"');
    if (inQuotes) list.remove_prefix(1);
    cue.text = list.substr(0, list.find(inQuotes ? '"' : ','));
    if (cue.text.size() > limit) cue.text.resize(limit);
    return cue;
}

} // namespace kv
