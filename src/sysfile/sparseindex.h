// The case index of a compressed file: for every spacing-th case, the
// compressed position at which it starts. Positioning looks up the nearest
// remembered case at or before the target and decodes forward from there,
// so a seek decodes fewer than `Spacing()` cases once the index covers the
// target. The spacing starts at 16 cases (an entry of 16 bytes per 16 cases:
// about 1 MiB for a million cases); when the entries would pass their limit
// (16 MiB of them, reached at 16 Mi cases), every other one goes and the
// spacing doubles, so the memory stays bounded for any file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace murv {

class SparseFileIndex {
public:
    static constexpr std::uint64_t kFirstSpacing = 16;
    static constexpr std::size_t kMaxEntries = std::size_t{1} << 20;

    explicit SparseFileIndex(std::uint64_t firstSpacing = kFirstSpacing, std::size_t maxEntries = kMaxEntries);

    // Offers the start position of a case. A case is kept when its number is
    // a multiple of the spacing and it lies beyond every case offered before.
    void Add(std::uint64_t caseNumber, std::int64_t position);
    // The stored entry with the greatest case not above target, or (0, 0).
    std::pair<std::uint64_t, std::int64_t> Lookup(std::uint64_t target);

    std::size_t Count() const { return entries_.size(); }
    std::uint64_t Spacing() const { return spacing_; }
    const std::vector<std::pair<std::uint64_t, std::int64_t>>& Entries() const { return entries_; }

private:
    using Entry = std::pair<std::uint64_t, std::int64_t>;
    std::vector<Entry> entries_;
    std::int64_t lastPosition_ = -1;
    long lastFound_ = -1;
    std::uint64_t spacing_;
    std::size_t maxEntries_;
};

}  // namespace murv
