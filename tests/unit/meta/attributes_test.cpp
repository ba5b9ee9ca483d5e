#include "meta/attributes.h"

#include <gtest/gtest.h>

#include <algorithm>
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

}  // namespace
}  // namespace murv
