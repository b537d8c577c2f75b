// Which compiled form of a vector kernel suits this processor. For the part of a file that is compiled once,
// after hwy/highway.h and the kernels.
//
// The choice is made here and not by Highway's own: its shared library measures the processor's timers while
// it is loaded, which would cost every start of the program some milliseconds.
#pragma once

#if HWY_ARCH_X86 && (HWY_TARGETS & HWY_AVX2)
namespace kv {

inline bool hasSse4() {
    return __builtin_cpu_supports("sse4.2") != 0;
}
inline bool hasAvx2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
}
inline bool hasAvx512() {
    return hasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512cd") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512bw");
}

} // namespace kv
#define KV_CHOOSE(kernel) \
    (hasAvx2() ? N_AVX2::kernel : hasSse4() ? N_SSE4::kernel : HWY_STATIC_DISPATCH(kernel))
/// Of kernels that are compiled for 512 bits too.
#define KV_CHOOSE_WIDE(kernel) (hasAvx512() ? N_AVX3::kernel : KV_CHOOSE(kernel))
#else
#define KV_CHOOSE(kernel) HWY_STATIC_DISPATCH(kernel)
#define KV_CHOOSE_WIDE(kernel) HWY_STATIC_DISPATCH(kernel)
#endif
