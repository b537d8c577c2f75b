#include "formats/audio/tags/cue_sheet.h"

#include <array>
#include <charconv>

#include "base/text.h"

namespace kv {
namespace {

constexpr std::size_t kMostMarks = 10'000;

/// Takes the next word of a line: up to a blank, or between quotation marks.
std::string_view takeWord(std::string_view& line) {
    constexpr std::string_view kBlanks = " \t\r";
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const bool quoted = line.starts_with('"');
    if (quoted) line.remove_prefix(1);
    const std::size_t end = std::min(quoted ? line.find('"') : line.find_first_of(kBlanks), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(std::min(end + (quoted ? 1 : 0), line.size()));
    return word;
}

/// Numbers between colons; none when there is anything else.
template <std::size_t kCount>
std::optional<std::array<f64, kCount>> readParts(std::string_view text) {
    std::array<f64, kCount> parts{};
    for (std::size_t i = 0; i < kCount; ++i) {
        const std::size_t end = i + 1 < kCount ? text.find(':') : text.size();
        if (end == std::string_view::npos) return {};
        const std::string_view part = text.substr(0, end);
        const auto [stop, error] =
            std::from_chars(part.data(), part.data() + part.size(), parts[i], std::chars_format::fixed);
        if (error != std::errc() || stop != part.data() + part.size() || !(parts[i] >= 0)) return {};
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

} // namespace

std::vector<TimedMark> readCueSheet(std::string_view text) {
    constexpr f64 kFramesPerSecond = 75;
    std::vector<TimedMark> marks;
    std::string title;
    bool inTrack = false, placed = false;
    while (!text.empty() && marks.size() < kMostMarks) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::string_view command = takeWord(line);
        if (equalIgnoringCase(command, "TRACK")) {
            inTrack = true;
            placed = false;
            title.clear();
        } else if (equalIgnoringCase(command, "TITLE") && inTrack) {
            title = takeWord(line);
            if (placed) marks.back().label = title;
        } else if (equalIgnoringCase(command, "INDEX") && inTrack && !placed) {
            if (takeWord(line) != "01") continue; // 00 is the pause ahead
            const auto parts = readParts<3>(takeWord(line));
            if (!parts) continue;
            marks.push_back({(*parts)[0] * 60 + (*parts)[1] + (*parts)[2] / kFramesPerSecond, 0, title});
            placed = true;
        }
    }
    return marks;
}

std::optional<f64> readTimestamp(std::string_view text) {
    const auto parts = readParts<3>(text);
    if (!parts) return {};
    return (*parts)[0] * 3600 + (*parts)[1] * 60 + (*parts)[2];
}

} // namespace kv
