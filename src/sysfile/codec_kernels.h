// The inner loops of the case compression: coding whole blocks of eight
// cells, and decoding or skipping whole blocks. Each processor gets the
// widest kernel it can run, chosen once per process; all kernels produce the
// same bytes. The scalar helpers here also serve the cell-by-cell paths.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/constants.h"
#include "sysfile/byteorder.h"
#include "sysfile/compression.h"

namespace murv::codec {

inline constexpr std::uint64_t kBlankCell = 0x2020202020202020ull;
// The most bytes one block takes: its commands and eight stored cells.
inline constexpr unsigned kMaxBlockBytes = kKeySize + kKeySize * kCellBytes;

constexpr std::array<std::uint64_t, 256> MakeTable() {
    std::array<std::uint64_t, 256> t{};
    for (int k = 0; k <= 252; ++k) t[k] = std::bit_cast<std::uint64_t>(static_cast<double>(k - kCompressionBias));
    t[kCodeStored] = 0;
    t[kCodeBlanks] = kBlankCell;
    t[kCodeSysmis] = kSysmisBits;
    return t;
}
inline constexpr std::array<std::uint64_t, 256> kTable = MakeTable();

// A word of eight bytes equal to b.
constexpr std::uint64_t Repeated(unsigned char b) { return 0x0101010101010101ull * b; }
// The high bit of each byte of v that is zero, and nothing else.
constexpr std::uint64_t ZeroBytes(std::uint64_t v) {
    constexpr std::uint64_t kLow7 = 0x7F7F7F7F7F7F7F7Full;
    return ~(((v & kLow7) + kLow7) | v | kLow7);
}
static_assert(ZeroBytes(0x00FD00FD00FD0000ull) == 0x8000800080008080ull);

// The command of one cell, without a branch on the value. Values in
// [-99, 151] are found by comparing the bits without the sign against the
// bits of the bound for that sign (NaN lies above every bound); any other
// value is replaced by zero before the conversion to an integer. The cell is
// a small integer when the table entry of its truncated value holds the very
// same bits; system-missing and blanks are picked out last.
inline unsigned EncodeBits(std::uint64_t bits) {
    constexpr std::uint64_t kAbove = std::bit_cast<std::uint64_t>(151.0);
    constexpr std::uint64_t kBelow = std::bit_cast<std::uint64_t>(99.0);
    const std::uint64_t negative = 0 - (bits >> 63);  // all ones for a negative sign
    const std::uint64_t bound = kAbove ^ ((kAbove ^ kBelow) & negative);
    const std::uint64_t inRange = 0 - static_cast<std::uint64_t>((bits & ~(1ull << 63)) <= bound);
    const double x = std::bit_cast<double>(bits & inRange);
    const unsigned k = static_cast<unsigned>(static_cast<int>(x) + kCompressionBias);  // 1..251
    unsigned code = kTable[k] == bits ? k : unsigned{kCodeStored};
    code = bits == kSysmisBits ? unsigned{kCodeSysmis} : code;
    code = bits == kBlankCell ? unsigned{kCodeBlanks} : code;
    return code;
}

// How many of a block's eight commands (as one word) are 253.
inline unsigned StoredCount(std::uint64_t word) {
    // (The flags, moved to the low bit of each byte, summed by a multiply:
    // no population count instruction is assumed.)
    return static_cast<unsigned>(((ZeroBytes(word ^ Repeated(kCodeStored)) >> 7) * Repeated(1)) >> 56);
}
// Whether none of them is 0 or 252.
inline bool WholeBlock(std::uint64_t word) {
    return (ZeroBytes(word) | ZeroBytes(word ^ Repeated(kCodeEndOfBlock))) == 0;
}

// Decodes a whole block (eight commands, none padding or an end) into eight
// cells: each from the block's stored cells or from the table, whichever its
// command names.
inline void DecodeBlock(const unsigned char* keys, const unsigned char* stored, unsigned char* out) {
    unsigned k = 0;
    for (int i = 0; i < kKeySize; ++i) {
        const unsigned char code = keys[i];
        const bool isStored = code == kCodeStored;
        const unsigned char* from = isStored ? stored + k * kCellBytes : reinterpret_cast<const unsigned char*>(&kTable[code]);
        std::memcpy(out + i * kCellBytes, from, kCellBytes);
        k += isStored;
    }
}

struct Kernel {
    const char* name;
    // Codes `blocks` whole blocks of eight cells into out, each as its eight
    // commands and then its stored cells; returns the bytes written. out has
    // room for kMaxBlockBytes per block (a kernel may write cells there that
    // it does not count).
    std::size_t (*encode)(const unsigned char* cells, std::size_t blocks, unsigned char* out);
    // Decodes whole blocks from p into out, eight cells each, or only skips
    // them when out is null: at most `blocks`, each starting at or before
    // last (so that kMaxBlockBytes from its start lie in the buffer), and
    // none from the first that is not whole (a command 0 or 252) on. Returns
    // the blocks walked; p moves behind them and length becomes the bytes of
    // the last (it is left alone when none was walked).
    std::size_t (*walk)(const unsigned char*& p, const unsigned char* last, unsigned char* out, std::size_t blocks,
                        unsigned& length);
};

// The kernel in use.
const Kernel& Active();
// Every kernel this processor runs, the scalar one first, the active one
// chosen by default last.
std::vector<const Kernel*> Supported();
// Makes the named kernel the one in use in the whole process (for tests and
// benchmarks that compare kernels; call it while no case data is coded).
// False, and nothing changed, for a name unknown or not supported here.
bool Select(const char* name);

}  // namespace murv::codec
