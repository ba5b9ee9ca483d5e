// Failures on demand for the file operations of the platform layer, so that
// tests can make the Nth operation fail and watch what the layers above do.
// Nothing in the library arms it; an unarmed check is one relaxed load.
#pragma once

#include <atomic>
#include <cstdint>

namespace murv::port::faults {

enum class Op : unsigned { Open, Read, Write, Seek, Sync, Truncate, Rename, Close, kCount };

constexpr unsigned Bit(Op op) { return 1u << static_cast<unsigned>(op); }
inline constexpr unsigned kAllOps = (1u << static_cast<unsigned>(Op::kCount)) - 1;

enum class Kind {
    NoSpace,     // the operation fails with ENOSPC
    IoError,     // the operation fails with EIO
    ShortWrite,  // a write stores half of its bytes, then fails with ENOSPC
};

// Counts the operations in mask from now on; the nth of them (1-based)
// fails as kind says. nth 0 only counts.
void Arm(unsigned mask, std::uint64_t nth, Kind kind);
void Disarm();
// Operations counted since Arm.
std::uint64_t Counted();
// Whether the armed failure has happened, and to which operation.
bool Fired();
Op FiredOp();

namespace detail {
extern std::atomic<bool> gArmed;
bool Hit(Op op, Kind* kind);
}  // namespace detail

// Called by each file operation before it reaches the system: true when it
// must fail instead (errno is set; kind tells how).
inline bool ShouldFail(Op op, Kind* kind = nullptr) {
    if (!detail::gArmed.load(std::memory_order_relaxed)) return false;
    return detail::Hit(op, kind);
}

}  // namespace murv::port::faults
