// Variable dictionary calls, used as a client uses them: through murvio.h.
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/locale_guard.h"
#include "support/temp_dir.h"

namespace {

using namespace murv::testing;

// A file open for writing, closed (and so finished) when the test ends.
class VariableCalls : public ::testing::Test {
protected:
    void TearDown() override { murvCloseWrite(h); }  // (-1 once reread)
    void Define(std::initializer_list<VarDef> vars) {
        for (const VarDef& v : vars) ASSERT_EQ(murvSetVarName(h, v.name, v.type), MURV_RC_OK) << v.name;
    }
    // Finishes the file (committing it if asked) and opens it for reading.
    int Reread(bool commit = true) {
        const int r = Reopen(h, path, commit);
        h = -1;
        return r;
    }

    TempDir dir;
    std::string path = dir.File("dict.murv");
    int h = OpenNew(path, {});
};

// A format getter's three outputs: type, decimals, width.
template <class Get>
std::array<int, 3> Format(Get get, int handle, const char* name, int expectedCode = MURV_RC_OK) {
    int t = -1, d = -1, w = -1;
    EXPECT_EQ(get(handle, name, &t, &d, &w), expectedCode) << name;
    return {t, d, w};
}

// A numeric variable's missing values: kind and the three values.
std::array<double, 4> NMissing(int handle, const char* name) {
    int kind = 7;
    double v[3] = {7, 7, 7};
    EXPECT_EQ(murvGetVarNMissingValues(handle, name, &kind, &v[0], &v[1], &v[2]), MURV_RC_OK) << name;
    return {static_cast<double>(kind), v[0], v[1], v[2]};
}

// The display properties: alignment, column width, measurement level.
std::array<int, 3> Display(int handle, const char* name) {
    int a = -1, w = -1, m = -1;
    EXPECT_EQ(murvGetVarAlignment(handle, name, &a), MURV_RC_OK);
    EXPECT_EQ(murvGetVarColumnWidth(handle, name, &w), MURV_RC_OK);
    EXPECT_EQ(murvGetVarMeasureLevel(handle, name, &m), MURV_RC_OK);
    return {a, w, m};
}

TEST_F(VariableCalls, NamesAreCheckedInOrderAndFoundIgnoringCaseAndBlanks) {
    int n = -1, *types = nullptr;
    char** names = nullptr;
    EXPECT_TRUE(murvGetVarNames(h, &n, &names, &types) == MURV_RC_BAD_FILE && n == 0 && !names && !types)
        << "no variables yet";
    EXPECT_EQ(murvGetVarNames(h, &n, nullptr, &types), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvSetVarName(h, nullptr, 0), MURV_RC_BAD_HANDLE);
    // The name is judged before the type, the type before a duplicate; a
    // longer name is judged, stored and found by its first 64 bytes.
    const std::string longName(70, 'q'), first64 = longName.substr(0, 64);
    const int ok = MURV_RC_OK, badName = MURV_RC_BAD_VAR_NAME, badType = MURV_RC_BAD_VAR_TYPE;
    for (const auto& [name, type, rc] :
         {std::tuple{"  MixedCase ", 0, ok}, {"MIXEDCASE", 0, MURV_RC_DUP_VAR}, {"mixedcase", -1, badType},
          {"#tmp", 40000, badName}, {"$sys", 0, badName}, {"", 0, badName}, {"   ", 0, badName}, {"1abc", 0, badName},
          {"a b", 0, badName}, {"with", 0, badName}, {"s", 32768, badType}, {"s", 32767, ok},
          {longName.c_str(), 0, ok}, {first64.c_str(), 0, MURV_RC_DUP_VAR}})
        EXPECT_EQ(murvSetVarName(h, name, type), rc) << '"' << name << "\" " << type;

    for (const auto& [name, rc, handle] : {std::tuple{" mixedCASE", MURV_RC_OK, 1.0}, {"S", MURV_RC_OK, 2.0},
                                           {"nope", MURV_RC_VAR_NOT_FOUND, 0.0}}) {
        double vh = -1;
        EXPECT_TRUE(murvGetVarHandle(h, name, &vh) == rc && vh == handle) << name << ' ' << vh;
    }

    // The stored name keeps its case, without blanks; a refused index resets
    // the outputs.
    char name[65];
    int type = -1, count = -1, call = 0;
    for (const auto& [index, rc, stored, width] :
         {std::tuple{0, MURV_RC_OK, "MixedCase", 0}, {1, MURV_RC_OK, "s", 32767},
          {2, MURV_RC_OK, first64.c_str(), 0}, {3, MURV_RC_VAR_NOT_FOUND, "", 0},
          {-1, MURV_RC_VAR_NOT_FOUND, "", 0}}) {
        std::strcpy(name, "junk");
        type = -1;
        EXPECT_EQ(murvGetVarInfo(h, index, name, &type), rc) << index;
        EXPECT_EQ(std::pair(std::string(name), type), std::pair(std::string(stored), width)) << index;
    }
    EXPECT_TRUE(murvGetNumberofVariables(h, &count) == MURV_RC_OK && count == 3) << count;
    double vh = -1;
    for (const int rc : {murvGetVarInfo(h, 0, nullptr, &type), murvGetNumberofVariables(h, nullptr),
                         murvGetVarHandle(h, nullptr, &vh), murvGetVarHandle(h, "s", nullptr),
                         murvGetNumberofVariables(99, &count)})
        EXPECT_EQ(rc, MURV_RC_BAD_HANDLE) << "call " << call++;
    EXPECT_EQ(count, 0);

    // The name arrays come from the library and go back to it.
    ASSERT_TRUE(murvGetVarNames(h, &n, &names, &types) == MURV_RC_OK && n == 3) << n;
    EXPECT_EQ(std::string(names[0]) + ' ' + names[1] + ' ' + names[2], "MixedCase s " + first64);
    EXPECT_EQ(std::vector(types, types + 3), (std::vector{0, 32767, 0}));
    // Each array can go back on its own; the leak checkers see that nothing is left.
    EXPECT_TRUE(murvFreeVarNames(nullptr, types, n) == MURV_RC_OK && murvFreeVarNames(names, nullptr, n) == MURV_RC_OK);
    // A count below 1 releases nothing, so the release with the real count
    // that follows is the only one (a double free would abort here).
    ASSERT_EQ(murvGetVarNames(h, &n, &names, &types), MURV_RC_OK);
    EXPECT_TRUE(murvFreeVarNames(names, types, 0) == MURV_RC_OK && murvFreeVarNames(names, types, -1) == MURV_RC_OK &&
                murvFreeVarNames(names, types, n) == MURV_RC_OK);
    EXPECT_TRUE(murvGetVarNames(-3, &n, &names, &types) == MURV_RC_BAD_HANDLE && names == nullptr);
}

TEST_F(VariableCalls, LabelsAreCutOnCharacterBoundaries) {
    Define({{"v", 0}});
    char buf[400] = "junk";
    int len = -1;
    EXPECT_TRUE(murvGetVarLabelLong(h, "v", buf, sizeof buf, &len) == MURV_RC_NO_LABEL && buf[0] == '\0') << buf;
    const int BH = MURV_RC_BAD_HANDLE;
    EXPECT_EQ((std::array{murvSetVarLabel(h, "w", "x"), murvSetVarLabel(h, "v", nullptr),
                          murvGetVarLabel(h, "v", nullptr), murvGetVarLabelLong(h, "v", buf, 0, &len)}),
              (std::array{MURV_RC_VAR_NOT_FOUND, BH, BH, BH}));

    const std::string label300 = std::string(100, 'a') + std::string(100, 'b') + std::string(100, 'c');
    EXPECT_EQ(murvSetVarLabel(h, "V", label300.c_str()), MURV_RC_VAR_LABEL_CUT);
    EXPECT_EQ(murvGetVarLabelLong(h, "v", buf, sizeof buf, &len), MURV_RC_OK);
    EXPECT_EQ(std::pair(std::string(buf), len), std::pair(label300.substr(0, 256), 256));
    EXPECT_TRUE(murvGetVarLabel(h, "v", buf) == MURV_RC_OK && buf == label300.substr(0, 120)) << buf;
    EXPECT_TRUE(murvGetVarLabelLong(h, "v", buf, 5, nullptr) == MURV_RC_OK && std::string(buf) == "aaaa") << buf;

    MURV_USE_LOCALE(utf8, "en_US.UTF-8");
    // 255 bytes and a two-byte character that would cross the limit.
    const std::string accented = std::string(255, 'x') + "\xC3\xA9";
    EXPECT_EQ(murvSetVarLabel(h, "v", accented.c_str()), MURV_RC_VAR_LABEL_CUT);
    EXPECT_TRUE(murvGetVarLabelLong(h, "v", buf, sizeof buf, &len) == MURV_RC_OK && len == 255) << len;
    EXPECT_EQ(murvSetVarLabel(h, "v", "\xC3\xA9\xC3\xA9"), MURV_RC_OK);
    EXPECT_EQ(murvGetVarLabelLong(h, "v", buf, 4, &len), MURV_RC_OK);
    EXPECT_EQ(std::pair(std::string(buf), len), std::pair(std::string("\xC3\xA9"), 2));
    // Names are found by the locale's case mapping.
    Define({{"caf\xC3\xA9", 0}});
    double vh = -1;
    EXPECT_EQ(murvGetVarHandle(h, "CAF\xC3\x89", &vh), MURV_RC_OK);
}

// Formats are checked against the variable's type, the format's type
// before the variable's name, and a write-only format (6) is no print
// format; out-of-range display properties are ignored. Once committed the
// dictionary is final, and reading it is still allowed.
TEST_F(VariableCalls, FormatsAndDisplayPropertiesAreCheckedAndReadBack) {
    Define({{"n", 0}, {"s", 10}, {"t", 200}});
    EXPECT_EQ(Display(h, "n"), (std::array{1, 8, 0}));
    EXPECT_EQ(Format(murvGetVarPrintFormat, h, "n"), (std::array{5, 2, 8}));
    EXPECT_EQ(Format(murvGetVarWriteFormat, h, "n"), (std::array{5, 2, 8}));
    const int OK = MURV_RC_OK, BPF = MURV_RC_BAD_PRINT_FORMAT, BWF = MURV_RC_BAD_WRITE_FORMAT;
    EXPECT_EQ((std::array{murvSetVarPrintFormat(h, "nope", 13, 0, 8), murvSetVarWriteFormat(h, "nope", 5, 0, 8),
                          murvSetVarPrintFormat(h, "n", 6, 0, 4), murvSetVarWriteFormat(h, "n", 6, 0, 4),
                          murvSetVarPrintFormat(h, "n", 5, 3, 10), murvSetVarPrintFormat(h, "s", 1, 0, 9),
                          murvSetVarWriteFormat(h, "s", 1, 0, 9), murvSetVarWriteFormat(h, "s", 5, 2, 8),
                          murvSetVarWriteFormat(h, "s", 2, 0, 20), murvSetVarLabel(h, "n", "Age in years")}),
              (std::array{BPF, MURV_RC_VAR_NOT_FOUND, BPF, OK, OK, BPF, BWF, BWF, OK, OK}));
    for (int bad : {-1, 3}) EXPECT_EQ(murvSetVarAlignment(h, "n", bad), MURV_RC_OK);
    for (int bad : {0, -5, 70000}) EXPECT_EQ(murvSetVarColumnWidth(h, "n", bad), MURV_RC_OK);
    for (int bad : {-1, 4}) EXPECT_EQ(murvSetVarMeasureLevel(h, "n", bad), MURV_RC_OK);
    EXPECT_EQ(Display(h, "n"), (std::array{1, 8, 0}));
    EXPECT_EQ((std::array{murvSetVarAlignment(h, "n", 2), murvSetVarColumnWidth(h, "n", 12),
                          murvSetVarMeasureLevel(h, "n", 3), murvSetVarAlignment(h, "x", 0)}),
              (std::array{OK, OK, OK, MURV_RC_VAR_NOT_FOUND}));
    ASSERT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_EQ(murvSetVarLabel(h, "n", "x"), MURV_RC_DICT_COMMITTED);
    EXPECT_EQ(murvSetVarPrintFormat(h, "n", 13, 0, 8), MURV_RC_DICT_COMMITTED) << "handle before type";
    int count = 0;
    EXPECT_TRUE(murvGetNumberofVariables(h, &count) == MURV_RC_OK && count == 3);

    const int r = Reread(false);
    char name[65], label[121];
    int type = -1, wid = 0;
    EXPECT_TRUE(murvGetVarInfo(r, 1, name, &type) == MURV_RC_OK && name + std::to_string(type) == "s10") << name;
    EXPECT_TRUE(murvGetVarLabel(r, "N", label) == MURV_RC_OK && std::string(label) == "Age in years") << label;
    EXPECT_EQ(murvGetVarLabel(r, "s", label), MURV_RC_NO_LABEL);
    EXPECT_EQ(Format(murvGetVarWriteFormat, r, "N"), (std::array{6, 0, 4}));
    EXPECT_EQ(Format(murvGetVarPrintFormat, r, "n"), (std::array{5, 3, 10}));
    EXPECT_EQ(Format(murvGetVarWriteFormat, r, "s"), (std::array{2, 0, 20}));
    EXPECT_EQ(Format(murvGetVarPrintFormat, r, "t"), (std::array{1, 0, 200}));
    EXPECT_EQ(Format(murvGetVarPrintFormat, r, "x", MURV_RC_VAR_NOT_FOUND), (std::array{5, 2, 8}))
        << "outputs reset to the defaults";
    EXPECT_EQ(Display(r, "n"), (std::array{2, 12, 3}));
    EXPECT_EQ(Display(r, "t"), (std::array{0, 50, 1}));
    int a = -1;
    EXPECT_TRUE(murvGetVarAlignment(r, "x", &a) == MURV_RC_VAR_NOT_FOUND && a == 1) << a;
    EXPECT_EQ(murvGetVarPrintFormat(r, "n", &type, nullptr, &wid), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvGetVarColumnWidth(r, "n", nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvSetVarCMissingValues(r, "s", 0, nullptr, nullptr, nullptr), MURV_RC_READ_MODE);
    EXPECT_EQ(murvSetVarMeasureLevel(r, "nope", 1), MURV_RC_READ_MODE) << "handle before variable";
    murvCloseRead(r);
}

TEST_F(VariableCalls, MissingValuesByKind) {
    Define({{"n", 0}, {"s4", 4}, {"s10", 10}});
    for (int kind : {-1, 4, -4}) EXPECT_EQ(murvSetVarNMissingValues(h, "n", kind, 1, 2, 3), MURV_RC_BAD_MISSING);
    EXPECT_EQ(murvSetVarNMissingValues(h, "n", -2, 5, 1, 0), MURV_RC_BAD_MISSING);
    EXPECT_EQ(murvSetVarNMissingValues(h, "s4", 4, 0, 0, 0), MURV_RC_BAD_MISSING) << "kind before type";
    EXPECT_EQ(murvSetVarNMissingValues(h, "s4", 1, 0, 0, 0), MURV_RC_NUMERIC_EXPECTED);
    EXPECT_EQ(murvSetVarNMissingValues(h, "n", 1, 4, 5, 6), MURV_RC_OK);
    EXPECT_EQ(NMissing(h, "n"), (std::array{1.0, 4.0, 0.0, 0.0}));  // only the values the kind uses
    EXPECT_EQ(murvSetVarNMissingValues(h, "n", -3, 1, 5, 9), MURV_RC_OK);
    int kind = 7;
    double v[3] = {7, 7, 7};
    EXPECT_EQ(murvGetVarNMissingValues(h, "s4", &kind, &v[0], &v[1], &v[2]), MURV_RC_NUMERIC_EXPECTED);
    EXPECT_EQ(murvGetVarNMissingValues(h, "n", &kind, &v[0], nullptr, &v[2]), MURV_RC_BAD_HANDLE);

    for (int bad : {4, -2}) EXPECT_EQ(murvSetVarCMissingValues(h, "s4", bad, "a", "b", "c"), MURV_RC_BAD_MISSING);
    EXPECT_EQ(murvSetVarCMissingValues(h, "n", 1, "a", nullptr, nullptr), MURV_RC_STRING_EXPECTED);
    EXPECT_EQ(murvSetVarCMissingValues(h, "s10", 1, "a", nullptr, nullptr), MURV_RC_SHORT_STRING_EXPECTED);
    EXPECT_EQ(murvSetVarCMissingValues(h, "s4", 2, "a", nullptr, nullptr), MURV_RC_BAD_HANDLE);
    EXPECT_EQ(murvSetVarCMissingValues(h, "s4", 2, "ab", "wxyz", nullptr), MURV_RC_OK);

    const int r = Reread();
    EXPECT_EQ(NMissing(r, "n"), (std::array{-3.0, 1.0, 5.0, 9.0}));
    char c[3][9] = {"junk", "junk", "junk"};
    EXPECT_EQ(murvGetVarCMissingValues(r, "s4", &kind, c[0], c[1], c[2]), MURV_RC_OK);
    EXPECT_EQ(std::to_string(kind) + '|' + c[0] + '|' + c[1] + '|' + c[2], "2|ab  |wxyz|");  // blank-padded
    EXPECT_EQ(murvGetVarCMissingValues(r, "n", &kind, c[0], c[1], c[2]), MURV_RC_STRING_EXPECTED);
    EXPECT_EQ(murvGetVarCMissingValues(r, "s10", &kind, c[0], c[1], c[2]), MURV_RC_SHORT_STRING_EXPECTED);
    EXPECT_EQ(murvGetVarCMissingValues(r, "s4", &kind, c[0], c[1], nullptr), MURV_RC_BAD_HANDLE);
    murvCloseRead(r);
}

}  // namespace
