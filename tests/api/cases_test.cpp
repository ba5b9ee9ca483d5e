// Case calls through the public header: value-by-value and whole-record
// writing and reading, seeking, appending, counts, compression and the
// case-weight variable.
#ifndef _WIN32
#include <sys/stat.h>
#endif

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/case_files.h"
#include "support/temp_dir.h"

namespace {

using namespace murv::testing;

class CaseCalls : public ::testing::Test {
protected:
    // A write handle with the variables defined and, when commit is set, the
    // header committed. The last compression switch counts, and any nonzero
    // one turns compression on.
    int Create(const std::string& path, std::initializer_list<VarDef> vars, bool compressed = false,
               bool commit = true) {
        const int h = OpenNew(path, vars);
        for (int on : {-7, compressed ? 2 : 0}) EXPECT_EQ(murvSetCompression(h, on), MURV_RC_OK);
        EXPECT_TRUE(!commit || murvCommitHeader(h) == MURV_RC_OK);
        return h;
    }
    double Num(int h, double var) {
        double v = 0;
        EXPECT_EQ(murvGetValueNumeric(h, var, &v), MURV_RC_OK);
        return v;
    }
    // What an int getter (cases, variables, compression, case size) gives; -99 when it fails.
    template <class Get>
    int Int(Get get, int h) {
        int v = -99;
        return get(h, &v) == MURV_RC_OK ? v : -99;
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
// after its commit, a read handle (on a file without cases: the end, before
// and after a seek), an append handle and a closed handle. A refused call
// leaves its output reset.
TEST_F(CaseCalls, CodesByHandleState) {
    constexpr int X = 1000;  // not tried in that state
    constexpr double kNone = -99;
    const std::string path = dir_.File("modes.murv");
    const int w = Create(path, {{"x", 0}, {"s", 4}}, false, false);
    char rec[16] = {};
    using Run = std::function<int(int, double&)>;
    // Calls with an int output that starts at 7, and with a text output that
    // starts as "junk" (its first byte is the output seen).
    auto count = [](auto call) -> Run {
        return [call](int h, double& out) { int n = 7; const int rc = call(h, &n); out = n; return rc; };
    };
    auto text = [](auto call) -> Run {
        return [call](int h, double& out) { char b[65] = "junk"; const int rc = call(h, b); out = b[0]; return rc; };
    };
    const int DNC = MURV_RC_DICT_NOT_COMMITTED, WM = MURV_RC_WRITE_MODE, RM = MURV_RC_READ_MODE,
              DC = MURV_RC_DICT_COMMITTED, BH = MURV_RC_BAD_HANDLE, OK = MURV_RC_OK,
              VNF = MURV_RC_VAR_NOT_FOUND, NUM = MURV_RC_NUMERIC_EXPECTED, END = MURV_RC_END_OF_FILE;
    const struct {
        const char* call;
        Run run;
        int codes[4];  // open, committed, read, append
        double reset = kNone;  // the output after a refused call
    } rows[] = {
        {"SetValueNumeric", [](int h, double&) { return murvSetValueNumeric(h, 1, 1.0); }, {DNC, X, RM, X}},
        {"SetValueChar", [](int h, double&) { return murvSetValueChar(h, 2, "a"); }, {DNC, X, RM, X}},
        {"CommitCaseRecord", [](int h, double&) { return murvCommitCaseRecord(h); }, {DNC, X, RM, X}},
        {"WholeCaseOut", [&](int h, double&) { return murvWholeCaseOut(h, rec); }, {DNC, X, RM, X}},
        {"ReadCaseRecord", [](int h, double&) { return murvReadCaseRecord(h); }, {WM, X, END, WM}},
        {"SeekNextCase", [](int h, double&) { return murvSeekNextCase(h, 0); }, {WM, X, OK, WM}},
        {"WholeCaseIn", [&](int h, double&) { return murvWholeCaseIn(h, rec); }, {WM, X, END, WM}},
        {"GetValueNumeric", [](int h, double& o) { o = 3; return murvGetValueNumeric(h, 1, &o); }, {WM, X, X, X}, 0},
        {"GetValueChar", text([](int h, char* b) { return murvGetValueChar(h, 2, b, 16); }), {WM, X, X, X}, 0},
        {"GetCaseSize", count(murvGetCaseSize), {DNC, OK, X, X}, 0},
        {"GetCaseSize(null)", [](int h, double&) { return murvGetCaseSize(h, nullptr); }, {DNC, BH, X, X}},
        {"GetNumberofCases", count(murvGetNumberofCases), {WM, X, OK, OK}, -1},
        {"GetEstimatedNofCases", count(murvGetEstimatedNofCases), {WM, X, OK, X}, -1},
        {"GetCompression", count(murvGetCompression), {OK, X, X, X}, 1},
        {"GetCompression(null)", [](int h, double&) { return murvGetCompression(h, nullptr); }, {BH, X, X, X}},
        {"SetCompression", [](int h, double&) { return murvSetCompression(h, 1); }, {X, DC, RM, X}},
        {"SetVarName", [](int h, double&) { return murvSetVarName(h, "x", 0); }, {MURV_RC_DUP_VAR, DC, RM, DC}},
        {"CommitHeader", [](int h, double&) { return murvCommitHeader(h); }, {X, DC, RM, DC}},
        {"SetCaseWeightVar", [](int h, double&) { return murvSetCaseWeightVar(h, "x"); }, {X, DC, RM, X}},
        {"SetCaseWeightVar(nosuch)", [](int h, double&) { return murvSetCaseWeightVar(h, "nosuch"); }, {VNF, X, X, X}},
        {"SetCaseWeightVar(s)", [](int h, double&) { return murvSetCaseWeightVar(h, "s"); }, {NUM, X, X, X}},
        {"SetCaseWeightVar(null)", [](int h, double&) { return murvSetCaseWeightVar(h, nullptr); }, {BH, X, X, X}},
        {"GetCaseWeightVar", text(murvGetCaseWeightVar), {MURV_RC_NO_WEIGHT, X, X, X}, 0},
        {"GetCaseWeightVar(null)", [](int h, double&) { return murvGetCaseWeightVar(h, nullptr); }, {BH, X, X, X}},
        {"CloseRead", [](int h, double&) { return murvCloseRead(h); }, {X, X, X, X}},  // (closed handles only)
        {"CloseWrite", [](int h, double&) { return murvCloseWrite(h); }, {X, X, X, X}},
        {"CloseAppend", [](int h, double&) { return murvCloseAppend(h); }, {X, X, X, X}},
    };
    auto check = [&](const char* state, int h, int column) {  // column -1: every call refuses the handle
        for (const auto& row : rows) {
            const int expected = column < 0 ? BH : row.codes[column];
            if (expected == X) continue;
            double out = kNone;
            EXPECT_EQ(row.run(h, out), expected) << row.call << " on " << state << ' ' << h;
            EXPECT_TRUE(expected == OK || out == row.reset) << row.call << " on " << state << ' ' << h << ": " << out;
        }
    };
    check("an uncommitted write handle", w, 0);
    ASSERT_EQ(murvCommitHeader(w), OK);
    check("a committed write handle", w, 1);
    ASSERT_EQ(murvCloseWrite(w), OK);
    const int r = OpenForRead(path);
    check("a read handle", r, 2);
    ASSERT_EQ(murvCloseRead(r), OK);
    int a = -1;
    ASSERT_EQ(murvOpenAppend(path.c_str(), &a), OK);
    check("an append handle", a, 3);
    ASSERT_EQ(murvCloseAppend(a), OK);
    for (int bad : {-1, 100, -100000, r, w}) check("the closed or unknown handle", bad, -1);
}

// The value calls' checks in their order, writing and reading. A value not
// set is missing or blank, never the case before's; strings are padded with
// blanks to their width.
TEST_F(CaseCalls, ValueCallChecksAndDefaults) {
    const std::string path = dir_.File("values.murv");
    const int w = Create(path, {{"a", 0}, {"b", 0}, {"s", 8}, {"t", 9}});
    // Variable handles: truncated toward zero, 1-based.
    for (double bad : {0.0, 0.5, -1.0, 5.0, 5.5, 1e300, std::nan("")})
        EXPECT_EQ(std::pair(murvSetValueNumeric(w, bad, 1.0), murvSetValueChar(w, bad, "x")),
                  std::pair(MURV_RC_BAD_VAR_HANDLE, MURV_RC_BAD_VAR_HANDLE)) << bad;
    const int OK = MURV_RC_OK, SE = MURV_RC_STRING_EXPECTED, BVH = MURV_RC_BAD_VAR_HANDLE;
    EXPECT_EQ((std::array{murvSetValueNumeric(w, 3, 1.0), murvSetValueChar(w, 1, "x"), murvSetValueChar(w, 3, nullptr),
                          murvWholeCaseOut(w, nullptr)}),
              (std::array{SE, SE, MURV_RC_FILE_WRITE, MURV_RC_FILE_WRITE}));
    // Case 0: b set through handle 2.9, s to its width (a longer string then
    // changes nothing), t shorter. Case 1: nothing set. Case 2: a, and an
    // empty string over t's. Any close finishes a written file.
    EXPECT_EQ((std::array{murvSetValueNumeric(w, 2.9, 42.0), murvSetValueChar(w, 3, "12345678"),
                          murvSetValueChar(w, 3, "abcdefghi"), murvSetValueChar(w, 4, "ab"), murvCommitCaseRecord(w),
                          murvCommitCaseRecord(w), murvSetValueNumeric(w, 1, -1.5), murvSetValueChar(w, 4, "xyz"),
                          murvSetValueChar(w, 4, ""), murvCommitCaseRecord(w), murvCloseRead(w)}),
              (std::array{OK, OK, MURV_RC_STRING_TOO_LONG, OK, OK, OK, OK, OK, OK, OK, OK}));

    const int r = OpenForRead(path);
    double d = 5;
    char buf[32];
    // No case read yet: that comes before the variable handle and kind checks.
    for (const int rc : {murvGetValueNumeric(r, 1, &d), murvGetValueNumeric(r, 99, &d), murvGetValueChar(r, 3, buf, 9)})
        EXPECT_EQ(rc, MURV_RC_NO_CURRENT_CASE);
    ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
    EXPECT_EQ((std::array{murvGetValueNumeric(r, 0.5, &d), murvGetValueNumeric(r, 5, &d), murvGetValueNumeric(r, 3, &d),
                          murvGetValueChar(r, 1, buf, 32), murvGetValueChar(r, 5, buf, 32)}),
              (std::array{BVH, BVH, MURV_RC_NUMERIC_EXPECTED, SE, BVH}));
    // The width plus a NUL must fit; nothing is copied otherwise.
    const std::tuple<int, int, int, const char*> sizes[] = {
        {3, 8, MURV_RC_BUFFER_SHORT, ""}, {3, 9, MURV_RC_OK, "12345678"},
        {4, 9, MURV_RC_BUFFER_SHORT, ""}, {4, 10, MURV_RC_OK, "ab       "}};
    for (const auto& [var, size, rc, value] : sizes) {
        std::strcpy(buf, "junk");
        EXPECT_TRUE(murvGetValueChar(r, var, buf, size) == rc && std::string(buf) == value) << var << ' ' << size;
    }
    // Null outputs give the fixed code and do not move the file.
    EXPECT_EQ((std::array{murvGetValueNumeric(r, 1, nullptr), murvGetValueChar(r, 3, nullptr, 9),
                          murvWholeCaseIn(r, nullptr)}),
              (std::array{MURV_RC_FILE_READ, MURV_RC_FILE_READ, MURV_RC_BAD_HANDLE}));
    const std::string s8(8, ' '), s9(9, ' ');
    const std::tuple<double, double, std::string, std::string> cases[] = {
        {kSysmis, 42.0, "12345678", "ab       "}, {kSysmis, kSysmis, s8, s9}, {-1.5, kSysmis, s8, s9}};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(std::tuple(Num(r, 1), Num(r, 2), Str(r, 3), Str(r, 4)), cases[i]) << i;
        ASSERT_EQ(murvReadCaseRecord(r), i < 2 ? MURV_RC_OK : MURV_RC_END_OF_FILE);
    }
    EXPECT_EQ((std::array{murvGetValueNumeric(r, 1, &d), murvSeekNextCase(r, -1), murvCloseRead(r)}),
              (std::array{MURV_RC_NO_CURRENT_CASE, MURV_RC_FILE_READ, OK}));
}

TEST_F(CaseCalls, SeekAndEndOfFile) {
    const std::string path = dir_.File("seek.murv");
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        ASSERT_TRUE(WriteCaseFile(path, 1000, compressed).AllOk());
        const int r = OpenForRead(path);
        // (999 after 998 and 999 were read: back to the case just read.)
        for (int target : {500, 0, 999, 998, 999, 7, 7, 640}) {
            ASSERT_EQ(murvSeekNextCase(r, target), MURV_RC_OK);
            double d = 0;
            EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE) << "a seek leaves no current case";
            ASSERT_EQ(murvReadCaseRecord(r), MURV_RC_OK);
            EXPECT_EQ(Num(r, 1), target);
            EXPECT_EQ(std::stoi(Str(r, 2).substr(1)), target) << "the case's string, \"c\" and the number";
            ASSERT_EQ(murvReadCaseRecord(r), target == 999 ? MURV_RC_END_OF_FILE : MURV_RC_OK);
        }
        // Past the end: accepted, then the read reports the end, and keeps
        // doing so without reading until the next seek.
        const int OK = MURV_RC_OK, END = MURV_RC_END_OF_FILE;
        EXPECT_EQ((std::array{murvSeekNextCase(r, 1005), murvReadCaseRecord(r), murvReadCaseRecord(r),
                              murvSeekNextCase(r, 3), murvReadCaseRecord(r)}), (std::array{OK, END, END, OK, OK}));
        EXPECT_EQ(Num(r, 1), 3.0);
        EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    }
}

// A file whose writer could not record the number of cases: -1 in the header
// and in the 64-bit count record, and -1 to a reader. Then the plain cases
// are made to lie at offsets beyond 4 GiB: a sparse file whose hole reads as
// cases of zeros. Appending finds the end from the file's size, and the count
// and the cases on either side of the hole come back.
TEST_F(CaseCalls, UnknownCaseCountAndPlainCasesBeyondFourGiB) {
    const std::string path = dir_.File("sparse.murv");
    int w = Create(path, {{"x", 0}});
    const double one = 1.0;
    for (int i = 0; i < 3; ++i) ASSERT_EQ(murvWholeCaseOut(w, reinterpret_cast<const char*>(&one)), MURV_RC_OK);
    ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);
    const auto row0 = static_cast<std::int64_t>(std::filesystem::file_size(path)) - 3 * 8;
    ASSERT_TRUE(SetStatedCaseCount(path, -1));  // as a writer that could not count leaves it
    int r = OpenForRead(path);
    EXPECT_EQ(Int(murvGetNumberofCases, r), -1);
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
    EXPECT_EQ(Int(murvGetNumberofCases, r), cases + 2);
    const std::pair<std::int64_t, double> expected[] = {
        {cases + 1, 8.0}, {cases, 7.0}, {cases - 1, 0.0}, {2, 1.0}, {3, 0.0}};
    for (const auto& [k, value] : expected) {
        ASSERT_TRUE(murvSeekNextCase(r, static_cast<int>(k)) == MURV_RC_OK && murvReadCaseRecord(r) == MURV_RC_OK) << k;
        EXPECT_EQ(Num(r, 1), value) << "case " << k;
    }
    EXPECT_EQ((std::array{murvSeekNextCase(r, static_cast<int>(cases + 2)), murvReadCaseRecord(r), murvCloseRead(r)}),
              (std::array{MURV_RC_OK, MURV_RC_END_OF_FILE, MURV_RC_OK}));
}

// Whole records written, mixed with single values, then more cases appended
// both ways; all read back as records, bit for bit: compression codes only
// small integers, system-missing and blank cells, and alters no other value.
TEST_F(CaseCalls, WholeCaseRecordsAndAppending) {
    const double numbers[] = {0.0, -0.0, 1.0, -99.0, 151.0, 152.0, -100.0, 0.5, 1e-310,
                              std::numeric_limits<double>::infinity(), std::nan(""), kSysmis,
                              std::nextafter(kSysmis, 0.0), 3.0e9, 255.0};
    const char* texts[] = {"whole case", "", "  x", "abc    de", " "};
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File("whole.murv");
        int w = Create(path, {{"n", 0}, {"s", 10}, {"m", 0}}, compressed);
        ASSERT_EQ(Int(murvGetCaseSize, w), 32);
        std::vector<std::vector<char>> written;
        auto record = [&](double n, const char* s, double m) {
            std::vector<char> rec(32, ' ');
            std::memcpy(rec.data(), &n, 8);
            std::memcpy(rec.data() + 8, s, std::strlen(s));
            std::memcpy(rec.data() + 24, &m, 8);
            written.push_back(rec);
            return written.back().data();
        };
        for (int i = 0; i < 20; ++i)
            ASSERT_EQ(murvWholeCaseOut(w, record(numbers[i % 15], texts[i % 5], i % 3 ? 0.125 * i : kSysmis)), 0);
        // Records and single values mix: a value set before a whole record
        // belongs to a case that is dropped by it.
        EXPECT_EQ(murvSetValueNumeric(w, 1, 77.0), MURV_RC_OK);
        EXPECT_EQ(murvWholeCaseOut(w, record(20, "", 1.0)), MURV_RC_OK);
        EXPECT_EQ(murvCommitCaseRecord(w), MURV_RC_OK);
        record(kSysmis, "", kSysmis);
        ASSERT_EQ(murvCloseWrite(w), MURV_RC_OK);

        int a = -1;
        ASSERT_EQ(murvOpenAppend(path.c_str(), &a), MURV_RC_OK);
        EXPECT_EQ(Int(murvGetNumberofCases, a), 22);
        for (const int rc : {murvSetValueNumeric(a, 1, 22.5), murvSetValueChar(a, 2, "five"), murvCommitCaseRecord(a)})
            EXPECT_EQ(rc, MURV_RC_OK);
        record(22.5, "five", kSysmis);
        EXPECT_EQ(murvWholeCaseOut(a, record(23.5, "rec", 2.0)), MURV_RC_OK);
        ASSERT_EQ(murvCloseAppend(a), MURV_RC_OK);

        const int r = OpenForRead(path);
        EXPECT_EQ(std::pair(Int(murvGetCompression, r), Int(murvGetNumberofCases, r)), std::pair(int{compressed}, 24));
        std::vector<char> rec(32);
        for (std::size_t i = 0; i < written.size(); ++i) {
            ASSERT_EQ(murvWholeCaseIn(r, rec.data()), MURV_RC_OK);
            EXPECT_EQ(rec, written[i]) << i;
            double d = 0;
            EXPECT_EQ(murvGetValueNumeric(r, 1, &d), MURV_RC_NO_CURRENT_CASE) << "a whole record is no current case";
        }
        EXPECT_EQ((std::array{murvWholeCaseIn(r, rec.data()), murvCloseRead(r)}), (std::array{MURV_RC_END_OF_FILE, 0}));
    }
}

// Strings longer than 255 bytes, stored as segments (names that share their
// first bytes get segments of their own), come back whole and at their
// width, plain and compressed, written and appended; the variables after
// them, the case weight among them, keep their places.
TEST_F(CaseCalls, VeryLongStrings) {
    const int widths[] = {256, 504, 510, 600, 32767};
    // Of every length, and some that fill the width; blank-padded to it if asked.
    auto value = [&](int k, int v, bool padded = false) {
        const int w = widths[v], len = k % 3 == 0 ? w : (k * 37 + v * 101) % (w + 1);
        std::string s(static_cast<std::size_t>(padded ? w : len), ' ');
        for (int b = 0; b < len; ++b) s[static_cast<std::size_t>(b)] = static_cast<char>('a' + (b + k) % 26);
        return s;
    };
    auto write = [&](int h, int k) {
        for (int v = 0; v < 5; ++v) EXPECT_EQ(murvSetValueChar(h, 2 + v, value(k, v).c_str()), MURV_RC_OK);
        for (const int rc : {murvSetValueNumeric(h, 1, k), murvSetValueNumeric(h, 7, -k), murvSetValueChar(h, 8, "xyz"),
                             murvCommitCaseRecord(h)})
            EXPECT_EQ(rc, MURV_RC_OK);
    };
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "compressed" : "plain");
        const std::string path = dir_.File("long.murv");
        int h = Create(path, {{"before", 0}, {"comment1", 256}, {"comment2", 504}, {"comment3", 510}, {"comment4", 600},
                              {"comment5", 32767}, {"wt", 0}, {"after", 3}}, compressed, false);
        // The weight's name is found ignoring case and blanks; the last call counts.
        for (const int rc : {murvSetCaseWeightVar(h, "before"), murvSetCaseWeightVar(h, "  WT "), murvCommitHeader(h)})
            ASSERT_EQ(rc, MURV_RC_OK);
        for (int k = 0; k < 20; ++k) write(h, k);
        ASSERT_TRUE(murvCloseWrite(h) == MURV_RC_OK && murvOpenAppend(path.c_str(), &h) == MURV_RC_OK);
        write(h, 20);
        ASSERT_EQ(murvCloseAppend(h), MURV_RC_OK);

        h = OpenForRead(path);
        char name[65];
        int type = -1, format = 0, dec = 0, width = 0;
        EXPECT_EQ(Int(murvGetNumberofVariables, h), 8);
        EXPECT_TRUE(murvGetCaseWeightVar(h, name) == MURV_RC_OK && std::string(name) == "wt") << name;
        for (int v = 0; v < 5; ++v) {
            ASSERT_EQ(murvGetVarInfo(h, 1 + v, name, &type), MURV_RC_OK);
            EXPECT_EQ(murvGetVarPrintFormat(h, name, &format, &dec, &width), MURV_RC_OK);
            EXPECT_EQ(std::tuple(std::string(name), type, width),
                      std::tuple("comment" + std::to_string(v + 1), widths[v], widths[v]));
        }
        for (int i = 0; i <= 21; ++i) {  // every case in order, then case 17 again
            const int k = i == 21 ? 17 : i;
            SCOPED_TRACE(k);
            ASSERT_TRUE(i < 21 || murvSeekNextCase(h, k) == MURV_RC_OK);
            ASSERT_EQ(murvReadCaseRecord(h), MURV_RC_OK);
            for (int v = 0; v < 5; ++v) EXPECT_EQ(Str(h, 2 + v), value(k, v, true)) << v;
            EXPECT_EQ(std::tuple(Num(h, 1), Num(h, 7), Str(h, 8)), std::tuple(1.0 * k, -1.0 * k, std::string("xyz")));
        }
        EXPECT_EQ(murvCloseRead(h), MURV_RC_OK);
    }
}

}  // namespace
