// Texts that belong to a stream: title, artist, cue points and the like, each in the encodings asked for.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"

namespace kv {

/// Index of a tag.
enum class KvTag : u32 {
    FileName,
    FileFormat,
    DataFormat,
    Title,
    SubTitle,
    Artist,
    Composer,
    Performer,
    Conductor,
    Publisher,
    Engineer,
    Album,
    TrackNumber,
    Genre,
    Year,
    Comments,
    Copyright,
    Url,
    TrackGain,
    AlbumGain,
    Loudness,
    LoudnessRange,
    PeakValue,
    Reference,
    CuePoints,
    TimeCode,
    LevelFormat,
};
inline constexpr u32 kSourceTags = 27; ///< slots of a source
inline constexpr u32 kSinkTags = 3;    ///< slots of a sink

/// "Name/title" and so on; "Unknown" beyond the last.
std::string_view tagName(u32 index);

class KvTagSet {
public:
    explicit KvTagSet(u32 slots) : slots_(slots) {}

    /// 8-bit text; blanks at its ends are cut, control characters in it become blanks.
    void SetTextAnsi(u32 index, std::string_view text);
    /// UTF-16 behind a byte order mark, UTF-8 where valid, else 8-bit text.
    void SetTextAuto(u32 index, ByteSpan bytes);
    void SetTextWide(u32 index, std::u16string_view text);

    // Nothing for an empty slot, or one that there isn't.
    std::optional<std::string> GetTextAnsi(u32 index) const;
    std::optional<std::string> GetTextUtf8(u32 index) const;
    std::optional<std::u16string> GetTextWide(u32 index) const;

private:
    void set(u32 index, std::string text);
    std::vector<std::optional<std::string>> slots_; ///< UTF-8
};

/// Appends an entry to the tag of cue points.
void AddCueText(KvTagSet& tags, u32 id, std::string_view text);

struct CueText {
    u32 id = 0;
    std::string text;
};
/// Entry `index` of a list `id="text",id="text"...`; the text is cut to `limit` bytes. Nothing past the last.
std::optional<CueText> ParseCueText(std::string_view list, u32 index, std::size_t limit);

} // namespace kv
