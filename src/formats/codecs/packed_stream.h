// What the packed streams have in common: what is known of one before it is decoded, and how the libraries
// that decode them get at the bytes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/byte_source.h"

namespace kv {

/// Where a packed stream stands in a file.
struct PackedPlace {
    u64 start = 0;
    u64 bytes = 0;
};

/// What a packed stream says of itself.
struct PackedStreamInfo {
    u32 channels = 0;
    u32 sampleRate = 0; ///< Hz
    u64 frames = 0;
    u32 bits = 0;                      ///< per sample before packing; 0: the form has none of its own
    bool isFloat = false;              ///< decodes to float, else to 16-bit integers
    bool wasFloat = false;             ///< was float before packing, in `bits` bits
    std::vector<std::string> comments; ///< "NAME=text", UTF-8, of forms that have Vorbis comments
};

/// The stream holds `frames` frames from `start` on, in `channels` channels. If not, sets the error pair.
bool holdsRange(std::string_view context, const PackedStreamInfo& info, u64 start, u32 frames, u32 channels);

/// A source as a C library reads it: from a place that moves. Nothing is thrown through the library.
class PackedInput {
public:
    explicit PackedInput(std::shared_ptr<ByteSource> source);

    /// Reads on; returns the bytes read, fewer than asked at the end or on an error.
    std::size_t read(void* to, std::size_t count) noexcept;
    /// Moves by `distance` from the place that `whence` means: SEEK_SET, SEEK_CUR or SEEK_END. False, and
    /// nothing moves, for a place before the first byte.
    bool seek(i64 distance, int whence) noexcept;
    i64 position() const noexcept { return at_; }
    i64 size() const noexcept { return size_; }

private:
    std::shared_ptr<ByteSource> source_;
    i64 size_;
    i64 at_ = 0;
};

} // namespace kv
