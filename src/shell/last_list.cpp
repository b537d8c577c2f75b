#include "shell/last_list.h"

#include <algorithm>

#include "base/text.h"
#include "model/app_settings.h"

namespace kv {
namespace {

constexpr std::size_t kBlockBytes = 1024;
constexpr std::size_t kLongestText = 780;

/// Bytes of a list as it is stored: each text with a terminator, and one more at the end.
std::size_t storedBytes(const std::vector<std::string>& list) {
    std::size_t bytes = 1;
    for (const std::string& entry : list) bytes += entry.size() + 1;
    return bytes;
}

} // namespace

void LastListAdd(std::vector<std::string>& list, std::string_view text, std::size_t maxEntries,
                 bool removeOnly) {
    text = text.substr(0, kLongestText);
    const auto same = [&](const std::string& entry) { return equalIgnoringCase(entry, text); };
    if (!removeOnly && !list.empty() && same(list.front())) return;
    std::erase_if(list, same);
    if (removeOnly || text.empty()) return;
    list.emplace(list.begin(), text);
    while (list.size() > maxEntries || storedBytes(list) > kBlockBytes) list.pop_back();
}

void NoteFileUsed(AppSettings& settings, const std::filesystem::path& path, bool addFile, bool addFolder) {
    std::error_code failed;
    const std::filesystem::path whole = std::filesystem::absolute(path, failed);
    if (failed) return;
    if (addFile) LastListAdd(settings.app.LastFilesA, whole.native(), kLastFiles);
    if (addFolder) LastListAdd(settings.app.LastPathsA, whole.parent_path().native(), kLastFolders);
}

} // namespace kv
