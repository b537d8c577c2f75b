#include "libav/file_io.h"

#include <algorithm>
#include <cstdio>

namespace kv::libav {
namespace {

constexpr int kBufferBytes = 32768;

AVIOContext* makeContext(void* self, bool writes, int (*read)(void*, std::uint8_t*, int),
                         int (*write)(void*, std::uint8_t*, int),
                         std::int64_t (*seek)(void*, std::int64_t, int)) {
    auto* buffer = static_cast<unsigned char*>(made(av_malloc(kBufferBytes)));
    AVIOContext* context = avio_alloc_context(buffer, kBufferBytes, writes ? 1 : 0, self, read, write, seek);
    if (!context) av_free(buffer);
    return made(context);
}

void freeContext(AVIOContext* context) {
    av_freep(static_cast<void*>(&context->buffer)); // libav may have replaced it
    avio_context_free(&context);
}

/// The place that a C seek means; negative for one outside 0..2^62.
std::int64_t placeOf(std::int64_t offset, int whence, std::int64_t at, std::int64_t size) {
    constexpr std::int64_t kMost = std::int64_t{1} << 62;
    const std::int64_t from = whence == SEEK_CUR ? at : whence == SEEK_END ? size : 0;
    if (offset < -from || offset > kMost - from) return -1;
    return from + offset;
}

} // namespace

InputIo::InputIo(const MediaInput& input)
    : input_(input),
      budget_((std::min(input.size, std::int64_t{1} << 54) + (1 << 20)) * 64),
      context_(makeContext(this, false, read, nullptr, seek)) {}

InputIo::~InputIo() {
    freeContext(context_);
}

int InputIo::read(void* self, std::uint8_t* to, int count) noexcept {
    auto& io = *static_cast<InputIo*>(self);
    if (count > io.budget_) return AVERROR(EIO);
    if (io.at_ >= io.input_.size) return AVERROR_EOF;
    const int done = io.input_.read(io.input_.client, io.at_, to, count);
    if (done <= 0) return AVERROR_EOF;
    io.at_ += done;
    io.budget_ -= done;
    return done;
}

std::int64_t InputIo::seek(void* self, std::int64_t offset, int whence) noexcept {
    auto& io = *static_cast<InputIo*>(self);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE) return io.input_.size;
    const std::int64_t place = placeOf(offset, whence, io.at_, io.input_.size);
    if (place < 0) return AVERROR(EINVAL);
    return io.at_ = place;
}

OutputIo::OutputIo(const MediaOutput& output)
    : output_(output), context_(makeContext(this, true, nullptr, write, seek)) {}

OutputIo::~OutputIo() {
    freeContext(context_);
}

int OutputIo::write(void* self, std::uint8_t* from, int count) noexcept {
    auto& io = *static_cast<OutputIo*>(self);
    if (io.output_.write(io.output_.client, io.at_, from, count) == 0) return AVERROR(EIO);
    io.at_ += count;
    io.size_ = std::max(io.size_, io.at_);
    return count;
}

std::int64_t OutputIo::seek(void* self, std::int64_t offset, int whence) noexcept {
    auto& io = *static_cast<OutputIo*>(self);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE) return io.size_;
    const std::int64_t place = placeOf(offset, whence, io.at_, io.size_);
    if (place < 0 || place > io.size_) return AVERROR(EINVAL); // no holes
    return io.at_ = place;
}

} // namespace kv::libav
