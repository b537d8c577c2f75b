#include "formats/framework/detection.h"

#include <algorithm>
#include <array>

namespace kv {
namespace {

constexpr std::size_t kLookBytes = 32768;
constexpr int kCertain = 9;
constexpr int kWeakest = 2; // a best score up to this counts as none

/// What stands behind the last "." of the path, the whole path if there is none; at most 64 characters.
std::string_view extensionOf(const std::filesystem::path& path) {
    const std::string_view text = path.native();
    const std::size_t point = text.rfind('.');
    return text.substr(point == std::string_view::npos ? 0 : point + 1).substr(0, 64);
}

struct Best {
    int row = -1;
    int score = -1;

    void offer(int candidate, int candidateScore) {
        // Rows come in any order; of equal scores the earlier row wins.
        if (candidateScore < score || (candidateScore == score && candidate > row)) return;
        row = candidate;
        score = candidateScore;
    }
};

} // namespace

int DetectFile(const FormatTable& table, const std::filesystem::path& path, FileContext& file,
               int& confidence) {
    thread_local std::array<std::byte, kLookBytes> buffer;
    const u64 size = file.size();
    const std::size_t count = file.source ? file.source->readAt(0, buffer) : 0;
    const ByteSpan start(buffer.data(), count);

    thread_local std::vector<int> named;
    named.clear();
    table.rowsForExtension(extensionOf(path), named);

    // Only two sorts of rows can win: those that look at the file and find something, and those with the
    // file's extension. The rest score at most 2, like row 0 without its name score.
    Best best;
    const auto answer = [&](int number) {
        const FormatRow& row = *table.row(number);
        return row.detectFn ? row.detectFn(start, row.subType, size) : 0;
    };
    for (const int number : table.rowsThatLook()) best.offer(number, answer(number));
    for (const int number : named) best.offer(number, (number == 0 ? 2 : 3) + answer(number));
    if (table.size() > 0 && best.score <= kWeakest) {
        for (int i = 0; i < table.size(); ++i) {
            if (table.row(i)->reads()) best.offer(i, answer(i));
        }
    }

    const int score = best.score <= kWeakest ? 0 : best.score;
    if (best.row < 0 || (score == 0 && !table.RowExtension(best.row).starts_with('*'))) {
        confidence = 0;
        return -1;
    }
    confidence = best.row == 0 ? 0 : score * 100 / kCertain;
    return best.row;
}

bool CanDetect(const FormatTable& table, const std::filesystem::path& path) {
    FileContext file;
    file.path = path;
    file.source = openFileSource(path);
    int confidence = 0;
    return file.source && DetectFile(table, path, file, confidence) >= 0;
}

FileDescription DescribeFile(const FormatTable& table, const std::filesystem::path& path) {
    FileContext file;
    file.path = path;
    file.source = openFileSource(path);
    if (!file.source) return {};
    FileDescription result;
    const int row = DetectFile(table, path, file, result.confidence);
    result.text = row < 0 ? "Unknown file type" : std::string(table.RowDescription(row));
    return result;
}

} // namespace kv
