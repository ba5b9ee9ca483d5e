// Character-safe text helpers under the process locale.
//
// Texts are kept in the client's multibyte character set and never
// converted. A character is whatever the C runtime's multibyte functions
// (mblen/mbtowc) say it is under the current LC_CTYPE: one byte in a
// single-byte locale, one or two in a double-byte code page, one to four in
// UTF-8. These helpers never cut a character in two, fold case through
// towupper/towlower, and keep no state of their own: a change of locale
// takes effect from the next call on. None allocates except the std::string
// conveniences at the end.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace murv::text {

// Copies the longest whole-character prefix of source (at most
// min(size, sourceLength) bytes, stopping at a NUL) and fills the rest of the
// size bytes of destination with pad.
void BoundedCopy(char* destination, std::size_t size, const char* source, std::size_t sourceLength,
                 char pad);

// BoundedCopy with blank padding (names, string values, 8-byte keys). Does
// nothing when destination is null, size is 0, or source is null with a
// non-zero length (a null source with length 0 blanks the destination).
void CopyPadded(char* destination, std::size_t size, const char* source, std::size_t sourceLength);

// In-place case mapping of the whole NUL-terminated text, or of its first n
// bytes. Stops at the first byte sequence that does not decode. A character
// whose mapping would take a different number of bytes is left as it is.
void ToLower(char* text);
void ToUpperN(char* text, std::size_t n);

// Case-insensitive equality of two texts; a negative length means the text
// ends at its NUL. Characters are compared after towupper; a byte that does
// not decode is compared as itself and sets *status to 3 (otherwise 0).
// The walk always stops at a NUL, even inside a given length.
bool EqualIgnoringCase(const char* a, long lengthA, const char* b, long lengthB,
                       int* status = nullptr);

// The last occurrence of the single-byte character c that begins a
// character (is not a trail byte of a multibyte character), or null.
const char* FindLastChar(const char* text, char c);

// The runtime's multibyte length of the character at text, looking at no
// more than n bytes: >0 a character of that many bytes, 0 the NUL, -1 an
// invalid or incomplete sequence.
int CharacterLengthAt(const char* text, std::size_t n);

// ---- std::string conveniences built on the helpers above ----

// An upper-cased copy (ToUpper on a copy; stops mapping at a NUL or at an
// undecodable byte exactly as ToUpper does).
std::string UpperCopy(std::string_view s);

// EqualIgnoringCase on two views (no NUL needed).
bool EqualIgnoringCase(std::string_view a, std::string_view b);

// A key for hashing or ordering names without regard to case: two texts for
// which EqualIgnoringCase is true (and that decode cleanly) have the same
// key, and texts with equal keys compare equal.
std::string CaseFoldKey(std::string_view s);

// s without its leading and trailing blanks.
std::string_view TrimBlanks(std::string_view s);

// The longest prefix of whole valid characters of s that holds at most n
// bytes (s may contain no NUL; one ends the text).
std::string Truncated(std::string_view s, std::size_t n);

}  // namespace murv::text
