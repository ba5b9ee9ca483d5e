// Value-label maps: label texts attached to single values of a variable.
//
// A key is 8 bytes: the double itself for a numeric variable (machine byte
// order), the first 8 bytes of the value, blank-padded, for a string variable.
// Keys are ordered as the little-endian doubles their bytes spell, for string
// keys too, which is the order in which labels are walked and written.
//
// The pairs live in a body shared copy-on-write between handles: copies of a
// variable, or several variables the reader gave one label set, refer to the
// same body until one of them changes it.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace murv {

using ValueLabelKey = std::array<char, 8>;

// The key of a numeric value: its 8 bytes in machine order.
ValueLabelKey NumericKey(double value);
// The key of a string value: its first whole characters that fit in 8 bytes,
// cut at a NUL, blank-padded to 8 bytes.
ValueLabelKey StringKey(std::string_view value);

// Strict order of keys. Two keys are ordered as the little-endian doubles of
// their bytes. Compared as doubles alone, +0 and -0 would be neither less nor
// greater than each other and a NaN pattern would be unordered against
// everything, so a label set for one of them could not be found again. We
// break those ties: of two keys equal as doubles the one with the smaller
// 64-bit pattern comes first (+0 just before -0), and NaN patterns come after
// every other key, among themselves by bit pattern. Every other pair of keys
// keeps the plain double order.
struct ValueLabelKeyLess {
    bool operator()(const ValueLabelKey& a, const ValueLabelKey& b) const;
};

class MURV_VLMapImpl {
public:
    using Pairs = std::map<ValueLabelKey, std::string, ValueLabelKeyLess>;
    Pairs fPairs;
};

class MURV_ValueLabelMap {
public:
    using Key = ValueLabelKey;
    using Pairs = MURV_VLMapImpl::Pairs;

    // A handle on a new, empty map.
    MURV_ValueLabelMap();
    // A handle without a map: what a variable without value labels holds.
    explicit MURV_ValueLabelMap(std::nullptr_t);
    // Copies share the map.

    bool HasBody() const { return fpImpl != nullptr; }
    std::size_t Count() const { return fpImpl ? fpImpl->fPairs.size() : 0; }

    // Sets (or replaces) the label of a key. A handle without a map gets a new
    // one first; a shared map is copied first.
    void SetLabel(const Key& key, std::string_view label);

    // The label of a key, or null when the key has none or there is no map.
    const std::string* GetLabel(const Key& key) const;

    // All pairs in key order (an empty set when there is no map).
    const Pairs& Entries() const;

    // An identity of the body for grouping handles by body (the writer emits
    // one label record for each body); null without one.
    const void* BodyIdentity() const { return fpImpl.get(); }

private:
    std::shared_ptr<MURV_VLMapImpl> fpImpl;
};

}  // namespace murv
