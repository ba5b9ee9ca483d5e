// Hash lookups over texts kept elsewhere.
//
// A dictionary of a million variables would spend most of its memory and time
// on a node, and often a copy of the name, per entry if its name lookups
// were standard maps of strings. TextIndex keeps only 32-bit entry numbers
// with their hashes in one open-addressing table; the texts stay where their
// owner keeps them and are reached through a function the owner gives.
// TextArena is such an owner for keys that exist nowhere else: all of them in
// one block of bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace murv::text {

// KeyOf: std::string_view(std::uint32_t entry) const, the text of an entry.
// The text of an entry must not change while the entry is in the index.
template <class KeyOf>
class TextIndex {
public:
    static constexpr std::uint32_t kNone = 0xFFFFFFFFu;
    // How many entries ahead a loop should prefetch (see Prefetch).
    static constexpr std::size_t kPrefetchDistance = 8;

    explicit TextIndex(KeyOf keyOf) : keyOf_(std::move(keyOf)) {}

    std::size_t Size() const { return count_; }

    // Makes room for n entries in all, so that adding up to that many
    // allocates nothing (and so cannot throw).
    void Reserve(std::size_t n) {
        std::size_t want = 16;
        while (want / 2 < n) want *= 2;
        if (want > slots_.size()) Rehash(want);
    }

    void Clear() {
        slots_.clear();
        count_ = 0;
    }

    // The entry whose text equals the text given, or kNone.
    std::uint32_t Find(std::string_view text) const {
        if (slots_.empty()) return kNone;
        const std::uint32_t hash = Hash(text);
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            const Slot& s = slots_[i];
            if (s.entry == kNone) return kNone;
            if (s.hash == hash && keyOf_(s.entry) == text) return s.entry;
        }
    }

    // The hash under which a text is kept: a loop that both prefetches and
    // inserts can compute it once (see PrefetchHash, InsertHashed).
    static std::uint32_t HashOf(std::string_view text) { return Hash(text); }
    void PrefetchHash(std::uint32_t hash) const {
        if (!slots_.empty()) __builtin_prefetch(&slots_[hash & (slots_.size() - 1)]);
    }

    // Starts fetching the slot where a text's search begins, for a Find or
    // Insert of it a little later: tables of many entries are far larger
    // than the processor's caches, and a loop over many entries can so
    // overlap their cache misses instead of waiting for each in turn.
    void Prefetch(std::string_view text) const {
        if (!slots_.empty()) __builtin_prefetch(&slots_[Hash(text) & (slots_.size() - 1)]);
    }

    // Adds the entry under its text unless an entry of an equal text is
    // there already: that entry, or kNone when this one was added.
    std::uint32_t Insert(std::uint32_t entry) { return InsertHashed(entry, Hash(keyOf_(entry))); }
    // The same, given the hash of the entry's text (HashOf).
    std::uint32_t InsertHashed(std::uint32_t entry, std::uint32_t hash) {
        Reserve(count_ + 1);
        const std::string_view text = keyOf_(entry);
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
            Slot& s = slots_[i];
            if (s.entry == kNone) {
                s = Slot{entry, hash};
                ++count_;
                return kNone;
            }
            if (s.hash == hash && keyOf_(s.entry) == text) return s.entry;
        }
    }

    // Exchanges the entries with those of another index whose texts are
    // reached the same way (each keeps its own KeyOf).
    void SwapEntries(TextIndex& other) noexcept {
        slots_.swap(other.slots_);
        std::swap(count_, other.count_);
    }

    // Removes the entry under its text (nothing when it is not there).
    void Erase(std::uint32_t entry) {
        if (slots_.empty()) return;
        const std::size_t mask = slots_.size() - 1;
        std::size_t i = Hash(keyOf_(entry)) & mask;
        while (slots_[i].entry != entry) {
            if (slots_[i].entry == kNone) return;
            i = (i + 1) & mask;
        }
        // Close the gap: move up every later entry of the run that may not
        // stay behind it.
        for (std::size_t j = (i + 1) & mask; slots_[j].entry != kNone; j = (j + 1) & mask) {
            const std::size_t home = slots_[j].hash & mask;
            const bool movable = i <= j ? (home <= i || home > j) : (home <= i && home > j);
            if (movable) {
                slots_[i] = slots_[j];
                i = j;
            }
        }
        slots_[i] = Slot{};
        --count_;
    }

private:
    struct Slot {
        std::uint32_t entry = kNone;
        std::uint32_t hash = 0;
    };

    static std::uint32_t Hash(std::string_view text) {
        const std::size_t h = std::hash<std::string_view>{}(text);
        return static_cast<std::uint32_t>(h ^ (static_cast<std::uint64_t>(h) >> 32));
    }

    void Rehash(std::size_t size) {
        std::vector<Slot> old(size);
        old.swap(slots_);
        const std::size_t mask = size - 1;
        for (const Slot& s : old) {
            if (s.entry == kNone) continue;
            std::size_t i = s.hash & mask;
            while (slots_[i].entry != kNone) i = (i + 1) & mask;
            slots_[i] = s;
        }
    }

    KeyOf keyOf_;
    std::vector<Slot> slots_;  // a power of two in size, at most half full
    std::size_t count_ = 0;
};

// Texts numbered 0, 1, 2, ... in the order added, stored end to end.
class TextArena {
public:
    std::size_t Size() const { return ends_.size(); }
    std::string_view operator[](std::size_t k) const {
        const std::size_t begin = k == 0 ? 0 : ends_[k - 1];
        return std::string_view(bytes_.data() + begin, ends_[k] - begin);
    }
    void Add(std::string_view text) {
        bytes_.append(text);
        try {
            ends_.push_back(bytes_.size());
        } catch (...) {
            bytes_.resize(bytes_.size() - text.size());
            throw;
        }
    }
    // Removes the last text.
    void PopBack() {
        ends_.pop_back();
        bytes_.resize(ends_.empty() ? 0 : ends_.back());
    }
    void Reserve(std::size_t texts, std::size_t bytes) {
        ends_.reserve(texts);
        bytes_.reserve(bytes);
    }
    void Clear() {
        ends_.clear();
        bytes_.clear();
    }
    void Swap(TextArena& other) noexcept {
        bytes_.swap(other.bytes_);
        ends_.swap(other.ends_);
    }

private:
    std::string bytes_;
    std::vector<std::size_t> ends_;
};

// Keys numbered 0, 1, 2, ... in the order added (a dictionary's upper-cased
// names by position), each at most once, and a hash lookup over them.
class NameIndex {
public:
    NameIndex() : table_(ArenaKey{&keys_}) {}
    NameIndex(const NameIndex&) = delete;
    NameIndex& operator=(const NameIndex&) = delete;

    std::size_t Size() const { return keys_.Size(); }
    // The position of the key, or -1.
    int Find(std::string_view key) const {
        const std::uint32_t k = table_.Find(key);
        return k == Table::kNone ? -1 : static_cast<int>(k);
    }
    // See TextIndex::Prefetch.
    void Prefetch(std::string_view key) const { table_.Prefetch(key); }
    // Adds the key at the next position; false, adding nothing, when it is
    // there already.
    bool Append(std::string_view key) {
        if (table_.Find(key) != Table::kNone) return false;
        keys_.Add(key);
        try {
            table_.Insert(static_cast<std::uint32_t>(keys_.Size() - 1));
        } catch (...) {
            keys_.PopBack();
            throw;
        }
        return true;
    }
    // Removes the key added last.
    void PopBack() {
        if (keys_.Size() == 0) return;
        table_.Erase(static_cast<std::uint32_t>(keys_.Size() - 1));
        keys_.PopBack();
    }
    // Replaces the index by the n keys key(0) ... key(n - 1); false when
    // one repeats an earlier one, and the index then holds those before it.
    template <class KeyOf>
    bool Assign(std::size_t n, KeyOf&& key) {
        StartAssign(n);
        for (std::size_t i = 0; i < n; ++i) AddKey(key(i));
        return FinishAssign();
    }
    // Assign in steps, for a caller that meets the keys in a pass of its
    // own: StartAssign (n: the keys expected), AddKey for each key in turn,
    // then FinishAssign, which answers as Assign. Keys added are counted in
    // Size() but found only after FinishAssign. (Each key is hashed once,
    // as it is copied, and the inserts fetch their slots ahead from the
    // stored hashes.)
    void StartAssign(std::size_t n) {
        Clear();
        keys_.Reserve(n, 8 * n);
        hashes_.reserve(n);
    }
    void AddKey(std::string_view key) {
        keys_.Add(key);
        hashes_.push_back(Table::HashOf(key));
    }
    bool FinishAssign() {
        std::vector<std::uint32_t> hashes;
        hashes.swap(hashes_);
        const std::size_t n = hashes.size();
        table_.Reserve(n);
        for (std::size_t i = 0; i < n; ++i) {
            if (i + Table::kPrefetchDistance < n) table_.PrefetchHash(hashes[i + Table::kPrefetchDistance]);
            if (table_.InsertHashed(static_cast<std::uint32_t>(i), hashes[i]) != Table::kNone) {
                while (keys_.Size() > i) keys_.PopBack();
                return false;
            }
        }
        return true;
    }
    void Clear() {
        table_.Clear();
        keys_.Clear();
        hashes_.clear();
    }
    void Swap(NameIndex& other) noexcept {
        keys_.Swap(other.keys_);
        table_.SwapEntries(other.table_);
        hashes_.swap(other.hashes_);
    }

private:
    struct ArenaKey {
        const TextArena* arena;
        std::string_view operator()(std::uint32_t k) const { return (*arena)[k]; }
    };
    using Table = TextIndex<ArenaKey>;

    TextArena keys_;
    Table table_;
    // The hashes of the keys added since StartAssign.
    std::vector<std::uint32_t> hashes_;
};

}  // namespace murv::text
