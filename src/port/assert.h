// The one assertion of the library: for internal invariants only. Client
// input and file contents are checked before they could reach one of these.
#pragma once

namespace murv {
[[noreturn]] void AssertionFailed(const char* condition, const char* file, int line);
}

#define MURV_ASSERT(cond) \
    ((cond) ? static_cast<void>(0) : ::murv::AssertionFailed(#cond, __FILE__, __LINE__))
