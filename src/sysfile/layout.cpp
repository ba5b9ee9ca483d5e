#include "sysfile/layout.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "port/clock.h"
#include "sysfile/byteorder.h"

namespace murv {

void PutPadded(unsigned char* field, const std::string& text, std::size_t n) {
    const std::size_t len = text.size() < n ? text.size() : n;
    std::memcpy(field, text.data(), len);
    std::memset(field + len, ' ', n - len);
}

std::string TrimRight(std::string s) {
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}

std::array<unsigned char, kHeaderSize> EncodeHeader(const HeaderRecord& h) {
    std::array<unsigned char, kHeaderSize> b{};
    std::memcpy(b.data(), kMagic, 4);
    PutPadded(b.data() + kOffProduct, h.product, kProductSize);
    StoreI32(b.data() + kOffLayoutCode, h.layoutCode);
    StoreI32(b.data() + kOffNominalCaseSize, h.nominalCaseSize);
    StoreI32(b.data() + kOffCompression, h.compression);
    StoreI32(b.data() + kOffWeightIndex, h.weightIndex);
    StoreI32(b.data() + kOffCaseCount, h.caseCount);
    StoreF64(b.data() + kOffBias, h.bias);
    PutPadded(b.data() + kOffCreationDate, h.creationDate, 9);
    PutPadded(b.data() + kOffCreationTime, h.creationTime, 8);
    PutPadded(b.data() + kOffFileLabel, h.fileLabel, kFileLabelSize);
    // The last three bytes stay zero.
    return b;
}

bool HeaderIsSwapped(const unsigned char* bytes) {
    const std::int32_t code = LoadI32(bytes + kOffLayoutCode, false);
    return !(code > 0 && code < 256);
}

HeaderRecord DecodeHeader(const unsigned char* b, bool swapped) {
    HeaderRecord h;
    h.product.assign(reinterpret_cast<const char*>(b + kOffProduct), kProductSize);
    h.layoutCode = LoadI32(b + kOffLayoutCode, swapped);
    h.nominalCaseSize = LoadI32(b + kOffNominalCaseSize, swapped);
    h.compression = LoadI32(b + kOffCompression, swapped);
    h.weightIndex = LoadI32(b + kOffWeightIndex, swapped);
    h.caseCount = LoadI32(b + kOffCaseCount, swapped);
    h.bias = LoadF64(b + kOffBias, swapped);
    h.creationDate.assign(reinterpret_cast<const char*>(b + kOffCreationDate), 9);
    h.creationTime.assign(reinterpret_cast<const char*>(b + kOffCreationTime), 8);
    h.fileLabel.assign(reinterpret_cast<const char*>(b + kOffFileLabel), kFileLabelSize);
    return h;
}

std::pair<std::string, std::string> FormatCreationStamp(std::int64_t unixSeconds) {
    static const char* const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    // A clock that reads less than one day is raised to one day.
    if (unixSeconds < 86400) unixSeconds = 86400;
    const std::time_t t = static_cast<std::time_t>(unixSeconds);
    std::tm tm{};
    if (!port::LocalTime(t, &tm)) return {"01 Jan 70", "00:00:00"};
    char date[32], time[32];
    std::snprintf(date, sizeof date, "%02d %-3.3s %02d", tm.tm_mday % 100, kMonths[tm.tm_mon % 12],
                  (tm.tm_year + 1900) % 100);
    std::snprintf(time, sizeof time, "%02d:%02d:%02d", tm.tm_hour % 100, tm.tm_min % 100, tm.tm_sec % 100);
    return {date, time};
}

}  // namespace murv
