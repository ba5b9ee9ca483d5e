#include "text/names.h"

#include <gtest/gtest.h>

#include <string>

#include "support/locale_guard.h"

namespace murv::names {
namespace {

TEST(ValidateVarname, Verdicts) {
    MURV_USE_LOCALE(guard, "C");
    const struct {
        const char* name;
        int verdict;
    } cases[] = {
        {"", kEmptyOrLong},       {"   ", kEmptyOrLong},      {"1abc", kBadFirst},
        {"_x", kBadFirst},        {".x", kBadFirst},          {"a b", kBadCharacter},
        {"a-b", kBadCharacter},   {"by", kReservedWord},      {"With", kReservedWord},
        {" eq ", kReservedWord},  {"WITHIN", kOrdinary},      {"#tmp", kScratch},
        {"$set", kDollar},        {"@x", kOrdinary},          {"  age  ", kOrdinary},
        {"a.b_c@1", kOrdinary},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ValidateVarname(c.name), c.verdict) << '"' << c.name << '"';
    }
    EXPECT_EQ(ValidateVarname(nullptr), kEmptyOrLong);
    // Judged on the first 64 bytes only: neither the length nor what follows counts.
    EXPECT_EQ(ValidateVarname((std::string(64, 'v') + "!? x").c_str()), kOrdinary);
    EXPECT_EQ(ValidateVarname((std::string(63, 'v') + " !").c_str()), kOrdinary);
}

TEST(Classify, LengthAndBlanks) {
    MURV_USE_LOCALE(guard, "C");
    EXPECT_EQ(Classify((std::string(64, 'x') + "   ").c_str()), kOrdinary);
    EXPECT_EQ(Classify(std::string(65, 'x').c_str()), kEmptyOrLong);
    EXPECT_EQ(ClassifyExtended(std::string(70, 'x').c_str()), kEmptyOrLong);
    EXPECT_EQ(Classify(" abc"), kBadCharacter);  // only ValidateVarname strips leading blanks
    EXPECT_EQ(Classify("ANDY"), kOrdinary);
}

TEST(ClassifyExtended, RefusesATrailingDotOrUnderscore) {
    MURV_USE_LOCALE(guard, "C");
    EXPECT_EQ(ClassifyExtended("total."), kEndsWithDot);
    EXPECT_EQ(ClassifyExtended("total. "), kEndsWithDot);
    EXPECT_EQ(ClassifyExtended("total_"), kEndsWithUnderscore);
    EXPECT_EQ(ClassifyExtended("a._"), kEndsWithUnderscore);
    EXPECT_EQ(ClassifyExtended("a_."), kEndsWithDot);
    EXPECT_EQ(ClassifyExtended("to_tal"), kOrdinary);
    EXPECT_EQ(ClassifyExtended("to.tal"), kOrdinary);
    EXPECT_EQ(ClassifyExtended("$set_"), kDollar);
    EXPECT_EQ(ClassifyExtended("#tmp."), kScratch);
}

// The same bytes judged under different locales.
TEST(NamesUnderLocales, DoubleByteCharacters) {
    const std::string zhong = "\xD6\xD0";
    const std::string cutAt64 = std::string(63, 'a') + zhong;
    {
        MURV_USE_LOCALE(guard, "zh_CN.GBK");
        EXPECT_EQ(ValidateVarname(zhong.c_str()), kOrdinary);
        EXPECT_EQ(ValidateVarname("\xD6"), kBadCharacter);  // a lone lead byte
        // 0x5F is the trail byte here, not an underscore.
        EXPECT_EQ(ClassifyExtended("ab\x81\x5F"), kOrdinary);
        EXPECT_EQ(ClassifyExtended("ab\x81\x5F_"), kEndsWithUnderscore);
        // The plain 64-byte copy cuts the last character in two.
        EXPECT_EQ(ValidateVarname(cutAt64.c_str()), kBadCharacter);
        EXPECT_EQ(Classify(cutAt64.c_str()), kEmptyOrLong);
    }
    {
        MURV_USE_LOCALE(guard, "C");
        EXPECT_EQ(ValidateVarname(zhong.c_str()), kOrdinary);
        EXPECT_EQ(ClassifyExtended("ab\x81\x5F"), kEndsWithUnderscore);
        EXPECT_EQ(ValidateVarname(cutAt64.c_str()), kOrdinary);
    }
}

TEST(NamesUnderLocales, Utf8Characters) {
    MURV_USE_LOCALE(guard, "en_US.UTF-8");
    EXPECT_EQ(ValidateVarname("gr\xC3\xB6\xC3\x9F" "e"), kOrdinary);
    EXPECT_EQ(ValidateVarname("gr\xF6\xDF" "e"), kBadCharacter);  // Latin-1 bytes do not decode
    EXPECT_EQ(ValidateVarname("$\xC3\xA9"), kDollar);
}

}  // namespace
}  // namespace murv::names
