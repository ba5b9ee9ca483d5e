#include "text/mbtext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "support/locale_guard.h"

namespace murv::text {
namespace {

// A heap copy with no terminator: the sanitizer catches any read past it.
std::unique_ptr<char[]> Unterminated(const std::string& bytes) {
    auto buffer = std::make_unique<char[]>(bytes.size());
    std::memcpy(buffer.get(), bytes.data(), bytes.size());
    return buffer;
}

std::string Upper(const std::string& s) { return UpperCopy(s); }

std::string Lower(std::string s) {
    ToLower(s.data());
    return s;
}

std::string Padded(const std::string& source, std::size_t size, std::size_t sourceLength) {
    std::string field(size, '?');
    auto bytes = Unterminated(source);
    CopyPadded(field.data(), size, bytes.get(), sourceLength);
    return field;
}

// ---- ASCII text behaves the same in every locale ----

class AnyLocale : public ::testing::TestWithParam<const char*> {};

TEST_P(AnyLocale, CopiesAndComparisons) {
    MURV_USE_LOCALE(guard, GetParam());
    EXPECT_EQ(Padded(std::string(70, 'n'), 64, 70), std::string(64, 'n'));
    EXPECT_EQ(Padded(std::string("ab\0cd", 5), 8, 5), "ab      ");  // a NUL ends the source
    char value[4] = {'x', 'x', 'x', 'x'};
    CopyPadded(value, sizeof value, nullptr, 3);  // refused: nothing changes
    EXPECT_EQ(std::string(value, 4), "xxxx");
    CopyPadded(value, sizeof value, nullptr, 0);
    EXPECT_EQ(std::string(value, 4), "    ");

    int status = -1;
    EXPECT_TRUE(EqualIgnoringCase("ab", -1, "AB", 2, &status));
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(EqualIgnoringCase("ab", -1, "ABC", 3));
    EXPECT_TRUE(EqualIgnoringCase("abc", 1, "A", -1));
    EXPECT_TRUE(EqualIgnoringCase("ab\0x", 4, "AB\0y", 4));  // a NUL ends both
    EXPECT_TRUE(EqualIgnoringCase(nullptr, 3, "", -1));
    // No text, no room, or the terminator: no character, and no crash.
    EXPECT_EQ(CharacterLengthAt(nullptr, 1), 0);
    EXPECT_EQ(CharacterLengthAt("a", 0), -1);
    EXPECT_EQ(CharacterLengthAt("", 1), 0);
    EXPECT_EQ(FindLastChar(nullptr, 'a'), nullptr);
    EXPECT_EQ(CaseFoldKey("Weight"), CaseFoldKey("wEIGHT"));
    EXPECT_NE(CaseFoldKey("Weight"), CaseFoldKey("Weights"));

    EXPECT_EQ(Upper("age_1.x@#$"), "AGE_1.X@#$");
    EXPECT_EQ(Lower("AGE_1.X"), "age_1.x");
    EXPECT_EQ(UpperCopy(std::string_view("ab\0cd", 5)), std::string("AB\0cd", 5));
}

INSTANTIATE_TEST_SUITE_P(Locales, AnyLocale, ::testing::Values("C", "en_US.UTF-8", "zh_CN.GBK"),
                         [](const auto& info) {
                             std::string name = info.param;
                             for (char& c : name) {
                                 if (c == '.' || c == '-') c = '_';
                             }
                             return name;
                         });

// ---- a single-byte locale: every byte is a character ----

TEST(SingleByteLocale, HighBytesAreWholeCharacters) {
    MURV_USE_LOCALE(guard, "C");
    EXPECT_EQ(CharacterLengthAt("\xD6\xD0", 2), 1);
    EXPECT_EQ(Padded("abc\xD6", 6, 4), "abc\xD6  ");
    EXPECT_EQ(Upper("\xE9x\xFFy"), "\xE9X\xFFY");
    int status = -1;
    EXPECT_TRUE(EqualIgnoringCase("\xE9x", -1, "\xE9X", -1, &status));
    EXPECT_EQ(status, 0);
}

// ---- GBK: lead bytes 0x81-0xFE, trail bytes 0x40-0x7E and 0x80-0xFE, so a
// trail byte can look like "@", "A", "_" or "a"; 0xFF starts no character ----

const std::string kZhong = "\xD6\xD0";

TEST(DoubleByteLocale, CopiesAndCutsNeverSplitACharacter) {
    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    EXPECT_EQ(CharacterLengthAt(kZhong.c_str(), 2), 2);
    EXPECT_EQ(CharacterLengthAt(kZhong.c_str(), 1), -1);

    // A character at bytes 63..64 does not fit in a 64-byte name.
    EXPECT_EQ(Padded(std::string(63, 'a') + kZhong + "bc", 64, 67), std::string(63, 'a') + " ");
    // A lone lead byte at the end of the source or at the end of the limit.
    EXPECT_EQ(Padded("abc\xD6", 6, 4), "abc   ");
    EXPECT_EQ(Padded("abc" + kZhong, 6, 4), "abc   ");
    EXPECT_EQ(Truncated("ab\xFF" "c" + kZhong + "\xD6", 100).size(), 6u);  // inner bad byte stays
    EXPECT_EQ(Truncated("123456789" + kZhong, 10), "123456789");
}

TEST(DoubleByteLocale, CaseWorksOnWholeCharacters) {
    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    // Full-width a and A map onto each other; 0x81 0x61 and 0x81 0x41 are two
    // different ideographs whose trail bytes only look like letters.
    EXPECT_EQ(Upper("a\xA3\xE1\x81\x61z"), "A\xA3\xC1\x81\x61Z");
    EXPECT_EQ(Lower("A\xA3\xC1\x81\x41Z"), "a\xA3\xE1\x81\x41z");
    EXPECT_EQ(Upper("ab\xFF" "cd"), "AB\xFF" "cd");  // stops at the bad byte
    std::string cut = "a" + kZhong + "b";
    ToUpperN(cut.data(), 2);
    EXPECT_EQ(cut, "A" + kZhong + "b");

    int status = -1;
    EXPECT_FALSE(EqualIgnoringCase("\x81\x61", -1, "\x81\x41", -1, &status));
    EXPECT_TRUE(EqualIgnoringCase("\xA3\xE1x", -1, "\xA3\xC1X", -1, &status));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(EqualIgnoringCase("x\xFF", -1, "X\xFF", -1, &status));
    EXPECT_EQ(status, 3);
    EXPECT_FALSE(EqualIgnoringCase(kZhong.c_str(), 1, kZhong.c_str(), 2, &status));
    EXPECT_EQ(status, 3);

    EXPECT_NE(CaseFoldKey("\x81\x61"), CaseFoldKey("\x81\x41"));
    EXPECT_EQ(CaseFoldKey("\xA3\xE1x"), CaseFoldKey("\xA3\xC1X"));
    EXPECT_EQ(CaseFoldKey("x\xFF"), CaseFoldKey("X\xFF"));
    EXPECT_NE(CaseFoldKey("\xFF"), CaseFoldKey("\xFE"));
}

TEST(DoubleByteLocale, FindLastCharSkipsTrailBytes) {
    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    const char* text = "a@\x81\x40";
    EXPECT_EQ(FindLastChar(text, '@'), text + 1);
    EXPECT_EQ(FindLastChar("x\x81\x5F", '_'), nullptr);
}

// ---- UTF-8: characters of one to four bytes ----

const std::string kSmile = "\xF0\x9F\x98\x80";

TEST(Utf8Locale, FourByteCharactersAreNeverCut) {
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    std::string text = "a";
    for (int i = 0; i < 20; ++i) text += kSmile;
    EXPECT_EQ(Padded(text, 64, text.size()), text.substr(0, 61) + "   ");
    EXPECT_EQ(Truncated(text, 64), text.substr(0, 61));
    EXPECT_EQ(Truncated(text, 7), "a" + kSmile);
    EXPECT_EQ(Truncated("ab\xF0\x9F\x98", 100), "ab");  // cut short before the end
}

TEST(Utf8Locale, CaseKeepsByteLengths) {
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    EXPECT_EQ(Upper("caf\xC3\xA9"), "CAF\xC3\x89");
    // Dotless i would become the one-byte I, turned a a three-byte letter,
    // and the Kelvin sign and dotted capital I one-byte letters: all stay.
    EXPECT_EQ(Upper("\xC4\xB1x\xC9\x90y"), "\xC4\xB1X\xC9\x90Y");
    EXPECT_EQ(Lower("\xE2\x84\xAAX\xC4\xB0"), "\xE2\x84\xAAx\xC4\xB0");
    EXPECT_EQ(Upper("ab\xE9xy"), "AB\xE9xy");

    EXPECT_TRUE(EqualIgnoringCase(std::string_view("gr\xC3\xB6\xC3\x9F" "e"),
                                  std::string_view("GR\xC3\x96\xC3\x9F" "E")));
    EXPECT_EQ(CaseFoldKey("caf\xC3\xA9"), CaseFoldKey("CAF\xC3\x89"));
    EXPECT_NE(CaseFoldKey("caf\xC3\xA9"), CaseFoldKey("caf\xE9"));
}

}  // namespace
}  // namespace murv::text
