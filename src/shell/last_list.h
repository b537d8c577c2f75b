// Lists of what was used last.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

struct AppSettings;

inline constexpr std::size_t kLastFiles = 16;
inline constexpr std::size_t kLastFolders = 10;

/// Puts a text at the front of a list, or takes it out. Entries are compared ignoring case; a text is cut
/// to 780 bytes; the last entries fall off when there are more than `maxEntries` or 1024 bytes in all.
void LastListAdd(std::vector<std::string>& list, std::string_view text, std::size_t maxEntries,
                 bool removeOnly = false);

/// Notes that a file was opened or saved: `addFile` puts it into the list of last files, `addFolder` its
/// folder into that of last folders.
void NoteFileUsed(AppSettings& settings, const std::filesystem::path& path, bool addFile, bool addFolder);

} // namespace kv
