// Keeps what effects print out of the program's own output.
#pragma once

namespace kv {

/// As long as one lives, what the process prints to standard output goes to standard error.
class StdoutGuard {
public:
    StdoutGuard();
    ~StdoutGuard();
    StdoutGuard(const StdoutGuard&) = delete;
    StdoutGuard& operator=(const StdoutGuard&) = delete;
};

} // namespace kv
