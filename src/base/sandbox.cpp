#include "base/sandbox.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

// A sanitizer's shadow memory takes terabytes of addresses.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KV_SANITIZED true
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(KV_SANITIZED)
#define KV_SANITIZED true
#endif
#if !defined(KV_SANITIZED)
#define KV_SANITIZED false
#endif

namespace kv {
namespace {

constexpr bool kSanitized = KV_SANITIZED;

namespace fs = std::filesystem;

// ---- Files (Landlock)

constexpr u64 kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr u64 kFirstVersion =
    kRead | LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
    LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
    LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
    LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;
constexpr u64 kMoveBetweenFolders = 1ULL << 13; // LANDLOCK_ACCESS_FS_REFER, version 2
constexpr u64 kTruncate = 1ULL << 14;           // LANDLOCK_ACCESS_FS_TRUNCATE, version 3
constexpr u64 kOnFiles =
    LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_FILE | kTruncate;

/// All rights over files that this kernel's version knows; 0 without Landlock.
u64 knownRights() {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) return 0;
    return kFirstVersion | (version >= 2 ? kMoveBetweenFolders : 0) | (version >= 3 ? kTruncate : 0);
}

void allowBelow(int ruleset, const fs::path& path, u64 rights) {
    const int at = ::open(path.c_str(), O_PATH | O_CLOEXEC);
    if (at < 0) return;
    struct stat info {};
    if (::fstat(at, &info) == 0 && !S_ISDIR(info.st_mode)) rights &= kOnFiles;
    landlock_path_beneath_attr rule{};
    rule.allowed_access = rights;
    rule.parent_fd = at;
    (void)::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
    ::close(at);
}

/// Where libraries that are opened later, their data, and what the C library reads stand.
constexpr const char* kSystemPaths[] = {
    "/usr",         "/lib",      "/lib64",        "/etc/ld.so.cache", "/etc/localtime",
    "/dev/urandom", "/dev/null", "/proc/cpuinfo", "/proc/meminfo",    "/sys/devices/system/cpu"};

// ---- System calls (seccomp)

constexpr u32 kRefuse = SECCOMP_RET_ERRNO | EPERM;

/// What nothing that converts files calls: other processes, the network, the system itself.
constexpr int kRefused[] = {
#if defined(__x86_64__)
    SYS_fork,
    SYS_vfork,
    SYS_mknod,
#endif
    SYS_execve,
    SYS_execveat,
    SYS_ptrace,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_kill,
    SYS_tkill,
    SYS_pidfd_open,
    SYS_pidfd_getfd,
    SYS_pidfd_send_signal,
    SYS_socket,
    SYS_connect,
    SYS_bind,
    SYS_listen,
    SYS_accept,
    SYS_accept4,
    SYS_mount,
    SYS_umount2,
    SYS_pivot_root,
    SYS_chroot,
    SYS_setns,
    SYS_unshare,
    SYS_bpf,
    SYS_perf_event_open,
    SYS_userfaultfd,
    SYS_keyctl,
    SYS_add_key,
    SYS_request_key,
    SYS_init_module,
    SYS_finit_module,
    SYS_delete_module,
    SYS_kexec_load,
    SYS_reboot,
    SYS_swapon,
    SYS_swapoff,
    SYS_settimeofday,
    SYS_clock_settime,
    SYS_acct,
    SYS_io_uring_setup,
    SYS_open_by_handle_at,
    SYS_name_to_handle_at,
    SYS_mknodat,
    SYS_setuid,
    SYS_setgid,
    SYS_personality,
};

#if defined(__x86_64__)
constexpr u32 kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr u32 kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr u32 kArchitecture = 0; // no filter
#endif

bool refuseCalls() {
    if (kArchitecture == 0) return true;
    std::vector<sock_filter> program;
    const auto load = [&](u32 offset) { program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset)); };
    const auto jumpIfEqual = [&](u32 value, u8 yes, u8 no) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, yes, no));
    };
    const auto answer = [&](u32 value) { program.push_back(BPF_STMT(BPF_RET | BPF_K, value)); };

    load(offsetof(seccomp_data, arch));
    jumpIfEqual(kArchitecture, 1, 0);
    answer(SECCOMP_RET_KILL_PROCESS);
    load(offsetof(seccomp_data, nr));
    for (const int number : kRefused) {
        jumpIfEqual(static_cast<u32>(number), 0, 1);
        answer(kRefuse);
    }
    // The flags of clone3 can't be seen from here: the C library falls back on clone, which may make threads.
    jumpIfEqual(SYS_clone3, 0, 1);
    answer(SECCOMP_RET_ERRNO | ENOSYS);
    jumpIfEqual(SYS_clone, 0, 3);
    load(offsetof(seccomp_data, args));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 1, 0));
    answer(kRefuse);
    answer(SECCOMP_RET_ALLOW);

    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

} // namespace

Sandbox::Sandbox(std::span<const fs::path> readable, std::span<const fs::path> writable) {
    const u64 rights = knownRights();
    if (rights == 0) return;
    landlock_ruleset_attr attributes{};
    attributes.handled_access_fs = rights;
    ruleset_ = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof(attributes), 0));
    if (ruleset_ < 0) return;
    for (const char* path : kSystemPaths) allowBelow(ruleset_, path, kRead);
    std::error_code ignored;
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    if (!program.empty()) {
        allowBelow(ruleset_, program.parent_path(), kRead);
        allowBelow(ruleset_, program.parent_path() / "../lib/kelvane", kRead); // loadable modules
    }
    for (const fs::path& path : readable) allowBelow(ruleset_, path, kRead);
    for (const fs::path& path : writable) {
        allowBelow(ruleset_, path,
                   rights & (kRead | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_FILE |
                             LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_MAKE_DIR |
                             LANDLOCK_ACCESS_FS_MAKE_REG | kMoveBetweenFolders | kTruncate));
    }
}

Sandbox::~Sandbox() {
    if (ruleset_ >= 0) ::close(ruleset_);
}

bool Sandbox::enter() const {
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
    if (ruleset_ >= 0 && ::syscall(SYS_landlock_restrict_self, ruleset_, 0) != 0) return false;
    return refuseCalls() || errno == EINVAL || errno == ENOSYS; // a kernel without filters
}

void limitMemory(u64 bytes) {
    const rlimit none{0, 0};
    (void)::setrlimit(RLIMIT_CORE, &none);
    if (bytes == 0 || kSanitized) return;
    unsigned long pages = 0;
    if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%lu", &pages) != 1) pages = 0;
        (void)std::fclose(file);
    }
    const u64 total = u64{pages} * static_cast<u64>(::sysconf(_SC_PAGESIZE)) + bytes;
    const rlimit limit{total, total};
    (void)::setrlimit(RLIMIT_AS, &limit);
}

} // namespace kv
