// Calendar dates and clock times on the system file's scale: seconds since
// the start of 14 October 1582, the first day of the Gregorian calendar.
#pragma once

namespace murv {

inline constexpr double kSecondsPerDay = 86400.0;

// Calendar date -> seconds since 14 October 1582. Returns 0 or 22 (bad date);
// the output is cleared first.
int ConvertDate(int day, int month, int year, double* date);
// Seconds -> calendar date; the time of day is ignored. Returns 0 or 22.
int ConvertSecondsToDate(double date, int* day, int* month, int* year);
// A span of days, hours, minutes and seconds -> seconds. Returns 0 or 23.
int ConvertTime(int day, int hour, int minute, double second, double* time);
// Seconds -> days, hours, minutes and seconds. Returns 0 or 23.
int ConvertSecondsToTime(double time, int* day, int* hour, int* minute, double* second);

// A calendar date and a time of day -> seconds on the file's scale. The day
// is not checked against its month's length (31 February counts on into
// March). False, with the output untouched, outside the calendar's range.
bool DateTimeValue(int day, int month, int year, int hour, int minute, double seconds, double* value);

}  // namespace murv
