// Character-safe text helpers under the process locale.
//
// Everything here is built on one primitive, NextUnit(), which splits a text
// into units: a whole character that the runtime decodes, or a single byte
// that it does not. All decoding goes through the restartable functions
// (mbrlen, mbrtowc, wcrtomb) with a fresh, zeroed conversion state for every
// character, so no state is carried from one call, or one character, to the
// next. Before the runtime sees a character, the bytes it may look at are
// limited to what is left of the caller's bound and to the bytes before the
// next NUL, so no helper ever reads past either.
//
// Single-byte locales: in a locale whose characters are all one byte long
// (MB_CUR_MAX == 1) every byte other than NUL is a character, even where the
// runtime declines to decode it (the "C" locale of some runtimes rejects
// bytes above 127). Such a byte counts as a valid one-byte character without
// a case mapping; it never ends a walk and never counts as undecodable.
#include "text/mbtext.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <vector>

namespace murv::text {
namespace {

// No bound other than the NUL.
constexpr std::size_t kUnbounded = static_cast<std::size_t>(-1);

enum class UnitKind {
    kEnd,        // the NUL, or no byte left within the bound
    kCharacter,  // a whole character decoded by the runtime
    kPlainByte,  // a byte of a single-byte locale that the runtime does not decode
    kInvalid     // bytes that start no valid character complete within the bound
};

struct Unit {
    UnitKind kind = UnitKind::kEnd;
    std::size_t length = 0;  // bytes of the unit; 0 at the end (see NextUnit for kInvalid)
    wchar_t wide = 0;        // the decoded character (kCharacter, when asked for)
};

// The next unit of text, looking at no more than `left` bytes. With `decode`
// the character is converted to a wide character, otherwise only measured.
Unit NextUnit(const char* text, std::size_t left, bool decode) {
    Unit unit;
    if (left == 0) {
        return unit;  // nothing left (the text may even be null)
    }
    // Where a character starts, a byte below 0x80 other than NUL is that
    // character in every locale the runtime offers.
    const auto first = static_cast<unsigned char>(*text);
    if (first != 0 && first < 0x80) {
        unit.kind = UnitKind::kCharacter;
        unit.length = 1;
        unit.wide = static_cast<wchar_t>(first);
        return unit;
    }
    const std::size_t maxChar = MB_CUR_MAX;
    const std::size_t look = std::min(maxChar, left);
    const std::size_t avail = strnlen(text, look);
    if (avail == 0) {
        return unit;  // at the NUL, or nothing left
    }
    std::mbstate_t state{};
    wchar_t wide = 0;
    const std::size_t r = decode ? std::mbrtowc(&wide, text, avail, &state)
                                 : std::mbrlen(text, avail, &state);
    if (r != static_cast<std::size_t>(-1) && r != static_cast<std::size_t>(-2) && r > 0) {
        unit.kind = UnitKind::kCharacter;
        unit.length = r;
        unit.wide = wide;
        return unit;
    }
    if (maxChar == 1) {
        unit.kind = UnitKind::kPlainByte;
        unit.length = 1;
        unit.wide = static_cast<wchar_t>(static_cast<unsigned char>(*text));
        return unit;
    }
    // No whole character starts here. An invalid sequence is one bad byte;
    // an incomplete one (the beginning of a character cut by the bound or by
    // the NUL) is all the bytes that remain, which belong together: a piece
    // of them must not pass for a character of its own.
    unit.kind = UnitKind::kInvalid;
    unit.length = r == static_cast<std::size_t>(-2) ? avail : 1;
    return unit;
}

bool IsWhole(const Unit& unit) {
    return unit.kind == UnitKind::kCharacter || unit.kind == UnitKind::kPlainByte;
}

std::size_t Remaining(std::size_t bound, std::size_t used) {
    return bound == kUnbounded ? kUnbounded : bound - used;
}

// The byte length of the longest prefix of text, within bound bytes, that
// ends with a whole valid character. Undecodable bytes inside the prefix are
// kept as they are (they are the client's bytes); undecodable bytes at its
// end, a lone lead byte or the first bytes of a character cut short, are not.
std::size_t WholePrefix(const char* text, std::size_t bound) {
    std::size_t pos = 0;
    std::size_t end = 0;
    for (;;) {
        const Unit unit = NextUnit(text + pos, Remaining(bound, pos), false);
        if (unit.kind == UnitKind::kEnd) {
            break;
        }
        pos += unit.length;
        if (IsWhole(unit)) {
            end = pos;
        }
    }
    return end;
}

void MapCase(char* text, std::size_t limit, bool upper) {
    if (text == nullptr) {
        return;
    }
    std::size_t pos = 0;
    for (;;) {
        // Where a character starts, a byte below 0x80 other than NUL is that
        // character in every locale the runtime offers, so it needs no
        // decoding. Only the letters of the other case have a mapping, and
        // that mapping is the locale's (it may leave ASCII, as a dotted
        // capital I does, and then goes through the encoder below).
        if (pos < limit) {
            const auto byte = static_cast<unsigned char>(text[pos]);
            const bool otherCase = upper ? (byte >= 'a' && byte <= 'z') : (byte >= 'A' && byte <= 'Z');
            if (byte != 0 && byte < 0x80 && !otherCase) {
                ++pos;
                continue;
            }
            if (otherCase) {
                const wint_t mapped = upper ? std::towupper(byte) : std::towlower(byte);
                if (mapped < 0x80) {
                    text[pos++] = static_cast<char>(mapped);
                    continue;
                }
            }
        }
        const Unit unit = NextUnit(text + pos, Remaining(limit, pos), true);
        if (unit.kind == UnitKind::kPlainByte) {
            pos += 1;  // a byte of a single-byte locale without a case mapping
            continue;
        }
        if (unit.kind != UnitKind::kCharacter) {
            return;  // the end, or a sequence that does not decode: leave the rest
        }
        const auto mapped = static_cast<wchar_t>(
            upper ? std::towupper(static_cast<wint_t>(unit.wide))
                  : std::towlower(static_cast<wint_t>(unit.wide)));
        if (mapped != unit.wide) {
            char encoded[MB_LEN_MAX];
            std::mbstate_t state{};
            const std::size_t n = std::wcrtomb(encoded, mapped, &state);
            // A mapping that would change the character's byte length (in
            // UTF-8, dotless i to I, for instance) would move every byte
            // after it; such a character is left as it is, as is one whose
            // mapping the locale cannot encode.
            if (n == unit.length) {
                std::memcpy(text + pos, encoded, n);
            }
        }
        pos += unit.length;
    }
}

// One unit of the case-insensitive comparison: a character after towupper,
// or a byte compared as itself.
struct FoldedUnit {
    UnitKind kind;
    std::size_t length;
    bool isByte;
    std::uint32_t value;
};

FoldedUnit NextFolded(const char* text, std::size_t left) {
    const Unit unit = NextUnit(text, left, true);
    switch (unit.kind) {
    case UnitKind::kCharacter:
        return {unit.kind, unit.length, false,
                static_cast<std::uint32_t>(std::towupper(static_cast<wint_t>(unit.wide)))};
    case UnitKind::kPlainByte:
        return {unit.kind, 1, true, static_cast<unsigned char>(*text)};
    case UnitKind::kInvalid:
        // Compared as itself; so is the first byte of a character cut by a
        // given length, as nothing lies beyond that length.
        return {UnitKind::kInvalid, 1, true, static_cast<unsigned char>(*text)};
    case UnitKind::kEnd:
        break;
    }
    return {UnitKind::kEnd, 0, false, 0};
}

std::size_t BoundOf(long length) {
    return length < 0 ? kUnbounded : static_cast<std::size_t>(length);
}

}  // namespace

void BoundedCopy(char* destination, std::size_t size, const char* source, std::size_t sourceLength,
                 char pad) {
    if (destination == nullptr || size == 0) {
        return;
    }
    std::size_t n = 0;
    if (source != nullptr) {
        n = WholePrefix(source, std::min(size, sourceLength));
        std::memmove(destination, source, n);
    }
    std::memset(destination + n, static_cast<unsigned char>(pad), size - n);
}

void CopyPadded(char* destination, std::size_t size, const char* source, std::size_t sourceLength) {
    if (destination == nullptr || size == 0 || (source == nullptr && sourceLength != 0)) {
        return;
    }
    BoundedCopy(destination, size, source, sourceLength, ' ');
}

void ToLower(char* text) { MapCase(text, kUnbounded, false); }

void ToUpperN(char* text, std::size_t n) { MapCase(text, n, true); }

bool EqualIgnoringCase(const char* a, long lengthA, const char* b, long lengthB, int* status) {
    int result = 0;
    const std::size_t boundA = a == nullptr ? 0 : BoundOf(lengthA);
    const std::size_t boundB = b == nullptr ? 0 : BoundOf(lengthB);
    std::size_t posA = 0;
    std::size_t posB = 0;
    bool equal = true;
    for (;;) {
        // A NUL ends a text even inside its given length, so two texts with
        // a NUL at the same place compare equal up to it and no further.
        const FoldedUnit ua = NextFolded(a + posA, Remaining(boundA, posA));
        const FoldedUnit ub = NextFolded(b + posB, Remaining(boundB, posB));
        if (ua.kind == UnitKind::kEnd || ub.kind == UnitKind::kEnd) {
            equal = ua.kind == ub.kind;
            break;
        }
        if (ua.kind == UnitKind::kInvalid || ub.kind == UnitKind::kInvalid) {
            result = 3;
        }
        if (ua.isByte != ub.isByte || ua.value != ub.value) {
            equal = false;
            break;
        }
        posA += ua.length;
        posB += ub.length;
    }
    if (status != nullptr) {
        *status = result;
    }
    return equal;
}

const char* FindLastChar(const char* text, char c) {
    if (text == nullptr) {
        return nullptr;
    }
    const char* found = nullptr;
    std::size_t pos = 0;
    for (;;) {
        const Unit unit = NextUnit(text + pos, kUnbounded, false);
        if (unit.kind == UnitKind::kEnd) {
            break;
        }
        // A byte that is a character on its own (or does not decode at all),
        // never the second byte of a double-byte character.
        if (unit.length == 1 && text[pos] == c) {
            found = text + pos;
        }
        pos += unit.length;
    }
    return found;
}

int CharacterLengthAt(const char* text, std::size_t n) {
    if (text == nullptr) {
        return 0;
    }
    if (n == 0) {
        return -1;
    }
    const Unit unit = NextUnit(text, n, false);
    switch (unit.kind) {
    case UnitKind::kEnd:
        return 0;
    case UnitKind::kCharacter:
    case UnitKind::kPlainByte:
        return static_cast<int>(unit.length);
    case UnitKind::kInvalid:
        break;
    }
    return -1;
}

std::string UpperCopy(std::string_view s) {
    std::string copy(s);
    ToUpperN(copy.data(), copy.size());
    return copy;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() > static_cast<std::size_t>(LONG_MAX) || b.size() > static_cast<std::size_t>(LONG_MAX)) {
        return false;
    }
    return EqualIgnoringCase(a.data(), static_cast<long>(a.size()), b.data(),
                             static_cast<long>(b.size()), nullptr);
}

std::string CaseFoldKey(std::string_view s) {
    // Four bytes per unit, most significant first: an upper-cased wide
    // character (at most 0x7FFFFFFF), or FF FF FF and the byte for a byte
    // compared as itself. Equal keys mean equal unit sequences, which is
    // exactly what EqualIgnoringCase compares, and a NUL ends both.
    std::string key;
    key.reserve(s.size() * 4);
    std::size_t pos = 0;
    for (;;) {
        const FoldedUnit unit = NextFolded(s.data() + pos, s.size() - pos);
        if (unit.kind == UnitKind::kEnd) {
            break;
        }
        const std::uint32_t code = unit.isByte ? (0xFFFFFF00u | unit.value) : unit.value;
        key.push_back(static_cast<char>(code >> 24));
        key.push_back(static_cast<char>((code >> 16) & 0xFF));
        key.push_back(static_cast<char>((code >> 8) & 0xFF));
        key.push_back(static_cast<char>(code & 0xFF));
        pos += unit.length;
    }
    return key;
}

std::string_view TrimBlanks(std::string_view s) {
    const std::size_t begin = s.find_first_not_of(' ');
    if (begin == std::string_view::npos) return {};
    return s.substr(begin, s.find_last_not_of(' ') - begin + 1);
}

std::string Truncated(std::string_view s, std::size_t n) {
    return std::string(s.data(), WholePrefix(s.data(), std::min(n, s.size())));
}

}  // namespace murv::text
