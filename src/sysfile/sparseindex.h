// The sparse index of a compressed file: for a thinned-out selection of
// cases, the compressed position at which each starts. Positioning looks up
// the nearest remembered case at or before the target and decodes forward
// from there. The spacing between entries adapts so that the index grows
// only with the square root of the data size.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace murv {

class SparseFileIndex {
public:
    explicit SparseFileIndex(unsigned unit = 1);

    // Offers the start position of a case; positions must grow to be kept.
    void Add(std::uint64_t caseNumber, std::int64_t position);
    // The stored entry with the greatest case not above target, or (0, 0).
    std::pair<std::uint64_t, std::int64_t> Lookup(std::uint64_t target);

    std::size_t Count() const { return entries_.size(); }
    unsigned Spacing() const { return spacing_; }
    const std::vector<std::pair<std::uint64_t, std::int64_t>>& Entries() const { return entries_; }

private:
    std::vector<std::pair<std::uint64_t, std::int64_t>> entries_;
    std::int64_t lastPosition_ = -1;
    long lastFound_ = -1;
    unsigned spacing_;
    unsigned unit_;
};

}  // namespace murv
