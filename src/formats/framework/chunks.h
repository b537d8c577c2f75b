// Walking the chunks of RIFF-like files: an id, a size, contents, and so on to the end.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

#include "base/byte_source.h"

namespace kv {

/// Four characters as the integer that they make when read least significant byte first.
constexpr u32 fourcc(std::string_view text) {
    u32 id = 0;
    for (std::size_t i = 4; i-- > 0;) id = id << 8 | static_cast<u8>(text[i]);
    return id;
}

struct Chunk {
    u32 id = 0;         ///< as `fourcc` gives it, whatever the byte order of the sizes
    u64 start = 0;      ///< place of the contents in the source
    u64 size = 0;       ///< bytes of contents that are there
    u64 statedSize = 0; ///< as the header says

    u64 end() const { return start + size; }
};

/// Whether a chunk of an odd size is followed by a byte of padding.
enum class ChunkPadding : u8 {
    Always,
    Doubtful ///< some writers leave it out: the next chunk's header tells
};

/// Goes over the chunks between two places of a source: 8-byte headers, contents padded to an even size.
/// A chunk that runs past the end is cut there.
class ChunkWalker {
public:
    ChunkWalker(ByteSource& source, u64 start, u64 end, std::endian order = std::endian::little,
                ChunkPadding padding = ChunkPadding::Always)
        : source_(source), at_(start), end_(std::min(end, source.size())), order_(order), padding_(padding) {}

    /// False behind the last chunk. A header that ends where the walk ends is not a chunk.
    bool next(Chunk& chunk) {
        if (padding_ == ChunkPadding::Doubtful && oddEnd_ && !plausible(at_) && plausible(at_ - 1)) --at_;
        if (at_ >= end_ || end_ - at_ <= 8) return false;
        std::array<std::byte, 8> header{};
        source_.readAt(at_, header);
        const std::span<const std::byte, 8> raw(header);
        chunk.id = loadInteger<u32>(raw.first<4>(), std::endian::little);
        chunk.statedSize = loadInteger<u32>(raw.last<4>(), order_);
        contents_ = at_ + 8;
        setSize(chunk, chunk.statedSize);
        return true;
    }
    /// Gives the chunk of the last `next` another size than its header does, as 64-bit forms need it.
    void setSize(Chunk& chunk, u64 size) {
        const u64 room = end_ - contents_;
        chunk.start = contents_;
        chunk.size = std::min(size, room);
        at_ = contents_ + (size >= room ? room : std::min(size + (size & 1), room));
        oddEnd_ = size < room && (size & 1) != 0;
    }

private:
    /// A chunk could begin there: four printable characters, and a size that fits.
    bool plausible(u64 at) {
        std::array<std::byte, 8> header{};
        if (at >= end_ || source_.readAt(at, header) != header.size()) return false;
        const std::span<const std::byte, 8> raw(header);
        const bool printable = std::all_of(header.begin(), header.begin() + 4, [](std::byte b) {
            return b >= std::byte{0x20} && b < std::byte{0x7F};
        });
        return printable && loadInteger<u32>(raw.last<4>(), order_) <= end_ - std::min(end_, at + 8);
    }

    ByteSource& source_;
    u64 at_;
    u64 end_;
    u64 contents_ = 0;
    std::endian order_;
    ChunkPadding padding_;
    bool oddEnd_ = false; ///< the last chunk had an odd size
};

/// The first bytes of a chunk's contents, at most `limit`.
inline Bytes readContents(ByteSource& source, const Chunk& chunk, std::size_t limit) {
    Bytes bytes(static_cast<std::size_t>(std::min<u64>(chunk.size, limit)));
    bytes.resize(source.readAt(chunk.start, bytes));
    return bytes;
}

} // namespace kv
