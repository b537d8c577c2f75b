#include "formats/banks/sfz/sfz_folder.h"

#include <algorithm>

#include "base/text.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLongestPath = 4096;
constexpr std::size_t kMostNames = 100'000; // of one folder

bool isFile(const fs::path& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

} // namespace

std::optional<fs::path> SfzFolder::find(std::string_view text) {
    if (text.empty() || text.size() > kLongestPath || text.find('\0') != text.npos) return {};
    if (const fs::path written = folder_ / text; isFile(written)) return written;
    std::string slashes(text);
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    if (slashes != text) {
        if (const fs::path path = folder_ / slashes; isFile(path)) return path;
    }
    return findAnyCase(slashes);
}

const SfzFolder::Names& SfzFolder::namesIn(const fs::path& folder) {
    const auto [listing, isNew] = listings_.try_emplace(folder.native());
    Names& names = listing->second;
    if (!isNew) return names;
    std::error_code error;
    for (fs::directory_iterator entry(folder.empty() ? fs::path(".") : folder, error), end;
         !error && entry != end && names.size() < kMostNames; entry.increment(error)) {
        std::string name = entry->path().filename().native();
        std::string lower = toLower(name);
        std::string& known = names[std::move(lower)];
        if (known.empty() || name < known) known = std::move(name); // the same choice every time
    }
    return names;
}

std::optional<fs::path> SfzFolder::findAnyCase(const fs::path& wanted) {
    fs::path at = wanted.is_absolute() ? wanted.root_path() : folder_;
    for (const fs::path& part : wanted.relative_path()) {
        if (part.empty() || part == ".") continue;
        std::error_code ignored;
        if (part == ".." || fs::exists(at / part, ignored)) {
            at /= part;
            continue;
        }
        const Names& names = namesIn(at);
        const auto found = names.find(toLower(part.native()));
        if (found == names.end()) return {};
        at /= found->second;
    }
    return isFile(at) ? std::optional(at) : std::nullopt;
}

bool SfzFolder::isOutside(const fs::path& path) const {
    std::error_code ignored;
    const fs::path inner = fs::absolute(path, ignored).lexically_normal();
    const fs::path outer = fs::absolute(folder_, ignored).lexically_normal();
    const fs::path relative = inner.lexically_relative(outer);
    return relative.empty() || *relative.begin() == "..";
}

} // namespace kv
