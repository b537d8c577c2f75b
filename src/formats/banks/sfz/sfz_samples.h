// The sample files of a bank: each is opened once, and its samples stay in it.
#pragma once

#include <string>
#include <unordered_map>

#include "base/byte_source.h"
#include "formats/banks/sfz/sfz_folder.h"

namespace kv {

class Wave;

class SfzSamples {
public:
    explicit SfzSamples(SfzFolder& folder) : folder_(folder) {}

    /// The wave of a `sample` opcode, looked for behind the prefix, then in the bank's folder, then as it is
    /// written. Null, noted among the diagnostics once, when there is none that can be read.
    Wave* wave(const std::string& prefix, const std::string& sample);

private:
    Wave* find(const std::string& prefix, const std::string& sample);
    Wave* load(const std::filesystem::path& path, const std::string& sample) const;

    SfzFolder& folder_;
    std::unordered_map<std::string, Wave*> byName_; ///< by prefix and sample; null: there is none
    std::unordered_map<std::string, Wave*> byPath_;
    u32 missing_ = 0;
};

} // namespace kv
