#include "formats/framework/detection.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace kv {
namespace {

constexpr int kCertain = 9;
constexpr int kNameScore = 3;
constexpr int kCatchAllNameScore = 2;
constexpr std::size_t kExtensionCharacters = 64;
constexpr std::size_t kPlatformNameBytes = 80;

/// "?" is any one character, "*" any rest; both sides in upper case.
bool matches(std::string_view pattern, std::string_view text) {
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '*') return true;
        if (i >= text.size() || (pattern[i] != '?' && pattern[i] != text[i])) return false;
    }
    return pattern.size() == text.size();
}

/// At most `limit` bytes, cut behind a whole character.
std::string_view cutToBytes(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    while (limit > 0 && (static_cast<u8>(text[limit]) & 0xC0) == 0x80) --limit;
    return text.substr(0, limit);
}

} // namespace

int DetectBytes(const FormatTable& table, const std::filesystem::path& path, ByteSpan start, u64 fileSize,
                int& confidence) {
    const std::string extension = toUpper(cutToCharacters(pathExtension(path), kExtensionCharacters));
    int best = -1;
    int chosen = -1;
    for (const FormatTable::Probe& probe : table.probes()) {
        int score = probe.detect ? probe.detect(start, probe.subType, fileSize) : 0;
        if (matches(probe.pattern, extension)) score += probe.row == 0 ? kCatchAllNameScore : kNameScore;
        if (score > best) {
            best = score;
            chosen = probe.row;
        }
    }
    confidence = 0;
    if (best <= 2) best = 0;
    if (best == 0 && !table.RowExtension(chosen).starts_with('*')) return -1;
    if (chosen != 0) confidence = best * 100 / kCertain;
    return chosen;
}

int DetectFile(const FormatTable& table, const std::filesystem::path& path, FileContext& file,
               int& confidence) {
    std::array<std::byte, kDetectionBytes> buffer; // not cleared: only what was read is used
    const std::size_t count = file.source ? file.source->readAt(0, buffer) : 0;
    return DetectBytes(table, path, ByteSpan(buffer).first(count), file.size(), confidence);
}

bool CanDetect(const FormatTable& table, const std::filesystem::path& path) {
    FileContext file{.source = openFileSource(path), .path = path};
    int confidence = 0;
    return file.source && DetectFile(table, path, file, confidence) >= 0;
}

void DescribeFile(const FormatTable& table, const std::filesystem::path& path, std::string& text,
                  int& confidence, const TypeNameLookup& platformName) {
    text.clear();
    confidence = 0;
    FileContext file{.source = openFileSource(path), .path = path};
    if (!file.source) return;
    const int row = DetectFile(table, path, file, confidence);
    text = row < 0 ? "Unknown file type" : table.RowDescription(row);
    if (confidence > 0 || !platformName) return;
    const std::string name = platformName(pathExtension(path));
    if (!name.empty()) text = cutToBytes(name, kPlatformNameBytes);
}

} // namespace kv
