// The files that a batch is to convert. A million of them take little more memory than their paths.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/integers.h"

namespace kv {

class BatchList {
public:
    /// A file of the list. The path is absolute and lives as long as the list.
    struct Entry {
        std::string_view path;
        u32 treeDepth; ///< folders between an input folder and the file
        bool scanned;  ///< found in a folder, not named
    };

    /// Adds a file; the files below a folder, in the order of their names; those that a pattern with *, ? or
    /// [] fits; or with "@" in front the lines of a text file. A file that doesn't exist is an entry too.
    /// False with the error pair set when a list can't be read.
    bool add(const std::string& argument);
    /// Folders of this path or below it are not walked into. To be called before `add`.
    void leaveOut(const std::filesystem::path& folder);

    /// Keeps the files of part `index` (from 0) of `count`: by a hash of the path without its extension, so
    /// that files which differ in that alone stay together.
    void keepShard(u32 index, u32 count);

    std::size_t size() const { return records_.size(); }
    Entry at(std::size_t index) const;

    /// Finds the entries of a path, in rising order. To be called after the last change.
    void indexPaths();
    std::vector<std::size_t> find(std::string_view path) const;

    /// Folders that hold everything in the list.
    std::vector<std::filesystem::path> roots() const;

private:
    struct Record {
        u64 offset; ///< in `text_`
        u32 length;
        u16 treeDepth;
        bool scanned;
    };
    bool addListed(const std::string& file);
    bool addPattern(const std::string& pattern);
    void addPlain(const std::filesystem::path& path);
    void addFolder(const std::filesystem::path& folder, u32 depth);
    void addEntry(const std::filesystem::path& path, u32 depth, bool scanned);

    std::string text_; ///< all paths
    std::vector<Record> records_;
    std::vector<u32> byPath_;
    std::vector<std::filesystem::path> leftOut_;
    std::vector<std::filesystem::path> roots_; ///< as they came
};

/// FNV-1a, the same on all machines.
u64 stableHash(std::string_view text);

} // namespace kv
