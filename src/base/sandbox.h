// What a process that reads untrusted files gives up beforehand. Linux only; elsewhere, and on kernels that
// lack a part of it, what is missing is left out.
#pragma once

#include <filesystem>
#include <span>
#include <vector>

#include "base/integers.h"

namespace kv {

/// Rights that a process keeps after `enter`: threads, memory, its open files, and the folders named here. No
/// other file can be opened, no program started, no other process touched, no network used.
class Sandbox {
public:
    /// Folders or files below which reading is allowed, and folders below which files may be made, changed
    /// and removed too. What the system's shared libraries need is always readable. What doesn't exist is
    /// skipped.
    Sandbox(std::span<const std::filesystem::path> readable, std::span<const std::filesystem::path> writable);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    /// The kernel can hold a process to its folders (Landlock).
    bool limitsFiles() const { return ruleset_ >= 0; }

    /// Gives the rights up, for good and for all threads begun later. False when a part that the kernel
    /// offers didn't go through.
    bool enter() const;

private:
    int ruleset_ = -1;
};

/// Limits the address space of this process to `bytes` more than it has now, and keeps it from writing core
/// files.
void limitMemory(u64 bytes);

} // namespace kv
