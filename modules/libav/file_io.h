// libav's way to bytes, over the callbacks of the program.
#pragma once

#include "formats/media/media_module.h"
#include "libav/libav.h"

namespace kv::libav {

/// Reads through a MediaInput. What is read in all is limited to some times the file's size: the tables of a
/// hostile file may name the same bytes over and over.
class InputIo {
public:
    explicit InputIo(const MediaInput& input);
    ~InputIo();
    InputIo(const InputIo&) = delete;
    InputIo& operator=(const InputIo&) = delete;
    AVIOContext* context() const { return context_; }

private:
    static int read(void* self, std::uint8_t* to, int count) noexcept;
    static std::int64_t seek(void* self, std::int64_t offset, int whence) noexcept;

    MediaInput input_;
    std::int64_t at_ = 0;
    std::int64_t budget_; ///< bytes that may still be read
    AVIOContext* context_;
};

/// Writes through a MediaOutput.
class OutputIo {
public:
    explicit OutputIo(const MediaOutput& output);
    ~OutputIo();
    OutputIo(const OutputIo&) = delete;
    OutputIo& operator=(const OutputIo&) = delete;
    AVIOContext* context() const { return context_; }

private:
    static int write(void* self, std::uint8_t* from, int count) noexcept;
    static std::int64_t seek(void* self, std::int64_t offset, int whence) noexcept;

    MediaOutput output_;
    std::int64_t at_ = 0, size_ = 0;
    AVIOContext* context_;
};

} // namespace kv::libav
