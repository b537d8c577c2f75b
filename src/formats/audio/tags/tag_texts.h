// A wave's texts and loop as tags with names: Vorbis comments, which FLAC and Opus have as well, and the
// like.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "formats/audio/tags/cue_sheet.h"

namespace kv {

class Wave;

/// A text of a wave under the name that Vorbis comments have for it.
struct TextRow {
    std::string_view name;
    std::string_view (*get)(const Wave&);
    void (*set)(Wave&, std::string_view);
};
/// The name, artist, album, engineer, copyright and comments of a wave.
std::span<const TextRow> textRows();

/// Takes named texts over into a wave, whatever their order. Of several of one name the first counts.
class TextTaker {
public:
    explicit TextTaker(Wave& wave) : wave_(wave) {}

    void take(std::string_view name, std::string_view text);
    /// "NAME=text".
    void take(std::string_view comment);
    void take(TimedMark mark) { marks_.push_back(std::move(mark)); }
    /// Sets the loop if its places were among them (LOOPSTART with LOOPLENGTH or LOOPEND, in frames), and
    /// there is none yet; likewise markers (a CUESHEET, or CHAPTER001 and the like). `frames` and
    /// `sampleRate` of the wave must be known by then.
    void finish();

private:
    void setLoop();
    void setMarkers();

    Wave& wave_;
    std::vector<std::string_view> taken_; ///< names of `textRows`
    i64 loopStart_ = -1, loopLength_ = -1, loopEnd_ = -1;
    std::vector<TimedMark> marks_;
    std::map<std::string, std::string, std::less<>> chapters_; ///< by name in capitals
};

/// All texts as "NAME=text", and the loop in frames that are `loopScale` to one of the wave's; 0: no loop.
std::vector<std::string> commentsOf(const Wave& wave, f64 loopScale);

/// The contents of a block of Vorbis comments (Ogg Vorbis I format specification: comment field).
void takeVorbisComments(ByteSpan block, TextTaker& texts);

} // namespace kv
