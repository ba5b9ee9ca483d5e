// Value labels through the public interface: setting, looking up and handing
// out labels, label sets shared by several variables, and labels that
// survive a written and reopened file.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/locale_guard.h"
#include "support/temp_dir.h"

namespace {

using namespace murv::testing;
using Names = std::vector<const char*>;

// What the set getters give for a refused call.
std::string Refused(int rc) { return "refused " + std::to_string(rc); }

// A whole label set as "value=label; ..." in the order handed out, the
// values as the getter gives them; the library's arrays go back at once.
template <class Raw, class Get, class Free>
std::string LabelSet(Get get, Free release, int handle, const char* var) {
    Raw* values = nullptr;
    char** labels = nullptr;
    int count = -1;
    const int rc = get(handle, var, &values, &labels, &count);
    std::ostringstream out;
    out.precision(15);
    EXPECT_TRUE(rc == MURV_RC_OK || (values == nullptr && labels == nullptr && count == 0));
    if (rc != MURV_RC_OK) out << Refused(rc);
    for (int i = 0; i < count; ++i) {
        out << (i ? "; " : "");
        if constexpr (std::is_same_v<Raw, double>) {
            if (std::isnan(values[i]) || values[i] == murvSysmisVal()) {  // by name, exactly
                out << (std::isnan(values[i]) ? "NaN=" : "SYSMIS=") << labels[i];
                continue;
            }
        }
        out << values[i] << '=' << labels[i];  // -0 shows as such
    }
    EXPECT_EQ(release(values, labels, count), MURV_RC_OK);
    return out.str();
}
std::string NumericSet(int handle, const char* var) {
    return LabelSet<double>(murvGetVarNValueLabels, murvFreeVarNValueLabels, handle, var);
}
std::string StringSet(int handle, const char* var) {
    return LabelSet<char*>(murvGetVarCValueLabels, murvFreeVarCValueLabels, handle, var);
}

// The multi-variable setters, given lists (as many labels as values).
int SetNLabels(int h, Names vars, std::vector<double> values, Names labels) {
    return murvSetVarNValueLabels(h, vars.data(), static_cast<int>(vars.size()), values.data(), labels.data(),
                                  static_cast<int>(values.size()));
}
int SetCLabels(int h, Names vars, Names values, Names labels) {
    return murvSetVarCValueLabels(h, vars.data(), static_cast<int>(vars.size()), values.data(), labels.data(),
                                  static_cast<int>(values.size()));
}

// One label through a Long getter with room for any label, or "refused
// <code>" with the outputs reset.
template <class Value>
std::string Label(int handle, const char* var, Value value) {
    char buffer[1024] = "junk";
    int length = -1;
    int code;
    if constexpr (std::is_arithmetic_v<Value>)
        code = murvGetVarNValueLabelLong(handle, var, value, buffer, sizeof buffer, &length);
    else
        code = murvGetVarCValueLabelLong(handle, var, value, buffer, sizeof buffer, &length);
    EXPECT_TRUE(static_cast<std::size_t>(length) == std::strlen(buffer) && (code == MURV_RC_OK || length == 0));
    return code == MURV_RC_OK ? buffer : Refused(code);
}

// A new file with numeric variables age and income and string variables s4,
// s8 and s9 (4, 8 and 9 bytes wide).
class ValueLabels : public ::testing::Test {
protected:
    void TearDown() override { murvCloseWrite(h_); }  // (-1 if the test closed it)

    TempDir dir_;
    int h_ = OpenNew(dir_.File("labels.murv"), {{"age", 0}, {"income", 0}, {"s4", 4}, {"s8", 8}, {"s9", 9}});
};

TEST_F(ValueLabels, NumericLabelsAreKeptInValueOrder) {
    const double nan = std::nan("");
    for (const auto& [value, label] : {std::pair{3.0, "three"}, {1.0, "one"}, {nan, "nan"}, {2.0, "two"}, {2.0, "TWO"},
                                       {-1.0, "minus one"}, {0.0, "zero"}, {-0.0, "negative zero"}, {4.0, ""},
                                       {nan, "NaN"}})
        EXPECT_EQ(murvSetVarNValueLabel(h_, "AGE ", value, label), MURV_RC_OK);  // names ignore case and blanks
    // 0.0 and -0.0 are two values; NaN is one, after every number.
    EXPECT_EQ(NumericSet(h_, "age"), "-1=minus one; 0=zero; -0=negative zero; 1=one; 2=TWO; 3=three; 4=; NaN=NaN");
    // An empty label is a label; an absent one, or an absent set, is not.
    EXPECT_EQ(Label(h_, "age", 4), "");
    EXPECT_EQ(Label(h_, "age", 5), Refused(MURV_RC_NO_LABEL));
    EXPECT_EQ(Label(h_, "income", 1), Refused(MURV_RC_NO_VALUE_LABELS));
}

TEST_F(ValueLabels, StringValuesAreEightBlankPaddedBytes) {
    MURV_USE_LOCALE(guard, "C");  // every byte a character
    // A value too long is refused before anything else, the handle included.
    EXPECT_EQ(murvSetVarCValueLabel(99, "s8", "123456789", "x"), MURV_RC_STRING_TOO_LONG);
    EXPECT_EQ(murvSetVarCValueLabel(99, "s8", "a", "x"), MURV_RC_BAD_HANDLE);

    for (const auto& [value, label] : {std::pair{"b", "bee"}, {"ab", "ay bee"}, {"a       ", "ay"},
                                       {"12345678", "digits"}, {"a", "AY"}, {"aaaaaaa\xB0", "high"}})
        EXPECT_EQ(murvSetVarCValueLabel(h_, "s8", value, label), MURV_RC_OK);
    EXPECT_EQ(Label(h_, "s8", "a  "), "AY");  // "a" and "a       " are one value
    EXPECT_EQ(Label(h_, "s8", "123456789 and more"), "digits");  // lookups use the first 8 bytes
    char label[61];
    EXPECT_EQ(murvGetVarCValueLabel(h_, "s8", "c", label), MURV_RC_NO_LABEL);
    // The map's order is that of the bytes read as a little-endian double:
    // "b" before "ab", whose last differing byte decides, and a high eighth
    // byte, the sign, first.
    EXPECT_EQ(StringSet(h_, "s8"), "aaaaaaa\xB0=high; a       =AY; b       =bee; ab      =ay bee; 12345678=digits");
    // Values are handed out as wide as the variable.
    EXPECT_EQ(murvSetVarCValueLabel(h_, "s4", "x", "ex"), MURV_RC_OK);
    EXPECT_EQ(StringSet(h_, "s4"), "x   =ex");
}

TEST_F(ValueLabels, VariableChecksComeInOrderAndChangeNothing) {
    EXPECT_EQ(murvSetVarNValueLabel(h_, "nosuch", 1, "x"), MURV_RC_VAR_NOT_FOUND);
    EXPECT_EQ(murvSetVarNValueLabel(h_, "s4", 1, "x"), MURV_RC_NUMERIC_EXPECTED);
    EXPECT_EQ(NumericSet(h_, "s4"), Refused(MURV_RC_NUMERIC_EXPECTED));
    EXPECT_EQ(murvSetVarCValueLabel(h_, "age", "a", "x"), MURV_RC_STRING_EXPECTED);
    EXPECT_EQ(Label(h_, "age", "a"), Refused(MURV_RC_STRING_EXPECTED));
    EXPECT_EQ(murvSetVarCValueLabel(h_, "s9", "a", "x"), MURV_RC_SHORT_STRING_EXPECTED);
    EXPECT_EQ(StringSet(h_, "s9"), Refused(MURV_RC_SHORT_STRING_EXPECTED));

    // A multi-variable setter stops at the first variable that fails and
    // changes none, not even those checked before it.
    ASSERT_EQ(murvSetVarNValueLabel(h_, "age", 1, "kept"), MURV_RC_OK);
    const Names texts = {"new one", "new two"};
    EXPECT_EQ(SetNLabels(h_, {"age", "s4", "nosuch"}, {1, 2}, texts), MURV_RC_NUMERIC_EXPECTED);
    EXPECT_EQ(SetNLabels(h_, {"age", "nosuch", "s4"}, {1, 2}, texts), MURV_RC_VAR_NOT_FOUND);
    EXPECT_EQ(NumericSet(h_, "age"), "1=kept");
    EXPECT_EQ(SetCLabels(h_, {"s8", "s9"}, {"a", "b"}, texts), MURV_RC_SHORT_STRING_EXPECTED);
    EXPECT_EQ(StringSet(h_, "s8"), Refused(MURV_RC_NO_VALUE_LABELS));
    // A value too long is found before any variable is looked at.
    EXPECT_EQ(SetCLabels(h_, {"nosuch"}, {"a", "123456789"}, texts), MURV_RC_STRING_TOO_LONG);
}

TEST_F(ValueLabels, LongLabelsAreCutOnACharacterBoundary) {
    const std::string long121(121, 'x'), x120(120, 'x');
    EXPECT_EQ(murvSetVarNValueLabel(h_, "age", 1, long121.c_str()), MURV_RC_VALUE_LABEL_CUT);
    EXPECT_EQ(Label(h_, "age", 1), x120);
    EXPECT_EQ(murvSetVarNValueLabel(h_, "age", 2, std::string(120, 'y').c_str()), MURV_RC_OK);
    EXPECT_EQ(murvSetVarCValueLabel(h_, "s8", "a", std::string(100000, 'z').c_str()), MURV_RC_VALUE_LABEL_CUT);
    EXPECT_EQ(Label(h_, "s8", "a"), std::string(120, 'z'));
    char label[61];
    EXPECT_TRUE(murvGetVarNValueLabel(h_, "age", 1, label) == MURV_RC_OK && label == std::string(60, 'x'))
        << "the fixed-size getters give 60 bytes: " << label;
    // The multi-variable setters cut too, and still store every label.
    EXPECT_EQ(SetNLabels(h_, {"income"}, {1, 2}, {long121.c_str(), "short"}), MURV_RC_VALUE_LABEL_CUT);
    EXPECT_EQ(NumericSet(h_, "income"), "1=" + x120 + "; 2=short");

    MURV_USE_LOCALE(utf8, "en_US.UTF-8");
    const std::string e = "\xC3\xA9";  // two bytes
    EXPECT_EQ(murvSetVarNValueLabel(h_, "age", 3, (std::string(119, 'a') + e).c_str()), MURV_RC_VALUE_LABEL_CUT);
    EXPECT_EQ(Label(h_, "age", 3), std::string(119, 'a'));
    const std::string label61 = std::string(59, 'b') + e;
    EXPECT_EQ(murvSetVarNValueLabel(h_, "age", 4, label61.c_str()), MURV_RC_OK);
    EXPECT_TRUE(murvGetVarNValueLabel(h_, "age", 4, label) == MURV_RC_OK && label == std::string(59, 'b')) << label;
    EXPECT_EQ(Label(h_, "age", 4), label61);
    // Four two-byte characters make an 8-byte value.
    EXPECT_EQ(murvSetVarCValueLabel(h_, "s8", (e + e + e + e).c_str(), "four"), MURV_RC_OK);
    EXPECT_EQ(Label(h_, "s8", (e + e + e + e).c_str()), "four");
    // A lookup cuts the value to 8 bytes without splitting a character.
    EXPECT_EQ(murvSetVarCValueLabel(h_, "s8", "abcdefg", "seven"), MURV_RC_OK);
    EXPECT_EQ(Label(h_, "s8", ("abcdefg" + e).c_str()), "seven");
}

TEST_F(ValueLabels, LongGettersWithSmallBuffers) {
    ASSERT_FALSE(murvSetVarNValueLabel(h_, "age", 1, "label") || murvSetVarCValueLabel(h_, "s4", "a", "label"));
    // Room below 1 leaves none even for the NUL: refused, the buffer as it
    // was. The text is cut to the room and not a byte more is written; an
    // absent label (age 2) still resets the outputs. Room -5 asks no length.
    char buffer[8];
    for (const auto& [var, value, room, rc, text] :
         {std::tuple{"age", 1, 0, MURV_RC_BAD_HANDLE, ""}, {"s4", 0, -5, MURV_RC_BAD_HANDLE, ""},
          {"age", 1, 1, MURV_RC_OK, ""}, {"s4", 0, 4, MURV_RC_OK, "lab"}, {"age", 2, 8, MURV_RC_NO_LABEL, ""}}) {
        SCOPED_TRACE(testing::Message() << var << ' ' << value << " room " << room);
        std::memset(buffer, '#', sizeof buffer);
        int length = -1;
        int* out = room < 0 ? nullptr : &length;
        EXPECT_EQ(value ? murvGetVarNValueLabelLong(h_, var, value, buffer, room, out)
                        : murvGetVarCValueLabelLong(h_, var, "a", buffer, room, out),
                  rc);
        EXPECT_TRUE(!out || length == static_cast<int>(std::strlen(text))) << length;
        EXPECT_TRUE(room < 1 ? buffer[0] == '#' : std::string(buffer) == text && (room == 8 || buffer[room] == '#'));
    }
}

TEST_F(ValueLabels, RefusedArgumentsHandleStatesAndArraysThatOutliveTheHandle) {
    const double values[] = {1};
    const char* texts[] = {"one"};
    const char* vars[] = {"age"};
    const char* nulls[] = {nullptr};
    char label[61] = "#";
    double* nValues = reinterpret_cast<double*>(label);
    int count = -1, call = 0;
    for (const int rc : {murvSetVarNValueLabel(h_, nullptr, 1, "x"), murvSetVarNValueLabel(h_, "age", 1, nullptr),
                         murvSetVarCValueLabel(h_, "s4", nullptr, "x"),
                         murvSetVarNValueLabels(h_, nullptr, 1, values, texts, 1),
                         murvSetVarNValueLabels(h_, nulls, 1, values, texts, 1),
                         murvSetVarNValueLabels(h_, vars, 1, nullptr, texts, 1),
                         murvSetVarNValueLabels(h_, vars, 1, values, nulls, 1),
                         murvSetVarNValueLabels(h_, vars, -1, values, texts, 1),
                         murvSetVarNValueLabels(h_, vars, 1, values, texts, -1),
                         murvSetVarCValueLabels(h_, vars, 1, nulls, texts, 1),
                         murvSetVarCValueLabels(h_, vars, 1, texts, texts, -3),
                         murvGetVarNValueLabel(h_, nullptr, 1, label), murvGetVarNValueLabel(h_, "age", 1, nullptr),
                         murvGetVarCValueLabel(h_, "s4", nullptr, label),
                         murvGetVarNValueLabels(h_, "age", &nValues, nullptr, &count)})
        EXPECT_EQ(rc, MURV_RC_BAD_HANDLE) << "call " << call++;
    EXPECT_TRUE(label[0] == '\0' && nValues == nullptr && count == 0);  // outputs reset
    EXPECT_EQ(NumericSet(h_, "age"), Refused(MURV_RC_NO_VALUE_LABELS));  // nothing was stored

    // The handle is still fine. No variables, or no labels, is not an error;
    // no labels empties a set.
    for (const int rc : {murvSetVarNValueLabel(h_, "income", 1, "one"),
                         murvSetVarNValueLabels(h_, nullptr, 0, values, texts, 1), SetNLabels(h_, {"income"}, {}, {}),
                         murvFreeVarCValueLabels(nullptr, nullptr, 5), murvSetVarNValueLabel(h_, "age", 1, "one"),
                         murvCommitHeader(h_)})
        ASSERT_EQ(rc, MURV_RC_OK) << "call " << call++;
    EXPECT_EQ(NumericSet(h_, "income"), Refused(MURV_RC_NO_VALUE_LABELS));
    for (const int rc : {murvSetVarNValueLabel(h_, "age", 2, "two"), SetNLabels(h_, {"age"}, {2}, {"two"})})
        EXPECT_EQ(rc, MURV_RC_DICT_COMMITTED);

    // Arrays handed out are the caller's until the free call, closing or not.
    char** nLabels = nullptr;
    ASSERT_TRUE(murvGetVarNValueLabels(h_, "age", &nValues, &nLabels, &count) == 0 && murvCloseWrite(h_) == 0);
    EXPECT_EQ(NumericSet(h_, "age"), Refused(MURV_RC_BAD_HANDLE));
    h_ = -1;
    ASSERT_TRUE(count == 1 && nValues[0] == 1 && std::string(nLabels[0]) == "one");
    EXPECT_EQ(murvFreeVarNValueLabels(nValues, nLabels, count), MURV_RC_OK);

    const int r = OpenForRead(dir_.File("labels.murv"));
    EXPECT_EQ(murvSetVarNValueLabel(r, "age", 2, "two"), MURV_RC_READ_MODE);
    EXPECT_EQ(Label(r, "age", 1), "one");
    murvCloseRead(r);
}

// Numeric variables v0..v9, all labelled 1 and 2: by one multi-variable
// call (one shared set, which replaces v0's labels, not merged with them) or
// by one call each (equal sets). The file's size.
std::uintmax_t WriteTenLabelled(const std::string& path, bool shared) {
    const int h = OpenNew(path, {});
    const Names vars = {"v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9"};
    for (const char* var : vars) EXPECT_EQ(murvSetVarName(h, var, 0), MURV_RC_OK);
    if (shared) {
        EXPECT_EQ(murvSetVarNValueLabel(h, "v0", 7, "replaced"), MURV_RC_OK);
        EXPECT_EQ(SetNLabels(h, vars, {1, 2}, {"one", "two"}), MURV_RC_OK);
    } else {
        for (const char* var : vars) EXPECT_EQ(SetNLabels(h, {var}, {1, 2}, {"one", "two"}), MURV_RC_OK);
    }
    murvCloseRead(Reopen(h, path));
    return std::filesystem::file_size(path);
}

// A copy of a file's dictionary (an uncommitted write handle, no cases),
// with one more label on v0 if asked.
std::uintmax_t CopyDictionary(const std::string& from, const std::string& to, bool relabelFirst) {
    int h = -1;
    EXPECT_EQ(murvOpenWriteCopy(to.c_str(), from.c_str(), &h), MURV_RC_OK);
    EXPECT_EQ(murvSetVarName(h, "V9", 0), MURV_RC_DUP_VAR) << "the copied names are indexed";
    EXPECT_TRUE(!relabelFirst || murvSetVarNValueLabel(h, "v0", 99, "only v0") == MURV_RC_OK);
    murvCloseRead(Reopen(h, to));
    return std::filesystem::file_size(to);
}

TEST(ValueLabelFiles, OneSetForSeveralVariablesIsWrittenOnceAndStaysShared) {
    TempDir dir;
    const std::uintmax_t sharedSize = WriteTenLabelled(dir.File("shared.murv"), true);
    const std::uintmax_t separateSize = WriteTenLabelled(dir.File("separate.murv"), false);
    EXPECT_LT(sharedSize, separateSize);  // the shared set is stored once
    const std::string all = "1=one; 2=two";
    int r = OpenForRead(dir.File("shared.murv"));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(NumericSet(r, ("V" + std::to_string(i)).c_str()), all) << i;
    murvCloseRead(r);

    // Reading keeps the set shared: a copy of the dictionary is written with
    // one set again, and a change through one variable reaches that one only.
    EXPECT_EQ(CopyDictionary(dir.File("shared.murv"), dir.File("copy.murv"), false), sharedSize);
    const std::uintmax_t changedSize = CopyDictionary(dir.File("shared.murv"), dir.File("changed.murv"), true);
    EXPECT_TRUE(changedSize > sharedSize && changedSize < separateSize) << changedSize;
    r = OpenForRead(dir.File("changed.murv"));
    EXPECT_EQ(NumericSet(r, "v0"), all + "; 99=only v0");
    for (int i = 1; i < 10; ++i) EXPECT_EQ(NumericSet(r, ("v" + std::to_string(i)).c_str()), all) << i;
    murvCloseRead(r);
}

TEST(ValueLabelFiles, EveryKindOfLabelComesBack) {
    TempDir dir;
    const std::string label120(120, 'L');
    int h = OpenNew(dir.File("all.murv"), {{"n", 0}, {"s3", 3}, {"s8", 8}});
    for (const auto& [value, label] : {std::pair{murvSysmisVal(), "system missing"}, {-0.0, "negative zero"},
                                       {0.0, "zero"}, {1e300, "huge"}, {2.0, label120.c_str()}})
        ASSERT_EQ(murvSetVarNValueLabel(h, "n", value, label), MURV_RC_OK);
    ASSERT_EQ(SetCLabels(h, {"s3", "s8"}, {"", "abc"}, {"blank", "letters"}), MURV_RC_OK);
    ASSERT_EQ(murvSetVarCValueLabel(h, "s8", "12345678", "digits"), MURV_RC_OK);
    h = Reopen(h, dir.File("all.murv"));

    EXPECT_EQ(NumericSet(h, "n"), "SYSMIS=system missing; 0=zero; -0=negative zero; 2=" + label120 + "; 1e+300=huge");
    EXPECT_EQ(StringSet(h, "s3"), "   =blank; abc=letters");
    EXPECT_EQ(StringSet(h, "s8"), "        =blank; abc     =letters; 12345678=digits");
    murvCloseRead(h);
}

}  // namespace
