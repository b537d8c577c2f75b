// What a format's reader or writer gets of the file that it works on.
#pragma once

#include <filesystem>
#include <memory>

#include "base/byte_sink.h"
#include "base/byte_source.h"

namespace kv {

/// An open file. A reader uses `source`; one that keeps on reading later holds a copy of the pointer. A
/// writer uses `sink`, which belongs to the driver. Both are null for a medium that no plain open reaches.
struct FileContext {
    std::shared_ptr<ByteSource> source;
    ByteSink* sink = nullptr;
    std::filesystem::path path; ///< as given by the user
    u64 position = 0;           ///< place of the next `read`

    u64 size() const { return source ? source->size() : 0; }
    /// Reads on from `position` and moves it; returns the bytes read.
    std::size_t read(std::span<std::byte> to) {
        const std::size_t count = source ? source->readAt(position, to) : 0;
        position += count;
        return count;
    }
    bool write(ByteSpan bytes) { return sink && sink->write(bytes); }
};

} // namespace kv
