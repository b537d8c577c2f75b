// What of a bank was not taken over, counted.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "base/integers.h"

namespace kv {

class SfzReport {
public:
    /// Counts an opcode or a section that has no effect.
    void ignore(std::string_view name);
    /// Counts a region that is beyond the limits.
    void tooMany() { ++left_; }
    /// Writes the counts to the diagnostics.
    void tell() const;

private:
    std::map<std::string, u64, std::less<>> ignored_;
    u64 others_ = 0; ///< whose names were not kept
    u64 left_ = 0;
};

/// Why an opcode that players know has no effect; empty for one that is not known.
std::string_view sfzUnheldReason(std::string_view opcode);

} // namespace kv
