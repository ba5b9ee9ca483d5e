// Memory handed to clients: allocated with the C allocator so that the
// matching murvFree... call can release it, whatever language the client
// is written in.
#pragma once

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace murv::api {

// A NUL-terminated copy, or null when memory is short.
inline char* DupString(std::string_view s) {
    auto* p = static_cast<char*>(std::malloc(s.size() + 1));
    if (!p) return nullptr;
    std::memcpy(p, s.data(), s.size());
    p[s.size()] = '\0';
    return p;
}

// An array of n zeroed elements, or null when memory is short.
template <class T>
T* AllocArray(std::size_t n) {
    return static_cast<T*>(std::calloc(n == 0 ? 1 : n, sizeof(T)));
}

// Releases n strings and the array that holds them.
inline void FreeStrings(char** array, std::size_t n) {
    if (!array) return;
    for (std::size_t i = 0; i < n; ++i) std::free(array[i]);
    std::free(array);
}

// Copies text into a caller's buffer of size bytes (size >= 1), cut on a
// character boundary so that it fits with its NUL.
void CopyOut(char* buffer, std::size_t size, std::string_view text);

}  // namespace murv::api
