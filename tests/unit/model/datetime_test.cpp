#include "model/datetime.h"

#include <cmath>

#include <gtest/gtest.h>

namespace murv {
namespace {

TEST(DateTimeValue, AgreesWithTheDateConversion) {
    double v = -1;
    ASSERT_TRUE(DateTimeValue(14, 10, 1582, 0, 0, 0.0, &v));
    EXPECT_EQ(v, 0.0);
    double date = 0;
    ASSERT_EQ(ConvertDate(17, 11, 2006, &date), 0);
    ASSERT_TRUE(DateTimeValue(17, 11, 2006, 13, 45, 30.5, &v));
    EXPECT_EQ(v, date + 13 * 3600.0 + 45 * 60.0 + 30.5);
}

TEST(DateTimeValue, DayRunsOnPastTheMonthEnd) {
    double feb31 = 0, mar3 = 0;
    ASSERT_TRUE(DateTimeValue(31, 2, 2001, 12, 0, 0.0, &feb31));
    ASSERT_TRUE(DateTimeValue(3, 3, 2001, 12, 0, 0.0, &mar3));
    EXPECT_EQ(feb31, mar3);
}

TEST(DateTimeValue, RefusesOutOfRangeParts) {
    double v = 42;
    struct Row { int d, m, y, h, min; double s; };
    for (const Row& r : {Row{13, 10, 1582, 0, 0, 0}, {1, 1, 1581, 0, 0, 0}, {1, 1, 10000, 0, 0, 0}, {0, 1, 2000, 0, 0, 0},
                         {32, 1, 2000, 0, 0, 0}, {1, 13, 2000, 0, 0, 0}, {1, 1, 2000, 24, 0, 0}, {1, 1, 2000, 0, 60, 0},
                         {1, 1, 2000, 0, 0, 60}, {1, 1, 2000, 0, 0, -1}, {1, 1, 2000, 0, 0, std::nan("")}})
        EXPECT_FALSE(DateTimeValue(r.d, r.m, r.y, r.h, r.min, r.s, &v)) << r.d << '.' << r.m << '.' << r.y << ' ' << r.h
                                                                         << ':' << r.min << ':' << r.s;
    EXPECT_EQ(v, 42.0) << "the output stays untouched";
    EXPECT_TRUE(DateTimeValue(31, 12, 9999, 23, 59, 59.999, &v));
}

}  // namespace
}  // namespace murv
