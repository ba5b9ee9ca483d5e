// Handles on new and reopened files, for tests that go through the public
// calls: the setup most interface tests share.
#pragma once

#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "murvio.h"

namespace murv::testing {

struct VarDef {
    const char* name;
    int type;  // 0 numeric, else the string width
};

// A write handle on path with the variables defined; compressed if asked.
inline int OpenNew(const std::string& path, std::initializer_list<VarDef> vars, bool compressed = false) {
    int h = -1;
    EXPECT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK) << path;
    for (const VarDef& v : vars) EXPECT_EQ(murvSetVarName(h, v.name, v.type), MURV_RC_OK) << v.name;
    EXPECT_TRUE(!compressed || murvSetCompression(h, 1) == MURV_RC_OK);
    return h;
}

// Sets the locale of a table row through the library. A locale this system
// lacks (the Windows builds' runs under Wine) is added to missing and the row
// is to be left out.
inline bool RowLocale(const char* locale, std::string& missing) {
    if (murvSetLocale(MURV_LC_ALL, locale)) return true;
    missing += std::string(" ") + locale;
    return false;
}

inline int OpenForRead(const std::string& path) {
    int h = -1;
    EXPECT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK) << path;
    return h;
}

// Closes the write handle h (committing its header first if asked) and
// opens its file for reading.
inline int Reopen(int h, const std::string& path, bool commit = true) {
    EXPECT_TRUE(!commit || murvCommitHeader(h) == MURV_RC_OK);
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
    return OpenForRead(path);
}

}  // namespace murv::testing
