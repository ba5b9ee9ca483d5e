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

// Releases the first n strings of an array and the array itself; a count
// below 1 releases the array alone.
inline void FreeStrings(char** array, long long n) {
    if (!array) return;
    for (long long i = 0; i < n; ++i) std::free(array[i]);
    std::free(array);
}

// A new array of n new NUL-terminated copies of textAt(0) .. textAt(n - 1)
// (called in that order), or null with nothing left allocated when memory is
// short.
template <class TextAt>
char** DupStrings(std::size_t n, TextAt&& textAt) {
    char** array = AllocArray<char*>(n);
    for (std::size_t i = 0; array && i < n; ++i) {
        array[i] = DupString(textAt(i));
        if (!array[i]) {
            FreeStrings(array, static_cast<long long>(i));
            array = nullptr;
        }
    }
    return array;
}

// Copies text into a caller's buffer of size bytes (size >= 1), cut on a
// character boundary so that it fits with its NUL.
void CopyOut(char* buffer, std::size_t size, std::string_view text);

}  // namespace murv::api
