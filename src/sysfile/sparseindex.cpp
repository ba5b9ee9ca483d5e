#include "sysfile/sparseindex.h"

#include "port/assert.h"

namespace murv {

SparseFileIndex::SparseFileIndex(std::uint64_t firstSpacing, std::size_t maxEntries)
    : spacing_(firstSpacing), maxEntries_(maxEntries) {
    MURV_ASSERT(firstSpacing > 0 && maxEntries >= 2);
}

void SparseFileIndex::Add(std::uint64_t caseNumber, std::int64_t position) {
    if (position <= lastPosition_) return;
    lastPosition_ = position;
    if (caseNumber % spacing_ != 0) return;
    if (entries_.size() == maxEntries_) {
        // Keep the entries of the doubled spacing (every other one).
        spacing_ *= 2;
        std::size_t kept = 0;
        for (const Entry& e : entries_)
            if (e.first % spacing_ == 0) entries_[kept++] = e;
        entries_.resize(kept);
        lastFound_ = -1;
        if (caseNumber % spacing_ != 0) return;
    }
    entries_.emplace_back(caseNumber, position);
}

std::pair<std::uint64_t, std::int64_t> SparseFileIndex::Lookup(std::uint64_t target) {
    if (entries_.empty() || target < entries_.front().first) return {0, 0};
    const long count = static_cast<long>(entries_.size());
    if (lastFound_ >= 0 && lastFound_ < count && entries_[lastFound_].first <= target &&
        (lastFound_ + 1 == count || entries_[lastFound_ + 1].first > target))
        return entries_[lastFound_];
    long left = -1, right = count;
    while (left + 1 < right) {
        const long mid = (left + right) / 2;
        if (entries_[mid].first > target)
            right = mid;
        else
            left = mid;
    }
    MURV_ASSERT(0 <= left);
    lastFound_ = left;
    return entries_[left];
}

}  // namespace murv
