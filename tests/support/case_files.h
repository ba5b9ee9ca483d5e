// Small files of a known shape written and read through the public calls:
// a numeric variable x holding first, first+1, ... and a string s holding
// the same number as text. Used where a test cares about whole files
// surviving (or not) rather than about single calls.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

#include "murvio.h"

namespace murv::testing {

// The codes of a run of calls: the first failure and the close.
struct Codes {
    int first = MURV_RC_OK;  // the first call that did not return 0
    int close = MURV_RC_OK;
    void Note(int rc) {
        if (first == MURV_RC_OK && rc != MURV_RC_OK) first = rc;
    }
    bool AllOk() const { return first == MURV_RC_OK && close == MURV_RC_OK; }
};

inline void CaseText(double x, char* out, std::size_t n) { std::snprintf(out, n, "c%.0f", x); }

// Writes the cases [first, first + count) through h value by value.
inline void WriteCases(int h, Codes& codes, int first, int count) {
    double vx = 0, vs = 0;
    for (int rc : {murvGetVarHandle(h, "x", &vx), murvGetVarHandle(h, "s", &vs)}) codes.Note(rc);
    for (int i = 0; i < count && codes.first == MURV_RC_OK; ++i) {
        char text[32];
        CaseText(first + i, text, sizeof text);
        for (int rc : {murvSetValueNumeric(h, vx, first + i), murvSetValueChar(h, vs, text), murvCommitCaseRecord(h)})
            codes.Note(rc);
    }
}

// A new file of count cases; the handle is always closed.
inline Codes WriteCaseFile(const std::string& path, int count, bool compressed, int first = 0) {
    Codes codes;
    int h = -1;
    codes.Note(murvOpenWrite(path.c_str(), &h));
    if (h < 0) return codes;
    for (int rc : {murvSetVarName(h, "x", 0), murvSetVarName(h, "s", 12), murvSetCompression(h, compressed ? 1 : 0),
                   murvCommitHeader(h)})
        codes.Note(rc);
    if (codes.first == MURV_RC_OK) WriteCases(h, codes, first, count);
    codes.close = murvCloseWrite(h);
    return codes;
}

// Appends count cases; the handle is always closed.
inline Codes AppendCases(const std::string& path, int first, int count) {
    Codes codes;
    int h = -1;
    codes.Note(murvOpenAppend(path.c_str(), &h));
    if (h < 0) return codes;
    WriteCases(h, codes, first, count);
    codes.close = murvCloseAppend(h);
    return codes;
}

// True when the file reads back exactly the cases [first, first + count),
// its string s matching its x in each and its stated count too.
inline bool HoldsCases(const std::string& path, int first, int count) {
    int h = -1, stated = -1, rc, n = 0;
    if (murvOpenRead(path.c_str(), &h) != MURV_RC_OK) return false;
    murvGetNumberofCases(h, &stated);
    double vx = 0, vs = 0;
    murvGetVarHandle(h, "x", &vx);
    murvGetVarHandle(h, "s", &vs);
    bool same = stated == count;
    while ((rc = murvReadCaseRecord(h)) == MURV_RC_OK) {
        double x = 0;
        char text[32] = {}, want[32];
        murvGetValueNumeric(h, vx, &x);
        murvGetValueChar(h, vs, text, sizeof text);
        CaseText(first + n, want, sizeof want);
        same = same && x == first + n && std::string(text).rfind(want, 0) == 0;
        ++n;
    }
    murvCloseRead(h);
    return same && rc == MURV_RC_END_OF_FILE && n == count;
}

inline std::string FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Where a file's 64-bit case-count record holds the count (the record found
// by its fixed head); npos when it has none.
inline std::size_t CountRecordAt(const std::string& bytes) {
    const std::size_t at = bytes.find(std::string("\x07\0\0\0\x10\0\0\0\x08\0\0\0\x02\0\0\0", 16));
    return at == std::string::npos ? at : at + 24;
}

// The case counts a file written by the library states, in its header and in
// its count record (-2 when either is missing); reads only the file's head.
inline std::pair<std::int64_t, std::int64_t> StatedCaseCounts(const std::string& path) {
    std::string head(64 * 1024, '\0');
    std::ifstream in(path, std::ios::binary);
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    const std::size_t record = CountRecordAt(head);
    std::int32_t header = -2;
    std::int64_t count = -2;
    if (head.size() >= 84) std::memcpy(&header, head.data() + 80, 4);
    if (record != std::string::npos && record + 8 <= head.size()) std::memcpy(&count, head.data() + record, 8);
    return {header, count};
}

// Overwrites the case count a file written by the library states, in its
// header and in its 64-bit count record; false when it has no such record.
inline bool SetStatedCaseCount(const std::string& path, std::int64_t count) {
    std::string bytes = FileBytes(path);
    const std::size_t record = CountRecordAt(bytes);
    if (bytes.size() < 84 || record == std::string::npos) return false;
    const auto header = static_cast<std::int32_t>(count);
    std::memcpy(bytes.data() + 80, &header, 4);
    std::memcpy(bytes.data() + record, &count, 8);
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return true;
}

}  // namespace murv::testing
