// What the processor offers the library's vector kernels, asked once.
#pragma once

namespace murv::port {

struct CpuFeatures {
    bool sse41 = false;  // SSE4.1 with SSSE3 and POPCNT
    bool avx2 = false;   // AVX2 with the above, BMI2, and a system that keeps the wide registers
};

// The features of the processor this process runs on, as far as the build
// can use them (none on processors other than 64-bit x86).
const CpuFeatures& Cpu();

}  // namespace murv::port
