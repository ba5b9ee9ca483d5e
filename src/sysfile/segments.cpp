#include "sysfile/segments.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "model/datasource.h"
#include "port/assert.h"
#include "text/mbtext.h"

namespace murv {

void CutVeryLongString(const unsigned char* src, int w, unsigned char* dst) {
    const int full = FullSegments(w);
    int taken = 0;
    for (int s = 0; s < full; ++s) {
        unsigned char* seg = dst + 256 * s;
        int n = 0;
        while (taken < w) {
            // Bytes below 0x80 are characters of their own in every locale
            // the library supports: a run of them moves at once (found eight
            // bytes at a time); only other bytes need the locale's rules.
            const int room = std::min(kSegmentWidth - n, w - taken);
            int run = 0;
            for (std::uint64_t word; run + 8 <= room; run += 8) {
                std::memcpy(&word, src + taken + run, 8);
                if (word & 0x8080808080808080ull) break;
            }
            while (run < room && src[taken + run] < 0x80) ++run;
            if (run > 0) {
                std::memcpy(seg + n, src + taken, static_cast<std::size_t>(run));
                n += run;
                taken += run;
                continue;
            }
            if (room == 0) break;
            int len = text::CharacterLengthAt(reinterpret_cast<const char*>(src + taken), static_cast<std::size_t>(w - taken));
            if (len < 1) len = 1;  // a byte that starts no character
            if (n + len > kSegmentWidth) break;
            std::memcpy(seg + n, src + taken, static_cast<std::size_t>(len));
            n += len;
            taken += len;
        }
        // NULs mark the bytes a character did not fit into; blanks pad a
        // value that has ended.
        std::memset(seg + n, taken < w ? 0 : ' ', static_cast<std::size_t>(kSegmentWidth - n));
        seg[255] = ' ';
    }
    unsigned char* last = dst + 256 * full;
    const std::size_t lastBytes = FileCells(w) * 8 - 256 * static_cast<std::size_t>(full);
    const std::size_t rest = static_cast<std::size_t>(w - taken);
    std::memcpy(last, src + taken, rest);
    std::memset(last + rest, ' ', lastBytes - rest);
}

void SystemFileDechunker::Setup(const MURV_DataSource& ds, const std::vector<std::pair<int, int>>& list) {
    entries_.clear();
    if (list.empty()) return;
    const ObsLayout& layout = ds.GetObsLayout();
    const std::uint32_t total = layout.Total();
    std::uint32_t m = 0;
    const auto firstCell = static_cast<std::uint32_t>(layout.StartCell(list.front().first));
    if (firstCell > 0) {
        Entry lead;
        lead.ordinaryCount = firstCell;
        entries_.push_back(lead);
        m = firstCell;
    }
    for (std::size_t k = 0; k < list.size(); ++k) {
        const auto s = static_cast<std::uint32_t>(layout.StartCell(list[k].first));
        const int w = list[k].second;
        if (k > 0) {
            Entry& prev = entries_.back();
            prev.ordinaryCount = s - prev.fileCellAfter;
            m += prev.ordinaryCount;
        }
        Entry e;
        e.fileCell = s;
        e.width = w;
        e.dictCell = m;
        e.fileCellAfter = s + FileCells(w);
        e.dictCellAfter = m + DictionaryCells(w);
        e.ordinaryCount = total - e.fileCellAfter;
        entries_.push_back(e);
        m += DictionaryCells(w);
    }
}

void SystemFileDechunker::Assemble(const unsigned char* fileCase, unsigned char* dictCase) const {
    for (const Entry& e : entries_) {
        if (e.width > 0) {
            const unsigned char* src = fileCase + 8 * static_cast<std::size_t>(e.fileCell);
            unsigned char* dst = dictCase + 8 * static_cast<std::size_t>(e.dictCell);
            unsigned char* const end = dst + e.width;
            while (dst < end) {
                const std::ptrdiff_t left = end - dst;
                if (left <= kSegmentWidth) {
                    std::memcpy(dst, src, static_cast<std::size_t>(left));
                    break;
                }
                // NULs at the end of a full segment only fill it out.
                int n = kSegmentWidth;
                for (int i = 254; i >= 252 && src[i] == 0; --i) --n;
                std::memcpy(dst, src, static_cast<std::size_t>(n));
                dst += n;
                src += 256;
            }
            unsigned char* const cellEnd = dictCase + 8 * static_cast<std::size_t>(e.dictCellAfter);
            const std::ptrdiff_t padlen = cellEnd - end;
            MURV_ASSERT(padlen < 8);
            std::memset(end, ' ', static_cast<std::size_t>(padlen));
        }
        std::memcpy(dictCase + 8 * static_cast<std::size_t>(e.dictCellAfter),
                    fileCase + 8 * static_cast<std::size_t>(e.fileCellAfter), 8 * static_cast<std::size_t>(e.ordinaryCount));
    }
}

std::uint32_t SystemFileDechunker::FileCellOf(std::uint32_t dictCell) const {
    std::uint32_t shift = 0;
    for (const Entry& e : entries_) {
        if (e.width == 0) continue;
        if (dictCell < e.dictCell) break;
        if (dictCell < e.dictCellAfter) return e.fileCell;  // inside the string: its first cell
        shift = e.fileCellAfter - e.dictCellAfter;
    }
    return dictCell + shift;
}

long SystemFileDechunker::DictCellOf(std::uint32_t fileCell) const {
    std::uint32_t shift = 0;
    for (const Entry& e : entries_) {
        if (e.width == 0) continue;
        if (fileCell < e.fileCell) break;
        if (fileCell < e.fileCellAfter) return fileCell == e.fileCell ? static_cast<long>(e.dictCell) : -1;
        shift = e.fileCellAfter - e.dictCellAfter;
    }
    return static_cast<long>(fileCell - shift);
}

}  // namespace murv
