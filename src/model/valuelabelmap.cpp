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

void MURV_ValueLabelMap::SetLabel(const Key& key, std::string_view label)
{
    if (!fpImpl) fpImpl = std::make_shared<MURV_VLMapImpl>();
    auto& pairs = MakePrivate(fpImpl).fPairs;
    auto found = pairs.lower_bound(key);
    if (found != pairs.end() && found->first == key)
        found->second.assign(label);
    else
        pairs.emplace_hint(found, key, std::string(label));
}

const std::string* MURV_ValueLabelMap::GetLabel(const Key& key) const
{
    if (!fpImpl) return nullptr;
    auto found = fpImpl->fPairs.find(key);
    // Keys equal under the order are equal byte for byte: the order breaks
    // every tie by the bit pattern.
    return found == fpImpl->fPairs.end() ? nullptr : &found->second;
}

const MURV_ValueLabelMap::Pairs& MURV_ValueLabelMap::Entries() const
{
    return fpImpl ? fpImpl->fPairs : NoPairs();
}

}  // namespace murv
