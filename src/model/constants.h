// The special numeric values of the system file.
#pragma once

#include <bit>
#include <cstdint>

namespace murv {

// The value stored for a missing numeric value: the most negative finite double.
inline constexpr std::uint64_t kSysmisBits = 0xFFEFFFFFFFFFFFFFull;
// The largest finite double, the upper end of open ranges.
inline constexpr std::uint64_t kHighestBits = 0x7FEFFFFFFFFFFFFFull;

// The double of an IEEE 754 bit pattern.
constexpr double DoubleFromBits(std::uint64_t bits) { return std::bit_cast<double>(bits); }

constexpr double SysmisValue() { return DoubleFromBits(kSysmisBits); }
constexpr double HighestValue() { return DoubleFromBits(kHighestBits); }

// The lowest value, one step above system-missing: system-missing with the
// low 32-bit word of its bit pattern decremented.
constexpr double LowestValue() {
    constexpr std::uint64_t high = kSysmisBits & 0xFFFFFFFF00000000ull;
    constexpr std::uint32_t low = static_cast<std::uint32_t>(kSysmisBits) - 1u;
    return DoubleFromBits(high | low);
}

}  // namespace murv
