// Name rules for variables, multiple-response sets and attribute names.
#pragma once

#include <string>
#include <string_view>

namespace murv::names {

// Verdicts of the name classification.
enum NameClass : int {
    kOrdinary = 0,        // a valid ordinary name
    kScratch = 1,         // a valid name starting with "#"
    kDollar = 2,          // a valid name starting with "$"
    kEmptyOrLong = 3,     // empty, all blanks, or longer than 64 bytes
    kBadCharacter = 4,    // contains a character that is not allowed
    kReservedWord = 5,    // one of the reserved words
    kBadFirst = 6,        // starts with a digit, "_" or "."
    kEndsWithDot = 7,     // (extended) ordinary name ending in "."
    kEndsWithUnderscore = 100  // (extended) ordinary name ending in "_"
};

inline constexpr int kMaxNameBytes = 64;

// The basic classification of a NUL-terminated text (0 to 6).
int Classify(const char* text);

// Classify, and for an ordinary name also refuse a last "." or "_" that ends
// the text or is followed by a byte below 33 (7 or 100).
int ClassifyExtended(const char* text);

// The part of a name that counts in lookups and checks: its first 64 bytes
// (up to a NUL), without leading and trailing blanks.
std::string_view NamePart(std::string_view name);
// The same for a NUL-terminated name; a null name has none.
std::string_view NamePart(const char* name);
// The key under which a name is looked up without regard to case: its part
// that counts, upper-cased under the current locale.
std::string NameKey(std::string_view name);

// Whether a variable's name read from a file stays as it is: not empty, not
// starting with "#", "$", "_" or ".", and every ASCII byte a letter, a digit
// or one of "@#$_." (other bytes are taken as they come). A file's names
// that fail this, or repeat another, are replaced on reading.
bool KeptOnReading(std::string_view name);

// The verdict of the exported name check: the first 64 bytes of the name,
// without leading and trailing blanks, classified; 0 to 6. A null name is
// judged as an empty one.
int ValidateVarname(const char* name);

}  // namespace murv::names
