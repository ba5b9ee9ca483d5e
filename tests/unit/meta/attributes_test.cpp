#include "meta/attributes.h"

#include <gtest/gtest.h>

#include <clocale>
#include <stdexcept>
#include <string>

#include "support/locale_guard.h"

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

TEST(Attributes, DecodeStopsAtSlashAndSkipsBadNames) {
    Attributes a;
    std::size_t consumed = 0;
    const std::string text = "A('1'\n'2'\n)B('x'\n)a('3'\n)/C('y'\n)";
    ASSERT_TRUE(a.Decode(text, &consumed));
    EXPECT_EQ(consumed, text.find('/'));
    EXPECT_EQ(a.Encode(), "a('3'\n)B('x'\n)");  // a later duplicate replaces in place
    for (const std::string& skipped :
         {Bytes("1A('v'\n)"), Bytes("A()"), Bytes("A\0B('v'\n)"), Bytes("$Any('v'\n)/")}) {
        ASSERT_TRUE(a.Decode(skipped, &consumed)) << skipped;
        EXPECT_EQ(a.Size(), skipped[0] == '$' ? 1u : 0u) << skipped;
    }
    ASSERT_TRUE(a.Decode("", &consumed));
    EXPECT_EQ(consumed, 0u);
}

TEST(Attributes, DecodeFailureLeavesTargetUnchanged) {
    Attributes a;
    a.Set("Keep", {"me"});
    std::size_t consumed = 7;
    for (const char* bad : {"A(x)", "A('v'\n", "A(", "('v'\n)", "A", "A('\n)", "A('v\n)",
                            "A(v'\n)", "B('v'\n)A(", "B('v'\n)C"}) {
        EXPECT_FALSE(a.Decode(bad, &consumed)) << bad;
        EXPECT_EQ(a.Encode(), "Keep('me'\n)");
        EXPECT_EQ(consumed, 7u);
    }
    // Every prefix of a valid text decodes or fails cleanly, without reading
    // past its end (run under the address sanitizer; the file-reading fuzz
    // target feeds the decoder random records).
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

}  // namespace
}  // namespace murv
