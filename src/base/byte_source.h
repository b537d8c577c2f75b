// Where a reader's bytes come from. A reader can't tell a file from memory or from a part of either, so
// it works on images, archives and generated inputs alike.
#pragma once

#include <filesystem>
#include <memory>

#include "base/bytes.h"

namespace kv {

/// Random access to a run of bytes that doesn't change its size. Not safe for use by two threads at once.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual u64 size() const = 0;
    /// Reads into `to` from `offset`; returns the bytes read, fewer than asked at the end or on an error.
    virtual std::size_t readAt(u64 offset, std::span<std::byte> to) = 0;
};

/// Bytes in memory, owned by the caller or by the source.
class MemorySource final : public ByteSource {
public:
    explicit MemorySource(ByteSpan bytes) : bytes_(bytes) {}
    explicit MemorySource(Bytes&& bytes) : owned_(std::move(bytes)), bytes_(owned_) {}
    u64 size() const override { return bytes_.size(); }
    std::size_t readAt(u64 offset, std::span<std::byte> to) override;

private:
    Bytes owned_;
    ByteSpan bytes_;
};

/// A part of another source; what lies outside the other source is cut off.
class RangeSource final : public ByteSource {
public:
    RangeSource(std::shared_ptr<ByteSource> whole, u64 start, u64 size);
    u64 size() const override { return size_; }
    std::size_t readAt(u64 offset, std::span<std::byte> to) override;

private:
    std::shared_ptr<ByteSource> whole_;
    u64 start_, size_;
};

/// Opens a regular file or a block device for reading. Small reads go through one cached window, so that
/// walking a header costs few system calls; large reads go straight to the caller's memory. Null when the
/// path can't be opened or is of another kind (folder, pipe, terminal), which could block or never end.
std::shared_ptr<ByteSource> openFileSource(const std::filesystem::path& path);

} // namespace kv
