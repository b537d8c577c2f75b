// Finding the files that a bank names: paths of other systems, relative to the bank's folder.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kv {

class SfzFolder {
public:
    explicit SfzFolder(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /// The regular file that a text means: as written; with "/" for "\"; then without regard to case. A text
    /// that begins with a slash counts from the root of the file system.
    std::optional<std::filesystem::path> find(std::string_view text);
    /// The path leads out of the folder.
    bool isOutside(const std::filesystem::path& path) const;
    const std::filesystem::path& path() const { return folder_; }

private:
    using Names = std::unordered_map<std::string, std::string>; ///< by their lower case

    std::optional<std::filesystem::path> findAnyCase(const std::filesystem::path& wanted);
    const Names& namesIn(const std::filesystem::path& folder);

    std::filesystem::path folder_;
    std::unordered_map<std::string, Names> listings_;
};

} // namespace kv
