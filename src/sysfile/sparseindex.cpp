#include "sysfile/sparseindex.h"

#include "port/assert.h"

namespace murv {

SparseFileIndex::SparseFileIndex(unsigned unit) : spacing_(16 * unit < 4096 ? 4096 / unit : 16), unit_(unit) {
    MURV_ASSERT(unit > 0);
}

void SparseFileIndex::Add(std::uint64_t caseNumber, std::int64_t position) {
    if (position <= lastPosition_) return;
    const std::int64_t step = static_cast<std::int64_t>(spacing_) * unit_;
    // A case larger than the spacing widens it, so entries stay a case apart.
    if (lastPosition_ + step < position) {
        const std::int64_t widened = (position - lastPosition_) / unit_;
        spacing_ = widened > 0x7FFFFFFF ? 0x7FFFFFFFu : static_cast<unsigned>(widened);
    }
    if (entries_.empty() || entries_.back().second + static_cast<std::int64_t>(spacing_) <= position) {
        entries_.emplace_back(caseNumber, position);
        if (static_cast<std::uint64_t>(spacing_) * unit_ <= 16 * entries_.size()) {
            // Thin out: keep every other entry and double the spacing.
            std::size_t kept = 0;
            for (std::size_t i = 0; i < entries_.size(); i += 2) entries_[kept++] = entries_[i];
            entries_.resize(entries_.size() / 2);
            spacing_ = spacing_ > 0x3FFFFFFF ? 0x7FFFFFFFu : spacing_ * 2;
            lastFound_ = -1;
        }
    }
    lastPosition_ = position;
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
