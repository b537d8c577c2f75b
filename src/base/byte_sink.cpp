#include "base/byte_sink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>
#include <utility>

namespace kv {
namespace fs = std::filesystem;
namespace {

bool writeFully(int file, ByteSpan bytes) {
    while (!bytes.empty()) {
        const ssize_t done = ::write(file, bytes.data(), bytes.size());
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(done));
    }
    return true;
}

/// A name beside `target` that no other save uses.
fs::path temporaryName(const fs::path& target) {
    static std::atomic<unsigned> counter = 0;
    std::string name = target.filename().string().substr(0, 200);
    name = "." + name + "." + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".part";
    return target.parent_path() / name;
}

} // namespace

bool MemorySink::write(ByteSpan bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return true;
}

bool MemorySink::patch(u64 offset, ByteSpan bytes) {
    if (offset > bytes_.size() || bytes.size() > bytes_.size() - offset) return false;
    std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
    return true;
}

bool StreamSink::write(ByteSpan bytes) {
    position_ += bytes.size();
    return writeFully(file_, bytes);
}

std::unique_ptr<SaveFile> SaveFile::create(const fs::path& target) {
    fs::path real = target;
    struct stat info {};
    bool exists = ::lstat(real.c_str(), &info) == 0;
    if (exists && S_ISLNK(info.st_mode)) {
        // Through a link the file that it points to is replaced, not the link.
        std::error_code ignored;
        real = fs::weakly_canonical(target, ignored);
        if (real.empty()) real = target;
        exists = ::stat(real.c_str(), &info) == 0;
    }
    if (exists && !S_ISREG(info.st_mode)) {
        const int file = S_ISDIR(info.st_mode) ? -1 : ::open(real.c_str(), O_WRONLY | O_CLOEXEC);
        if (file < 0) return nullptr;
        std::unique_ptr<SaveFile> save(new SaveFile(file, real));
        save->direct_ = true;
        return save;
    }
    if (exists && ::access(real.c_str(), W_OK) != 0) return nullptr;

    // A file without a name vanishes with the process, even when that is killed.
    const fs::path folder = real.has_parent_path() ? real.parent_path() : fs::path(".");
    int file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    fs::path temporary;
    if (file < 0) {
        temporary = temporaryName(real);
        file = ::open(temporary.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
    }
    if (file < 0) return nullptr;
    if (exists) (void)::fchmod(file, info.st_mode & 07777);
    std::unique_ptr<SaveFile> save(new SaveFile(file, real));
    save->temporary_ = temporary;
    save->replaces_ = exists;
    return save;
}

SaveFile::~SaveFile() {
    if (file_ >= 0) ::close(file_);
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

bool SaveFile::write(ByteSpan bytes) {
    position_ += bytes.size();
    if (!writeFully(file_, bytes)) failed_ = true;
    return !failed_;
}

bool SaveFile::patch(u64 offset, ByteSpan bytes) {
    if (direct_) return false;
    while (!bytes.empty()) {
        const ssize_t done = ::pwrite(file_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) {
            failed_ = true;
            return false;
        }
        offset += static_cast<u64>(done);
        bytes = bytes.subspan(static_cast<std::size_t>(done));
    }
    return true;
}

/// Gives the file without a name one.
bool SaveFile::linkAs(const std::filesystem::path& name) const {
    const std::string self = "/proc/self/fd/" + std::to_string(file_);
    return ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

/// Gives the file its target's name in place of the temporary one. A file that came there meanwhile stays.
bool SaveFile::takeName() const {
    if (!replaces_) {
        if (::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) == 0)
            return true;
        if (errno != EINVAL && errno != ENOSYS) return false; // not on every file system
    }
    return ::rename(temporary_.c_str(), target_.c_str()) == 0;
}

bool SaveFile::commit() {
    if (file_ < 0) return false;
    bool done = !failed_;
    if (done && !direct_) {
        // Data must be on disk before it takes the place of an older file, lest a power cut lose both.
        if (replaces_) done = ::fdatasync(file_) == 0 || errno == EINVAL;
        // A link can't replace a file, so over an older one the name is taken by way of another.
        if (done && temporary_.empty() && (replaces_ || !linkAs(target_))) {
            const fs::path name = temporaryName(target_);
            done = linkAs(name);
            if (done) temporary_ = name;
        }
        if (done && !temporary_.empty()) done = takeName();
        if (done) temporary_.clear();
    }
    if (::close(std::exchange(file_, -1)) != 0) done = false;
    return done;
}

} // namespace kv
