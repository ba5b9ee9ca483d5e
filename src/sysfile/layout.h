// The bytes of a system file's header and dictionary records.
//
// A file is one 176-byte header record, then dictionary records that each
// begin with a 32-bit record type, up to the termination record (999); the
// case data follows at once. Integers are signed 32-bit and doubles IEEE 754,
// in the byte order of the writing machine (this library writes its host's).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace murv {

enum RecordType : std::int32_t {
    kRecVariable = 2,
    kRecValueLabels = 3,
    kRecValueLabelVars = 4,
    kRecDocument = 6,
    kRecExtension = 7,
    kRecEnd = 999
};

inline constexpr int kHeaderSize = 176;
inline constexpr char kMagic[] = "$FL2";
inline constexpr int kProductSize = 60;
inline constexpr int kFileLabelSize = 64;
inline constexpr int kShortNameSize = 8;
inline constexpr int kDocumentLineSize = 80;
inline constexpr std::int32_t kLayoutCode = 2;
inline constexpr double kDefaultBias = 100.0;
inline constexpr char kDefaultProduct[] = "@(#) MURV DATA FILE MS Windows Release 15.0.0";
// The print and write format of a continuation record: a string format of width 8.
inline constexpr std::int32_t kContinuationFormat = 0x00011D01;

// Header field offsets.
inline constexpr int kOffProduct = 4;
inline constexpr int kOffLayoutCode = 64;
inline constexpr int kOffNominalCaseSize = 68;
inline constexpr int kOffCompression = 72;
inline constexpr int kOffWeightIndex = 76;
inline constexpr int kOffCaseCount = 80;
inline constexpr int kOffBias = 84;
inline constexpr int kOffCreationDate = 92;
inline constexpr int kOffCreationTime = 101;
inline constexpr int kOffFileLabel = 109;

// The header's values as the writer puts them and the reader finds them.
struct HeaderRecord {
    std::string product;
    std::int32_t layoutCode = kLayoutCode;
    std::int32_t nominalCaseSize = -1;
    std::int32_t compression = 0;
    std::int32_t weightIndex = 0;
    std::int32_t caseCount = -1;
    double bias = kDefaultBias;
    std::string creationDate;  // "dd Mmm yy"
    std::string creationTime;  // "hh:mm:ss"
    std::string fileLabel;
};

// Encodes the header in host byte order; texts are cut or blank-padded to
// their fields.
std::array<unsigned char, kHeaderSize> EncodeHeader(const HeaderRecord& h);
// Decodes a header; swapped tells whether the numbers are byte-reversed.
// Texts keep their padding except where noted in the reader.
HeaderRecord DecodeHeader(const unsigned char* bytes, bool swapped);
// A file is in the reader's byte order when its layout code, read in that
// order, lies strictly between 0 and 256.
bool HeaderIsSwapped(const unsigned char* bytes);

// The creation date and time fields for a moment of local time: "07 Mar 06"
// and "14:05:09".
std::pair<std::string, std::string> FormatCreationStamp(std::int64_t unixSeconds);

// Blank-padded copy of text into a field of n bytes (cut at n).
void PutPadded(unsigned char* field, const std::string& text, std::size_t n);
// Removes trailing blanks.
std::string TrimRight(std::string s);

}  // namespace murv
