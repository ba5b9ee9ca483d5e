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
// The double that a key's bytes spell when read in little-endian order.
double KeyAsLittleEndianDouble(const ValueLabelKey& key);

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

    // Copies share the map. A copy of a handle in the middle of a walk gets
    // its own cursor at the same place.
    MURV_ValueLabelMap(const MURV_ValueLabelMap& other);
    MURV_ValueLabelMap& operator=(const MURV_ValueLabelMap& other);
    MURV_ValueLabelMap(MURV_ValueLabelMap&& other) noexcept = default;
    MURV_ValueLabelMap& operator=(MURV_ValueLabelMap&& other) noexcept = default;
    ~MURV_ValueLabelMap();

    bool HasBody() const { return fpImpl != nullptr; }
    std::size_t Count() const { return fpImpl ? fpImpl->fPairs.size() : 0; }

    // Sets (or replaces) the label of a key. A handle without a map gets a new
    // one first; a shared map is copied first. Ends any walk in progress.
    void SetLabel(const Key& key, std::string_view label);
    void SetNumericLabel(double value, std::string_view label);
    void SetStringLabel(std::string_view value, std::string_view label);

    // The label of a key, or null when the key has none or there is no map.
    const std::string* GetLabel(const Key& key) const;
    const std::string* GetNumericLabel(double value) const;
    const std::string* GetStringLabel(std::string_view value) const;

    // Ordered walk over the pairs as they were when Start was called.
    void Start();
    // The next pair; false when there is no walk or the walk is at its end.
    bool Next(Key& key, std::string& label);
    // The same, giving pointers into the walked pairs; they stay valid until
    // the next Start, a change through this handle, or the handle's end.
    bool Next(const Key*& key, const std::string*& label);
    // Ends a walk in progress.
    void EndWalk() { fpCursor.reset(); }

    // All pairs in key order (an empty set when there is no map).
    const Pairs& Entries() const;

    // Equal when both are the same map or both have none; otherwise equal
    // contents, pair by pair. A handle without a map never equals one with a
    // map, even an empty one.
    bool operator==(const MURV_ValueLabelMap& other) const;

    // True when both handles refer to the very same body, which is more than
    // equal contents: the writer emits one label record for each body.
    bool SharesBodyWith(const MURV_ValueLabelMap& other) const { return fpImpl == other.fpImpl; }
    // An identity of the body for grouping handles by body; null without one.
    const void* BodyIdentity() const { return fpImpl.get(); }

private:
    struct Cursor {
        std::shared_ptr<const MURV_VLMapImpl> body;
        Pairs::const_iterator position;
    };

    std::shared_ptr<MURV_VLMapImpl> fpImpl;
    std::unique_ptr<Cursor> fpCursor;
};

}  // namespace murv
