// Custom attributes: named lists of text values, attached to the dataset as a
// whole and to each variable.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace murv {

class Attributes {
public:
    using ValueList = std::vector<std::string>;
    struct Entry {
        std::string name;
        ValueList values;
    };
    // Whose attributes a name check is for: the two differ in their known
    // reserved ("$") names.
    enum class Owner { Variable, File };
    // A flat name split into the attribute name and its 1-based position
    // (0 when the flat name has no bracketed position).
    struct FlatName {
        std::string name;
        long position = 0;
    };

    Attributes() = default;

    std::size_t Size() const { return entries_.size(); }
    bool Empty() const { return entries_.empty(); }
    const std::vector<Entry>& Entries() const { return entries_; }

    // Position of the entry whose name matches without regard to case, or -1.
    long Index(std::string_view name) const;
    // Replaces the matching entry in place (taking the given spelling) or
    // appends a new one.
    void Set(std::string_view name, ValueList values);

    // The text form of the attribute records: name('value'LF'value'LF)...
    std::string Encode() const;
    // Reads the text form into a fresh set, stopping at the end or at a "/"
    // where a name would begin. On success replaces *this and reports the
    // bytes consumed; on failure leaves *this unchanged and returns false.
    bool Decode(std::string_view text, std::size_t* consumed = nullptr);

    // Name check: 0 invalid, 1 ordinary name, 2 known reserved name,
    // 3 unknown reserved name.
    static int CheckName(const char* name, Owner owner);

    // The flat view: (name or name[i], value) for every non-empty value.
    std::vector<std::pair<std::string, std::string>> Flatten() const;
    // Splits and checks a flat name; false when it is malformed or the name
    // check gives 0 or 3.
    static bool ParseFlatName(std::string_view flat, Owner owner, FlatName* out);
    // Sets one value by flat name; returns whether the replaced value was
    // non-empty. Throws std::out_of_range, changing nothing, when
    // AcceptsFlatValue(flat) is false.
    bool SetFlatValue(const FlatName& flat, std::string value);
    // Whether SetFlatValue would store at this position: it must not be
    // negative, and may lie at most a million values past the end of the
    // attribute's current values (the gap is filled with empty values).
    bool AcceptsFlatValue(const FlatName& flat) const;

private:
    void Reindex();

    std::vector<Entry> entries_;
    // Case-folded name -> position in entries_, so that lookups stay constant
    // time on sets with many thousands of entries.
    std::unordered_map<std::string, std::size_t> index_;
    // The character-type locale under which index_ was built: case folding
    // follows the locale, so a change of locale makes the index stale.
    std::string indexLocale_;
};

}  // namespace murv
