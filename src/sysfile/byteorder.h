// Explicit byte order. Files are written in the host's order and read in
// either; every integer and double passes through these helpers rather than
// through a cast of a buffer.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace murv {

inline constexpr std::uint32_t Swap32(std::uint32_t v) { return __builtin_bswap32(v); }
inline constexpr std::uint64_t Swap64(std::uint64_t v) { return __builtin_bswap64(v); }

inline constexpr bool kHostIsLittleEndian = std::endian::native == std::endian::little;

// Host-order loads and stores of unaligned bytes.
inline std::uint32_t LoadU32(const void* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline std::uint64_t LoadU64(const void* p) {
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}
inline void StoreU32(void* p, std::uint32_t v) { std::memcpy(p, &v, 4); }
inline void StoreU64(void* p, std::uint64_t v) { std::memcpy(p, &v, 8); }

// Loads in a file's byte order: swapped when the file was written on a
// machine of the other order.
inline std::int32_t LoadI32(const void* p, bool swapped) {
    const std::uint32_t v = LoadU32(p);
    return static_cast<std::int32_t>(swapped ? Swap32(v) : v);
}
inline std::int64_t LoadI64(const void* p, bool swapped) {
    const std::uint64_t v = LoadU64(p);
    return static_cast<std::int64_t>(swapped ? Swap64(v) : v);
}
inline double LoadF64(const void* p, bool swapped) {
    const std::uint64_t v = LoadU64(p);
    return std::bit_cast<double>(swapped ? Swap64(v) : v);
}

// Stores in host order (what this library writes).
inline void StoreI32(void* p, std::int32_t v) { StoreU32(p, static_cast<std::uint32_t>(v)); }
inline void StoreI64(void* p, std::int64_t v) { StoreU64(p, static_cast<std::uint64_t>(v)); }
inline void StoreF64(void* p, double v) { StoreU64(p, std::bit_cast<std::uint64_t>(v)); }

}  // namespace murv
