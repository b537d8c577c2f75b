#include "plugins/stdout_guard.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

namespace kv {
namespace {

std::mutex mutex;
int guards = 0;
int standardOutput = -1; ///< where it went before the first guard

} // namespace

StdoutGuard::StdoutGuard() {
    const std::lock_guard lock(mutex);
    if (guards++ > 0) return;
    std::fflush(stdout);
    standardOutput = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (standardOutput >= 0) ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

StdoutGuard::~StdoutGuard() {
    const std::lock_guard lock(mutex);
    if (--guards > 0 || standardOutput < 0) return;
    std::fflush(stdout);
    ::dup2(standardOutput, STDOUT_FILENO);
    ::close(standardOutput);
}

} // namespace kv
