// The number and date texts of murv: every double reads back exactly and is
// no longer than the shortest form; dates print in ISO form.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
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
