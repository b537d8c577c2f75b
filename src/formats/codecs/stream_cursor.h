// A place in a byte source, as the callbacks of codec libraries move it.
#pragma once

#include <algorithm>
#include <cstdio>
#include <memory>

#include "base/byte_source.h"

namespace kv {

struct StreamCursor {
    std::shared_ptr<ByteSource> source;
    u64 position = 0;

    std::size_t read(void* to, std::size_t bytes) {
        const std::size_t count = source->readAt(position, {static_cast<std::byte*>(to), bytes});
        position += count;
        return count;
    }
    /// Places before the start or behind the end are refused.
    bool seek(i64 offset, int origin) {
        const i64 size = static_cast<i64>(source->size());
        const i64 base = origin == SEEK_END ? size : origin == SEEK_CUR ? static_cast<i64>(position) : 0;
        if (offset < -base || offset > size - base) return false;
        position = static_cast<u64>(base + offset);
        return true;
    }
};

} // namespace kv
