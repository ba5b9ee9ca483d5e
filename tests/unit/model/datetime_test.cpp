#include "model/datetime.h"

#include <cmath>

#include <gtest/gtest.h>

namespace murv {
namespace {

// The stamp of a file's creation date and time: the date conversion's
// seconds plus the time of day, a day past the month's end running on into
// the next month, and parts out of range refused with the output untouched.
TEST(DateTimeValue, AgreesWithTheDateConversionAndRefusesOutOfRangeParts) {
    double date = 0, v = -1, mar3 = 0;
    ASSERT_EQ(ConvertDate(17, 11, 2006, &date), 0);
    ASSERT_TRUE(DateTimeValue(17, 11, 2006, 13, 45, 30.5, &v));
    EXPECT_EQ(v, date + 13 * 3600.0 + 45 * 60.0 + 30.5);
    ASSERT_TRUE(DateTimeValue(3, 3, 2001, 12, 0, 0.0, &mar3));
    ASSERT_TRUE(DateTimeValue(31, 2, 2001, 12, 0, 0.0, &v));
    EXPECT_EQ(v, mar3);
    ASSERT_TRUE(DateTimeValue(14, 10, 1582, 0, 0, 0.0, &v));
    EXPECT_EQ(v, 0.0);
    EXPECT_TRUE(DateTimeValue(31, 12, 9999, 23, 59, 59.999, &v));

    v = 42;
    struct Row { int d, m, y, h, min; double s; };
    for (const Row& r : {Row{13, 10, 1582, 0, 0, 0}, {1, 1, 1581, 0, 0, 0}, {1, 1, 10000, 0, 0, 0},
                         {0, 1, 2000, 0, 0, 0}, {32, 1, 2000, 0, 0, 0}, {1, 13, 2000, 0, 0, 0}, {1, 1, 2000, 24, 0, 0},
                         {1, 1, 2000, 0, 60, 0}, {1, 1, 2000, 0, 0, 60}, {1, 1, 2000, 0, 0, -1},
                         {1, 1, 2000, 0, 0, std::nan("")}})
        EXPECT_FALSE(DateTimeValue(r.d, r.m, r.y, r.h, r.min, r.s, &v))
            << r.d << '.' << r.m << '.' << r.y << ' ' << r.h << ':' << r.min << ':' << r.s;
    EXPECT_EQ(v, 42.0) << "the output stays untouched";
}

}  // namespace
}  // namespace murv
