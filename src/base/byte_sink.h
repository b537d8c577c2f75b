// Where a writer's bytes go: a file that appears only when it is complete, a stream, or memory.
#pragma once

#include <filesystem>
#include <memory>

#include "base/bytes.h"

namespace kv {

/// Bytes written one after the other.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    /// False when not all bytes could be written (full disk, closed pipe).
    virtual bool write(ByteSpan bytes) = 0;
    /// Overwrites bytes that were written before; false for a stream, or on an error.
    virtual bool patch(u64 offset, ByteSpan bytes) = 0;
    /// Bytes written so far.
    virtual u64 position() const = 0;
};

class MemorySink final : public ByteSink {
public:
    bool write(ByteSpan bytes) override;
    bool patch(u64 offset, ByteSpan bytes) override;
    u64 position() const override { return bytes_.size(); }
    ByteSpan view() const { return bytes_; }
    Bytes take() { return std::move(bytes_); }

private:
    Bytes bytes_;
};

/// A file that is written beside its target and takes the target's place on `commit()`. Until then the
/// old file stays as it was; without a commit nothing is left behind. A target that wasn't there at the
/// beginning isn't replaced if it is there at the end. A target that is no regular file
/// (a device, a pipe) is written directly.
class SaveFile final : public ByteSink {
public:
    ~SaveFile() override;
    SaveFile(const SaveFile&) = delete;
    SaveFile& operator=(const SaveFile&) = delete;

    /// Null when the file can't be created in the target's folder, or an existing target is read-only.
    static std::unique_ptr<SaveFile> create(const std::filesystem::path& target);

    bool write(ByteSpan bytes) override;
    bool patch(u64 offset, ByteSpan bytes) override;
    u64 position() const override { return position_; }
    /// Makes the file appear under its target name. False, with the old file untouched, on any error, be it
    /// of an earlier write.
    bool commit();

private:
    bool linkAs(const std::filesystem::path& name) const;
    bool takeName() const;
    SaveFile(int file, std::filesystem::path target) : file_(file), target_(std::move(target)) {}

    int file_;
    std::filesystem::path target_;
    std::filesystem::path temporary_; // empty: a file without a name yet, or written directly
    bool direct_ = false;
    bool replaces_ = false;
    bool failed_ = false; // a write or a patch didn't go through
    u64 position_ = 0;
};

/// An open file descriptor that the caller keeps, such as standard output.
class StreamSink final : public ByteSink {
public:
    explicit StreamSink(int file) : file_(file) {}
    bool write(ByteSpan bytes) override;
    bool patch(u64, ByteSpan) override { return false; }
    u64 position() const override { return position_; }

private:
    int file_;
    u64 position_ = 0;
};

} // namespace kv
