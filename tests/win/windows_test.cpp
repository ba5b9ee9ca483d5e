// What the library does on Windows that it does differently elsewhere: files
// shared with other programs, replacement of a file another program holds,
// and the ANSI code pages, double-byte ones among them.
#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/temp_dir.h"

namespace {

using murv::testing::TempDir;
namespace fs = std::filesystem;

// Whether another program could open path with the given access, letting
// others read and write it.
bool OthersCanOpen(const std::string& path, DWORD access) {
    HANDLE f = CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    return f != INVALID_HANDLE_VALUE && CloseHandle(f);
}

// A committed file of one numeric variable and n cases.
int WriteFile(const std::string& path, int n) {
    int h = -1, rc = murvOpenWrite(path.c_str(), &h);
    if (rc != MURV_RC_OK) return rc;
    murvSetVarName(h, "x", 0);
    murvCommitHeader(h);
    for (double x = 0; x < n; ++x) murvWholeCaseOut(h, reinterpret_cast<const char*>(&x));
    return murvCloseWrite(h);
}

int CaseCount(const std::string& path) {
    int h = -1, n = -1;
    if (murvOpenRead(path.c_str(), &h) != MURV_RC_OK) return -1;
    murvGetNumberofCases(h, &n);
    murvCloseRead(h);
    return n;
}

TEST(Windows, FileBeingWrittenIsReadableButNotWritableByOthers) {
    TempDir dir;
    const std::string path = dir.File("w.murv");
    int h = -1;
    ASSERT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
    ASSERT_EQ(murvSetVarName(h, "x", 0), MURV_RC_OK);
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_TRUE(OthersCanOpen(path, GENERIC_READ));
    EXPECT_FALSE(OthersCanOpen(path, GENERIC_READ | GENERIC_WRITE)) << "others must not write while the library writes";
    ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
    EXPECT_TRUE(OthersCanOpen(path, GENERIC_READ | GENERIC_WRITE));

    // A file being read may be read by others, not written.
    ASSERT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
    EXPECT_TRUE(OthersCanOpen(path, GENERIC_READ));
    EXPECT_FALSE(OthersCanOpen(path, GENERIC_READ | GENERIC_WRITE));
    ASSERT_EQ(murvCloseRead(h), MURV_RC_OK);
}

TEST(Windows, FileHeldOpenElsewhereIsNotReplaced) {
    TempDir dir;
    const std::string path = dir.File("held.murv");
    ASSERT_EQ(WriteFile(path, 3), MURV_RC_OK);
    // Another program reads the file and lets others read and write it, but
    // not delete or rename it.
    HANDLE other = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    EXPECT_NE(WriteFile(path, 5), MURV_RC_OK) << "the replacement cannot take the file's place";
    CloseHandle(other);
    EXPECT_EQ(CaseCount(path), 3) << "the old file is whole";
    int files = 0;
    for (const auto& entry : fs::directory_iterator(dir.Path())) files += entry.is_regular_file();
    EXPECT_EQ(files, 1) << "the replacement is removed";

    // Held so that the library cannot even open it for writing.
    other = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    int h = -1;
    EXPECT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_FILE_OPEN);
    EXPECT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_FILE_OPEN);
    CloseHandle(other);

    EXPECT_EQ(WriteFile(path, 5), MURV_RC_OK);
    EXPECT_EQ(CaseCount(path), 5);
}

TEST(Windows, DevicesAreRefused) {
    int h = -1;
    EXPECT_EQ(murvOpenRead("NUL", &h), MURV_RC_BAD_FILE);
    EXPECT_EQ(murvOpenWrite("NUL", &h), MURV_RC_FILE_OPEN);
    EXPECT_EQ(murvOpenAppend("NUL", &h), MURV_RC_FILE_OPEN);
}

// At load the library takes the user's default ANSI code page for its text.
// MURVIO_EXPECT_CODE_PAGE names the one the test's environment chose.
TEST(Windows, LoadSetsUserAnsiCodePage) {
    const char* ctype = murvSetLocale(MURV_LC_CTYPE, nullptr);
    ASSERT_NE(ctype, nullptr);
    const std::string acp = "." + std::to_string(GetACP());
    const std::string name = ctype;
    EXPECT_EQ(name.substr(name.size() - std::min(name.size(), acp.size())), acp) << name;
    if (const char* want = std::getenv("MURVIO_EXPECT_CODE_PAGE")) {
        EXPECT_EQ(std::to_string(GetACP()), want);
    }
}

// Labels are cut on a character boundary of the double-byte code pages: a
// label of 255 single bytes and one double-byte character loses the whole
// character, never half of it.
TEST(Windows, DoubleByteCodePages) {
    struct Row {
        const char *locale, *character;  // character: a double-byte one of the code page
    } const rows[] = {{".932", "\x82\xa0"}, {".936", "\xb0\xa1"}, {".949", "\xb0\xa1"}, {".950", "\xa4\x40"}};
    TempDir dir;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.locale);
        ASSERT_NE(murvSetLocale(MURV_LC_ALL, row.locale), nullptr);
        int h = -1, length = 0;
        ASSERT_EQ(murvOpenWrite(dir.File("dbcs.murv").c_str(), &h), MURV_RC_OK);
        const std::string name = std::string(row.character) + "1";
        EXPECT_EQ(murvValidateVarname(name.c_str()), 0);
        ASSERT_EQ(murvSetVarName(h, name.c_str(), 0), MURV_RC_OK);
        const std::string label = std::string(255, 'a') + row.character;
        EXPECT_EQ(murvSetVarLabel(h, name.c_str(), label.c_str()), MURV_RC_VAR_LABEL_CUT);
        char buffer[300];
        ASSERT_EQ(murvGetVarLabelLong(h, name.c_str(), buffer, sizeof buffer, &length), MURV_RC_OK);
        EXPECT_EQ(length, 255);
        EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
    }
    murvSetLocale(MURV_LC_ALL, "C");
}

}  // namespace
