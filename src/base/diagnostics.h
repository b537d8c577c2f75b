// What is no failure but should be known: a value clamped, a record skipped, a field that got lost.
#pragma once

#include <string>
#include <vector>

#include "base/integers.h"

namespace kv {

enum class Severity : u8 { Note, Warning, Loss };

struct Diagnostic {
    Severity severity = Severity::Warning;
    u64 offset = 0;    ///< place in the file, in bytes; 0 when it belongs to no place
    std::string item;  ///< name of the item concerned, may be empty
    std::string field; ///< chunk, record or model field concerned
    std::string text;
};

/// Collects diagnostics, at most `kLimit` of them: a hostile file must not fill the memory with complaints.
class Diagnostics {
public:
    void add(Diagnostic entry) {
        if (entries_.size() < kLimit)
            entries_.push_back(std::move(entry));
        else
            ++dropped_;
    }
    void warn(u64 offset, std::string field, std::string text) {
        add({Severity::Warning, offset, {}, std::move(field), std::move(text)});
    }
    const std::vector<Diagnostic>& entries() const { return entries_; }
    /// How many were not kept.
    std::size_t dropped() const { return dropped_; }
    void clear() {
        entries_.clear();
        dropped_ = 0;
    }

private:
    static constexpr std::size_t kLimit = 10000;
    std::vector<Diagnostic> entries_;
    std::size_t dropped_ = 0;
};

} // namespace kv
