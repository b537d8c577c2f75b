#pragma once

#include <cstdio>
#include <cstdlib>

namespace kv::fuzz {

/// Ends the process, which the fuzzer takes for a crash, when something that must hold doesn't.
inline void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

} // namespace kv::fuzz
