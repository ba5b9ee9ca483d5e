// Opening, committing and closing files through the interface.

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/byte_builder.h"
#include "support/case_files.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace murv::testing;

TEST(Lifecycle, OpenCodes) {
    TempDir dir;
    const std::string missing = dir.File("missing"), text = dir.File("text"), bad = dir.File("no/such/dir/f");
    std::ofstream(text) << "hello, this is not a data file at all, just text";
    // A reader has no probe: any failure to open is a bad file. Each refusal
    // leaves the handle at -1.
    const std::tuple<const char*, std::function<int(int*)>, int> rows[] = {
        {"read missing", [&](int* h) { return murvOpenRead(missing.c_str(), h); }, MURV_RC_BAD_FILE},
        {"append missing", [&](int* h) { return murvOpenAppend(missing.c_str(), h); }, MURV_RC_FILE_OPEN},
        {"copy missing", [&](int* h) { return murvOpenWriteCopy(dir.File("new").c_str(), missing.c_str(), h); },
         MURV_RC_FILE_OPEN},
        {"write in no dir", [&](int* h) { return murvOpenWrite(bad.c_str(), h); }, MURV_RC_FILE_OPEN},
        {"read null", [](int* h) { return murvOpenRead(nullptr, h); }, MURV_RC_BAD_FILE},
        {"write null", [](int* h) { return murvOpenWrite(nullptr, h); }, MURV_RC_FILE_OPEN},
        {"read text", [&](int* h) { return murvOpenRead(text.c_str(), h); }, MURV_RC_BAD_FILE},
        {"append text", [&](int* h) { return murvOpenAppend(text.c_str(), h); }, MURV_RC_BAD_FILE},
    };
    for (const auto& [name, open, code] : rows) {
        int h = 7;
        EXPECT_EQ(open(&h), code) << name;
        EXPECT_EQ(h, -1) << name;
    }
    EXPECT_FALSE(fs::exists(dir.File("new")));
    EXPECT_NE(murvOpenRead(dir.File("x").c_str(), nullptr), MURV_RC_OK);
}

// A write handle puts nothing on disk before its commit and an uncommitted
// one nothing at all, whatever commits it had refused; a file it may not
// write is left alone. (The case table checks the other calls in each state,
// and the closes on closed handles.)
TEST(Lifecycle, WriteProbeCommitAndClose) {
    TempDir dir;
    const std::string path = dir.File("f.murv");
    int h = OpenNew(path, {});
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_EMPTY_DICT);
    EXPECT_TRUE(murvSetVarName(h, "LongVariable", 300) == MURV_RC_OK && murvSetVarName(h, "LONGV001", 0) == MURV_RC_OK);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_DUP_VAR) << "the second segment would be named LONGV001";
    EXPECT_EQ(murvSetVarName(h, "other", 0), MURV_RC_OK) << "the dictionary is still open";
    EXPECT_FALSE(fs::exists(path)) << "nothing on disk before the commit";
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_FALSE(fs::exists(path)) << "an uncommitted file is never created";
    std::ofstream(path) << "keep me";
    fs::permissions(path, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    // (The superuser may write it all the same: then there is nothing to check.)
    if (!std::ofstream(path, std::ios::app)) {
        EXPECT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_FILE_OPEN);
        EXPECT_EQ(FileBytes(path), "keep me");
    }
}

TEST(Lifecycle, HandleTableOfOneHundred) {
    TempDir dir;
    const std::string path = dir.File("f.murv"), other = dir.File("other.murv");
    ASSERT_TRUE(WriteCaseFile(path, 0, false).AllOk() && WriteCaseFile(other, 0, false).AllOk());
    std::vector<int> handles(100, -1);
    for (int& h : handles) ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    int h = 5;
    EXPECT_TRUE(murvOpenRead(path.c_str(), &h) == MURV_RC_TABLE_FULL && h == -1) << h;
    // (Another file: where open files deny writers, the first cannot be updated.)
    EXPECT_EQ(murvOpenAppend(other.c_str(), &h), MURV_RC_TABLE_FULL);
    EXPECT_EQ(murvOpenWrite(dir.File("g.murv").c_str(), &h), MURV_RC_FILE_OPEN) << "a full table is 1 for writing";
    EXPECT_EQ(murvCloseRead(handles[37]), MURV_RC_OK);
    EXPECT_TRUE(murvOpenRead(path.c_str(), &h) == MURV_RC_OK && h == handles[37]) << "the lowest free slot is reused";
    for (int x : handles) EXPECT_EQ(murvCloseRead(x), MURV_RC_OK);
}

TEST(ShortNames, CompatNames) {
    TempDir dir;
    const std::string path = dir.File("f.murv");
    int h = OpenNew(path, {{"AgeAtInterview", 0}, {"AgeAtInterview2", 0}, {"q1", 0}});
    auto compat = [&](const char* name) {  // the code and the short name on h
        char shortName[9] = "x";
        const int rc = murvGetVarCompatName(h, name, shortName);
        return std::pair(rc, std::string(shortName));
    };
    auto ok = [](const char* shortName) { return std::pair(MURV_RC_OK, std::string(shortName)); };
    EXPECT_EQ(compat("nosuch"), std::pair(MURV_RC_DICT_NOT_COMMITTED, std::string()))
        << "before the commit, even for a name that does not exist";
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_EQ(compat("AgeAtInterview"), ok("AGEATINT"));
    EXPECT_EQ(compat("ageatinterview2"), ok("AGEATI_A"));
    EXPECT_EQ(compat("nosuch"), std::pair(MURV_RC_VAR_NOT_FOUND, std::string()));
    EXPECT_EQ(murvGetVarCompatName(h, "q1", nullptr), MURV_RC_BAD_HANDLE);
    h = Reopen(h, path, false);
    EXPECT_EQ(compat("AgeAtInterview2"), ok("AGEATI_A"));
    EXPECT_EQ(compat("Q1"), ok("Q1"));
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);

    // A file without a long-name record: the first 8 bytes of the name.
    ByteBuilder().Header(1, 0).Variable(0, "LONGISH8").End().Save(path);
    h = OpenForRead(path);
    EXPECT_EQ(compat("longish8"), ok("longish8"));
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);

    // Two short names that give one long name: the second variable is
    // renamed on reading, and found under its new name.
    ByteBuilder().Header(2, 0).Variable(0, "AGE").Variable(0, "age").ExtensionText(13, "AGE=Age\tage=Age2").End().Save(path);
    h = OpenForRead(path);
    EXPECT_EQ(compat("age"), ok("AGE"));
    EXPECT_EQ(compat("v1"), ok("V1"));
    EXPECT_EQ(compat("Age2").first, MURV_RC_VAR_NOT_FOUND);
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

}  // namespace
