#include "model/sample_buffer.h"

#include <atomic>
#include <cstdlib>

namespace kv {
namespace {
constexpr std::size_t kAlignment = 64;
std::atomic<MemoryPurge> currentPurge = nullptr;
} // namespace

MemoryPurge setMemoryPurge(MemoryPurge purge) {
    return currentPurge.exchange(purge);
}

void* allocateSamples(std::size_t bytes) {
    if (bytes > static_cast<std::size_t>(-1) - kAlignment) return nullptr;
    const std::size_t rounded = (bytes / kAlignment + 1) * kAlignment;
    for (;;) {
        if (void* memory = std::aligned_alloc(kAlignment, rounded)) return memory;
        const MemoryPurge purge = currentPurge;
        if (!purge || !purge()) return nullptr;
    }
}

void freeSamples(void* memory) {
    std::free(memory);
}

} // namespace kv
