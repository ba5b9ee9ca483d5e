#include "port/faults.h"

#include <cerrno>
#include <mutex>

namespace murv::port::faults {

namespace detail {
std::atomic<bool> gArmed{false};
}

namespace {

std::mutex gMutex;
unsigned gMask = 0;
std::uint64_t gNth = 0;
std::uint64_t gCounted = 0;
Kind gKind = Kind::NoSpace;
bool gFired = false;
Op gFiredOp = Op::Open;

}  // namespace

void Arm(unsigned mask, std::uint64_t nth, Kind kind) {
    std::lock_guard<std::mutex> lock(gMutex);
    gMask = mask;
    gNth = nth;
    gKind = kind;
    gCounted = 0;
    gFired = false;
    detail::gArmed.store(true, std::memory_order_relaxed);
}

void Disarm() {
    std::lock_guard<std::mutex> lock(gMutex);
    detail::gArmed.store(false, std::memory_order_relaxed);
    gMask = 0;
}

Op FiredOp() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gFiredOp;
}

std::uint64_t Counted() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gCounted;
}

bool Fired() {
    std::lock_guard<std::mutex> lock(gMutex);
    return gFired;
}

bool detail::Hit(Op op, Kind* kind) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (!(gMask & Bit(op))) return false;
    if (++gCounted != gNth) return false;
    gFired = true;
    gFiredOp = op;
    Kind k = gKind;
    // Only a write can be cut short; anything else simply fails.
    if (k == Kind::ShortWrite && op != Op::Write) k = Kind::NoSpace;
    if (kind) *kind = k;
    errno = k == Kind::IoError ? EIO : ENOSPC;
    return true;
}

}  // namespace murv::port::faults
