// Case calls through the public header: value-by-value and whole-record
// writing and reading, seeking, appending, counts, compression and the
// case-weight variable.
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/case_files.h"
#include "support/temp_dir.h"

namespace {

using namespace murv::testing;

std::uint64_t Bits(double d) {
    std::uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

class CaseCalls : public ::testing::Test {
protected:
    // A write handle with the variables defined and, when commit is set, the
    // header committed.
    int Create(const std::string& path, std::initializer_list<VarDef> vars, bool compressed = false,
               bool commit = true) {
        const int h = OpenNew(path, vars, compressed);
        if (commit) {
            EXPECT_EQ(murvCommitHeader(h), MURV_RC_OK);
        }
        return h;
    }
    double Num(int h, double var) {
        double v = 0;
        EXPECT_EQ(murvGetValueNumeric(h, var, &v), MURV_RC_OK);
        return v;
    }
    std::string Str(int h, double var) {
        std::vector<char> buf(32768 + 1);
        EXPECT_EQ(murvGetValueChar(h, var, buf.data(), static_cast<int>(buf.size())), MURV_RC_OK);
        return buf.data();
    }

    TempDir dir_;
};

const double kSysmis = murvSysmisVal();

// Each case call's code on a handle in each state: a write handle before and
// after its commit, a read handle, an append handle and a closed handle. A
// refused call leaves its output reset.
TEST_F(CaseCalls, CodesByHandleState) {
    constexpr int kNotTried = 1000;
    constexpr double kNoOutput = -99;
    const std::string path = dir_.File("modes.murv");
    const int w = Create(path, {{"x", 0}, {"s", 4}}, false, false);
    char buf[16], rec[16] = {};
    double out = kNoOutput;
    auto into = [&](auto start, auto get) {
        auto v = start;
        const int rc = get(&v);
        out = v;
        return rc;
    };
    auto text = [&](auto get) { std::strcpy(buf, "junk"); const int rc = get(buf); out = buf[0]; return rc; };
    const int DNC = MURV_RC_DICT_NOT_COMMITTED, WM = MURV_RC_WRITE_MODE, RM = MURV_RC_READ_MODE,
              DC = MURV_RC_DICT_COMMITTED, X = kNotTried;
    const struct {
        const char* call;
        std::function<int(int)> run;
        int codes[4];  // open, committed, read, append
        double reset;  // the output after a refused call
    } rows[] = {
        {"SetValueNumeric", [](int h) { return murvSetValueNumeric(h, 1, 1.0); }, {DNC, X, RM, X}, kNoOutput},
        {"SetValueChar", [](int h) { return murvSetValueChar(h, 2, "a"); }, {DNC, X, RM, X}, kNoOutput},
        {"CommitCaseRecord", [](int h) { return murvCommitCaseRecord(h); }, {DNC, X, RM, X}, kNoOutput},
        {"WholeCaseOut", [&](int h) { return murvWholeCaseOut(h, rec); }, {DNC, X, RM, X}, kNoOutput},
        {"ReadCaseRecord", [](int h) { return murvReadCaseRecord(h); }, {WM, X, X, WM}, kNoOutput},
        {"SeekNextCase", [](int h) { return murvSeekNextCase(h, 0); }, {WM, X, X, WM}, kNoOutput},
        {"WholeCaseIn", [&](int h) { return murvWholeCaseIn(h, rec); }, {WM, X, X, WM}, kNoOutput},
        {"GetValueNumeric", [&](int h) { return into(3.0, [h](double* d) { return murvGetValueNumeric(h, 1, d); }); },
         {WM, X, X, X}, 0},
        {"GetValueChar", [&](int h) { return text([h](char* b) { return murvGetValueChar(h, 2, b, 16); }); },
         {WM, X, X, X}, 0},
        {"GetCaseSize", [&](int h) { return into(7, [h](int* n) { return murvGetCaseSize(h, n); }); },
         {DNC, MURV_RC_OK, X, X}, 0},
        {"GetNumberofCases", [&](int h) { return into(7, [h](int* n) { return murvGetNumberofCases(h, n); }); },
         {WM, X, MURV_RC_OK, MURV_RC_OK}, -1},
        {"GetEstimatedNofCases", [&](int h) { return into(7, [h](int* n) { return murvGetEstimatedNofCases(h, n); }); },
         {WM, X, MURV_RC_OK, X}, -1},
        {"GetCompression", [&](int h) { return into(7, [h](int* n) { return murvGetCompression(h, n); }); },
         {MURV_RC_OK, X, X, X}, 1},
        {"SetCompression", [](int h) { return murvSetCompression(h, 1); }, {X, DC, RM, X}, kNoOutput},
        {"SetVarName", [](int h) { return murvSetVarName(h, "x", 0); }, {MURV_RC_DUP_VAR, DC, RM, DC}, kNoOutput},
        {"CommitHeader", [](int h) { return murvCommitHeader(h); }, {X, DC, RM, DC}, kNoOutput},
        {"SetCaseWeightVar", [](int h) { return murvSetCaseWeightVar(h, "x"); }, {X, DC, RM, X}, kNoOutput},
        {"GetCaseWeightVar", [&](int h) { return text([h](char* b) { return murvGetCaseWeightVar(h, b); }); },
         {MURV_RC_NO_WEIGHT, X, X, X}, 0},
    };
    auto check = [&](const char* state, int h, int column) {
        for (const auto& row : rows) {
            const int expected = row.codes[column];
            if (expected == kNotTried) continue;
            out = kNoOutput;
            EXPECT_EQ(row.run(h), expected) << row.call << " on " << state;
            if (expected != MURV_RC_OK) {
                EXPECT_EQ(out, row.reset) << row.call << " on " << state;
            }
        }
    };
    check("an uncommitted write handle", w, 0);
    ASSERT_EQ(murvCommitHeader(w), MURV_RC_OK);
    check("a committed write handle", w, 1);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);
    const int r = OpenForRead(path);
    check("a read handle", r, 2);
    ASSERT_EQ(murvCloseRead(r), MURV_RC_OK);
    int a = -1;
    ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
    check("an append handle", a, 3);
    ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);
    for (int bad : {-1, 100, r, w}) {
        for (const auto& row : rows) {
            out = kNoOutput;
            EXPECT_EQ(row.run(bad), MURV_RC_BAD_HANDLE) << row.call << " on handle " << bad;
            EXPECT_EQ(out, row.reset) << row.call << " on handle " << bad;
        }
    }
}

TEST_F(CaseCalls, ValueByValueWriteChecksAndDefaults) {
    const std::string path = dir_.File("values.murv");
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

    int r = OpenForRead(path);
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
    const std::string path = dir_.File("read.murv");
    int w = Create(path, {{"n", 0}, {"s", 8}, {"t", 9}});
    EXPECT_EQ(murvSetValueChar(w, 2, "12345678"), MURV_RC_OK);
    EXPECT_EQ(murvSetValueChar(w, 3, "ab"), MURV_RC_OK);
    EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

    int r = OpenForRead(path);
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
    // The width plus a NUL must fit; nothing is copied otherwise. Trailing
    // blanks are kept.
    const std::tuple<int, int, int, const char*> sizes[] = {
        {2, 8, MURV_RC_BUFFER_SHORT, ""}, {2, 9, MURV_RC_OK, "12345678"},
        {3, 9, MURV_RC_BUFFER_SHORT, ""}, {3, 10, MURV_RC_OK, "ab       "}};
    for (const auto& [var, size, rc, value] : sizes) {
        std::strcpy(buf, "junk");
        EXPECT_EQ(murvGetValueChar(r, var, buf, size), rc) << var << ' ' << size;
        EXPECT_STREQ(buf, value);
    }
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
        const std::string path = dir_.File(compressed ? "c.murv" : "p.murv");
        int w = Create(path, {{"s1", 1}, {"num", 0}, {"s8", 8}, {"s9", 9}, {"s255", 255}}, compressed);
        // The string variables' handles and widths, in strings' order.
        const std::pair<int, std::size_t> stringVars[] = {{1, 1}, {3, 8}, {4, 9}, {5, 255}};
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            EXPECT_EQ(murvSetValueNumeric(w, 2, numbers[i]), MURV_RC_OK);
            for (std::size_t k = 0; k < 4; ++k)
                EXPECT_EQ(murvSetValueChar(w, stringVars[k].first, strings[i % strings.size()][k].c_str()), MURV_RC_OK);
            EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        }
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int r = OpenForRead(path), comp = -1;
        EXPECT_EQ(murvGetCompression(r, &comp), MURV_RC_OK);
        EXPECT_EQ(comp, compressed ? 1 : 0);
        int size = 0;
        EXPECT_EQ(murvGetCaseSize(r, &size), MURV_RC_OK);
        EXPECT_EQ(size, 8 * (1 + 1 + 1 + 2 + 32));
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            SCOPED_TRACE(i);
            ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
            EXPECT_EQ(Bits(Num(r, 2)), Bits(numbers[i]));
            for (std::size_t k = 0; k < 4; ++k) {
                const std::string& s = strings[i % strings.size()][k];
                EXPECT_EQ(Str(r, stringVars[k].first), s + std::string(stringVars[k].second - s.size(), ' '));
            }
        }
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

TEST_F(CaseCalls, SeekAndEndOfFile) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File(compressed ? "seek_c.murv" : "seek_p.murv");
        int w = Create(path, {{"i", 0}, {"x", 0}}, compressed);
        const int kCases = 1000;
        for (int i = 0; i < kCases; ++i) {
            EXPECT_EQ(murvSetValueNumeric(w, 1, i), MURV_RC_OK);
            EXPECT_EQ(murvSetValueNumeric(w, 2, i * 0.25), MURV_RC_OK);
            ASSERT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        }
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int r = OpenForRead(path);
        // (999 after 998 and 999 were read: back to the case just read.)
        for (int target : {500, 0, 999, 998, 999, 7, 7, 640}) {
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

        // A file without cases: the end, before and after a seek.
        ASSERT_EQ(murvCloseWrite(Create(path, {{"x", 0}}, compressed)), MURV_RC_OK);
        r = OpenForRead(path);
        char rec[8];
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvWholeCaseIn(r, rec), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvSeekNextCase(r, 0), MURV_RC_OK);
        EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

// A file whose writer could not record the number of cases: -1 in the header
// and in the 64-bit count record. The count is unknown (-1, code 0) until the
// cases have been read to the end. Then the plain cases are made to lie at
// offsets beyond 4 GiB: a sparse file whose hole reads as cases of zeros.
// Appending finds the end from the file's size, and the count and the cases on
// either side of the hole come back.
TEST_F(CaseCalls, UnknownCaseCountAndPlainCasesBeyondFourGiB) {
    const std::string path = dir_.File("sparse.murv");
    int w = Create(path, {{"x", 0}});
    const double one = 1.0;
    for (int i = 0; i < 3; ++i) ASSERT_EQ(murvWholeCaseOut(w, reinterpret_cast<const char*>(&one)), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);
    const auto row0 = static_cast<std::int64_t>(std::filesystem::file_size(path)) - 3 * 8;
    ASSERT_TRUE(SetStatedCaseCount(path, -1));  // as a writer that could not count leaves it
    int r = OpenForRead(path);
    int n = 0, estimated = 0;
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(murvGetEstimatedNofCases(r, &estimated), MURV_RC_OK);
    EXPECT_EQ(std::pair(n, estimated), std::pair(-1, -1));
    while (murvReadCaseRecord(r) == MURV_RC_OK) {
    }
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);

    const std::int64_t cases = (std::int64_t{1} << 29) + 3;  // the data pass 4 GiB
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(row0 + 8 * cases));
#ifndef _WIN32  // (Wine and NTFS extend a file without writing the new bytes)
    struct stat st;
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    if (static_cast<std::int64_t>(st.st_blocks) * 512 > (std::int64_t{1} << 20))
        GTEST_SKIP() << "the file system of " << path << " has no sparse files";
#endif

    int a = -1;
    ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
    for (double v : {7.0, 8.0}) ASSERT_EQ(murvWholeCaseOut(a, reinterpret_cast<const char*>(&v)), MURV_RC_OK);
    ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);
    EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(path)), row0 + 8 * (cases + 2));

    r = OpenForRead(path);
    EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
    EXPECT_EQ(n, cases + 2);
    const std::pair<std::int64_t, double> expected[] = {
        {cases + 1, 8.0}, {cases, 7.0}, {cases - 1, 0.0}, {2, 1.0}, {3, 0.0}};
    for (const auto& [k, value] : expected) {
        ASSERT_EQ(murvSeekNextCase(r, static_cast<int>(k)), MURV_RC_OK);
        ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK) << "case " << k;
        EXPECT_EQ(Num(r, 1), value) << "case " << k;
    }
    ASSERT_EQ(murvSeekNextCase(r, static_cast<int>(cases + 2)), MURV_RC_OK);
    EXPECT_EQ(murvReadCaseRecord(r), MURV_RC_END_OF_FILE);
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

// Whole records written, mixed with single values, then more cases appended
// both ways; all read back as records.
TEST_F(CaseCalls, WholeCaseRecordsAndAppending) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File(compressed ? "whole_c.murv" : "whole_p.murv");
        int w = Create(path, {{"n", 0}, {"s", 10}, {"m", 0}}, compressed);
        int size = 0;
        ASSERT_EQ(murvGetCaseSize(w, &size), MURV_RC_OK);
        ASSERT_EQ(size, 32);
        std::vector<std::vector<char>> written;
        auto record = [&](double n, const char* s, double m) {
            std::vector<char> rec(32, ' ');
            std::memcpy(rec.data(), &n, 8);
            std::memcpy(rec.data() + 8, s, std::strlen(s));
            std::memcpy(rec.data() + 24, &m, 8);
            written.push_back(rec);
            return written.back().data();
        };
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(murvWholeCaseOut(w, record(i, "whole case", i % 3 ? 0.125 * i : kSysmis)), MURV_RC_OK);
        }
        // Records and single values mix: a value set before a whole record
        // belongs to a case that is dropped by it.
        EXPECT_EQ(murvSetValueNumeric(w, 1, 77.0), MURV_RC_OK);
        EXPECT_EQ(murvWholeCaseOut(w, record(20, "", 1.0)), MURV_RC_OK);
        EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        record(kSysmis, "", kSysmis);
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int a = -1, n = 0;
        ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
        EXPECT_EQ(murvGetNumberofCases(a, &n), MURV_RC_OK);
        EXPECT_EQ(n, 22);
        EXPECT_EQ(murvSetValueNumeric(a, 1, 22.5), MURV_RC_OK);
        EXPECT_EQ(murvSetValueChar(a, 2, "five"), MURV_RC_OK);
        EXPECT_EQ(murvCommitCaseRecord(a), MURV_RC_OK);
        record(22.5, "five", kSysmis);
        EXPECT_EQ(murvWholeCaseOut(a, record(23.5, "rec", 2.0)), MURV_RC_OK);
        ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);

        int r = OpenForRead(path);
        EXPECT_EQ(murvGetNumberofCases(r, &n), MURV_RC_OK);
        EXPECT_EQ(n, 24);
        std::vector<char> rec(32);
        for (std::size_t i = 0; i < written.size(); ++i) {
            ASSERT_EQ(murvWholeCaseIn(r, rec.data()), MURV_RC_OK);
            EXPECT_EQ(rec, written[i]) << i;
            double d = 0;
            EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE) << "a whole record is no current case";
        }
        EXPECT_EQ(murvWholeCaseIn(r, rec.data()), MURV_RC_END_OF_FILE);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

// Strings longer than 255 bytes, stored as segments (names that share their
// first bytes get segments of their own), come back whole and at their
// width, plain and compressed, written and appended; the variables after
// them, the case weight among them, keep their places.
TEST_F(CaseCalls, VeryLongStrings) {
    const int widths[] = {256, 504, 510, 600, 32767};
    auto value = [&](int k, int v) {  // of every length, and some that fill the width
        const int w = widths[v], len = k % 3 == 0 ? w : (k * 37 + v * 101) % (w + 1);
        std::string s;
        for (int b = 0; b < len; ++b) s += static_cast<char>('a' + (b + k) % 26);
        return s;
    };
    auto write = [&](int h, int k) {
        EXPECT_EQ(murvSetValueNumeric(h, 1, k), MURV_RC_OK);
        for (int v = 0; v < 5; ++v) EXPECT_EQ(murvSetValueChar(h, 2 + v, value(k, v).c_str()), MURV_RC_OK);
        EXPECT_EQ(murvSetValueNumeric(h, 7, -k), MURV_RC_OK);
        EXPECT_EQ(murvSetValueChar(h, 8, "xyz"), MURV_RC_OK);
        EXPECT_EQ(murvCommitCaseRecord(h), MURV_RC_OK);
    };
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File("long.murv");
        int h = Create(path, {{"before", 0}, {"comment1", 256}, {"comment2", 504}, {"comment3", 510}, {"comment4", 600},
                              {"comment5", 32767}, {"wt", 0}, {"after", 3}}, compressed, false);
        ASSERT_EQ(murvSetCaseWeightVar(h, "wt"), MURV_RC_OK);
        ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
        for (int k = 0; k < 20; ++k) write(h, k);
        ASSERT_EQ(murvCloseWrite(h), MURV_RC_OK);
        ASSERT_EQ(murvOpenAppend(path.c_str(), &h), MURV_RC_OK);
        write(h, 20);
        ASSERT_EQ(murvCloseAppend(h), MURV_RC_OK);

        h = OpenForRead(path);
        char name[65];
        int n = 0, type = -1, dec = 0, width = 0;
        EXPECT_EQ(murvGetNumberofVariables(h, &n), MURV_RC_OK);
        EXPECT_EQ(n, 8);
        EXPECT_EQ(murvGetCaseWeightVar(h, name), MURV_RC_OK);
        EXPECT_STREQ(name, "wt");
        for (int v = 0; v < 5; ++v) {
            ASSERT_EQ(murvGetVarInfo(h, 1 + v, name, &type), MURV_RC_OK);
            EXPECT_EQ(name, "comment" + std::to_string(v + 1));
            EXPECT_EQ(type, widths[v]);
            EXPECT_EQ(murvGetVarPrintFormat(h, name, &type, &dec, &width), MURV_RC_OK);
            EXPECT_EQ(width, widths[v]);
        }
        for (int i = 0; i <= 21; ++i) {  // every case in order, then case 17 again
            const int k = i == 21 ? 17 : i;
            SCOPED_TRACE(k);
            if (i == 21) {
                ASSERT_EQ(murvSeekNextCase(h, k), MURV_RC_OK);
            }
            ASSERT_EQ(murvReadCaseRecord(h), MURV_RC_OK);
            EXPECT_EQ(Num(h, 1), k);
            for (int v = 0; v < 5; ++v) {
                const std::string s = value(k, v);
                EXPECT_EQ(Str(h, 2 + v), s + std::string(static_cast<std::size_t>(widths[v]) - s.size(), ' '));
            }
            EXPECT_EQ(Num(h, 7), -k);
            EXPECT_EQ(Str(h, 8), "xyz");
        }
        EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
    }
}

TEST_F(CaseCalls, CompressionAndWeightVariable) {
    const std::string path = dir_.File("weight.murv");
    int w = Create(path, {{"id", 0}, {"wt", 0}, {"name", 12}}, false, false);
    // Compression: any nonzero switch turns it on.
    int c = -1;
    for (int on : {0, -7, 0}) {
        EXPECT_EQ(murvSetCompression(w, on), MURV_RC_OK);
        EXPECT_EQ(murvGetCompression(w, &c), MURV_RC_OK);
        EXPECT_EQ(c, on != 0);
    }
    EXPECT_EQ(murvGetCompression(w, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvGetCaseSize(w, nullptr), MURV_RC_DICT_NOT_COMMITTED);
    EXPECT_EQ(murvGetNumberofCases(w, nullptr), MURV_RC_WRITE_MODE);
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
    EXPECT_EQ(murvGetCaseSize(w, nullptr), MURV_RC_BAD_HANDLE);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);  // (the long-string test reads a weight back)
}

}  // namespace
