// Opening, committing and closing files through the interface.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/byte_builder.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using murv::testing::TempDir;

// A small committed file with one numeric variable and n cases.
void MakeFile(const std::string& path, int cases = 0) {
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "x", 0), MURV_RC_OK);
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    for (int i = 0; i < cases; ++i) ASSERT_EQ(murvCommitCaseRecord(h), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
}

TEST(Lifecycle, OpenCodes) {
    TempDir dir;
    int h = 7;
    EXPECT_EQ(murvOpenRead(dir.File("missing").c_str(), &h), MURV_RC_BAD_FILE) << "no probe: the reader fails";
    EXPECT_EQ(h, -1);
    h = 7;
    EXPECT_EQ(murvOpenAppend(dir.File("missing").c_str(), &h), MURV_RC_FILE_OPEN);
    EXPECT_EQ(h, -1);
    EXPECT_EQ(murvOpenWriteCopy(dir.File("new").c_str(), dir.File("missing").c_str(), &h), MURV_RC_FILE_OPEN);
    EXPECT_EQ(h, -1);
    EXPECT_FALSE(fs::exists(dir.File("new")));
    EXPECT_EQ(murvOpenWrite(dir.File("no/such/dir/f").c_str(), &h), MURV_RC_FILE_OPEN);
    EXPECT_EQ(murvOpenRead(nullptr, &h), MURV_RC_BAD_FILE);
    EXPECT_EQ(murvOpenWrite(nullptr, &h), MURV_RC_FILE_OPEN);
    EXPECT_NE(murvOpenRead(dir.File("x").c_str(), nullptr), MURV_RC_OK);

    // Not a system file at all.
    std::ofstream(dir.File("text")) << "hello, this is not a data file at all, just text";
    EXPECT_EQ(murvOpenRead(dir.File("text").c_str(), &h), MURV_RC_BAD_FILE);
    EXPECT_EQ(murvOpenAppend(dir.File("text").c_str(), &h), MURV_RC_BAD_FILE);
    EXPECT_EQ(h, -1);
}

TEST(Lifecycle, WriteProbeLeavesNoTrace) {
    TempDir dir;
    const std::string path = dir.File("f.sav");
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    EXPECT_FALSE(fs::exists(path)) << "nothing on disk before the commit";
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_FALSE(fs::exists(path)) << "an uncommitted file is never created";

    std::ofstream(path) << "keep me";
    if (geteuid() != 0) {
        ::chmod(path.c_str(), 0444);
        EXPECT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_FILE_OPEN);
        std::ifstream in(path);
        std::string content;
        std::getline(in, content);
        EXPECT_EQ(content, "keep me");
    }
}

TEST(Lifecycle, CommitCodes) {
    TempDir dir;
    int h = -1;
    ASSERT_EQ(murvOpenWrite(dir.File("a").c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_EMPTY_DICT);
    ASSERT_EQ(murvSetVarName(h, "x", 0), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(h), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_DICT_COMMITTED);
    EXPECT_EQ(murvSetVarName(h, "y", 0), MURV_RC_DICT_COMMITTED);
    EXPECT_EQ(murvReadCaseRecord(h), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);

    ASSERT_EQ(murvOpenRead(dir.File("a").c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_READ_MODE);
    EXPECT_EQ(murvSetVarName(h, "y", 0), MURV_RC_READ_MODE);
    EXPECT_EQ(murvCommitCaseRecord(h), MURV_RC_READ_MODE);
    EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
    EXPECT_EQ(murvCloseRead(h), MURV_RC_BAD_HANDLE) << "closed twice";
}

TEST(Lifecycle, BadHandles) {
    for (int h : {-1, 100, 1000, -100000}) {
        EXPECT_EQ(murvCloseRead(h), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvCloseWrite(h), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvCloseAppend(h), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvCommitHeader(h), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvSetVarName(h, "x", 0), MURV_RC_BAD_HANDLE);
    }
}

TEST(Lifecycle, HandleTableOfOneHundred) {
    TempDir dir;
    const std::string path = dir.File("f.sav");
    MakeFile(path);
    std::vector<int> handles;
    for (int i = 0; i < 100; ++i) {
        int h = -1;
        ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK) << i;
        handles.push_back(h);
    }
    int h = 5;
    EXPECT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_TABLE_FULL);
    EXPECT_EQ(h, -1);
    EXPECT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_TABLE_FULL);
    EXPECT_EQ(murvOpenWrite(dir.File("g.sav").c_str(), &h), MURV_RC_FILE_OPEN) << "a full table is 1 for writing";
    EXPECT_EQ(murvCloseRead(handles[37]), MURV_RC_OK);
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(h, handles[37]) << "the lowest free slot is reused";
    for (int x : handles) EXPECT_EQ(murvCloseRead(x), MURV_RC_OK);
}

TEST(Lifecycle, AnyCloseFinishesAWrittenFile) {
    TempDir dir;
    const std::string path = dir.File("f.sav");
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "x", 0), MURV_RC_OK);
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(murvCommitCaseRecord(h), MURV_RC_OK);
    EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    int n = 0;
    EXPECT_EQ(murvGetNumberofCases(h, &n), MURV_RC_OK);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
}

TEST(Lifecycle, WriteCopyTakesTheDictionary) {
    TempDir dir;
    const std::string src = dir.File("src.sav"), dst = dir.File("dst.sav");
    MakeFile(src, 4);
    int h = -1;
    ASSERT_EQ(murvOpenWriteCopy(dst.c_str(), src.c_str(), &h), MURV_RC_OK);
    int n = 0;
    EXPECT_EQ(murvGetNumberofVariables(h, &n), MURV_RC_OK);
    EXPECT_EQ(n, 1);
    EXPECT_EQ(murvSetVarName(h, "extra", 0), MURV_RC_OK) << "the copy is an uncommitted write handle";
    EXPECT_EQ(murvSetVarName(h, "X", 0), MURV_RC_DUP_VAR) << "the copied names are indexed";
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    ASSERT_EQ(murvOpenRead(dst.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvGetNumberofVariables(h, &n), MURV_RC_OK);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(murvGetNumberofCases(h, &n), MURV_RC_OK);
    EXPECT_EQ(n, 0) << "no cases are copied";
    EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
}

TEST(Lifecycle, AppendAddsCases) {
    TempDir dir;
    const std::string path = dir.File("f.sav");
    MakeFile(path, 2);
    int h = -1;
    ASSERT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvSetVarName(h, "y", 0), MURV_RC_DICT_COMMITTED);
    EXPECT_EQ(murvCommitCaseRecord(h), MURV_RC_OK);
    EXPECT_EQ(murvCloseAppend(h), MURV_RC_OK);
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    int n = 0;
    EXPECT_EQ(murvGetNumberofCases(h, &n), MURV_RC_OK);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
}

}  // namespace

namespace {

TEST(ShortNames, SegmentNamesMustNotClash) {
    murv::testing::TempDir dir;
    const std::string path = dir.File("f.sav");
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "LongVariable", 300), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "LONGV001", 0), MURV_RC_OK);
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_DUP_VAR) << "the second segment would be named LONGV001";
    EXPECT_EQ(murvSetVarName(h, "other", 0), MURV_RC_OK) << "the dictionary is still open";
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_FALSE(std::filesystem::exists(path));

    // Two very long strings whose names share a stem get segments of their own.
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "comment1", 600), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "comment2", 600), MURV_RC_OK);
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    double v1 = 0, v2 = 0;
    ASSERT_EQ(murvGetVarHandle(h, "comment1", &v1), MURV_RC_OK);
    ASSERT_EQ(murvGetVarHandle(h, "comment2", &v2), MURV_RC_OK);
    const std::string a(600, 'a'), b = std::string(300, 'b') + std::string(299, 'c');
    ASSERT_EQ(murvSetValueChar(h, v1, a.c_str()), MURV_RC_OK);
    ASSERT_EQ(murvSetValueChar(h, v2, b.c_str()), MURV_RC_OK);
    ASSERT_EQ(murvCommitCaseRecord(h), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    int n = 0, type = -1;
    char name[65];
    ASSERT_EQ(murvGetNumberofVariables(h, &n), MURV_RC_OK);
    EXPECT_EQ(n, 2);
    ASSERT_EQ(murvGetVarInfo(h, 1, name, &type), MURV_RC_OK);
    EXPECT_STREQ(name, "comment2");
    EXPECT_EQ(type, 600);
    ASSERT_EQ(murvReadCaseRecord(h), MURV_RC_OK);
    std::vector<char> out(601);
    ASSERT_EQ(murvGetValueChar(h, v2, out.data(), 601), MURV_RC_OK);
    EXPECT_EQ(std::string(out.data()).substr(0, 599), b);
    ASSERT_EQ(murvGetValueChar(h, v1, out.data(), 601), MURV_RC_OK);
    EXPECT_EQ(std::string(out.data()), a);
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

TEST(ShortNames, CompatNames) {
    murv::testing::TempDir dir;
    const std::string path = dir.File("f.sav");
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "AgeAtInterview", 0), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "AgeAtInterview2", 0), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "q1", 0), MURV_RC_OK);
    char shortName[9] = "x";
    EXPECT_EQ(murvGetVarCompatName(h, "nosuch", shortName), MURV_RC_DICT_NOT_COMMITTED)
        << "before the commit, even for a name that does not exist";
    EXPECT_STREQ(shortName, "");
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_EQ(murvGetVarCompatName(h, "AgeAtInterview", shortName), MURV_RC_OK);
    EXPECT_STREQ(shortName, "AGEATINT");
    EXPECT_EQ(murvGetVarCompatName(h, "ageatinterview2", shortName), MURV_RC_OK);
    EXPECT_STREQ(shortName, "AGEATI_A");
    EXPECT_EQ(murvGetVarCompatName(h, "nosuch", shortName), MURV_RC_VAR_NOT_FOUND);
    EXPECT_EQ(murvGetVarCompatName(h, "q1", nullptr), MURV_RC_BAD_HANDLE);
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);

    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvGetVarCompatName(h, "AgeAtInterview2", shortName), MURV_RC_OK);
    EXPECT_STREQ(shortName, "AGEATI_A");
    EXPECT_EQ(murvGetVarCompatName(h, "Q1", shortName), MURV_RC_OK);
    EXPECT_STREQ(shortName, "Q1");
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);

    // A file without a long-name record: the first 8 bytes of the name.
    murv::testing::ByteBuilder b;
    b.Header(1, 0).Variable(0, "LONGISH8").End();
    b.Save(path);
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvGetVarCompatName(h, "longish8", shortName), MURV_RC_OK);
    EXPECT_STREQ(shortName, "longish8");
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

}  // namespace
