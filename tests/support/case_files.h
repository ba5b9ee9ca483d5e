// Small files of a known shape written and read through the public calls:
// a numeric variable x holding first, first+1, ... and a string s holding
// the same number as text. Used where a test cares about whole files
// surviving (or not) rather than about single calls.
#pragma once

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

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
    codes.Note(murvGetVarHandle(h, "x", &vx));
    codes.Note(murvGetVarHandle(h, "s", &vs));
    for (int i = 0; i < count && codes.first == MURV_RC_OK; ++i) {
        char text[32];
        CaseText(first + i, text, sizeof text);
        codes.Note(murvSetValueNumeric(h, vx, first + i));
        codes.Note(murvSetValueChar(h, vs, text));
        codes.Note(murvCommitCaseRecord(h));
    }
}

// A new file of count cases; the handle is always closed.
inline Codes WriteCaseFile(const std::string& path, int count, bool compressed, int first = 0) {
    Codes codes;
    int h = -1;
    codes.Note(murvOpenWrite(path.c_str(), &h));
    if (h < 0) return codes;
    codes.Note(murvSetVarName(h, "x", 0));
    codes.Note(murvSetVarName(h, "s", 12));
    codes.Note(murvSetCompression(h, compressed ? 1 : 0));
    codes.Note(murvCommitHeader(h));
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

// Reads a file written as above: the x values of its cases, checking that s
// matches each; -1 as the count on any failure or mismatch.
struct ReadBack {
    int rc = MURV_RC_OK;
    int stated = -1;  // the case count the file states
    std::vector<double> x;
    bool consistent = true;
};

inline ReadBack ReadCaseFile(const std::string& path) {
    ReadBack r;
    int h = -1;
    r.rc = murvOpenRead(path.c_str(), &h);
    if (r.rc != MURV_RC_OK) return r;
    murvGetNumberofCases(h, &r.stated);
    double vx = 0, vs = 0;
    murvGetVarHandle(h, "x", &vx);
    murvGetVarHandle(h, "s", &vs);
    int rc;
    while ((rc = murvReadCaseRecord(h)) == MURV_RC_OK) {
        double x = 0;
        char text[32] = {}, want[32];
        murvGetValueNumeric(h, vx, &x);
        murvGetValueChar(h, vs, text, sizeof text);
        CaseText(x, want, sizeof want);
        if (std::string(text).substr(0, std::string(want).size()) != want) r.consistent = false;
        r.x.push_back(x);
    }
    if (rc != MURV_RC_END_OF_FILE) r.rc = rc;
    murvCloseRead(h);
    return r;
}

// True when the file reads back exactly the cases [first, first + count).
inline bool HoldsCases(const std::string& path, int first, int count) {
    const ReadBack r = ReadCaseFile(path);
    if (r.rc != MURV_RC_OK || !r.consistent || r.stated != count || static_cast<int>(r.x.size()) != count) return false;
    for (int i = 0; i < count; ++i)
        if (r.x[static_cast<std::size_t>(i)] != first + i) return false;
    return true;
}

inline std::string FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Overwrites the case count a file written by the library states, in its
// header and in its 64-bit count record; false when it has no such record.
inline bool SetStatedCaseCount(const std::string& path, std::int64_t count) {
    std::string bytes = FileBytes(path);
    const std::size_t record = bytes.find(std::string("\x07\0\0\0\x10\0\0\0\x08\0\0\0\x02\0\0\0", 16));
    if (bytes.size() < 84 || record == std::string::npos) return false;
    for (int i = 0; i < 8; ++i) {
        const char b = static_cast<char>(static_cast<std::uint64_t>(count) >> (8 * i));
        if (i < 4) bytes[80 + static_cast<std::size_t>(i)] = b;
        bytes[record + 24 + static_cast<std::size_t>(i)] = b;
    }
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return true;
}

}  // namespace murv::testing
