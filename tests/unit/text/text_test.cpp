#include "text/mbtext.h"
#include "text/textindex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/locale_guard.h"

namespace murv::text {
namespace {

// A copy into a field from a heap copy with no terminator: the sanitizer
// catches any read past it.
std::string Padded(const std::string& source, std::size_t size, std::size_t sourceLength) {
    std::string field(size, '?');
    auto bytes = std::make_unique<char[]>(source.size());
    std::memcpy(bytes.get(), source.data(), source.size());
    CopyPadded(field.data(), size, bytes.get(), sourceLength);
    return field;
}

std::string Lower(std::string s) {
    ToLower(s.data());
    return s;
}

// Runs the check on each row under the row's locale (a null locale: under
// each of them, for ASCII text, which behaves the same in all).
template <class Row, std::size_t N, class Check>
void UnderEachLocale(const Row (&rows)[N], Check check) {
    for (const Row& row : rows) {
        for (const char* locale : {"C", "en_US.UTF-8", "zh_CN.GBK"}) {
            if (row.locale != nullptr && std::strcmp(row.locale, locale) != 0) continue;
            test::LocaleGuard guard(locale);
            if (!guard.ok()) GTEST_SKIP() << "locale " << locale << " is not available";
            SCOPED_TRACE(testing::Message() << locale << " row " << (&row - rows));
            check(row);
        }
    }
}

// GBK: lead bytes 0x81-0xFE, trail bytes 0x40-0x7E and 0x80-0xFE, so a trail
// byte can look like "@", "A", "_" or "a"; 0xFF starts no character. UTF-8:
// characters of one to four bytes. Under "C" every byte is a character.
const std::string kZhong = "\xD6\xD0", kSmile = "\xF0\x9F\x98\x80";

// No text, no room, a given length or the terminator: no crash, and the
// walk stops at a NUL.
TEST(Multibyte, NullEmptyAndCountedTexts) {
    for (const auto& [locale, zhongLength] : {std::pair{"C", 1}, {"en_US.UTF-8", -1}, {"zh_CN.GBK", 2}}) {
        MURV_USE_LOCALE(guard, locale);
        SCOPED_TRACE(locale);
        char value[4] = {'x', 'x', 'x', 'x'};
        CopyPadded(value, sizeof value, nullptr, 3);  // refused: nothing changes
        EXPECT_EQ(std::string(value, 4), "xxxx");
        CopyPadded(value, sizeof value, nullptr, 0);
        EXPECT_EQ(std::string(value, 4), "    ");
        EXPECT_FALSE(EqualIgnoringCase("ab", -1, "ABC", 3));
        EXPECT_TRUE(EqualIgnoringCase("abc", 1, "A", -1));
        EXPECT_TRUE(EqualIgnoringCase("ab\0x", 4, "AB\0y", 4));  // a NUL ends both
        EXPECT_TRUE(EqualIgnoringCase(nullptr, 3, "", -1));
        EXPECT_EQ(CharacterLengthAt(nullptr, 1), 0);
        EXPECT_EQ(CharacterLengthAt("a", 0), -1);
        EXPECT_EQ(CharacterLengthAt("", 1), 0);
        EXPECT_EQ(CharacterLengthAt(kZhong.c_str(), 2), zhongLength);
        EXPECT_EQ(FindLastChar(nullptr, 'a'), nullptr);
    }
}

// A copy into a field, and a cut, keep the longest prefix of whole
// characters: a character that would cross the limit, or a lone lead byte
// at the end, is left out; a bad byte inside is kept.
TEST(Multibyte, CopiesAndCutsNeverSplitACharacter) {
    const std::string smiles = "a" + kSmile + kSmile + kSmile + kSmile + kSmile + kSmile + kSmile + kSmile;
    const struct { const char* locale; std::string source; std::size_t size, length; std::string kept; } rows[] = {
        {nullptr, std::string(70, 'n'), 64, 70, std::string(64, 'n')},
        {nullptr, std::string("ab\0cd", 5), 8, 5, "ab"},  // a NUL ends the source
        {"C", "abc\xD6", 6, 4, "abc\xD6"},
        {"zh_CN.GBK", std::string(63, 'a') + kZhong + "bc", 64, 67, std::string(63, 'a')},
        {"zh_CN.GBK", "abc\xD6", 6, 4, "abc"},
        {"zh_CN.GBK", "abc" + kZhong, 6, 4, "abc"},
        {"zh_CN.GBK", "ab\xFF" "c" + kZhong + "\xD6", 100, 7, "ab\xFF" "c" + kZhong},
        {"zh_CN.GBK", "123456789" + kZhong, 10, 11, "123456789"},
        {"en_US.UTF-8", smiles, 31, smiles.size(), smiles.substr(0, 29)},
        {"en_US.UTF-8", smiles, 7, smiles.size(), "a" + kSmile},
        {"en_US.UTF-8", "ab\xF0\x9F\x98", 100, 5, "ab"},  // cut short before the end
    };
    UnderEachLocale(rows, [](const auto& r) {
        EXPECT_EQ(Padded(r.source, r.size, r.length), r.kept + std::string(r.size - r.kept.size(), ' '));
        EXPECT_EQ(Truncated(r.source.substr(0, r.length), r.size), r.kept);
    });
}

// Case maps whole characters, and only to characters of the same length;
// it stops at a byte that does not decode.
TEST(Multibyte, CaseWorksOnWholeCharacters) {
    const struct { const char* locale; bool upper; std::string text, mapped; } rows[] = {
        {nullptr, true, "age_1.x@#$", "AGE_1.X@#$"},
        {nullptr, false, "AGE_1.X", "age_1.x"},
        {nullptr, true, std::string("ab\0cd", 5), std::string("AB\0cd", 5)},
        {"C", true, "\xE9x\xFFy", "\xE9X\xFFY"},
        // Full-width a and A map onto each other; 0x81 0x61 and 0x81 0x41 are
        // two different ideographs whose trail bytes only look like letters.
        {"zh_CN.GBK", true, "a\xA3\xE1\x81\x61z", "A\xA3\xC1\x81\x61Z"},
        {"zh_CN.GBK", false, "A\xA3\xC1\x81\x41Z", "a\xA3\xE1\x81\x41z"},
        {"zh_CN.GBK", true, "ab\xFF" "cd", "AB\xFF" "cd"},
        {"en_US.UTF-8", true, "caf\xC3\xA9", "CAF\xC3\x89"},
        // Dotless i would become the one-byte I, turned a a three-byte
        // letter, and the Kelvin sign and dotted capital I one-byte letters.
        {"en_US.UTF-8", true, "\xC4\xB1x\xC9\x90y", "\xC4\xB1X\xC9\x90Y"},
        {"en_US.UTF-8", false, "\xE2\x84\xAAX\xC4\xB0", "\xE2\x84\xAAx\xC4\xB0"},
        {"en_US.UTF-8", true, "ab\xE9xy", "AB\xE9xy"},
    };
    UnderEachLocale(rows, [](const auto& r) { EXPECT_EQ(r.upper ? UpperCopy(r.text) : Lower(r.text), r.mapped); });

    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    std::string cut = "a" + kZhong + "b";
    ToUpperN(cut.data(), 2);
    EXPECT_EQ(cut, "A" + kZhong + "b");
}

// Comparison without regard to case, and the keys of names: equal texts
// have equal keys. A byte that does not decode compares as itself (status 3).
TEST(Multibyte, ComparisonsAndKeys) {
    const struct { const char* locale; std::string a, b; bool equal; int status; } rows[] = {
        {nullptr, "ab", "AB", true, 0},
        {nullptr, "Weight", "wEIGHT", true, 0},
        {nullptr, "Weight", "Weights", false, 0},
        {"C", "\xE9x", "\xE9X", true, 0},
        {"zh_CN.GBK", "\x81\x61", "\x81\x41", false, 0},
        {"zh_CN.GBK", "\xA3\xE1x", "\xA3\xC1X", true, 0},
        {"zh_CN.GBK", "x\xFF", "X\xFF", true, 3},
        {"zh_CN.GBK", "\xFF", "\xFE", false, 3},
        {"en_US.UTF-8", "caf\xC3\xA9", "CAF\xC3\x89", true, 0},
        {"en_US.UTF-8", "caf\xC3\xA9", "caf\xE9", false, 3},
        {"en_US.UTF-8", "gr\xC3\xB6\xC3\x9F" "e", "GR\xC3\x96\xC3\x9F" "E", true, 0},
    };
    UnderEachLocale(rows, [](const auto& r) {
        int status = -1;
        EXPECT_EQ(EqualIgnoringCase(r.a.c_str(), -1, r.b.c_str(), -1, &status), r.equal);
        EXPECT_EQ(status, r.status);
        EXPECT_EQ(EqualIgnoringCase(std::string_view(r.a), std::string_view(r.b)), r.equal);
        EXPECT_EQ(CaseFoldKey(r.a) == CaseFoldKey(r.b), r.equal);
    });

    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    int status = -1;
    EXPECT_FALSE(EqualIgnoringCase(kZhong.c_str(), 1, kZhong.c_str(), 2, &status));
    EXPECT_EQ(status, 3);
    EXPECT_EQ(CharacterLengthAt(kZhong.c_str(), 1), -1);
    const char* text = "a@\x81\x40";  // the last "@" is a trail byte
    EXPECT_EQ(FindLastChar(text, '@'), text + 1);
    EXPECT_EQ(FindLastChar("x\x81\x5F", '_'), nullptr);
}

// Against a plain list: entries added (the table growing several times), a
// repeated text refused, every third entry erased, and every text then found
// or not found as it should be, whatever the probe runs the erasures broke.
TEST(TextIndex, AgreesWithAListThroughInsertsAndErasures) {
    TextArena texts;
    for (int i = 0; i < 200; ++i) texts.Add("n" + std::to_string(i % 150));  // 150..199 repeat 0..49
    const auto keyOf = [&texts](std::uint32_t k) { return texts[k]; };
    TextIndex<decltype(keyOf)> index(keyOf);
    for (std::uint32_t i = 0; i < 200; ++i)
        EXPECT_EQ(index.Insert(i), i < 150 ? index.kNone : i - 150) << i;
    EXPECT_EQ(index.Size(), 150u);

    std::vector<bool> present(150, true);
    for (std::uint32_t i = 0; i < 150; i += 3) {
        index.Erase(i);
        present[i] = false;
    }
    index.Erase(7);  // erased twice: nothing happens the second time
    present[7] = false;
    index.Erase(7);
    for (std::uint32_t i = 0; i < 150; ++i)
        EXPECT_EQ(index.Find(texts[i]), present[i] ? i : index.kNone) << i;
    EXPECT_EQ(index.Find("n150"), index.kNone);
    // The arena gives back its last text (names refused on the way in).
    texts.PopBack();
    texts.Add("xyz");
    EXPECT_EQ(texts[199], "xyz");
    EXPECT_EQ(texts[198], "n48");
}

}  // namespace
}  // namespace murv::text
