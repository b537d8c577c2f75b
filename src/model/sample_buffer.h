// Memory for samples: aligned for vector code, not initialised, and told to the out-of-memory handling.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "base/integers.h"

namespace kv {

/// Called when memory for samples runs out. Frees what it can and answers whether that was anything.
using MemoryPurge = bool (*)();

/// The function that `allocateSamples` asks for memory; null for none. Returns the previous one.
MemoryPurge setMemoryPurge(MemoryPurge purge);

/// Aligned memory, or null once the purge has nothing left to free.
void* allocateSamples(std::size_t bytes);
void freeSamples(void* memory);

template <class T>
class SampleBuffer {
public:
    SampleBuffer() = default;

    /// Room for `count` samples with any contents. False, and empty, when there is no memory.
    bool allocate(std::size_t count) {
        reset();
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) return false;
        memory_.reset(static_cast<T*>(allocateSamples(count * sizeof(T))));
        size_ = memory_ ? count : 0;
        return memory_ != nullptr;
    }
    void reset() {
        memory_.reset();
        size_ = 0;
    }
    explicit operator bool() const { return memory_ != nullptr; }
    std::size_t size() const { return size_; }
    T* data() { return memory_.get(); }
    std::span<T> span() { return {memory_.get(), size_}; }
    std::span<const T> span() const { return {memory_.get(), size_}; }

private:
    struct Free {
        void operator()(T* memory) const { freeSamples(memory); }
    };
    std::unique_ptr<T[], Free> memory_;
    std::size_t size_ = 0;
};

} // namespace kv
