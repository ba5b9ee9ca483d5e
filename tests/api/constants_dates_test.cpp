// Special values and date/time conversions, through the public header only.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"

namespace {

std::uint64_t Bits(double d) {
    std::uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

constexpr double kDay = 86400.0;
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(SpecialValues, BitPatternsAndOrder) {
    double host = 0, lowest = 0, highest = 0;
    murvHostSysmisVal(&host);
    murvLowHighVal(&lowest, &highest);
    EXPECT_EQ((std::array{Bits(murvSysmisVal()), Bits(host), Bits(lowest), Bits(highest)}),
              (std::array<std::uint64_t, 4>{0xFFEFFFFFFFFFFFFF, 0xFFEFFFFFFFFFFFFF,  // system-missing twice,
                                            0xFFEFFFFFFFFFFFFE, 0x7FEFFFFFFFFFFFFF}));  // lowest, highest
    // Null outputs are ignored rather than written through.
    murvHostSysmisVal(nullptr);
    murvLowHighVal(nullptr, nullptr);
}

// Every day over centuries both ways; the calendar's last day, the
// impossible days, and seconds that are no date. A refused date leaves 0;
// refused seconds leave the day, month and year as they were.
TEST(ConvertDate, EveryDayLimitsAndImpossibleDays) {
    constexpr double kLast = 265621593600.0;  // 31 December 9999
    const int bad[][3] = {{13, 10, 1582}, {1, 1, 1582}, {1, 1, 10000}, {0, 1, 2000}, {32, 1, 2000}, {1, 0, 2000},
                          {1, 13, 2000},  {-5, -5, -5}, {29, 2, 1900}, {29, 2, 2001}, {30, 2, 2000}, {31, 4, 2001}};
    for (const auto& [day, month, year] : bad) {
        double seconds = 5;
        EXPECT_EQ(murvConvertDate(day, month, year, &seconds), MURV_RC_BAD_DATE) << year << '-' << month << '-' << day;
        EXPECT_EQ(seconds, 0.0);
    }
    double seconds = 5;
    EXPECT_TRUE(murvConvertDate(31, 12, 9999, &seconds) == 0 && seconds == kLast) << seconds;
    EXPECT_EQ(murvConvertDate(1, 1, 2000, nullptr), 0);
    for (double no : {-1.0, std::nan(""), kInf, 1e300, murvSysmisVal(), kLast + kDay}) {
        std::array<int, 3> dmy{7, 7, 7};
        EXPECT_EQ(murvConvertMURVDate(&dmy[0], &dmy[1], &dmy[2], no), MURV_RC_BAD_DATE) << no;
        EXPECT_EQ(dmy, (std::array{7, 7, 7})) << no;
    }
    std::array<int, 3> d{};  // the last moments of the first and the last day
    EXPECT_TRUE(murvConvertMURVDate(&d[0], &d[1], &d[2], 86399.9) == 0 && (d == std::array{14, 10, 1582}));
    EXPECT_TRUE(murvConvertMURVDate(&d[0], &d[1], &d[2], kLast + 86399) == 0 && (d == std::array{31, 12, 9999}));
    EXPECT_EQ(murvConvertMURVDate(nullptr, nullptr, nullptr, 0.0), 0);

    // Walk day by day across leap days and century years, both directions.
    int day = 14, month = 10, year = 1582;
    const int lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (long n = 0; n < 160000; ++n) {
        double seconds = -1;
        ASSERT_EQ(murvConvertDate(day, month, year, &seconds), 0) << year << '-' << month << '-' << day;
        ASSERT_EQ(seconds, n * kDay);
        int d = 0, m = 0, y = 0;
        ASSERT_EQ(murvConvertMURVDate(&d, &m, &y, seconds + 43200.5), 0);
        ASSERT_EQ((std::array{d, m, y}), (std::array{day, month, year}));
        const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        if (++day > lengths[month - 1] + (month == 2 && leap)) {
            day = 1;
            if (++month > 12) month = 1, ++year;
        }
    }
}

// Time spans both ways: a span's parts and its seconds (to the largest day
// count); the refused parts and spans leave the outputs as they were.
TEST(ConvertTime, SpansBothWays) {
    using Parts = std::tuple<int, int, int, double>;  // days, hours, minutes, seconds
    const std::pair<Parts, double> spans[] = {
        {{0, 0, 0, 0.0}, 0.0},           {{1, 1, 1, 1.5}, 90061.5},
        {{0, 23, 59, 59.9990234375}, 86399.9990234375}, {{12345, 6, 7, 8.25}, 1066630028.25},
        {{2147483647, 23, 59, 59.0}, 2147483647 * kDay + 86399}};
    for (const auto& [parts, span] : spans) {
        const auto [days, hours, minutes, seconds] = parts;
        double t = -1, s = -1;
        EXPECT_EQ(murvConvertTime(days, hours, minutes, seconds, &t), 0) << span;
        EXPECT_EQ(t, span);
        int d = -1, h = -1, m = -1;
        EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, span), 0) << span;
        EXPECT_EQ(Parts(d, h, m, s), parts) << span;
    }
    const Parts badParts[] = {{0, 0, 0, 60.0}, {0, 0, 0, -0.001}, {-1, 0, 0, 0}, {0, 24, 0, 0},
                              {0, -1, 0, 0},   {0, 0, 60, 0},     {0, 0, -1, 0}, {0, 0, 0, std::nan("")}};
    for (const auto& [days, hours, minutes, seconds] : badParts) {
        double t = 3;
        EXPECT_TRUE(murvConvertTime(days, hours, minutes, seconds, &t) == MURV_RC_BAD_TIME && t == 3.0)
            << days << ' ' << hours << ' ' << minutes << ' ' << seconds;
    }
    for (double bad : {-0.5, std::nan(""), kInf, 2147483648 * kDay}) {
        int d = 9, h = 9, m = 9;
        double s = 9;
        EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, bad), MURV_RC_BAD_TIME) << bad;
        EXPECT_EQ((std::tuple{d, h, m, s}), (std::tuple{9, 9, 9, 9.0})) << bad;
    }
}

// The name check's verdicts (0 ordinary, 1 "#", 2 "$", 3 empty, 4 bad
// character, 5 reserved word, 6 bad first byte), under the locale chosen
// through the library, which decides what a character is. A name is judged
// on its first 64 bytes, without its blanks.
TEST(ValidateVarname, VerdictsUnderEachLocale) {
    const std::string zhong = "\xD6\xD0", cutAt64 = std::string(63, 'a') + zhong;
    const std::pair<const char*, std::vector<std::pair<std::string, int>>> rows[] = {
        {"C", {{"", 3}, {"   ", 3}, {"1abc", 6}, {"_x", 6}, {".x", 6}, {"a b", 4}, {"a-b", 4}, {"by", 5}, {"With", 5},
               {" eq ", 5}, {"WITHIN", 0}, {"#tmp", 1}, {"$set", 2}, {"@x", 0}, {"  age  ", 0}, {"a.b_c@1", 0},
               {std::string(64, 'v') + "!? x", 0}, {std::string(63, 'v') + " !", 0}, {zhong, 0}, {cutAt64, 0}}},
        // (The plain 64-byte cut splits the last character.)
        {"zh_CN.GBK", {{zhong, 0}, {"\xD6", 4}, {"\xb0\xa1\xb0\xa2", 0}, {cutAt64, 4}}},
        {"en_US.UTF-8", {{"gr\xC3\xB6\xC3\x9F" "e", 0}, {"gr\xF6\xDF" "e", 4}, {"$\xC3\xA9", 2}}},
    };
    std::string missing;  // locales this system lacks (the Windows builds' runs)
    for (const auto& [locale, names] : rows) {
        if (!murv::testing::RowLocale(locale, missing)) continue;
        for (const auto& [name, verdict] : names)
            EXPECT_EQ(murvValidateVarname(name.c_str()), verdict) << locale << " \"" << name << '"';
    }
    EXPECT_EQ(murvValidateVarname(nullptr), 3);
    // The locale is set and asked for by the interface's category numbers.
    EXPECT_STREQ(murvSetLocale(MURV_LC_ALL, "C"), "C");
    EXPECT_STREQ(murvSetLocale(MURV_LC_CTYPE, nullptr), "C") << "a null locale asks without changing";
    for (int unknown : {99, -1}) EXPECT_EQ(murvSetLocale(unknown, "C"), nullptr) << unknown;
    // The library keeps no temporary files: any directory, or none, is accepted.
    EXPECT_TRUE(murvSetTempDir("/no/such/dir") == MURV_RC_OK && murvSetTempDir(nullptr) == MURV_RC_OK);
    if (!missing.empty()) GTEST_SKIP() << "rows left out, no locale:" << missing;
}

}  // namespace
