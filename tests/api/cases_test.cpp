// Case calls through the public header: value-by-value and whole-record
// writing and reading, seeking, appending, counts, compression and the
// case-weight variable.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/temp_dir.h"

namespace {

std::uint64_t Bits(double d) {
    std::uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

struct Var {
    const char* name;
    int type;  // 0 numeric, else the string width
};

class CaseCalls : public ::testing::Test {
protected:
    // A write handle with the variables defined and, when commit is set, the
    // header committed.
    int Create(const std::string& path, const std::vector<Var>& vars, bool compressed = false, bool commit = true) {
        int h = -1;
        EXPECT_EQ(murvOpenWrite(path.c_str(), &h), MURV_RC_OK);
        for (const Var& v : vars) EXPECT_EQ(murvSetVarName(h, v.name, v.type), MURV_RC_OK) << v.name;
        if (compressed) {
            EXPECT_EQ(murvSetCompression(h, 1), MURV_RC_OK);
        }
        if (commit) {
            EXPECT_EQ(murvCommitHeader(h), MURV_RC_OK);
        }
        return h;
    }
    int OpenRead(const std::string& path) {
        int h = -1;
        EXPECT_EQ(murvOpenRead(path.c_str(), &h), MURV_RC_OK);
        return h;
    }
    double Num(int h, double var) {
        double v = 0;
        EXPECT_EQ(murvGetValueNumeric(h, var, &v), MURV_RC_OK);
        return v;
    }
    std::string Str(int h, double var) {
        char buf[300];
        EXPECT_EQ(murvGetValueChar(h, var, buf, sizeof buf), MURV_RC_OK);
        return buf;
    }

    murv::testing::TempDir dir_;
};

const double kSysmis = murvSysmisVal();

// Makes a file's case count unknown, as a writer that could not record it
// leaves it: -1 in the header and in the 64-bit count record.
void ForgetCaseCount(const std::string& path) {
    std::string bytes;
    {
        std::ifstream in(path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    const std::int32_t minusOne = -1;
    const std::int64_t minusOne64 = -1;
    ASSERT_GT(bytes.size(), 84u);
    std::memcpy(&bytes[80], &minusOne, 4);
    // Record type 7, subtype 16, units of 8 bytes, 2 units: marker, count.
    const std::int32_t head[4] = {7, 16, 8, 2};
    const auto at = bytes.find(std::string(reinterpret_cast<const char*>(head), sizeof head));
    ASSERT_NE(at, std::string::npos);
    std::memcpy(&bytes[at + sizeof head + 8], &minusOne64, 8);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

TEST_F(CaseCalls, HandleAndModeChecks) {
    const std::string path = dir_.File("modes.sav");
    int w = Create(path, {{"x", 0}, {"s", 4}}, false, false);
    double d = 0;
    char buf[16];
    char rec[16] = {};
    int n = 0;

    // Case output before the header is committed; the case size is not known.
    EXPECT_EQ(murvSetValueNumeric(w, 1, 1.0), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(murvSetValueChar(w, 2, "a"), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(murvWholeCaseOut(w, rec), MURV_RC_DICT_NOT_COMMITTED);
    n = 7;
    EXPECT_EQ(murvGetCaseSize(w, &n), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(n, 0);
    n = 7;
    EXPECT_EQ(murvGetNumberofCases(w, &n), MURV_RC_WRITE_MODE);
    EXPECT_EQ(n, -1);
    EXPECT_EQ(murvGetEstimatedNofCases(w, &n), MURV_RC_WRITE_MODE);

    // Case input on a write handle.
    EXPECT_EQ(murvReadCaseRecord(w), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvSeekNextCase(w, 0), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvGetValueNumeric(w, 1, &d), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvGetValueChar(w, 2, buf, sizeof buf), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvWholeCaseIn(w, rec), MURV_RC_WRITE_MODE);

    ASSERT_EQ(murvCommitHeader(w), MURV_RC_OK);
    EXPECT_EQ(murvGetCaseSize(w, &n), MURV_RC_OK);
    EXPECT_EQ(n, 16);
    // The dictionary calls are closed now.
    EXPECT_EQ(murvSetCompression(w, 1), MURV_RC_DICT_COMMITTED);
    EXPECT_EQ(murvSetCaseWeightVar(w, "x"), MURV_RC_DICT_COMMITTED);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

    int r = OpenRead(path);
    EXPECT_EQ(murvSetValueNumeric(r, 1, 1.0), MURV_RC_READ_MODE);
    EXPECT_EQ(murvSetValueChar(r, 2, "a"), MURV_RC_READ_MODE);
    EXPECT_EQ(murvCommitCaseRecord(r), MURV_RC_READ_MODE);
    EXPECT_EQ(murvWholeCaseOut(r, rec), MURV_RC_READ_MODE);
    EXPECT_EQ(murvSetCompression(r, 1), MURV_RC_READ_MODE);
    EXPECT_EQ(murvSetCaseWeightVar(r, "x"), MURV_RC_READ_MODE);
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, 0);
    ASSERT_EQ(murvCloseRead(r), MURV_RC_OK);

    int a = -1;
    ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
    EXPECT_EQ(murvReadCaseRecord(a), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvSeekNextCase(a, 0), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvWholeCaseIn(a, rec), MURV_RC_WRITE_MODE);
    ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);

    // Unknown and closed handles.
    for (int bad : {-1, 100, r, w}) {
        EXPECT_EQ(murvSetValueNumeric(bad, 1, 1.0), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvSetValueChar(bad, 2, "a"), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvCommitCaseRecord(bad), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvWholeCaseOut(bad, rec), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvReadCaseRecord(bad), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvSeekNextCase(bad, 0), MURV_RC_BAD_HANDLE);
        d = 3;
        EXPECT_EQ(murvGetValueNumeric(bad, 1, &d), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(d, 0.0);
        std::strcpy(buf, "junk");
        EXPECT_EQ(murvGetValueChar(bad, 2, buf, sizeof buf), MURV_RC_BAD_HANDLE);
        EXPECT_STREQ(buf, "");
        EXPECT_EQ(murvWholeCaseIn(bad, rec), MURV_RC_BAD_HANDLE);
        n = 3;
        EXPECT_EQ(murvGetCaseSize(bad, &n), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(n, 0);
        EXPECT_EQ(murvGetNumberofCases(bad, &n), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(n, -1);
        EXPECT_EQ(murvGetEstimatedNofCases(bad, &n), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(murvSetCompression(bad, 1), MURV_RC_BAD_HANDLE);
        n = 0;
        EXPECT_EQ(murvGetCompression(bad, &n), MURV_RC_BAD_HANDLE);
        EXPECT_EQ(n, 1);
        EXPECT_EQ(murvSetCaseWeightVar(bad, "x"), MURV_RC_BAD_HANDLE);
        std::strcpy(buf, "junk");
        EXPECT_EQ(murvGetCaseWeightVar(bad, buf), MURV_RC_BAD_HANDLE);
        EXPECT_STREQ(buf, "");
    }
}

TEST_F(CaseCalls, ValueByValueWriteChecksAndDefaults) {
    const std::string path = dir_.File("values.sav");
    int w = Create(path, {{"a", 0}, {"b", 0}, {"s", 3}});

    // Variable handles: truncated toward zero, 1-based.
    for (double bad : {0.0, 0.5, -1.0, 4.0, 4.5, 1e300, std::nan("")}) {
        EXPECT_EQ(murvSetValueNumeric(w, bad, 1.0), MURV_RC_BAD_VAR_HANDLE) << bad;
        EXPECT_EQ(murvSetValueChar(w, bad, "x"), MURV_RC_BAD_VAR_HANDLE) << bad;
    }
    EXPECT_EQ(murvSetValueNumeric(w, 3, 1.0), MURV_RC_STRING_EXPECTED);
    EXPECT_EQ(murvSetValueChar(w, 1, "x"), MURV_RC_STRING_EXPECTED);
    EXPECT_EQ(murvSetValueChar(w, 3, nullptr), MURV_RC_FILE_WRITE);
    EXPECT_EQ(murvWholeCaseOut(w, nullptr), MURV_RC_FILE_WRITE);

    // Case 0: only b set (through handle 2.9); a too-long string changes nothing.
    EXPECT_EQ(murvSetValueNumeric(w, 2.9, 42.0), MURV_RC_OK);
    EXPECT_EQ(murvSetValueChar(w, 3, "abcd"), MURV_RC_STRING_TOO_LONG);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    // Cases 1 and 2: nothing set, all missing; values are not carried over.
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    // Case 3: a string of exactly the width, then an empty one over it.
    EXPECT_EQ(murvSetValueChar(w, 3, "xyz"), MURV_RC_OK);
    EXPECT_EQ(murvSetValueNumeric(w, 1, -1.5), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    EXPECT_EQ(murvSetValueChar(w, 3, "xyz"), MURV_RC_OK);
    EXPECT_EQ(murvSetValueChar(w, 3, ""), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

    int r = OpenRead(path);
    int n = 0;
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, 5);
    const std::vector<std::tuple<double, double, std::string>> expected = {
        {kSysmis, 42.0, "   "}, {kSysmis, kSysmis, "   "}, {kSysmis, kSysmis, "   "},
        {-1.5, kSysmis, "xyz"}, {kSysmis, kSysmis, "   "}};
    for (const auto& [a, b, s] : expected) {
        ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
        EXPECT_EQ(Num(r, 1), a);
        EXPECT_EQ(Num(r, 2), b);
        EXPECT_EQ(Str(r, 3), s);
    }
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

TEST_F(CaseCalls, ReadingChecksInOrder) {
    const std::string path = dir_.File("read.sav");
    int w = Create(path, {{"n", 0}, {"s", 8}, {"t", 9}});
    EXPECT_EQ(murvSetValueChar(w, 2, "12345678"), MURV_RC_OK);
    EXPECT_EQ(murvSetValueChar(w, 3, "ab"), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

    int r = OpenRead(path);
    double d = 5;
    char buf[32];
    // No case read yet: 50 comes before the variable handle and kind checks.
    EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE);
    EXPECT_EQ(murvGetValueNumeric(r, 99, &d), MURV_RC_NO_CURRENT_CASE);
    EXPECT_EQ(murvGetValueChar(r, 2, buf, sizeof buf), MURV_RC_NO_CURRENT_CASE);

    ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
    EXPECT_EQ(murvGetValueNumeric(r, 0.5, &d), MURV_RC_BAD_VAR_HANDLE);
    EXPECT_EQ(murvGetValueNumeric(r, 4, &d), MURV_RC_BAD_VAR_HANDLE);
    EXPECT_EQ(murvGetValueNumeric(r, 2, &d), MURV_RC_NUMERIC_EXPECTED);
    EXPECT_EQ(murvGetValueChar(r, 1, buf, sizeof buf), MURV_RC_STRING_EXPECTED);
    EXPECT_EQ(murvGetValueChar(r, 4, buf, sizeof buf), MURV_RC_BAD_VAR_HANDLE);
    // The width plus a NUL must fit; nothing is copied otherwise.
    std::strcpy(buf, "junk");
    EXPECT_EQ(murvGetValueChar(r, 2, buf, 8), MURV_RC_BUFFER_SHORT);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(murvGetValueChar(r, 2, buf, 9), MURV_RC_OK);
    EXPECT_STREQ(buf, "12345678");
    EXPECT_EQ(murvGetValueChar(r, 3, buf, 9), MURV_RC_BUFFER_SHORT);
    EXPECT_EQ(murvGetValueChar(r, 3, buf, 10), MURV_RC_OK);
    EXPECT_STREQ(buf, "ab       ") << "trailing blanks are kept";
    // Null outputs give the fixed code and do not crash.
    EXPECT_EQ(murvGetValueNumeric(r, 1, nullptr), MURV_RC_FILE_READ);
    EXPECT_EQ(murvGetValueChar(r, 2, nullptr, 9), MURV_RC_FILE_READ);
    EXPECT_EQ(murvWholeCaseIn(r, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(Num(r, 1), kSysmis) << "the null calls above did not move the file";

    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE);
    EXPECT_EQ(murvSeekNextCase(r, -1), MURV_RC_FILE_READ);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

// Numeric values that compression must not alter (it codes only small
// integers, system-missing and blanks) and strings of the layout's edge
// widths, through both kinds of case data.
TEST_F(CaseCalls, RoundTripPlainAndCompressedIsBitExact) {
    const std::vector<double> numbers = {0.0, -0.0, 1.0, -99.0, 151.0, 152.0, -100.0, 0.5, 1e-310,
                                         std::numeric_limits<double>::infinity(), std::nan(""), kSysmis,
                                         std::nextafter(kSysmis, 0.0), 3.0e9, 255.0};
    const std::string s255(255, 'z');
    const std::vector<std::vector<std::string>> strings = {
        {"a", "12345678", "123456789", s255}, {"", "", "", ""}, {" ", "  x", "abc    de", s255.substr(0, 254) + "!"}};
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File(compressed ? "c.sav" : "p.sav");
        int w = Create(path, {{"s1", 1}, {"num", 0}, {"s8", 8}, {"s9", 9}, {"s255", 255}}, compressed);
        int comp = -1;
        EXPECT_EQ(murvGetCompression(w, &comp), MURV_RC_OK);
        EXPECT_EQ(comp, compressed ? 1 : 0);
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            const auto& s = strings[i % strings.size()];
            EXPECT_EQ(murvSetValueNumeric(w, 2, numbers[i]), MURV_RC_OK);
            EXPECT_EQ(murvSetValueChar(w, 1, s[0].c_str()), MURV_RC_OK);
            EXPECT_EQ(murvSetValueChar(w, 3, s[1].c_str()), MURV_RC_OK);
            EXPECT_EQ(murvSetValueChar(w, 4, s[2].c_str()), MURV_RC_OK);
            EXPECT_EQ(murvSetValueChar(w, 5, s[3].c_str()), MURV_RC_OK);
            EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        }
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int r = OpenRead(path);
        EXPECT_EQ(murvGetCompression(r, &comp), MURV_RC_OK);
        EXPECT_EQ(comp, compressed ? 1 : 0);
        int size = 0;
        EXPECT_EQ(murvGetCaseSize(r, &size), MURV_RC_OK);
        EXPECT_EQ(size, 8 * (1 + 1 + 1 + 2 + 32));
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            SCOPED_TRACE(i);
            const auto& s = strings[i % strings.size()];
            ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
            EXPECT_EQ(Bits(Num(r, 2)), Bits(numbers[i]));
            EXPECT_EQ(Str(r, 1), s[0] + std::string(1 - s[0].size(), ' '));
            EXPECT_EQ(Str(r, 3), s[1] + std::string(8 - s[1].size(), ' '));
            EXPECT_EQ(Str(r, 4), s[2] + std::string(9 - s[2].size(), ' '));
            EXPECT_EQ(Str(r, 5), s[3] + std::string(255 - s[3].size(), ' '));
        }
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

TEST_F(CaseCalls, SeekAndEndOfFile) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File(compressed ? "seek_c.sav" : "seek_p.sav");
        int w = Create(path, {{"i", 0}, {"x", 0}}, compressed);
        const int kCases = 1000;
        for (int i = 0; i < kCases; ++i) {
            EXPECT_EQ(murvSetValueNumeric(w, 1, i), MURV_RC_OK);
            EXPECT_EQ(murvSetValueNumeric(w, 2, i * 0.25), MURV_RC_OK);
            ASSERT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        }
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int r = OpenRead(path);
        for (int target : {500, 0, 999, 998, 7, 7, 640}) {
            ASSERT_EQ(murvSeekNextCase(r, target), MURV_RC_OK);
            double d = 0;
            EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE) << "a seek leaves no current case";
            ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
            EXPECT_EQ(Num(r, 1), target);
            EXPECT_EQ(Num(r, 2), target * 0.25);
            ASSERT_EQ(murvReadCaseRecord(r), target == 999 ? MURV_RC_END_OF_FILE : MURV_RC_OK);
        }
        // Past the end: accepted, then the read reports the end, and keeps
        // doing so without reading until the next seek.
        EXPECT_EQ(murvSeekNextCase(r, kCases + 5), MURV_RC_OK);
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvSeekNextCase(r, 3), MURV_RC_OK);
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
        EXPECT_EQ(Num(r, 1), 3.0);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

TEST_F(CaseCalls, EmptyFileReportsEndUntilSeek) {
    const std::string path = dir_.File("empty.sav");
    int w = Create(path, {{"x", 0}}, true);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);
    int r = OpenRead(path);
    int n = -5;
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, 0);
    char rec[8];
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvWholeCaseIn(r, rec), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvSeekNextCase(r, 0), MURV_RC_OK);
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

// A file whose writer could not record the number of cases: -1 in the header
// and in the 64-bit count record. The count is unknown (-1, code 0) until
// the cases have been read to the end.
TEST_F(CaseCalls, UnknownCaseCount) {
    const std::string path = dir_.File("unknown.sav");
    int w = Create(path, {{"x", 0}});
    for (int i = 0; i < 3; ++i) EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

    ForgetCaseCount(path);

    int r = OpenRead(path);
    int n = 0;
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, -1);
    EXPECT_EQ(murvGetEstimatedNofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, -1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

// Plain cases lie at offsets beyond 4 GiB: a sparse file whose hole reads as
// cases of zeros. Appending finds the end from the file's size (the count is
// unknown), and the count and the cases on either side of the hole come back.
TEST_F(CaseCalls, PlainCasesBeyondFourGiB) {
    const std::string path = dir_.File("sparse.sav");
    int w = Create(path, {{"x", 0}});
    double one = 1.0;
    ASSERT_EQ(murvWholeCaseOut(w, reinterpret_cast<const char*>(&one)), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);
    const auto row0 = static_cast<std::int64_t>(std::filesystem::file_size(path)) - 8;
    ForgetCaseCount(path);

    const std::int64_t cases = (std::int64_t{1} << 29) + 3;  // the data pass 4 GiB
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(row0 + 8 * cases)), 0);
    struct stat st;
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    if (static_cast<std::int64_t>(st.st_blocks) * 512 > (std::int64_t{1} << 20))
        GTEST_SKIP() << "the file system of " << path << " has no sparse files";

    int a = -1;
    ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
    for (double v : {7.0, 8.0}) ASSERT_EQ(murvWholeCaseOut(a, reinterpret_cast<const char*>(&v)), MURV_RC_OK);
    ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);
    EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(path)), row0 + 8 * (cases + 2));

    int r = OpenRead(path);
    int n = 0;
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, cases + 2);
    const std::pair<std::int64_t, double> expected[] = {{cases + 1, 8.0}, {cases, 7.0}, {cases - 1, 0.0}, {0, 1.0}};
    for (const auto& [k, value] : expected) {
        ASSERT_EQ(murvSeekNextCase(r, static_cast<int>(k)), MURV_RC_OK);
        ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK) << "case " << k;
        EXPECT_EQ(Num(r, 1), value) << "case " << k;
    }
    ASSERT_EQ(murvSeekNextCase(r, static_cast<int>(cases + 2)), MURV_RC_OK);
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

TEST_F(CaseCalls, WholeCaseRecords) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File(compressed ? "whole_c.sav" : "whole_p.sav");
        int w = Create(path, {{"n", 0}, {"s", 10}, {"m", 0}}, compressed);
        int size = 0;
        ASSERT_EQ(murvGetCaseSize(w, &size), MURV_RC_OK);
        ASSERT_EQ(size, 32);
        std::vector<std::vector<char>> written;
        for (int i = 0; i < 20; ++i) {
            std::vector<char> rec(32);
            const double n = i, m = i % 3 ? 0.125 * i : kSysmis;
            std::memcpy(rec.data(), &n, 8);
            std::memcpy(rec.data() + 8, "whole case", 10);
            std::memset(rec.data() + 18, ' ', 6);
            std::memcpy(rec.data() + 24, &m, 8);
            ASSERT_EQ(murvWholeCaseOut(w, rec.data()), MURV_RC_OK);
            written.push_back(rec);
        }
        // Records and single values mix: a value set before a whole record
        // belongs to a case that is dropped by it.
        EXPECT_EQ(murvSetValueNumeric(w, 1, 77.0), MURV_RC_OK);
        EXPECT_EQ(murvWholeCaseOut(w, written[0].data()), MURV_RC_OK);
        EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int r = OpenRead(path);
        std::vector<char> rec(32);
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(murvWholeCaseIn(r, rec.data()), MURV_RC_OK);
            EXPECT_EQ(rec, written[static_cast<std::size_t>(i)]) << i;
            double d = 0;
            EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE);
        }
        ASSERT_EQ(murvWholeCaseIn(r, rec.data()), MURV_RC_OK);
        EXPECT_EQ(rec, written[0]);
        ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
        EXPECT_EQ(Num(r, 1), kSysmis) << "the case after a whole record starts empty";
        EXPECT_EQ(murvWholeCaseIn(r, rec.data()), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

TEST_F(CaseCalls, AppendContinuesTheFile) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File(compressed ? "app_c.sav" : "app_p.sav");
        int w = Create(path, {{"i", 0}, {"s", 5}}, compressed);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(murvSetValueNumeric(w, 1, i + 0.5), MURV_RC_OK);
            EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        }
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int a = -1;
        ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
        int n = 0;
        EXPECT_EQ(murvGetNumberofCases(a, &n), MURV_RC_OK);
        EXPECT_EQ(n, 3);
        EXPECT_EQ(murvSetValueNumeric(a, 1, 3.5), MURV_RC_OK);
        EXPECT_EQ(murvSetValueChar(a, 2, "five"), MURV_RC_OK);
        EXPECT_EQ(murvCommitCaseRecord(a), MURV_RC_OK);
        char rec[16];
        const double v = 4.5;
        std::memcpy(rec, &v, 8);
        std::memcpy(rec + 8, "rec     ", 8);
        EXPECT_EQ(murvWholeCaseOut(a, rec), MURV_RC_OK);
        ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);

        int r = OpenRead(path);
        EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
        EXPECT_EQ(n, 5);
        for (int i = 0; i < 5; ++i) {
            ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
            EXPECT_EQ(Num(r, 1), i + 0.5);
            EXPECT_EQ(Str(r, 2), i == 3 ? "five " : i == 4 ? "rec  " : "     ");
        }
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

TEST_F(CaseCalls, CompressionSwitch) {
    int w = Create(dir_.File("comp.sav"), {{"x", 0}}, false, false);
    int c = -1;
    EXPECT_EQ(murvGetCompression(w, &c), MURV_RC_OK);
    EXPECT_EQ(c, 0);
    EXPECT_EQ(murvSetCompression(w, -7), MURV_RC_OK);
    EXPECT_EQ(murvGetCompression(w, &c), MURV_RC_OK);
    EXPECT_EQ(c, 1);
    EXPECT_EQ(murvSetCompression(w, 0), MURV_RC_OK);
    EXPECT_EQ(murvGetCompression(w, &c), MURV_RC_OK);
    EXPECT_EQ(c, 0);
    EXPECT_EQ(murvGetCompression(w, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvGetCaseSize(w, nullptr), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(murvCommitHeader(w), MURV_RC_OK);
    EXPECT_EQ(murvGetCaseSize(w, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvGetNumberofCases(w, nullptr), MURV_RC_WRITE_MODE);
    EXPECT_EQ(murvCloseWrite(w), MURV_RC_OK);
}

TEST_F(CaseCalls, WeightVariable) {
    const std::string path = dir_.File("weight.sav");
    int w = Create(path, {{"id", 0}, {"wt", 0}, {"name", 12}}, false, false);
    char name[65] = "junk";
    EXPECT_EQ(murvGetCaseWeightVar(w, name), MURV_RC_NO_WEIGHT);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(murvSetCaseWeightVar(w, "nosuch"), MURV_RC_VAR_NOT_FOUND);
    EXPECT_EQ(murvSetCaseWeightVar(w, "name"), MURV_RC_NUMERIC_EXPECTED);
    EXPECT_EQ(murvSetCaseWeightVar(w, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvGetCaseWeightVar(w, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvSetCaseWeightVar(w, "id"), MURV_RC_OK);
    // The lookup ignores case and surrounding blanks; the last call wins.
    EXPECT_EQ(murvSetCaseWeightVar(w, "  WT "), MURV_RC_OK);
    EXPECT_EQ(murvGetCaseWeightVar(w, name), MURV_RC_OK);
    EXPECT_STREQ(name, "wt");
    ASSERT_EQ(murvCommitHeader(w), MURV_RC_OK);
    EXPECT_EQ(murvSetValueNumeric(w, 2, 2.5), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

    int r = OpenRead(path);
    std::strcpy(name, "junk");
    EXPECT_EQ(murvGetCaseWeightVar(r, name), MURV_RC_OK);
    EXPECT_STREQ(name, "wt");
    ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
    EXPECT_EQ(Num(r, 2), 2.5);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

}  // namespace
