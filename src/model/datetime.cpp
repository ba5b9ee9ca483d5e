#include "model/datetime.h"

#include <cmath>
#include <cstdint>

namespace murv {

namespace {

constexpr int kBadDate = 22;
constexpr int kBadTime = 23;

// Day number of 14 October 1582 on the scale of the day-number formula, and
// the formula's additive constant; their difference is the offset between
// that scale and days since the calendar's start.
constexpr std::int64_t kGregorianStart = 2299160;
constexpr std::int64_t kDayNumberBase = 1721119;
constexpr std::int64_t kStartOffset = kGregorianStart - kDayNumberBase;  // 578041

constexpr int kDaysInMonth[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool IsLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

// Days since 14 October 1582 of a date in a March-based year, before the
// range check (may be negative).
constexpr std::int64_t DaysSinceStart(int day, int month, int year) {
    std::int64_t m, y;
    if (month > 2) {
        m = month - 3;
        y = year;
    } else {
        m = month + 9;
        y = year - 1;
    }
    const std::int64_t c = y / 100;
    const std::int64_t ya = y % 100;
    return (146097 * c) / 4 + (1461 * ya) / 4 + (153 * m + 2) / 5 + day + kDayNumberBase - kGregorianStart;
}

}  // namespace

int ConvertDate(int day, int month, int year, double* date) {
    if (date) *date = 0.0;
    if (day < 1 || day > 31 || month < 1 || month > 12 || year < 1582 || year > 9999) return kBadDate;
    if (day > kDaysInMonth[month - 1]) return kBadDate;
    if (month == 2 && day == 29 && !IsLeapYear(year)) return kBadDate;
    const std::int64_t n = DaysSinceStart(day, month, year);
    if (n < 0) return kBadDate;  // 1582 before 14 October
    if (date) *date = static_cast<double>(n) * kSecondsPerDay;
    return 0;
}

int ConvertSecondsToDate(double date, int* day, int* month, int* year) {
    // NaN compares false with everything, so it would slip past the sign test
    // and give a meaningless date: it is refused like a negative date. Dates
    // past the year 9999 are refused too, so that no day count overflows.
    constexpr double kEndOfCalendar = static_cast<double>(DaysSinceStart(1, 1, 10000)) * kSecondsPerDay;
    if (std::isnan(date) || date < 0.0 || date >= kEndOfCalendar) return kBadDate;
    const std::int64_t n = static_cast<std::int64_t>(date / kSecondsPerDay);
    const std::int64_t t = n + kStartOffset;
    const std::int64_t k = 4 * t - 1;
    const std::int64_t c = k / 146097;
    const std::int64_t r = k % 146097;
    const std::int64_t d = r / 4;
    const std::int64_t y = (4 * d + 3) / 1461;
    const std::int64_t e = ((4 * d + 3) % 1461 + 4) / 4;
    const std::int64_t m = (5 * e - 3) / 153;
    const std::int64_t dd = ((5 * e - 3) % 153 + 5) / 5;
    std::int64_t yy = 100 * c + y;
    std::int64_t mm;
    if (m >= 10) {
        mm = m - 9;
        yy += 1;
    } else {
        mm = m + 3;
    }
    if (day) *day = static_cast<int>(dd);
    if (month) *month = static_cast<int>(mm);
    if (year) *year = static_cast<int>(yy);
    return 0;
}

int ConvertTime(int day, int hour, int minute, double second, double* time) {
    // NaN seconds are refused: they would pass both range tests.
    if (day < 0 || hour < 0 || hour > 23 || minute < 0 || minute > 59 || std::isnan(second) ||
        second >= 60.0 || second < 0.0)
        return kBadTime;
    if (time) *time = ((day * 24.0 + hour) * 60.0 + minute) * 60.0 + second;
    return 0;
}

int ConvertSecondsToTime(double time, int* day, int* hour, int* minute, double* second) {
    // NaN is refused, and so is a span whose day count does not fit the
    // interface's 32-bit day (about 5.9 million years); infinity is caught by
    // the same bound.
    constexpr double kMaxSpan = 2147483648.0 * kSecondsPerDay;
    if (std::isnan(time) || time < 0.0 || time >= kMaxSpan) return kBadTime;
    const double days = std::trunc(time / kSecondsPerDay);
    const double sec = std::fmod(time, 60.0);
    const auto minutesOfDay = static_cast<std::int64_t>(std::trunc(std::fmod(time, kSecondsPerDay) / 60.0));
    if (day) *day = static_cast<int>(days);
    if (hour) *hour = static_cast<int>(minutesOfDay / 60);
    if (minute) *minute = static_cast<int>(minutesOfDay % 60);
    if (second) *second = sec;
    return 0;
}

bool DateTimeValue(int day, int month, int year, int hour, int minute, double seconds, double* value) {
    if (year < 1582 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 ||
        hour > 23 || minute < 0 || minute > 59 || std::isnan(seconds) || seconds < 0.0 || seconds >= 60.0)
        return false;
    const std::int64_t n = DaysSinceStart(day, month, year);
    if (n < 0) return false;
    if (value) *value = static_cast<double>(n) * kSecondsPerDay + hour * 3600.0 + minute * 60.0 + seconds;
    return true;
}

}  // namespace murv
