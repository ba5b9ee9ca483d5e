#include "meta/attributes.h"

#include <gtest/gtest.h>

#include <clocale>
#include <random>
#include <stdexcept>
#include <string>

namespace murv {
namespace {

using Owner = Attributes::Owner;
using Values = Attributes::ValueList;

// Selects a test locale for one test and restores "C" afterwards.
struct LocaleScope {
    explicit LocaleScope(const char* name) { ok = std::setlocale(LC_ALL, name) != nullptr; }
    ~LocaleScope() { std::setlocale(LC_ALL, "C"); }
    bool ok;
};

Attributes::FlatName Flat(const char* name, long position) { return {name, position}; }

// The values of the entry a name finds, empty when it finds none.
Values ValuesOf(const Attributes& a, std::string_view name) {
    const long k = a.Index(name);
    return k < 0 ? Values() : a.Entries()[static_cast<std::size_t>(k)].values;
}

// The same entries, names byte for byte, in order.
bool Same(const Attributes& a, const Attributes& b) { return a.Encode() == b.Encode(); }

// A string literal with any NUL bytes inside it kept.
template <std::size_t N>
std::string Bytes(const char (&literal)[N]) {
    return std::string(literal, N - 1);
}

TEST(Attributes, SetMatchesWithoutCaseAndKeepsPositions) {
    Attributes a;
    a.Set("Colour", {"red"});
    a.Set("Size", {"1", "2"});
    a.Set("colour", {"blue", "green"});
    ASSERT_EQ(a.Size(), 2u);
    EXPECT_EQ(a.Entries()[0].name, "colour");  // the later spelling, in the first place
    EXPECT_EQ(ValuesOf(a, "COLOUR"), (Values{"blue", "green"}));
    EXPECT_EQ(a.Index("Weight"), -1);
}

TEST(Attributes, EncodeAndDecode) {
    Attributes a;
    a.Set("Colour", {"red", "dark blue"});
    a.Set("Unused", {});
    a.Set("$CreationDate", {"2006-11-17"});
    a.Set("Odd", {"a\nb", "it's)", "", Bytes("x\0y")});
    const std::string text = a.Encode();
    EXPECT_EQ(text, Bytes("Colour('red'\n'dark blue'\n)$CreationDate('2006-11-17'\n)"
                          "Odd('ab'\n'it's)'\n''\n'x\0y'\n)"));
    Attributes b;
    std::size_t consumed = 99;
    ASSERT_TRUE(b.Decode(text, &consumed));
    EXPECT_EQ(consumed, text.size());
    EXPECT_EQ(b.Size(), 3u);
    EXPECT_EQ(ValuesOf(b, "odd"), (Values{"ab", "it's)", "", Bytes("x\0y")}));
    EXPECT_EQ(b.Index("$creationdate"), 1);
}

TEST(Attributes, DecodeStopsAtSlashAndSkipsBadNames) {
    Attributes a;
    std::size_t consumed = 0;
    const std::string text = "A('1'\n'2'\n)B('x'\n)a('3'\n)/C('y'\n)";
    ASSERT_TRUE(a.Decode(text, &consumed));
    EXPECT_EQ(consumed, text.find('/'));
    ASSERT_EQ(a.Size(), 2u);
    EXPECT_EQ(a.Entries()[0].name, "a");  // a later duplicate replaces in place
    EXPECT_EQ(a.Entries()[0].values, (Values{"3"}));

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
    const Attributes before = a;
    std::size_t consumed = 7;
    for (const char* bad : {"A(x)", "A('v'\n", "A(", "('v'\n)", "A", "A('\n)", "A('v\n)",
                                  "A(v'\n)", "B('v'\n)A(", "B('v'\n)C"}) {
        EXPECT_FALSE(a.Decode(bad, &consumed)) << bad;
        EXPECT_TRUE(Same(a, before));
        EXPECT_EQ(consumed, 7u);
    }
    // Every prefix of a valid text decodes or fails cleanly; random bytes
    // never crash or read past the end (run under the address sanitizer).
    const std::string text = "Colour('red'\n'it''s'\n)$X('1'\n)/";
    for (std::size_t n = 0; n <= text.size(); ++n) {
        const bool ok = a.Decode(std::string_view(text).substr(0, n), &consumed);
        EXPECT_EQ(ok, n == 0 || n == text.find(')') + 1 || n >= text.find(")/") + 1) << n;
    }
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string noise(random() % 24, '\0');
        for (char& c : noise) c = "A('\n)/$\0x"[random() % 9];
        if (a.Decode(noise, &consumed)) {
            EXPECT_LE(consumed, noise.size());
        }
    }
}

// Values set one position at a time, as the interface does: gaps filled
// with empty values, the existing spelling kept, far positions refused.
TEST(Attributes, SetFlatValue) {
    Attributes a;
    EXPECT_FALSE(a.SetFlatValue(Flat("Colour", 3), "x"));
    EXPECT_EQ(ValuesOf(a, "colour"), (Values{"", "", "x"}));
    EXPECT_TRUE(a.SetFlatValue(Flat("COLOUR", 3), "y"));
    EXPECT_FALSE(a.SetFlatValue(Flat("colour", 1), "a"));
    EXPECT_TRUE(a.SetFlatValue(Flat("colour", 0), "only"));
    EXPECT_EQ(a.Entries()[0].name, "Colour");
    EXPECT_EQ(a.Entries()[0].values, (Values{"only"}));
    const Attributes before = a;
    EXPECT_THROW(a.SetFlatValue(Flat("Colour", 2147483646), "z"), std::out_of_range);
    EXPECT_THROW(a.SetFlatValue(Flat("New", 1000001), "z"), std::out_of_range);
    EXPECT_TRUE(Same(a, before));
}

TEST(Attributes, LookupFollowsTheLocale) {
    {
        LocaleScope utf8("en_US.UTF-8");
        ASSERT_TRUE(utf8.ok);
        Attributes a;
        a.Set("\xC3\xA4pfel", {"1"});                  // äpfel
        EXPECT_EQ(a.Index("\xC3\x84PFEL"), 0);        // ÄPFEL
        std::setlocale(LC_ALL, "C");                   // bytes no longer fold
        EXPECT_EQ(a.Index("\xC3\x84PFEL"), -1);
        a.Set("\xC3\x84PFEL", {"2"});
        EXPECT_EQ(a.Size(), 2u);
        std::setlocale(LC_ALL, "en_US.UTF-8");         // now both names fold together
        EXPECT_EQ(a.Index("\xC3\x84pfel"), 0);
        a.Set("\xC3\x84pfel", {"3"});
        EXPECT_EQ(a.Entries()[0].values, (Values{"3"}));
    }
    LocaleScope gbk("zh_CN.GBK");
    ASSERT_TRUE(gbk.ok);
    Attributes a;  // two double-byte characters whose trail bytes are "a" and "A"
    a.Set("\x81\x61", {"1"});
    a.Set("\x81\x41", {"2"});
    EXPECT_EQ(a.Size(), 2u);
    EXPECT_EQ(a.Index("\x81\x41"), 1);
}

TEST(Attributes, ManyAttributes) {
    Attributes a;
    for (int i = 0; i < 20000; ++i) a.Set("Name" + std::to_string(i), {std::to_string(i)});
    Attributes b;
    ASSERT_TRUE(b.Decode(a.Encode()));
    EXPECT_TRUE(Same(a, b));
    EXPECT_EQ(b.Index("name19999"), 19999);
    for (long p = 20000; p >= 1; --p) b.SetFlatValue(Flat("Array", p), "v");
    EXPECT_EQ(ValuesOf(b, "array").size(), 20000u);
}

}  // namespace
}  // namespace murv
