// The number and date texts of murv: every double reads back exactly and is
// no longer than the shortest form; dates print in ISO form.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include "murv.h"

namespace {

void ExpectExact(double v) {
    char buf[64], shortest[64];
    const std::string text(buf, murv::WriteNumber(buf, v));
    const double back = std::strtod(text.c_str(), nullptr);
    ASSERT_TRUE(back == v && std::signbit(back) == std::signbit(v)) << text << " for " << v;
    // Plain notation may be longer than an exponent form, never longer than
    // the shortest plain digits.
    const std::string plain(shortest, std::to_chars(shortest, shortest + sizeof shortest, v).ptr);
    if (std::fabs(v) >= 1e-5 && std::fabs(v) < 1e15 && plain.find('e') == std::string::npos) {
        EXPECT_EQ(text, plain) << v;
    }
}

TEST(MurvNumbers, EveryValueReadsBackExactly) {
    for (double v : {0.0, -0.0, 1.0, -1.0, 0.1, 0.2, 0.3, 0.1 + 0.2, 1234.56, -0.000123, 1e15, 1e15 + 1,
                     9007199254740993.0, 1e-300, 1e300, 5e-324, 1.7976931348623157e308, 123456789.123, 99.995, 0.5,
                     100.0, 1e21, 3.14159265358979})
        ExpectExact(v);
    std::mt19937_64 rng(7);
    for (int i = 0; i < 200000; ++i) {
        if (const auto d = std::bit_cast<double>(rng()); std::isfinite(d)) ExpectExact(d);
        ExpectExact(static_cast<double>(static_cast<std::int64_t>(rng() % 2000000001) - 1000000000) /
                    murv::kPowersOf10[rng() % 10]);
    }
}

TEST(MurvNumbers, DatesInIsoForm) {
    const struct { int format; double value; const char* text; } cases[] = {  // text null: no date
        {20, 0.0, "1582-10-14"},                 // DATE
        {23, 13166064000.0, "2000-01-01"},        // ADATE
        {22, 13166064000.0 + 3723.5, "2000-01-01T01:02:03.5"},
        // Fractions to the microsecond, without trailing zeros; a value a
        // hair below a second, minute or day is that second.
        {22, 13166064000.0 + 45296.789, "2000-01-01T12:34:56.789"},
        {22, 13166064000.000002, "2000-01-01T00:00:00.000002"},
        {22, 86399.9999996, "1582-10-15T00:00:00"},
        {21, 59.9999996, "00:01:00"},
        {21, 3599.0000004, "00:59:59"},
        {25, -0.0000001, "00:00:00"},
        {25, -90.25, "-00:01:30.25"},
        {21, 90061.0, "25:01:01"},                // TIME
        {25, -3600.0, "-01:00:00"},               // DTIME
        {5, 1.0, nullptr},                        // F: not a date
        {20, -86400.0, nullptr},                  // before the calendar starts
    };
    for (const auto& c : cases) {
        std::string out;
        EXPECT_EQ(murv::AppendIsoDate(out, c.format, c.value), c.text != nullptr) << c.format << " " << c.value;
        EXPECT_EQ(out, c.text ? c.text : "");  // nothing appended for no date
    }
}

}  // namespace

// Values through their print formats: decimals rounded from the decimal the
// value was entered as, grouping, signs, widths that drop decimals, then take
// exponent form, then show asterisks; dates, times and names by the format.
TEST(MurvNumbers, PrintFormats) {
    constexpr double kY2k = 13166064000.0, kFeb15 = kY2k + 45 * 86400.0;
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const struct { int type, width, decimals; double value; const char* text; } cases[] = {
        {5, 8, 2, 1234.5, "1234.50"},         {5, 8, 2, 1.005, "1.01"},
        {5, 8, 2, -0.001, "0.00"},            {5, 8, 2, -2.5, "-2.50"},
        {5, 8, 2, 1234567.891, "1234568"},    {5, 8, 2, 123456789, "1.23E+08"},
        {5, 3, 0, 12345, "***"},              {5, 8, 2, kInf, "********"},
        {5, 40, 2, 1e20, "100000000000000000000.00"},
        {3, 12, 2, 1234567.891, "1,234,567.89"}, {3, 6, 0, 999.5, "1,000"},
        {4, 12, 2, -1234.5, "-$1,234.50"},    {32, 10, 2, 1234.5, "1.234,50"},
        {31, 8, 1, 45.25, "45.3%"},           {17, 10, 3, 12345.678, "1.235E+04"},
        {17, 10, 3, -0.00012, "-1.200E-04"},  {16, 5, 0, 42, "00042"},
        {16, 5, 0, -1, "*****"},              {7, 4, 0, 255, "00FF"},
        {12, 16, 0, 1.0, "3FF0000000000000"},
        {20, 11, 0, kY2k, "01-JAN-2000"},     {20, 9, 0, kY2k, "01-JAN-00"},
        {20, 11, 0, 0, "14-OCT-1582"},        {20, 11, 0, -86400, "***********"},
        {23, 10, 0, kFeb15, "02/15/2000"},    {23, 8, 0, kFeb15 + 86399, "02/15/00"},
        {38, 10, 0, kFeb15, "15.02.2000"},    {39, 10, 0, kFeb15, "2000/02/15"},
        {24, 7, 0, kFeb15, "2000046"},        {24, 5, 0, kFeb15, "00046"},
        {28, 8, 0, kFeb15, "FEB 2000"},       {29, 8, 0, kFeb15, "1 Q 2000"},
        {30, 10, 0, kFeb15, "07 WK 2000"},
        {22, 17, 0, kY2k + 3723.5, "01-JAN-2000 01:02"},
        {22, 20, 0, kY2k + 3723.5, "01-JAN-2000 01:02:04"},
        {22, 23, 2, kY2k + 3723.5, "01-JAN-2000 01:02:03.50"},
        {22, 20, 0, kY2k - 0.4, "01-JAN-2000 00:00:00"},
        {21, 8, 0, 90061, "25:01:01"},        {21, 5, 0, 90061, "25:01"},
        {21, 12, 2, -3600.25, "-01:00:00.25"}, {25, 11, 0, 90061, "1 01:01:01"},
        {26, 3, 0, 1, "SUN"},                 {26, 9, 0, 4, "WEDNESDAY"},
        {27, 3, 0, 9, "SEP"},                 {27, 9, 0, 13, "*********"},
    };
    for (const auto& c : cases) {
        std::string out;
        murv::AppendFormatted(out, murv::Format{c.type, c.width, c.decimals}, c.value);
        EXPECT_EQ(out, c.text) << murv::FormatName(murv::Format{c.type, c.width, c.decimals}) << " of " << c.value;
    }
}
