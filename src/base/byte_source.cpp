#include "base/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kv {
namespace {

class FileSource final : public ByteSource {
public:
    FileSource(int file, u64 size) : file_(file), size_(size) {}
    ~FileSource() override { ::close(file_); }
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;

    u64 size() const override { return size_; }

    std::size_t readAt(u64 offset, std::span<std::byte> to) override {
        if (offset >= size_) return 0;
        to = to.first(static_cast<std::size_t>(std::min<u64>(to.size(), size_ - offset)));
        if (to.size() >= kWindowBytes) return readFully(offset, to);

        if (offset < windowStart_ || offset + to.size() > windowStart_ + windowFilled_) {
            if (!window_) window_ = std::make_unique_for_overwrite<std::byte[]>(kWindowBytes);
            windowStart_ = offset;
            windowFilled_ = readFully(offset, {window_.get(), kWindowBytes});
        }
        const std::size_t skipped = static_cast<std::size_t>(offset - windowStart_);
        const std::size_t count = std::min(to.size(), windowFilled_ - std::min(skipped, windowFilled_));
        std::copy_n(window_.get() + skipped, count, to.data());
        return count;
    }

private:
    std::size_t readFully(u64 offset, std::span<std::byte> to) const {
        to = to.first(static_cast<std::size_t>(std::min<u64>(to.size(), size_ - std::min(offset, size_))));
        std::size_t done = 0;
        while (done < to.size()) {
            const ssize_t got =
                ::pread(file_, to.data() + done, to.size() - done, static_cast<off_t>(offset + done));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            done += static_cast<std::size_t>(got);
        }
        return done;
    }

    static constexpr std::size_t kWindowBytes = 32768;
    int file_;
    u64 size_;
    std::unique_ptr<std::byte[]> window_;
    u64 windowStart_ = 0;
    std::size_t windowFilled_ = 0;
};

} // namespace

std::size_t MemorySource::readAt(u64 offset, std::span<std::byte> to) {
    if (offset >= bytes_.size()) return 0;
    const ByteSpan part = bytes_.subspan(static_cast<std::size_t>(offset));
    const std::size_t count = std::min(part.size(), to.size());
    std::copy_n(part.data(), count, to.data());
    return count;
}

RangeSource::RangeSource(std::shared_ptr<ByteSource> whole, u64 start, u64 size) : whole_(std::move(whole)) {
    start_ = std::min(start, whole_->size());
    size_ = std::min(size, whole_->size() - start_);
}

std::size_t RangeSource::readAt(u64 offset, std::span<std::byte> to) {
    if (offset >= size_) return 0;
    to = to.first(static_cast<std::size_t>(std::min<u64>(to.size(), size_ - offset)));
    return whole_->readAt(start_ + offset, to);
}

std::shared_ptr<ByteSource> openFileSource(const std::filesystem::path& path) {
    // O_NONBLOCK: opening a pipe without a writer must not wait.
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return nullptr;
    struct stat info {};
    u64 size = 0;
    bool usable = ::fstat(file, &info) == 0;
    if (usable && S_ISREG(info.st_mode)) {
        size = static_cast<u64>(info.st_size);
    } else if (usable && S_ISBLK(info.st_mode)) {
        const off_t end = ::lseek(file, 0, SEEK_END);
        usable = end >= 0;
        size = usable ? static_cast<u64>(end) : 0;
    } else {
        usable = false;
    }
    if (!usable) {
        ::close(file);
        return nullptr;
    }
    return std::make_shared<FileSource>(file, size);
}

} // namespace kv
