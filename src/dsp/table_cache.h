// The tables of filters used last.
#pragma once

#include <algorithm>
#include <list>
#include <memory>
#include <mutex>

#include "dsp/polyphase.h"

namespace kv {

/// Shared by all who ask; may be asked from several threads.
template <class Table>
class TableCache {
public:
    /// What was kept for a filter and a ratio, or what `make` gives. Tables of more than `kMostBytes`, by
    /// `bytes(table)`, and null aren't kept.
    template <class Make, class SizeOf>
    std::shared_ptr<const Table> get(const FilterShape& shape, const RationalStep& step, Make make,
                                     SizeOf bytes) {
        const std::scoped_lock lock(mutex_);
        const auto known = std::find_if(kept_.begin(), kept_.end(), [&](const Kept& k) {
            return k.shape == shape && k.step.in == step.in && k.step.out == step.out;
        });
        if (known != kept_.end()) {
            kept_.splice(kept_.begin(), kept_, known);
            return kept_.front().table;
        }
        std::shared_ptr<const Table> table = make();
        if (table && bytes(*table) <= kMostBytes) {
            kept_.push_front({shape, step, table});
            if (kept_.size() > kMostTables) kept_.pop_back();
        }
        return table;
    }

private:
    static constexpr std::size_t kMostTables = 8, kMostBytes = std::size_t{4} << 20;
    struct Kept {
        FilterShape shape;
        RationalStep step;
        std::shared_ptr<const Table> table;
    };
    std::mutex mutex_;
    std::list<Kept> kept_; // the last used first
};

} // namespace kv
