#include "sysfile/compression.h"

#include <algorithm>
#include <bit>

#include "model/constants.h"
#include "port/assert.h"
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/codec_kernels.h"
#include "sysfile/filestream.h"
#include "sysfile/sparseindex.h"

namespace murv {

using codec::kMaxBlockBytes;
using codec::kTable;

namespace {

inline std::uint64_t LoadCell(const unsigned char* p) { return LoadU64(p); }
inline void StoreCell(unsigned char* p, std::uint64_t v) { StoreU64(p, v); }

}  // namespace

const std::array<std::uint64_t, 256>& CompressionTable() { return kTable; }

unsigned char EncodeCell(const unsigned char* cell) { return static_cast<unsigned char>(codec::EncodeBits(LoadCell(cell))); }

CompressedSystemFile::CompressedSystemFile(int cellsPerCase, MURV_FileStream* stream, SparseFileIndex* index,
                                           std::int64_t row0pos)
    : row0pos_(row0pos), cellsPerCase_(cellsPerCase), index_(index), file_(stream) {
    MURV_ASSERT(stream != nullptr && index != nullptr && cellsPerCase >= 0);
    file_->Seek(row0pos_, 0);
}

CompressedSystemFile::~CompressedSystemFile() {
    try {
        Flush();
    } catch (...) {
        // Reported by the explicit Flush of a writer that finishes normally.
    }
}

std::int64_t CompressedSystemFile::LogicalPosition() const {
    return file_->Tell() - static_cast<std::int64_t>(inLen_ - inPos_) + static_cast<std::int64_t>(outLen_);
}

unsigned CompressedSystemFile::TakeBytes(unsigned char* dst, unsigned n) {
    unsigned got = 0;
    while (got < n) {
        if (inPos_ == inLen_) {
            in_.Reserve(readSize_);
            inPos_ = 0;
            inLen_ = file_->Read(in_.data(), readSize_);
            readSize_ = std::min(2 * readSize_, kIoBytes);
            if (inLen_ == 0) break;
        }
        const unsigned k = std::min(n - got, inLen_ - inPos_);
        std::memcpy(dst + got, in_.data() + inPos_, k);
        inPos_ += k;
        got += k;
    }
    return got;
}

void CompressedSystemFile::WriteOut() {
    if (outLen_ == 0) return;
    const unsigned n = outLen_;
    outLen_ = 0;  // (whatever the write does, these bytes are dealt with)
    file_->Write(out_.data(), n);
}

void CompressedSystemFile::WriteBlock() {
    const unsigned stored = nextValue_ - 1;
    out_.Reserve(kIoBytes + kKeySize + kKeySize * kCellBytes);
    unsigned char* out = out_.data() + outLen_;
    std::memcpy(out, key_.data(), kKeySize);
    for (unsigned i = 0; i < stored; ++i) StoreCell(out + kKeySize + i * kCellBytes, values_[i + 1]);
    outLen_ += kKeySize + stored * kCellBytes;
    if (outLen_ >= kIoBytes) WriteOut();
}

// A partly filled block is completed cell by cell; then whole blocks of
// eight cells go straight into the output buffer; the cells left over start
// the next block. The block state stays in locals while a case is coded
// (stores into key_, a byte array, would otherwise make the compiler reload
// it).
void CompressedSystemFile::WriteCase(const unsigned char* cells) {
    index_->Add(current_, Tell());
    out_.Reserve(kIoBytes + kKeySize + kKeySize * kCellBytes);
    const int n = cellsPerCase_;
    int i = 0;
    unsigned pos = pos_, next = nextValue_;
    auto codeCell = [&] {
        if (pos == kKeySize) {
            pos = 0;
            next = 1;
        }
        const std::uint64_t bits = LoadCell(cells + static_cast<std::size_t>(i++) * kCellBytes);
        const unsigned code = codec::EncodeBits(bits);
        key_[pos++] = static_cast<unsigned char>(code);
        values_[next] = bits;
        next += code == kCodeStored;
        if (pos == kKeySize) {
            pos_ = pos;
            nextValue_ = next;
            WriteBlock();
            blockLength_ = 0;
        }
    };
    while (pos < kKeySize && i < n) codeCell();
    if (n - i >= kKeySize) {
        // Whole blocks, as many at a time as the output buffer takes.
        const codec::Kernel& kernel = codec::Active();
        std::size_t blocks = static_cast<std::size_t>(n - i) / kKeySize;
        while (blocks > 0) {
            const std::size_t room = (out_.size() - outLen_) / kMaxBlockBytes;
            const std::size_t now = std::min(blocks, room);
            outLen_ += static_cast<unsigned>(
                kernel.encode(cells + static_cast<std::size_t>(i) * kCellBytes, now, out_.data() + outLen_));
            if (outLen_ >= kIoBytes) WriteOut();
            i += static_cast<int>(now) * kKeySize;
            blocks -= now;
        }
        blockLength_ = 0;
    }
    while (i < n) codeCell();
    pos_ = pos;
    nextValue_ = next;
    ++current_;
    target_ = current_;
    dirty_ = true;
}

void CompressedSystemFile::Flush() {
    if (!dirty_) return;
    if (pos_ < kKeySize) {
        for (unsigned i = pos_; i < kKeySize; ++i) key_[i] = kCodePadding;
        WriteBlock();
        // The block is complete on disk now; later cases start a new one.
        pos_ = kKeySize;
    }
    WriteOut();
    file_->Flush();
    dirty_ = false;
}

bool CompressedSystemFile::LoadBlock() {
    // Commands and cells are used where they lie in the input buffer when
    // the whole block is there, which is the case for all but the blocks
    // that cross the end of a read.
    if (inLen_ - inPos_ >= static_cast<unsigned>(kKeySize)) {
        const unsigned char* keys = in_.data() + inPos_;
        // The eight commands at once: how many are 253, and whether any is
        // 0 or 252 (then the block is counted command by command).
        const std::uint64_t word = LoadU64(keys);
        unsigned nu = codec::StoredCount(word);
        const bool whole = codec::WholeBlock(word);
        if (!whole) {
            nu = 0;
            for (int i = 0; i < kKeySize && keys[i] != kCodeEndOfBlock; ++i) nu += keys[i] == kCodeStored;
        }
        const unsigned length = kKeySize + nu * kCellBytes;
        if (inLen_ - inPos_ >= length) {
            keys_ = keys;
            cells_ = keys + kKeySize;
            inPos_ += length;
            blockLength_ = length;
            wholeBlock_ = whole;
            return true;
        }
    }
    const unsigned got = TakeBytes(key_.data(), kKeySize);
    if (got < static_cast<unsigned>(kKeySize)) {
        endOfData_ = true;
        if (got != 0) throw SystemFileException(__FILE__, "nRead == 0", kErrFileEnds, __LINE__);
        return false;
    }
    unsigned nu = 0;
    for (unsigned char c : key_) {
        if (c == kCodeEndOfBlock) break;
        if (c == kCodeStored) ++nu;
    }
    const unsigned want = nu * kCellBytes;
    if (nu > 0 && TakeBytes(staged_.data(), want) != want)
        throw SystemFileException(__FILE__, "nRead == nu*sizeof(OBS)", kErrFileEnds, __LINE__);
    keys_ = key_.data();
    cells_ = staged_.data();
    blockLength_ = kKeySize + want;
    wholeBlock_ = false;
    return true;
}

void CompressedSystemFile::TakeOverBlock() {
    if (keys_ != key_.data()) std::memcpy(key_.data(), keys_, kKeySize);
    unsigned nu = 0;
    for (unsigned i = 0; i < kKeySize && key_[i] != kCodeEndOfBlock; ++i) {
        if (key_[i] == kCodeStored) {
            values_[nu + 1] = LoadCell(cells_ + nu * kCellBytes);
            ++nu;
        }
    }
    keys_ = key_.data();
}

// Decodes (cells non-null) or skips n cells. The block state lives in
// locals while the loop runs, so that the stores into cells cannot make the
// compiler reload it.
std::int64_t CompressedSystemFile::WalkCells(unsigned char* cells, const unsigned char* swap, const std::int64_t n) {
    unsigned pos = pos_, next = nextValue_;
    const unsigned char* keys = keys_;
    const unsigned char* stored = cells_;
    std::int64_t iCell = 0;
    while (iCell < n) {
        if (pos == kKeySize) {
            // Whole blocks that lie in the input buffer, with eight cells of
            // this case, are decoded in place one after the other.
            // (Positions in locals: the stores into cells could alias members.)
            if (!swap && n - iCell >= kKeySize && inLen_ - inPos_ >= kMaxBlockBytes) {
                const unsigned char* const base = in_.data();
                const unsigned char* p = base + inPos_;
                unsigned char* out = cells ? cells + static_cast<std::size_t>(iCell) * kCellBytes : nullptr;
                const std::int64_t blocks = (n - iCell) / kKeySize;
                unsigned length = 0;
                const std::size_t walked = codec::Active().walk(p, base + (inLen_ - kMaxBlockBytes), out,
                                                                static_cast<std::size_t>(blocks), length);
                if (walked != 0) {
                    inPos_ = static_cast<unsigned>(p - base);
                    blockLength_ = length;
                    iCell += static_cast<std::int64_t>(walked) * kKeySize;
                }
                if (iCell == n) break;
            }
            if (!LoadBlock()) {
                pos_ = pos;
                // The data may end between two cases, not inside one.
                if (cellsPerCase_ > 0 && iCell % cellsPerCase_ == 0) return iCell;
                throw SystemFileException(__FILE__, "iCell == 0", kErrFileEnds, __LINE__);
            }
            keys = keys_;
            stored = cells_;
            pos = 0;
            next = 1;
            if (wholeBlock_ && n - iCell >= kKeySize && !swap) {
                if (cells) codec::DecodeBlock(keys, stored, cells + static_cast<std::size_t>(iCell) * kCellBytes);
                pos = kKeySize;
                iCell += kKeySize;
                continue;
            }
        }
        const unsigned char code = keys[pos++];
        if (code == kCodeStored) {
            if (cells) {
                const std::uint64_t v = LoadCell(stored + (next - 1) * kCellBytes);
                StoreCell(cells + static_cast<std::size_t>(iCell) * kCellBytes, swap && swap[iCell] ? Swap64(v) : v);
            }
            ++next;
            ++iCell;
        } else if (code == kCodePadding) {
        } else if (code == kCodeEndOfBlock) {
            pos = kKeySize;
        } else {
            if (cells) StoreCell(cells + static_cast<std::size_t>(iCell) * kCellBytes, kTable[code]);
            ++iCell;
        }
    }
    pos_ = pos;
    nextValue_ = next;
    return n;
}

int CompressedSystemFile::SkipCase() { return static_cast<int>(WalkCells(nullptr, nullptr, cellsPerCase_)); }

CompressedPosition CompressedSystemFile::Tell() const {
    const std::int64_t filepos = LogicalPosition();
    const std::int64_t offset = filepos - row0pos_;
    // The stream stands behind a whole block unless an earlier read of a
    // broken file stopped inside one.
    if (offset % kCellBytes != 0)
        throw SystemFileException(__FILE__, "(filepos-_row0pos)%sizeof(OBS) == 0", kErrBadContent, __LINE__);
    if (pos_ < kKeySize) return offset + static_cast<std::int64_t>(pos_) - static_cast<std::int64_t>(blockLength_);
    return offset;
}

void CompressedSystemFile::SeekPosition(CompressedPosition position) {
    const std::int64_t c = position % kKeySize;
    DropInput();
    readSize_ = kSeekReadBytes;
    file_->Seek(position - c + row0pos_, 0);
    endOfData_ = false;
    if (!LoadBlock()) {
        // A position at the very end of the data (behind the last block) is
        // where the next block would start; anything inside a missing block
        // is an error.
        if (c != 0) throw SystemFileException(__FILE__, "nRead", kErrFileEnds, __LINE__);
        DropInput();
        file_->Seek(position + row0pos_, 0);
        pos_ = kKeySize;
        blockLength_ = 0;
        return;
    }
    pos_ = 0;
    nextValue_ = 1;
    while (static_cast<std::int64_t>(pos_) < c) {
        if (keys_[pos_] == kCodeStored) ++nextValue_;
        ++pos_;
    }
}

CompressedPosition CompressedSystemFile::PositionAtTarget() {
    const std::uint64_t t = target_;
    if (t == current_) return Tell();
    if (t + 1 == current_) {
        SeekPosition(lastCasePosition_);
        current_ = t;
        return Tell();
    }
    auto [c, p] = index_->Lookup(t);
    SeekPosition(p);
    while (c < t) {
        // Cases whose start is of no interest (neither an index entry nor
        // the case before the target) are skipped together, as one run of
        // cells.
        const std::uint64_t spacing = index_->Spacing();
        const std::uint64_t stop = c % spacing == 0 ? c : std::min(t - 1, (c / spacing + 1) * spacing);
        if (stop > c && cellsPerCase_ > 0) {
            const auto want = static_cast<std::int64_t>(stop - c) * cellsPerCase_;
            const std::int64_t walked = WalkCells(nullptr, nullptr, want);
            c += static_cast<std::uint64_t>(walked / cellsPerCase_);
            if (walked < want) break;
            continue;
        }
        const CompressedPosition q = Tell();
        if (SkipCase() == 0) break;
        index_->Add(c, q);
        lastCasePosition_ = q;
        ++c;
    }
    current_ = target_ = c;
    return Tell();
}

int CompressedSystemFile::ReadCase(unsigned char* cells, const unsigned char* swap) {
    const std::uint64_t wanted = target_;
    const CompressedPosition q = PositionAtTarget();
    if (current_ != wanted) return 0;
    const int n = static_cast<int>(WalkCells(cells, swap, cellsPerCase_));
    if (n == 0) return 0;
    // Only a case that was really there enters the index, so that no entry
    // ever points behind the end of the data.
    index_->Add(current_, q);
    lastCasePosition_ = q;
    ++current_;
    target_ = current_;
    return n;
}

void CompressedSystemFile::PrepareAppend(std::uint64_t caseCount, MURV_FileStream* stream) {
    target_ = caseCount;
    PositionAtTarget();
    const CompressedPosition p = Tell();
    DropInput();
    file_->Flush();
    const std::string name = file_->Name();
    file_ = stream;
    if (!file_->Open(name.c_str(), "r+b"))
        throw SystemFileException(__FILE__, "m_->_file.Open(m_->_file.Name(), \"r+b\")", kErrFileOpen, __LINE__);
    if (pos_ < kKeySize) {
        // Continue the partly used last block: its commands and values up to
        // the position stay, the rest is overwritten by the next cases.
        TakeOverBlock();
        file_->Seek(row0pos_ + (p - static_cast<std::int64_t>(pos_)), 0);
        for (unsigned i = pos_; i < kKeySize; ++i) key_[i] = kCodePadding;
        dirty_ = true;
    } else {
        file_->Seek(row0pos_ + p, 0);
    }
    blockLength_ = 0;
}

}  // namespace murv
