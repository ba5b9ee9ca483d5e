// Very long strings: a string wider than 255 bytes is stored in the file as
// consecutive string variables, its segments. Full segments have width 255
// and carry at least 252 bytes of the value (a character never straddles two
// segments); a final segment holds the rest.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "model/dictionary.h"

namespace murv {

class MURV_DataSource;

inline constexpr int kSegmentWidth = 255;
inline constexpr int kSegmentPayload = 252;
inline constexpr int kMaxShortString = 255;

// Segments of a very long string of width w: full ones of width 255, then a
// final one of width w mod 252 when that is not 0.
inline constexpr int FullSegments(int w) { return w / kSegmentPayload; }
inline constexpr int RestWidth(int w) { return w % kSegmentPayload; }
inline constexpr int SegmentCount(int w) { return FullSegments(w) + (RestWidth(w) ? 1 : 0); }
// Cells the string takes in the file's case and in the dataset's own case.
inline constexpr std::uint32_t FileCells(int w) {
    return static_cast<std::uint32_t>((256 * FullSegments(w) + RestWidth(w) + 7) / 8);
}
inline constexpr std::uint32_t DictionaryCells(int w) { return CellsForType(w); }

// Cuts one value of width w (source bytes src[0..w)) into its segments at
// dst (FileCells(w) cells), never splitting a character.
void CutVeryLongString(const unsigned char* src, int w, unsigned char* dst);

// Assembles the dataset's case from the file's case when the file holds very
// long strings.
class SystemFileDechunker {
public:
    struct Entry {
        std::uint32_t fileCell = 0;
        int width = 0;  // 0 for a leading run without a string
        std::uint32_t dictCell = 0;
        std::uint32_t fileCellAfter = 0;
        std::uint32_t dictCellAfter = 0;
        std::uint32_t ordinaryCount = 0;
    };

    bool Empty() const { return entries_.empty(); }
    void Clear() { entries_.clear(); }
    // fileDataset still holds the segments as separate variables; list holds
    // (index of the first segment, width) in dictionary order.
    void Setup(const MURV_DataSource& fileDataset, const std::vector<std::pair<int, int>>& list);
    void Assemble(const unsigned char* fileCase, unsigned char* dictCase) const;
    // The cell in the file's case where the dataset's cell dictCell lies.
    std::uint32_t FileCellOf(std::uint32_t dictCell) const;
    // The dataset's cell at a cell of the file's case; -1 for a cell inside
    // a very long string other than its first.
    long DictCellOf(std::uint32_t fileCell) const;
    const std::vector<Entry>& Entries() const { return entries_; }

private:
    std::vector<Entry> entries_;
};

}  // namespace murv
