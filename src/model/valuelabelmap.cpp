#include "model/valuelabelmap.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "model/refcnt.h"
#include "text/mbtext.h"

namespace murv {

namespace {

std::uint64_t LittleEndianBits(const ValueLabelKey& key)
{
    std::uint64_t bits = 0;
    for (int i = 7; i >= 0; --i) bits = (bits << 8) | static_cast<unsigned char>(key[i]);
    return bits;
}

const MURV_VLMapImpl::Pairs& NoPairs()
{
    static const MURV_VLMapImpl::Pairs empty;
    return empty;
}

}  // namespace

ValueLabelKey NumericKey(double value)
{
    ValueLabelKey key;
    std::memcpy(key.data(), &value, sizeof value);
    return key;
}

ValueLabelKey StringKey(std::string_view value)
{
    ValueLabelKey key;
    key.fill(' ');
    text::CopyPadded(key.data(), key.size(), value.data(), value.size());
    return key;
}

double KeyAsLittleEndianDouble(const ValueLabelKey& key)
{
    return std::bit_cast<double>(LittleEndianBits(key));
}

bool ValueLabelKeyLess::operator()(const ValueLabelKey& a, const ValueLabelKey& b) const
{
    const std::uint64_t bitsA = LittleEndianBits(a);
    const std::uint64_t bitsB = LittleEndianBits(b);
    const double x = std::bit_cast<double>(bitsA);
    const double y = std::bit_cast<double>(bitsB);
    const bool nanX = std::isnan(x);
    const bool nanY = std::isnan(y);
    if (nanX || nanY) {
        if (nanX != nanY) return nanY;  // the NaN pattern is the greater one
        return bitsA < bitsB;
    }
    if (x < y) return true;
    if (y < x) return false;
    return bitsA < bitsB;  // +0 and -0
}

MURV_ValueLabelMap::MURV_ValueLabelMap() : fpImpl(std::make_shared<MURV_VLMapImpl>()) {}

MURV_ValueLabelMap::MURV_ValueLabelMap(std::nullptr_t) {}

MURV_ValueLabelMap::MURV_ValueLabelMap(const MURV_ValueLabelMap& other) : fpImpl(other.fpImpl)
{
    if (other.fpCursor) fpCursor = std::make_unique<Cursor>(*other.fpCursor);
}

MURV_ValueLabelMap& MURV_ValueLabelMap::operator=(const MURV_ValueLabelMap& other)
{
    if (this != &other) {
        fpCursor.reset();
        fpImpl = other.fpImpl;
        if (other.fpCursor) fpCursor = std::make_unique<Cursor>(*other.fpCursor);
    }
    return *this;
}

MURV_ValueLabelMap::~MURV_ValueLabelMap() = default;

void MURV_ValueLabelMap::SetLabel(const Key& key, std::string_view label)
{
    // The walk ends here; dropping the cursor first also releases its hold on
    // the body, so that an unshared body is changed in place.
    fpCursor.reset();
    if (!fpImpl) fpImpl = std::make_shared<MURV_VLMapImpl>();
    auto& pairs = MakePrivate(fpImpl).fPairs;
    auto found = pairs.lower_bound(key);
    if (found != pairs.end() && found->first == key)
        found->second.assign(label);
    else
        pairs.emplace_hint(found, key, std::string(label));
}

void MURV_ValueLabelMap::SetNumericLabel(double value, std::string_view label)
{
    SetLabel(NumericKey(value), label);
}

void MURV_ValueLabelMap::SetStringLabel(std::string_view value, std::string_view label)
{
    SetLabel(StringKey(value), label);
}

const std::string* MURV_ValueLabelMap::GetLabel(const Key& key) const
{
    if (!fpImpl) return nullptr;
    auto found = fpImpl->fPairs.find(key);
    // Keys equal under the order are equal byte for byte: the order breaks
    // every tie by the bit pattern.
    return found == fpImpl->fPairs.end() ? nullptr : &found->second;
}

const std::string* MURV_ValueLabelMap::GetNumericLabel(double value) const
{
    return GetLabel(NumericKey(value));
}

const std::string* MURV_ValueLabelMap::GetStringLabel(std::string_view value) const
{
    return GetLabel(StringKey(value));
}

void MURV_ValueLabelMap::Start()
{
    if (!fpImpl) return;
    if (!fpCursor) fpCursor = std::make_unique<Cursor>();
    fpCursor->body = fpImpl;
    fpCursor->position = fpCursor->body->fPairs.begin();
}

bool MURV_ValueLabelMap::Next(const Key*& key, const std::string*& label)
{
    if (!fpCursor || fpCursor->position == fpCursor->body->fPairs.end()) return false;
    key = &fpCursor->position->first;
    label = &fpCursor->position->second;
    ++fpCursor->position;
    return true;
}

bool MURV_ValueLabelMap::Next(Key& key, std::string& label)
{
    const Key* k = nullptr;
    const std::string* l = nullptr;
    if (!Next(k, l)) return false;
    key = *k;
    label = *l;
    return true;
}

const MURV_ValueLabelMap::Pairs& MURV_ValueLabelMap::Entries() const
{
    return fpImpl ? fpImpl->fPairs : NoPairs();
}

bool MURV_ValueLabelMap::operator==(const MURV_ValueLabelMap& other) const
{
    if (fpImpl == other.fpImpl) return true;
    if (!fpImpl || !other.fpImpl) return false;
    return fpImpl->fPairs == other.fpImpl->fPairs;
}

}  // namespace murv
