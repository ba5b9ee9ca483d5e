#include "meta/attributes.h"

#include <clocale>
#include <cstring>
#include <stdexcept>

#include "port/assert.h"
#include "text/mbtext.h"
#include "text/names.h"

namespace murv {

namespace {

// The known reserved names, in the order in which the name check tries them.
constexpr const char* kVariableReserved[] = {
    "$CreationDate", "$ExtendedVariableLabel", "$ModificationDate", "$VD.SRuleRef",
    "$VD.RuleOutcomeVar", "$TR.Formula", "$TR.Timestamp",
};
constexpr const char* kFileReserved[] = {
    "$CreationDate", "$ExtendedFileLabel", "$ModificationDate", "$VD.SRule",
    "$VD.CRule", "$TR.Formula", "$TR.Timestamp",
};

// The largest position accepted by a flat name: positions are 1-based and
// must stay below the largest signed 32-bit value.
constexpr long kMaxFlatPosition = 2147483646;

// How far past the current end of an attribute's values a flat position may
// reach. Storing value p of a shorter list fills the gap with empty values,
// and a client that names position 2,000,000,000 by mistake should get a
// refusal, not an attempt to allocate two billion strings. A million empty
// values is a few dozen megabytes at worst, and any list can still grow to
// any length a step at a time.
constexpr std::size_t kMaxFlatGrowth = 1000000;

// The name of the character-type locale, which decides how names fold.
std::string CurrentCtypeLocale() {
    const char* name = std::setlocale(LC_CTYPE, nullptr);
    return name != nullptr ? std::string(name) : std::string();
}

bool SameCtypeLocale(const std::string& stamp) {
    const char* name = std::setlocale(LC_CTYPE, nullptr);
    return name != nullptr && stamp == name;
}

// The extended classification of a name given as bytes. A name with a NUL
// inside or more than 64 bytes never names an attribute, whatever trailing
// blanks the classification would forgive.
int ClassifyAttributeName(std::string_view name) {
    if (name.size() > static_cast<std::size_t>(names::kMaxNameBytes)) return names::kEmptyOrLong;
    if (name.find('\0') != std::string_view::npos) return names::kBadCharacter;
    char copy[names::kMaxNameBytes + 1];
    std::memcpy(copy, name.data(), name.size());
    copy[name.size()] = '\0';
    return names::ClassifyExtended(copy);
}

int CheckAttributeName(std::string_view name, Attributes::Owner owner) {
    const int verdict = ClassifyAttributeName(name);
    if (verdict == names::kOrdinary) return 1;
    if (verdict != names::kDollar) return 0;
    // The name holds no NUL here, so the reserved names can be compared with
    // the name's own length.
    const long length = static_cast<long>(name.size());
    const auto& known = owner == Attributes::Owner::Variable ? kVariableReserved : kFileReserved;
    for (const char* reserved : known) {
        if (text::EqualIgnoringCase(name.data(), length, reserved, -1)) return 2;
    }
    return 3;
}

std::size_t DecimalDigits(std::size_t n) {
    std::size_t digits = 1;
    while (n >= 10) {
        n /= 10;
        ++digits;
    }
    return digits;
}

// name[i] with i zero-padded to the given number of digits.
std::string PositionedName(const std::string& name, std::size_t position, std::size_t digits) {
    char number[24];
    std::size_t length = 0;
    do {
        number[length++] = static_cast<char>('0' + position % 10);
        position /= 10;
    } while (position != 0);
    std::string flat;
    flat.reserve(name.size() + (digits > length ? digits : length) + 2);
    flat.append(name);
    flat.push_back('[');
    if (digits > length) flat.append(digits - length, '0');
    while (length > 0) flat.push_back(number[--length]);
    flat.push_back(']');
    return flat;
}

}  // namespace

long Attributes::Index(std::string_view name) const {
    if (entries_.empty()) return -1;
    if (!SameCtypeLocale(indexLocale_)) {
        // The index was built under another locale, whose case folding may
        // differ; answer by the comparison itself until the next change
        // rebuilds it.
        for (std::size_t k = 0; k < entries_.size(); ++k) {
            if (text::EqualIgnoringCase(entries_[k].name, name)) return static_cast<long>(k);
        }
        return -1;
    }
    const auto found = index_.find(text::CaseFoldKey(name));
    return found == index_.end() ? -1 : static_cast<long>(found->second);
}

void Attributes::Set(std::string_view name, ValueList values) {
    if (!SameCtypeLocale(indexLocale_)) Reindex();
    std::string key = text::CaseFoldKey(name);
    const auto found = index_.find(key);
    if (found != index_.end()) {
        Entry& entry = entries_[found->second];
        entry.name.assign(name);
        entry.values = std::move(values);
        return;
    }
    entries_.push_back(Entry{std::string(name), std::move(values)});
    index_.emplace(std::move(key), entries_.size() - 1);
}

void Attributes::Reindex() {
    index_.clear();
    index_.reserve(entries_.size());
    indexLocale_ = CurrentCtypeLocale();
    // Names that were distinct under an earlier locale may fold together under
    // this one; the first of them is the one a lookup finds.
    for (std::size_t k = 0; k < entries_.size(); ++k) {
        index_.emplace(text::CaseFoldKey(entries_[k].name), k);
    }
}

std::string Attributes::Encode() const {
    std::size_t room = 0;
    for (const Entry& entry : entries_) {
        room += entry.name.size() + 2;
        for (const std::string& value : entry.values) room += value.size() + 3;
    }
    std::string text;
    text.reserve(room);
    for (const Entry& entry : entries_) {
        if (entry.values.empty()) continue;
        text.append(entry.name);
        text.push_back('(');
        for (const std::string& value : entry.values) {
            // A value ends at the first quote followed by a line feed, so a
            // line feed inside a value cannot be kept: it is left out.
            text.push_back('\'');
            for (const char c : value) {
                if (c != '\n') text.push_back(c);
            }
            text.append("'\n");
        }
        text.push_back(')');
    }
    return text;
}

bool Attributes::Decode(std::string_view text, std::size_t* consumed) {
    Attributes fresh;
    fresh.indexLocale_ = CurrentCtypeLocale();
    const std::size_t size = text.size();
    std::size_t p = 0;
    while (p < size && text[p] != '/') {
        // name(
        const std::size_t open = text.find('(', p);
        if (open == std::string_view::npos || open == p || open + 1 >= size) return false;
        const std::string_view name = text.substr(p, open - p);
        const int verdict = ClassifyAttributeName(name);
        const bool acceptable = verdict == names::kOrdinary || verdict == names::kDollar;
        p = open + 1;

        // 'value'LF ... up to the closing ")". Every value ends in a quote and
        // a line feed that is not the last byte, so p stays inside the text.
        ValueList values;
        while (text[p] != ')') {
            const std::size_t lineFeed = text.find('\n', p);
            if (text[p] != '\'' || lineFeed == std::string_view::npos || lineFeed <= p + 1 ||
                text[lineFeed - 1] != '\'' || lineFeed + 1 >= size) {
                return false;
            }
            if (acceptable) values.emplace_back(text.substr(p + 1, lineFeed - p - 2));
            p = lineFeed + 1;
        }
        if (acceptable && !values.empty()) fresh.Set(name, std::move(values));
        ++p;  // past ")"
    }
    *this = std::move(fresh);
    if (consumed != nullptr) *consumed = p;
    return true;
}

int Attributes::CheckName(const char* name, Owner owner) {
    if (name == nullptr) return 0;
    // One byte more than a name may hold is enough to know it is too long.
    const std::size_t length = strnlen(name, names::kMaxNameBytes + 1);
    return CheckAttributeName(std::string_view(name, length), owner);
}

std::vector<std::pair<std::string, std::string>> Attributes::Flatten() const {
    std::size_t pairs = 0;
    for (const Entry& entry : entries_) {
        for (const std::string& value : entry.values) pairs += value.empty() ? 0 : 1;
    }
    std::vector<std::pair<std::string, std::string>> flat;
    flat.reserve(pairs);
    for (const Entry& entry : entries_) {
        const std::size_t count = entry.values.size();
        if (count == 1) {
            if (!entry.values[0].empty()) flat.emplace_back(entry.name, entry.values[0]);
            continue;
        }
        // Positions are zero-padded to the width of the largest one, so that
        // the flat names of one array sort in order.
        const std::size_t digits = DecimalDigits(count);
        for (std::size_t i = 0; i < count; ++i) {
            if (entry.values[i].empty()) continue;
            flat.emplace_back(PositionedName(entry.name, i + 1, digits), entry.values[i]);
        }
    }
    return flat;
}

bool Attributes::ParseFlatName(std::string_view flat, Owner owner, FlatName* out) {
    const std::size_t open = flat.find('[');
    std::string_view name = flat;
    long position = 0;
    if (open != std::string_view::npos) {
        // "[" digits "]", with the "]" the last byte and at least one digit.
        const std::size_t close = flat.find(']', open);
        if (close == std::string_view::npos || close < open + 2 || close + 1 != flat.size()) {
            return false;
        }
        for (std::size_t i = open + 1; i < close; ++i) {
            const char c = flat[i];
            if (c < '0' || c > '9') return false;
            // Leading zeros are fine (the flat view writes them); stop adding
            // once the number is out of range so that it cannot overflow.
            if (position <= kMaxFlatPosition) position = position * 10 + (c - '0');
        }
        if (position < 1 || position > kMaxFlatPosition) return false;
        name = flat.substr(0, open);
    }
    const int verdict = CheckAttributeName(name, owner);
    if (verdict != 1 && verdict != 2) return false;
    if (out != nullptr) {
        out->name.assign(name);
        out->position = position;
    }
    return true;
}

bool Attributes::AcceptsFlatValue(const FlatName& flat) const {
    if (flat.position < 0 || flat.position > kMaxFlatPosition) return false;
    const std::size_t wanted = static_cast<std::size_t>(flat.position);
    const long k = Index(flat.name);
    const std::size_t have = k < 0 ? 0 : entries_[static_cast<std::size_t>(k)].values.size();
    return wanted <= have || wanted - have <= kMaxFlatGrowth;
}

bool Attributes::SetFlatValue(const FlatName& flat, std::string value) {
    if (!AcceptsFlatValue(flat)) {
        throw std::out_of_range("attribute position out of range: " + flat.name);
    }
    if (!SameCtypeLocale(indexLocale_)) Reindex();
    // Work on the entry in place: an existing entry keeps its spelling and its
    // position, and a long array is not copied for every element stored.
    long k = Index(flat.name);
    if (k < 0) {
        Set(flat.name, ValueList());
        k = static_cast<long>(entries_.size()) - 1;
    }
    ValueList& values = entries_[static_cast<std::size_t>(k)].values;
    std::size_t slot = 0;
    if (flat.position > 0) {
        slot = static_cast<std::size_t>(flat.position) - 1;
        if (values.size() <= slot) values.resize(slot + 1);
    } else {
        values.resize(1);
    }
    const bool replacedNonEmpty = !values[slot].empty();
    values[slot] = std::move(value);
    return replacedNonEmpty;
}

}  // namespace murv
