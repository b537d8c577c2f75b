// The sample files that are written beside a bank.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/item_id.h"

namespace kv {

class Wave;

/// The sample files of a bank. A file that is there already is taken when it holds the same bytes; if not, it
/// stays as it is, and the sample gets another name.
class SfzSampleFiles {
public:
    /// `prefix` stands before the names in the text. `formatWord` has no code with `perWave`.
    SfzSampleFiles(std::filesystem::path folder, std::string prefix, u32 formatWord, bool perWave);

    /// The path of a wave's file as it stands in the text; the first call for a wave writes the file. A
    /// failure is shown to the user.
    const std::string& pathOf(Wave& wave);

private:
    std::string nameFor(Wave& wave);
    bool holds(Wave& wave, u32 word, const std::filesystem::path& path) const;
    u32 wordFor(const Wave& wave) const;

    std::filesystem::path folder_;
    std::string prefix_;
    u32 formatWord_;
    bool perWave_;
    std::unordered_map<ItemId, std::string> paths_;
    std::set<std::string> names_; ///< in lower case
};

/// The name of an item as part of a path in the text: what ends a path there is replaced.
std::string sfzFileName(std::string_view itemName);

} // namespace kv
