#include "formats/codecs/packed_stream.h"

#include <algorithm>
#include <cstdio>

#include "base/run_context.h"

namespace kv {

bool holdsRange(std::string_view context, const PackedStreamInfo& info, u64 start, u32 frames, u32 channels) {
    if (frames == 0) return Fail(context, "Zero length");
    if (channels != info.channels) return Fail(context, "Wrong number of channels");
    if (start > info.frames || frames > info.frames - start) return Fail(context, "Reading from file failed");
    return true;
}

PackedInput::PackedInput(std::shared_ptr<ByteSource> source) : source_(std::move(source)) {
    constexpr u64 kMost = std::numeric_limits<i64>::max();
    size_ = static_cast<i64>(std::min(source_->size(), kMost));
}

std::size_t PackedInput::read(void* to, std::size_t count) noexcept {
    try {
        const std::size_t got = source_->readAt(static_cast<u64>(at_), {static_cast<std::byte*>(to), count});
        at_ += static_cast<i64>(got);
        return got;
    } catch (...) { // no memory for a window
        return 0;
    }
}

bool PackedInput::seek(i64 distance, int whence) noexcept {
    const i64 from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? at_ : size_;
    if (distance > std::numeric_limits<i64>::max() - from || from + distance < 0) return false;
    at_ = from + distance;
    return true;
}

} // namespace kv
