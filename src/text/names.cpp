// Name rules for variables, multiple-response sets and attribute names.
#include "text/names.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "text/mbtext.h"

namespace murv::names {
namespace {

// Compared without regard to case, against names of fewer than 5 bytes only.
constexpr const char* kReservedWords[] = {"ALL", "AND", "BY", "EQ",  "GE", "GT", "LE",
                                          "LT",  "NE",  "NOT", "OR", "TO", "WITH"};

bool IsAsciiLetter(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool IsAsciiDigit(unsigned char c) { return c >= '0' && c <= '9'; }

bool AllowedSingleByte(unsigned char c) {
    if (c >= 128) {
        return true;  // a character of a single-byte locale's upper half
    }
    return IsAsciiLetter(c) || IsAsciiDigit(c) || c == '@' || c == '#' || c == '$' || c == '_' ||
           c == '.';
}

// A last `c` that begins a character and is followed by the end of the text
// or by a blank or control byte.
bool EndsWithChar(const char* text, char c) {
    const char* last = text::FindLastChar(text, c);
    return last != nullptr && static_cast<unsigned char>(last[1]) < 33;
}

}  // namespace

int Classify(const char* text) {
    if (text == nullptr) {
        return kEmptyOrLong;
    }
    // Trailing blanks do not count; leading ones do (and are not allowed).
    std::size_t n = std::strlen(text);
    while (n > 0 && text[n - 1] == ' ') {
        --n;
    }
    if (n < 1 || n > static_cast<std::size_t>(kMaxNameBytes)) {
        return kEmptyOrLong;
    }
    for (std::size_t i = 0; i < n;) {
        const int length = text::CharacterLengthAt(text + i, n - i);
        if (length < 1) {
            return kBadCharacter;  // starts no valid character
        }
        if (length == 1 && !AllowedSingleByte(static_cast<unsigned char>(text[i]))) {
            return kBadCharacter;
        }
        i += static_cast<std::size_t>(length);
    }
    const auto first = static_cast<unsigned char>(text[0]);
    if (IsAsciiDigit(first) || first == '_' || first == '.') {
        return kBadFirst;
    }
    if (n < 5) {
        for (const char* word : kReservedWords) {
            if (text::EqualIgnoringCase(text, static_cast<long>(n), word, -1)) {
                return kReservedWord;
            }
        }
    }
    if (first == '#') {
        return kScratch;
    }
    if (first == '$') {
        return kDollar;
    }
    return kOrdinary;
}

int ClassifyExtended(const char* text) {
    const int result = Classify(text);
    if (result != kOrdinary) {
        return result;  // "#" and "$" names keep their verdict whatever they end with
    }
    if (EndsWithChar(text, '.')) {
        return kEndsWithDot;
    }
    if (EndsWithChar(text, '_')) {
        return kEndsWithUnderscore;
    }
    return kOrdinary;
}

std::string_view NamePart(std::string_view name) {
    name = name.substr(0, std::min(name.size(), static_cast<std::size_t>(kMaxNameBytes)));
    return text::TrimBlanks(name.substr(0, name.find('\0')));
}

std::string_view NamePart(const char* name) {
    return name ? NamePart(std::string_view(name, strnlen(name, kMaxNameBytes))) : std::string_view();
}

std::string NameKey(std::string_view name) { return text::UpperCopy(NamePart(name)); }

bool KeptOnReading(std::string_view name) {
    if (name.empty()) return false;
    const auto first = static_cast<unsigned char>(name[0]);
    if (first == '#' || first == '$' || first == '_' || first == '.') return false;
    for (const char ch : name) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 128) continue;
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) continue;
        if (c == '@' || c == '#' || c == '$' || c == '_' || c == '.') continue;
        return false;
    }
    return true;
}

int ValidateVarname(const char* name) {
    // The first 64 bytes as they come, a plain byte count: a longer name is
    // judged on its beginning and never fails for its length alone.
    char copy[kMaxNameBytes + 1] = {};
    const std::string_view part = NamePart(name);
    if (!part.empty()) std::memcpy(copy, part.data(), part.size());
    const int result = Classify(copy);
    switch (result) {
    case kOrdinary:
    case kScratch:
    case kDollar:
    case kEmptyOrLong:
    case kReservedWord:
    case kBadFirst:
        return result;
    default:
        return kBadCharacter;
    }
}

}  // namespace murv::names
