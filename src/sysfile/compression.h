// Byte-code compression of cases.
//
// Compressed case data is a sequence of blocks: 8 command bytes, then the
// 8-byte cells that its 253 commands refer to, in command order. Cases are
// not aligned to blocks. Commands: 0 padding, 1-251 the number code-100,
// 252 end of the block's commands, 253 a stored cell, 254 eight blanks,
// 255 system-missing. Cells are 8 bytes in host byte order.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "sysfile/scratchbytes.h"

namespace murv {

class MURV_FileStream;
class SparseFileIndex;

inline constexpr int kKeySize = 8;
inline constexpr int kCellBytes = 8;
inline constexpr int kCompressionBias = 100;

enum CompressionCode : unsigned char {
    kCodePadding = 0,
    kCodeEndOfBlock = 252,
    kCodeStored = 253,
    kCodeBlanks = 254,
    kCodeSysmis = 255
};

// The cell each command stands for: entry k is k-100 as a double for k up
// to 252, 254 eight blanks, 255 system-missing (253 and 252 are 0).
const std::array<std::uint64_t, 256>& CompressionTable();

// The command that codes one cell.
unsigned char EncodeCell(const unsigned char* cell);

// Compressed position: the offset of a command's block from the first block,
// plus its index within the block's commands.
using CompressedPosition = std::int64_t;

// The compressed case stream of one file, for writing or for reading.
class CompressedSystemFile {
public:
    CompressedSystemFile(int cellsPerCase, MURV_FileStream* stream, SparseFileIndex* index, std::int64_t row0pos);
    CompressedSystemFile(const CompressedSystemFile&) = delete;
    CompressedSystemFile& operator=(const CompressedSystemFile&) = delete;
    // Destruction flushes a dirty stream; failures there are swallowed, so
    // writers call Flush themselves to see them.
    ~CompressedSystemFile();

    // Appends one case of cellsPerCase cells.
    void WriteCase(const unsigned char* cells);
    // Completes and writes a partly filled block, then flushes the stream.
    void Flush();
    // Forgets whatever has not been written yet: nothing more goes out.
    void Abandon() {
        outLen_ = 0;
        dirty_ = false;
    }
    // Reads the target case into cells; returns cellsPerCase, or 0 at the end
    // of the data. A non-null swap holds one byte per cell: a set byte
    // reverses that cell when it was stored raw (a byte-reversed file).
    int ReadCase(unsigned char* cells, const unsigned char* swap);
    // The case the next ReadCase reads.
    void SetTarget(std::uint64_t caseNumber) { target_ = caseNumber; }
    std::uint64_t CurrentCase() const { return current_; }
    // Positions at the target case through the index; returns the position.
    // Afterwards CurrentCase() is below the target when the data ended first.
    CompressedPosition PositionAtTarget();
    CompressedPosition Tell() const;
    void SeekPosition(CompressedPosition position);
    // Skips one case; returns the cells skipped, 0 at the end of the data.
    int SkipCase();
    // After positioning behind the last case of a file opened for reading,
    // continue writing there through stream (the same file reopened for
    // update). The block that holds the end of the last case is taken over so
    // that the next case continues it.
    void PrepareAppend(std::uint64_t caseCount, MURV_FileStream* stream);

    int CellsPerCase() const { return cellsPerCase_; }

private:
    // Reads the next block; returns false at a clean end of data.
    bool LoadBlock();
    void WriteBlock();
    // Blocks are small: they are read from and written to a buffer of their
    // own, which moves to and from the stream in large pieces.
    unsigned TakeBytes(unsigned char* dst, unsigned n);
    void WriteOut();
    std::int64_t LogicalPosition() const;
    void DropInput() { inPos_ = inLen_ = 0; }
    static constexpr unsigned kIoBytes = 256 * 1024;
    ScratchBytes in_;
    unsigned inPos_ = 0, inLen_ = 0;
    // The size of the next read: small after a seek, which usually wants one
    // case, doubling up to kIoBytes while the reading goes on from there.
    unsigned readSize_ = kIoBytes;
    static constexpr unsigned kSeekReadBytes = 4096;
    // Blocks on their way out: kIoBytes and at most one block more.
    ScratchBytes out_;
    unsigned outLen_ = 0;
    // Decodes (cells non-null) or skips n cells, which start a case; returns
    // the cells walked: n, or fewer when the data ends between two cases.
    std::int64_t WalkCells(unsigned char* cells, const unsigned char* swap, std::int64_t n);

    std::uint64_t current_ = 0;
    std::uint64_t target_ = 0;
    std::int64_t row0pos_;
    CompressedPosition lastCasePosition_ = 0;
    int cellsPerCase_;
    SparseFileIndex* index_;
    MURV_FileStream* file_;
    bool dirty_ = false;

    // The block being filled (key_, values_) or decoded (keys_, cells_: its
    // commands and stored cells, read in place from the input buffer when the
    // whole block is there, else gathered into key_ and staged_).
    std::array<unsigned char, kKeySize> key_{};
    std::array<std::uint64_t, kKeySize + 1> values_{};  // values_[1..8]
    std::array<unsigned char, kKeySize * kCellBytes> staged_{};
    const unsigned char* keys_ = key_.data();
    const unsigned char* cells_ = staged_.data();
    bool wholeBlock_ = false;  // eight commands, none of them padding or an end
    // Makes the decoded block the one being filled (appending continues it).
    void TakeOverBlock();
    unsigned pos_ = kKeySize;     // next command; kKeySize: the block is used up
    unsigned nextValue_ = 0;      // 1-based number of the next value
    unsigned blockLength_ = 0;    // bytes of the current block in the file
    bool endOfData_ = false;
};

}  // namespace murv
