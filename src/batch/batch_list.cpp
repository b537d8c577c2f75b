#include "batch/batch_list.h"

#include <glob.h>

#include <algorithm>
#include <fstream>
#include <numeric>

#include "base/run_context.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

constexpr u32 kDeepest = 200; // folders within folders

fs::path absolutePath(const fs::path& path) {
    std::error_code ignored;
    return fs::absolute(path, ignored).lexically_normal();
}

bool isWithin(const fs::path& path, const fs::path& folder) {
    const std::string &inner = path.native(), &outer = folder.native();
    return inner.starts_with(outer) &&
           (inner.size() == outer.size() || outer.ends_with('/') || inner[outer.size()] == '/');
}

} // namespace

u64 stableHash(std::string_view text) {
    u64 hash = 0xCBF29CE484222325;
    for (const char c : text) hash = (hash ^ static_cast<u8>(c)) * 0x100000001B3;
    return hash ^ hash >> 32; // its low bits alone are poor
}

void BatchList::leaveOut(const fs::path& folder) {
    leftOut_.push_back(absolutePath(folder / "").parent_path());
}

BatchList::Entry BatchList::at(std::size_t index) const {
    const Record& record = records_[index];
    return {std::string_view(text_).substr(static_cast<std::size_t>(record.offset), record.length),
            record.treeDepth, record.scanned};
}

void BatchList::addEntry(const fs::path& path, u32 depth, bool scanned) {
    const std::string& text = path.native();
    records_.push_back({text_.size(), static_cast<u32>(text.size()), static_cast<u16>(depth), scanned});
    text_ += text;
}

void BatchList::addFolder(const fs::path& folder, u32 depth) {
    const bool leftOut =
        std::any_of(leftOut_.begin(), leftOut_.end(), [&](const fs::path& out) { return out == folder; });
    if (leftOut && depth > 0) return;
    std::vector<std::pair<std::string, bool>> found; // name, and whether it is a folder
    std::error_code failed;
    for (fs::directory_iterator entry(folder, fs::directory_options::skip_permission_denied, failed), end;
         !failed && entry != end; entry.increment(failed)) {
        std::error_code ignored;
        const bool linked = entry->is_symlink(ignored); // folders by links could go round in circles
        if (entry->is_directory(ignored)) {
            if (!linked) found.emplace_back(entry->path().filename().native(), true);
        } else if (entry->is_regular_file(ignored)) {
            found.emplace_back(entry->path().filename().native(), false);
        }
    }
    std::sort(found.begin(), found.end());
    for (const auto& [name, isFolder] : found) {
        if (!isFolder)
            addEntry(folder / name, depth, true);
        else if (depth < kDeepest && !name.starts_with('.'))
            addFolder(folder / name, depth + 1);
    }
}

void BatchList::addPlain(const fs::path& path) {
    const fs::path whole = absolutePath(path);
    std::error_code ignored;
    if (fs::is_directory(whole, ignored)) {
        const fs::path folder = whole.filename().empty() ? whole.parent_path() : whole;
        roots_.push_back(folder);
        addFolder(folder, 0);
        return;
    }
    if (roots_.empty() || roots_.back() != whole.parent_path()) roots_.push_back(whole.parent_path());
    addEntry(whole, 0, false);
}

bool BatchList::addPattern(const std::string& pattern) {
    glob_t found{};
    const bool any = ::glob(pattern.c_str(), 0, nullptr, &found) == 0;
    for (std::size_t i = 0; any && i < found.gl_pathc; ++i) addPlain(found.gl_pathv[i]);
    ::globfree(&found);
    return any;
}

bool BatchList::addListed(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::error_code ignored;
    if (!in || !fs::is_regular_file(file, ignored))
        return Fail("batch", "Could not open the list \"{}\"", file);
    std::string line;
    while (std::getline(in, line)) {
        while (line.ends_with('\r')) line.pop_back();
        if (!line.empty()) addPlain(line);
    }
    return true;
}

bool BatchList::add(const std::string& argument) {
    if (argument.starts_with('@')) return addListed(argument.substr(1));
    std::error_code ignored;
    const bool pattern = argument.find_first_of("*?[") != std::string::npos;
    if (!pattern || fs::exists(fs::symlink_status(argument, ignored)) || !addPattern(argument))
        addPlain(argument);
    return true;
}

void BatchList::keepShard(u32 index, u32 count) {
    std::erase_if(records_, [&](const Record& record) {
        const std::string_view path =
            std::string_view(text_).substr(static_cast<std::size_t>(record.offset), record.length);
        const std::size_t point = path.rfind('.'), slash = path.rfind('/');
        const bool hasExtension =
            point != std::string_view::npos && (slash == std::string_view::npos || point > slash + 1);
        return stableHash(hasExtension ? path.substr(0, point) : path) % count != index;
    });
}

void BatchList::indexPaths() {
    byPath_.resize(records_.size());
    std::iota(byPath_.begin(), byPath_.end(), 0);
    std::stable_sort(byPath_.begin(), byPath_.end(), [&](u32 a, u32 b) { return at(a).path < at(b).path; });
}

std::vector<std::size_t> BatchList::find(std::string_view path) const {
    std::vector<std::size_t> found;
    auto entry = std::lower_bound(byPath_.begin(), byPath_.end(), path,
                                  [&](u32 a, std::string_view wanted) { return at(a).path < wanted; });
    for (; entry != byPath_.end() && at(*entry).path == path; ++entry) found.push_back(*entry);
    return found;
}

std::vector<fs::path> BatchList::roots() const {
    std::vector<fs::path> sorted = roots_;
    std::sort(sorted.begin(), sorted.end());
    std::vector<fs::path> outermost;
    for (fs::path& root : sorted) {
        if (outermost.empty() || !isWithin(root, outermost.back())) outermost.push_back(std::move(root));
    }
    return outermost;
}

} // namespace kv
