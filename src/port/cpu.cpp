#include "port/cpu.h"

namespace murv::port {

namespace {

CpuFeatures Detect() {
    CpuFeatures f;
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    // (The compiler's feature query also checks that the system saves the
    // vector registers it reports.)
    __builtin_cpu_init();
    f.sse41 = __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("popcnt");
#if defined(_WIN32)
    // MinGW-w64's GCC does not align the stack to 32 bytes for 256-bit
    // values it spills, so the wide kernels stay out of Windows builds.
    f.avx2 = false;
#else
    f.avx2 = f.sse41 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2");
#endif
#endif
    return f;
}

}  // namespace

const CpuFeatures& Cpu() {
    static const CpuFeatures features = Detect();
    return features;
}

}  // namespace murv::port
