// Special values and date/time conversions, through the public header only.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "murvio.h"

namespace {

std::uint64_t Bits(double d) {
    std::uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

constexpr double kDay = 86400.0;

TEST(SpecialValues, BitPatternsAndOrder) {
    EXPECT_EQ(Bits(murvSysmisVal()), 0xFFEFFFFFFFFFFFFFull);
    double host = 0;
    murvHostSysmisVal(&host);
    EXPECT_EQ(Bits(host), 0xFFEFFFFFFFFFFFFFull);
    double lowest = 0, highest = 0;
    murvLowHighVal(&lowest, &highest);
    EXPECT_EQ(Bits(lowest), 0xFFEFFFFFFFFFFFFEull);
    EXPECT_EQ(Bits(highest), 0x7FEFFFFFFFFFFFFFull);
    EXPECT_GT(lowest, murvSysmisVal());
    EXPECT_EQ(std::nextafter(murvSysmisVal(), 0.0), lowest);
    // Null outputs are ignored rather than written through.
    murvHostSysmisVal(nullptr);
    murvLowHighVal(nullptr, nullptr);
}

TEST(ConvertDate, CalendarLimits) {
    double d = -1;
    EXPECT_EQ(murvConvertDate(14, 10, 1582, &d), 0);
    EXPECT_EQ(d, 0.0);
    EXPECT_EQ(murvConvertDate(15, 10, 1582, &d), 0);
    EXPECT_EQ(d, kDay);
    EXPECT_EQ(murvConvertDate(1, 1, 1970, &d), 0);
    EXPECT_EQ(d, 12219379200.0);

    d = 5;
    EXPECT_EQ(murvConvertDate(13, 10, 1582, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(d, 0.0) << "the output is cleared before the checks";
    EXPECT_EQ(murvConvertDate(1, 1, 1582, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(31, 12, 9999, &d), 0);
    EXPECT_GT(d, 0.0);
    EXPECT_EQ(murvConvertDate(1, 1, 10000, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(0, 1, 2000, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(32, 1, 2000, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(1, 0, 2000, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(1, 13, 2000, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(-5, -5, -5, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(1, 1, 2000, nullptr), 0);
}

TEST(ConvertDate, MonthLengthsAndLeapYears) {
    double d;
    EXPECT_EQ(murvConvertDate(29, 2, 2000, &d), 0);
    EXPECT_EQ(murvConvertDate(29, 2, 1900, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(29, 2, 2004, &d), 0);
    EXPECT_EQ(murvConvertDate(29, 2, 2001, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(30, 2, 2000, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(31, 4, 2001, &d), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertDate(31, 12, 2001, &d), 0);
    double march1 = 0, feb28 = 0;
    EXPECT_EQ(murvConvertDate(1, 3, 2000, &march1), 0);
    EXPECT_EQ(murvConvertDate(28, 2, 2000, &feb28), 0);
    EXPECT_EQ(march1 - feb28, 2 * kDay);
}

TEST(ConvertDate, RoundTripsEveryDayOverCenturies) {
    // Walk day by day across leap days and century years, both directions.
    int day = 14, month = 10, year = 1582;
    const int lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (long n = 0; n < 160000; ++n) {
        double seconds = -1;
        ASSERT_EQ(murvConvertDate(day, month, year, &seconds), 0) << year << '-' << month << '-' << day;
        ASSERT_EQ(seconds, n * kDay);
        int d = 0, m = 0, y = 0;
        ASSERT_EQ(murvConvertMURVDate(&d, &m, &y, seconds + 43200.5), 0);
        ASSERT_EQ(d, day);
        ASSERT_EQ(m, month);
        ASSERT_EQ(y, year);
        bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
        int len = lengths[month - 1] + (month == 2 && leap ? 1 : 0);
        if (++day > len) {
            day = 1;
            if (++month > 12) {
                month = 1;
                ++year;
            }
        }
    }
}

TEST(ConvertMURVDate, RefusesWhatIsNoDate) {
    int d = 7, m = 7, y = 7;
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, -1.0), MURV_RC_BAD_DATE);
    EXPECT_EQ(d, 7) << "outputs stay untouched on failure";
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, std::nan("")), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, std::numeric_limits<double>::infinity()), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, 1e300), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, murvSysmisVal()), MURV_RC_BAD_DATE);
    EXPECT_EQ(d, 7);
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, 86399.9), 0);
    EXPECT_EQ(d, 14);
    EXPECT_EQ(m, 10);
    EXPECT_EQ(y, 1582);
    double last = 0;
    ASSERT_EQ(murvConvertDate(31, 12, 9999, &last), 0);
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, last + 86399.0), 0);
    EXPECT_EQ(y, 9999);
    EXPECT_EQ(murvConvertMURVDate(&d, &m, &y, last + kDay), MURV_RC_BAD_DATE);
    EXPECT_EQ(murvConvertMURVDate(nullptr, nullptr, nullptr, 0.0), 0);
}

TEST(ConvertTime, RangesAndNaN) {
    double t = -1;
    EXPECT_EQ(murvConvertTime(0, 23, 59, 59.999, &t), 0);
    EXPECT_DOUBLE_EQ(t, 86399.999);
    EXPECT_EQ(murvConvertTime(1, 1, 1, 1.5, &t), 0);
    EXPECT_EQ(t, 90061.5);
    EXPECT_EQ(murvConvertTime(100000, 0, 0, 0.0, &t), 0);
    EXPECT_EQ(t, 100000 * kDay);

    t = 3;
    EXPECT_EQ(murvConvertTime(0, 0, 0, 60.0, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(t, 3.0) << "the output is not written on failure";
    EXPECT_EQ(murvConvertTime(0, 0, 0, -0.001, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertTime(-1, 0, 0, 0, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertTime(0, 24, 0, 0, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertTime(0, -1, 0, 0, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertTime(0, 0, 60, 0, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertTime(0, 0, -1, 0, &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertTime(0, 0, 0, std::nan(""), &t), MURV_RC_BAD_TIME);
    EXPECT_EQ(t, 3.0);
    EXPECT_EQ(murvConvertTime(2147483647, 23, 59, 59.0, &t), 0);
    EXPECT_GT(t, 0.0);
}

TEST(ConvertMURVTime, SplitsSpans) {
    int d = -1, h = -1, m = -1;
    double s = -1;
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, 90061.5), 0);
    EXPECT_EQ(d, 1);
    EXPECT_EQ(h, 1);
    EXPECT_EQ(m, 1);
    EXPECT_EQ(s, 1.5);
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, 0.0), 0);
    EXPECT_EQ(d + h + m, 0);
    EXPECT_EQ(s, 0.0);
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, 86399.75), 0);
    EXPECT_EQ(d, 0);
    EXPECT_EQ(h, 23);
    EXPECT_EQ(m, 59);
    EXPECT_EQ(s, 59.75);

    d = h = m = 9;
    s = 9;
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, -0.5), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, std::nan("")), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, std::numeric_limits<double>::infinity()), MURV_RC_BAD_TIME);
    EXPECT_EQ(murvConvertMURVTime(&d, &h, &m, &s, 1e300), MURV_RC_BAD_TIME);
    EXPECT_EQ(d, 9);
    EXPECT_EQ(s, 9.0);

    // Forward and back agree.
    double t = 0;
    ASSERT_EQ(murvConvertTime(12345, 6, 7, 8.25, &t), 0);
    ASSERT_EQ(murvConvertMURVTime(&d, &h, &m, &s, t), 0);
    EXPECT_EQ(d, 12345);
    EXPECT_EQ(h, 6);
    EXPECT_EQ(m, 7);
    EXPECT_EQ(s, 8.25);
}

TEST(Settings, TempDirAndLocale) {
    EXPECT_EQ(murvSetTempDir(nullptr), 0);
    EXPECT_EQ(murvSetTempDir("/no/such/dir"), 0);

    const char* now = murvSetLocale(MURV_LC_ALL, "C");
    ASSERT_NE(now, nullptr);
    EXPECT_STREQ(now, "C");
    // A null locale asks without changing.
    const char* query = murvSetLocale(MURV_LC_CTYPE, nullptr);
    ASSERT_NE(query, nullptr);
    EXPECT_STREQ(query, "C");
    EXPECT_EQ(murvSetLocale(MURV_LC_ALL, "no_SUCH.locale"), nullptr);
    EXPECT_EQ(murvSetLocale(99, "C"), nullptr);
    EXPECT_EQ(murvSetLocale(-1, "C"), nullptr);

    // The locale chosen through the library decides what a character is.
    if (murvSetLocale(MURV_LC_ALL, "zh_CN.GBK") == nullptr) GTEST_SKIP() << "test locale zh_CN.GBK missing";
    EXPECT_EQ(murvValidateVarname("\xb0\xa1\xb0\xa2"), 0);  // two double-byte characters
    murvSetLocale(MURV_LC_ALL, "C");
}

}  // namespace
