// Metadata kept as text in a file's records: attributes, and the
// definitions of variable sets and multiple-response sets.
#include "meta/attributes.h"
#include "meta/variableset.h"
#include "model/setrecords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/locale_guard.h"
#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using Values = Attributes::ValueList;

// The values of the entry a name finds, empty when it finds none.
Values ValuesOf(const Attributes& a, std::string_view name) {
    const long k = a.Index(name);
    return k < 0 ? Values() : a.Entries()[static_cast<std::size_t>(k)].values;
}

// A string literal with any NUL bytes inside it kept.
template <std::size_t N>
std::string Bytes(const char (&literal)[N]) {
    return std::string(literal, N - 1);
}

// The exact record text (the interface tests round-trip the ordinary forms
// through files): a line feed inside a value is left out, an entry without
// values is not written, and a later spelling replaces in the first place.
TEST(Attributes, EncodeAndDecode) {
    Attributes a;
    a.Set("Colour", {"red", "dark blue"});
    a.Set("Unused", {});
    a.Set("$CreationDate", {"2006-11-17"});
    a.Set("Odd", {"a\nb", "it's)", "", Bytes("x\0y")});
    a.Set("colour", {"red", "blue"});
    const std::string text = a.Encode();
    EXPECT_EQ(text, Bytes("colour('red'\n'blue'\n)$CreationDate('2006-11-17'\n)Odd('ab'\n'it's)'\n''\n'x\0y'\n)"));
    Attributes b;
    std::size_t consumed = 99;
    ASSERT_TRUE(b.Decode(text, &consumed));
    EXPECT_EQ(consumed, text.size());
    EXPECT_EQ(b.Encode(), text);
    EXPECT_EQ(b.Index("$creationdate"), 1);
    EXPECT_EQ(b.Index("Weight"), -1);
}

// A decoded text replaces the entries; it ends at a "/", entries with bad
// names or without values are skipped, and a failure leaves the entries and
// the count of bytes consumed as they were.
TEST(Attributes, DecodeReplacesSkipsOrFailsWhole) {
    // The texts and the entries they leave (no entries: the text is refused).
    const char* const no = nullptr;
    const std::pair<std::string, const char*> rows[] = {
        {"A('1'\n'2'\n)B('x'\n)a('3'\n)/C('y'\n)", "a('3'\n)B('x'\n)"},  // a later duplicate replaces in place
        {"1A('v'\n)", ""}, {"A()", ""}, {Bytes("A\0B('v'\n)"), ""}, {"", ""}, {"$Any('v'\n)/", "$Any('v'\n)"},
        {"A(x)", no},   {"A('v'\n", no}, {"A(", no},       {"('v'\n)", no},   {"A", no},
        {"A('\n)", no}, {"A('v\n)", no}, {"A(v'\n)", no}, {"B('v'\n)A(", no}, {"B('v'\n)C", no},
    };
    for (const auto& [text, entries] : rows) {
        Attributes a;
        a.Set("Keep", {"me"});
        std::size_t consumed = 7;
        EXPECT_EQ(a.Decode(text, &consumed), entries != nullptr) << text;
        EXPECT_EQ(a.Encode(), entries ? entries : "Keep('me'\n)") << text;
        EXPECT_EQ(consumed, entries ? std::min(text.find('/'), text.size()) : 7u) << text;
    }
    // Every prefix of a valid text decodes or fails cleanly, without reading
    // past its end (run under the address sanitizer; the file-reading fuzz
    // target feeds the decoder random records).
    Attributes a;
    std::size_t consumed = 0;
    const std::string text = "Colour('red'\n'it''s'\n)$X('1'\n)/";
    for (std::size_t n = 0; n <= text.size(); ++n) {
        const bool ok = a.Decode(std::string_view(text).substr(0, n), &consumed);
        EXPECT_EQ(ok, n == 0 || n == text.find(')') + 1 || n >= text.find(")/") + 1) << n;
    }
}

// Values set one position at a time, as the interface does: gaps filled
// with empty values, the existing spelling kept, far positions refused.
TEST(Attributes, SetFlatValue) {
    Attributes a;
    EXPECT_FALSE(a.SetFlatValue({"Colour", 3}, "x"));
    EXPECT_EQ(ValuesOf(a, "colour"), (Values{"", "", "x"}));
    EXPECT_TRUE(a.SetFlatValue({"COLOUR", 3}, "y"));
    EXPECT_FALSE(a.SetFlatValue({"colour", 1}, "a"));
    EXPECT_TRUE(a.SetFlatValue({"colour", 0}, "only"));
    EXPECT_EQ(a.Encode(), "Colour('only'\n)");
    EXPECT_THROW(a.SetFlatValue({"Colour", 2147483646}, "z"), std::out_of_range);
    EXPECT_THROW(a.SetFlatValue({"New", 1000001}, "z"), std::out_of_range);
    EXPECT_EQ(a.Encode(), "Colour('only'\n)");
}

// Names fold by the locale of the moment: the index is rebuilt when it changes.
TEST(Attributes, LookupFollowsTheLocale) {
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    Attributes a;
    a.Set("\xC3\xA4pfel", {"1"});              // äpfel
    EXPECT_EQ(a.Index("\xC3\x84PFEL"), 0);    // ÄPFEL
    std::setlocale(LC_ALL, "C");               // bytes no longer fold
    EXPECT_EQ(a.Index("\xC3\x84PFEL"), -1);
    a.Set("\xC3\x84PFEL", {"2"});
    EXPECT_EQ(a.Size(), 2u);
    std::setlocale(LC_ALL, "en_US.UTF-8");     // now both names fold together
    a.Set("\xC3\x84pfel", {"3"});
    EXPECT_EQ(a.Entries()[0].values, (Values{"3"}));
}

using test::MemoryDataSource;
using Set = MURV_VariableSet;
using Names = std::vector<std::string>;
constexpr auto kVarSets = MURV_SetListType::eVariableSets;
constexpr auto kMultResp = MURV_SetListType::eMultipleResponseSets;

Set Parsed(std::string_view line)
{
    Set set;
    EXPECT_TRUE(set.Parse(line)) << line;
    return set;
}

std::string Record(const MURV_DataSource& ds, int type)
{
    return ds.HasExtension(type) ? ds.GetExtension(type).Contents() : std::string();
}

void PutRecord(MURV_DataSource& ds, int type, const std::string& text)
{
    ds.SetExtension(type, 1, static_cast<int>(text.size()), text.data());
}

Names SetNames(const MURV_VariableSetList& list)
{
    Names names;
    for (const Set& set : list) names.push_back(set.GetName());
    return names;
}

// Lines the interface calls do not write read back and are written again
// byte for byte (the interface tests check the forms the calls write).
TEST(VariableSetLine, LinesReadBackAndAreWrittenAgainExactly)
{
    for (const char* line : {"Demographics= age sex income", "$colours=C 14 Favourite hues red green blue",
                             "$odd=D3 a b 5 x=$ y m1 m2", "$e=E 1 2 10 0  p q", "empty= "})
        EXPECT_EQ(Parsed(line).Encode(), std::string(line) + "\n");
    // A counted value and a label may hold blanks, "=" and "$".
    const Set odd = Parsed("$odd=D3 a b 5 x=$ y m1 m2");
    EXPECT_EQ(odd.GetValue(), "a b");
    EXPECT_EQ(odd.GetLabel(), "x=$ y");
    // A line break inside a counted text would split the line on reading.
    Set broken = Parsed("$b=C 1 l x");
    broken.SetLabel("one\ntwo\r");
    EXPECT_EQ(broken.Encode(), "$b=C 8 one two  x\n");

    // A line ends at its first break or NUL, two blanks make an empty token, a
    // label takes exactly its length, and members are unique without regard to case.
    const struct { std::string line; Names members; } rows[] = {
        {"vs= a  b\r\nc d", {"a", "b"}},
        {"vs=a b\nc", {"a", "b"}},
        {std::string("vs= a b\0c", 9), {"a", "b"}},
        {"$a=C 3 a c x\ny", {"x"}},
        {"vs= age AGE sex Age  SEX x", {"age", "sex", "x"}},
    };
    for (const auto& r : rows) EXPECT_EQ(Parsed(r.line).GetVariables(), r.members) << r.line;
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    EXPECT_EQ(Parsed("vs= \xC3\xA9t\xC3\xA9 \xC3\x89T\xC3\x89 x").GetVariables(), (Names{"\xC3\xA9t\xC3\xA9", "x"}));
}

TEST(VariableSetLine, MalformedLinesAreRefusedAndChangeNothing)
{
    const char* bad[] = {
        "$a=X 3 abc x",                     // unknown type letter
        "$a=",                              // no type letter
        "$a C 3 abc x",                     // no "="
        "names age sex",                    // no "=" in a variable set
        "= age sex",                        // empty name
        "$a=C 30 abc x",                    // label longer than the line
        "$a=C 4 abc",                       // label runs one byte past the end
        "$a=C 3x abc x",                    // non-numeric length
        "$a=C -3 abc x",                    // signed length
        "$a=C  abc x",                      // empty length
        "$a=C 99999999999999999999999999 abc x",  // length that overflows
        "$a=C 18446744073709551617 abc x",  // 2^64 + 1
        "$a=C3 abc x",                      // no blank after the type
        "$a=C 3 abcx y",                    // no blank after the label
        "$a=C 3 abc",                       // nothing after the label
        "$a=E1 1 1 0  x",                   // no blank after E
        "$a=D 1 1 0  x",                    // blank after D: empty value length
        "$a=D0  0  x",                      // empty counted value
        "$a=D5 1 0  x",                     // counted value past the end
        "$a=D1 1x0  x",                     // no blank after the counted value
    };
    for (const char* line : bad) {
        Set set = Parsed("kept= m");
        EXPECT_FALSE(set.Parse(line)) << line;
        EXPECT_EQ(set.Encode(), "kept= m\n") << line;
    }

    // In a text, each bad line is skipped on its own and its neighbours kept.
    // (Read as multiple-response sets, the lines without "$" get one and are
    // still malformed.)
    std::string text = "$first=C 1 f a b\n";
    for (const char* line : bad) text += std::string(line) + "\n";
    text += "$last=C 1 l c d\n";
    MURV_VariableSetList list;
    EXPECT_EQ(AppendSetsFromText(text, kMultResp, list), std::size(bad));
    EXPECT_EQ(SetNames(list), (Names{"$first", "$last"}));
}

TEST(VariableSetList, RecordsAreReadLineByLineAndStoredByKind)
{
    MemoryDataSource ds;
    // Type 19 is read after type 7, replacing in place; CR LF endings, short
    // lines, a last line without a break and trailing NULs are all fine.
    PutRecord(ds, 7, "$one=C 1 1 a b\r\n\n\r\n$two=C 1 2 c d\r\n$three=C 1 3 e f");
    PutRecord(ds, 19, std::string("$TWO=E 1 1 1 1 T g h\n\0\0\0", 24));
    std::size_t malformed = 99;
    MURV_VariableSetList list = ReadVariableSets(ds, kMultResp, &malformed);
    EXPECT_EQ(malformed, 0u);
    EXPECT_EQ(SetNames(list), (Names{"$one", "$TWO", "$three"}));
    EXPECT_TRUE(list[1].IsExtended());

    // A variable-set record holds no multiple-response sets.
    PutRecord(ds, 5, "v1= a b\n$m=C 1 m a b\nV1= c\nv2= d");
    list = ReadVariableSets(ds, kVarSets, &malformed);
    EXPECT_EQ(malformed, 1u);
    EXPECT_EQ(SetNames(list), (Names{"V1", "v2"}));
    EXPECT_EQ(list[0].GetVariables(), Names{"c"});

    // Storing variable sets leaves the multiple-response records alone.
    StoreVariableSets({Parsed("v= a b"), Parsed("w= c")}, ds);
    EXPECT_EQ(Record(ds, 5), "v= a b\nw= c\n");
    EXPECT_EQ(Record(ds, 7), "$one=C 1 1 a b\r\n\n\r\n$two=C 1 2 c d\r\n$three=C 1 3 e f");
    EXPECT_EQ(SetNames(ReadVariableSets(ds, kMultResp)), (Names{"$one", "$TWO", "$three"}));
}

TEST(VariableSetList, DisplayLabelComesFromFirstLabelledMember)
{
    MemoryDataSource ds;
    ds.Add(0, "Q1");
    ds.GetVariable(ds.Add(0, "q2")).SetLabel("", 0);
    ds.GetVariable(ds.Add(0, "q3")).SetLabel("Third question", 14);

    // Without a labelled member the first member's name stands in.
    Set set = Parsed("$q=E 11 1 1 0  missing q1 Q2 q3");
    set.SetLabel("stored");
    EXPECT_EQ(MultRespDisplayLabel(set, ds), "Third question");
    set.SetVariables({"missing", "q1"});
    EXPECT_EQ(MultRespDisplayLabel(set, ds), "missing");
    set.ClearVariables();
    EXPECT_EQ(MultRespDisplayLabel(set, ds), "");
    set.SetFlag(Set::eLabelFromFirstVar, false);
    EXPECT_EQ(MultRespDisplayLabel(set, ds), "stored");
}

// After reading, members that name no variable go, and sets left empty;
// records with nothing to drop stay byte for byte.
TEST(PruneSets, UnknownMembersAndEmptiedSetsGo)
{
    MemoryDataSource ds;
    for (const auto& [type, name] : {std::pair{0, "age"}, {0, "Sex"}, {8, "name"}}) ds.Add(type, name);
    const std::string long64(64, 'L');
    ds.Add(0, long64.c_str());
    PutRecord(ds, 5, "ghosts= g1 g2\nbad line\n");
    PutRecord(ds, 7, "$m=C 1 m AGE phantom sex\n$gone=C 1 g x y\n");
    PutRecord(ds, 19, "$e=E 1 1 1 0  phantom name\n");
    PruneSetsAfterRead(ds);
    EXPECT_FALSE(ds.HasExtension(5));
    EXPECT_EQ(Record(ds, 7), "$m=C 1 m AGE sex\n");
    EXPECT_EQ(Record(ds, 19), "$e=E 1 1 1 0  name\n");

    const std::string text = "keep= age sex\r\nnot a set\n";
    PutRecord(ds, 5, text);
    PruneSetsAfterRead(ds);
    EXPECT_EQ(Record(ds, 5), text);
    // Members are compared by their first 64 bytes.
    PutRecord(ds, 5, "v= " + long64 + "xyz " + std::string(63, 'L') + "\n");
    PruneSetsAfterRead(ds);
    EXPECT_EQ(Record(ds, 5), "v= " + long64 + "xyz\n");
}

}  // namespace
}  // namespace murv
