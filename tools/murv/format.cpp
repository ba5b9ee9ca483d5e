// Values as their print format shows them: numbers with their decimals and
// width, grouped, with a currency sign or a percent sign; dates, times and
// durations in the written forms of their format types.
//
// Choices where a format leaves room:
// - Numbers are rounded half away from zero from the shortest decimal that
//   reads back as the stored double, so a value entered as 1.005 shows as
//   1.01 with two decimals (rounding the binary value would give 1.00).
// - A number wider than its format first loses decimals, then takes
//   exponent form; one that fits in no form, a date out of the calendar and
//   a weekday or month number out of range show as asterisks across the
//   width, so nothing shows a wrong value.
// - The width limits a value; it does not pad it (the output is CSV, TSV or
//   JSON, where padding would only add blanks to every field).
// - The binary storage forms (IB, P, PIB, PK, RB, Z) show as plain numbers;
//   the custom currencies, whose definitions the interface does not give,
//   show with grouping as COMMA does.
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

#include "murv.h"

namespace murv {

namespace {

constexpr const char* kMonths[12] = {"JANUARY", "FEBRUARY", "MARCH",     "APRIL",   "MAY",      "JUNE",
                                     "JULY",    "AUGUST",   "SEPTEMBER", "OCTOBER", "NOVEMBER", "DECEMBER"};
constexpr const char* kDays[7] = {"SUNDAY", "MONDAY", "TUESDAY", "WEDNESDAY", "THURSDAY", "FRIDAY", "SATURDAY"};

char* Stars(char* p, int w) {
    std::memset(p, '*', static_cast<std::size_t>(w));
    return p + w;
}

// |v| rounded to d decimals in whole units of 10^-d, from the shortest
// decimal i / 10^k equal to v when there is one with a small i; false when
// there is none (or the units would not fit 63 bits).
bool ShortUnits(double a, int d, std::int64_t& units) {
    if (!(a < 1e15) || d > 16) return false;
    for (int k = 0; k <= 9; ++k) {
        const double t = a * kPowersOf10[k];
        if (t >= 1125899906842624.0) break;  // 2^50
        const auto i = static_cast<std::int64_t>(t + 0.5);
        if (std::fabs(t - static_cast<double>(i)) > t * 1e-15 + 1e-9) continue;  // clearly more digits
        if (static_cast<double>(i) / kPowersOf10[k] != a) continue;
        if (k <= d) {
            if (static_cast<double>(i) * kPowersOf10[d - k] >= 9e18) return false;
            units = i;
            for (int s = k; s < d; ++s) units *= 10;
        } else {
            std::int64_t div = 1;
            for (int s = d; s < k; ++s) div *= 10;
            units = (i + div / 2) / div;
        }
        return true;
    }
    return false;
}

// |v| rounded to d decimals as text ("1234.50"), into out (room for 400
// bytes); returns its length. neg tells whether the rounded value is below 0.
int FixedText(char* out, double v, int d, bool& neg) {
    const double a = std::fabs(v);
    if (std::int64_t units; ShortUnits(a, d, units)) {
        neg = v < 0 && units != 0;
        return static_cast<int>(WriteDecimal(out, units, d) - out);
    }
    const auto r = std::to_chars(out, out + 400, a, std::chars_format::fixed, d);
    if (r.ec != std::errc()) return -1;
    const int n = static_cast<int>(r.ptr - out);
    bool zero = true;
    for (int i = 0; i < n && zero; ++i) zero = out[i] == '0' || out[i] == '.';
    neg = v < 0 && !zero;
    return n;
}

// "1.23E+03": d decimals in the mantissa, a signed exponent of at least two
// digits.
int ExpText(char* out, double v, int d) {
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific, d);
    if (r.ec != std::errc()) return -1;
    int n = 0;
    for (const char* q = buf; q < r.ptr; ++q) {
        if (*q == 'e') {
            out[n++] = 'E';
            ++q;
            out[n++] = *q == '-' ? '-' : '+';
            if (*q == '-' || *q == '+') ++q;
            const int digits = static_cast<int>(r.ptr - q);
            if (digits < 2) out[n++] = '0';
            while (q < r.ptr) out[n++] = *q++;
            break;
        }
        out[n++] = *q;
    }
    return n;
}

struct NumberStyle {
    const char* prefix = "";
    const char* suffix = "";
    char group = 0;     // thousands separator, or none
    char point = '.';   // decimal point
};

NumberStyle StyleOf(int type) {
    NumberStyle s;
    switch (type) {
        case 3: case 33: case 34: case 35: case 36: case 37: s.group = ','; break;  // COMMA, custom currencies
        case 4: s.prefix = "$"; s.group = ','; break;                              // DOLLAR
        case 31: s.suffix = "%"; break;                                             // PCT
        case 32: s.group = '.'; s.point = ','; break;                               // DOT
        default: break;
    }
    return s;
}

// A number in a style, in at most w bytes: all d decimals if they fit, else
// fewer, else exponent form, else asterisks.
char* Number(char* p, double v, int w, int d, const NumberStyle& st) {
    // Plain digits that fit, the bulk of most data, go straight to the output.
    if (!st.group && !*st.prefix && !*st.suffix) {
        if (std::int64_t units; ShortUnits(std::fabs(v), d, units)) {
            const bool neg = v < 0 && units != 0;
            if (neg) *p = '-';
            char* const end = WriteDecimal(p + neg, units, d);
            if (end - p <= w) return end;
        }
    }
    char digits[448];
    const int fixedExtra = static_cast<int>(std::strlen(st.prefix) + std::strlen(st.suffix));
    for (int dd = d;; --dd) {
        bool neg = false;
        const int n = FixedText(digits, v, dd, neg);
        if (n < 0) break;
        int intDigits = n - (dd > 0 ? dd + 1 : 0);
        const int groups = st.group ? (intDigits - 1) / 3 : 0;
        const int len = n + groups + fixedExtra + (neg ? 1 : 0);
        if (len <= w) {
            if (neg) *p++ = '-';
            for (const char* s = st.prefix; *s;) *p++ = *s++;
            if (!st.group && st.point == '.') {  // plain digits, the common case
                std::memcpy(p, digits, static_cast<std::size_t>(n));
                p += n;
            } else {
                const char* q = digits;
                for (int i = 0; i < intDigits; ++i) {
                    *p++ = *q++;
                    const int left = intDigits - 1 - i;
                    if (st.group && left > 0 && left % 3 == 0) *p++ = st.group;
                }
                if (dd > 0) {
                    *p++ = st.point;
                    ++q;
                    std::memcpy(p, q, static_cast<std::size_t>(dd));
                    p += dd;
                }
            }
            for (const char* s = st.suffix; *s;) *p++ = *s++;
            return p;
        }
        if (dd == 0) break;
        // Losing decimals helps only when the whole digits alone would fit.
        if (intDigits + groups + fixedExtra + (neg ? 1 : 0) > w) break;
    }
    // Exponent form with as many mantissa decimals as fit.
    char e[64];
    for (int dd = 15; dd >= 0; --dd) {
        const int n = ExpText(e, v, dd);
        if (n > 0 && n <= w - fixedExtra) {
            const bool neg = e[0] == '-';  // "-$1.2E+20": the sign comes first
            if (neg) *p++ = '-';
            for (const char* s = st.prefix; *s;) *p++ = *s++;
            std::memcpy(p, e + neg, static_cast<std::size_t>(n - neg));
            p += n - neg;
            for (const char* s = st.suffix; *s;) *p++ = *s++;
            return p;
        }
    }
    return Stars(p, w);
}

char* Two(char* p, int v) {
    *p++ = static_cast<char>('0' + v / 10 % 10);
    *p++ = static_cast<char>('0' + v % 10);
    return p;
}

char* Digits(char* p, std::int64_t v, int atLeast) {
    char buf[24];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    for (int n = static_cast<int>(r.ptr - buf); n < atLeast; ++n) *p++ = '0';
    std::memcpy(p, buf, static_cast<std::size_t>(r.ptr - buf));
    return p + (r.ptr - buf);
}

char* Letters(char* p, const char* name, int n) {
    for (int i = 0; i < n && name[i]; ++i) *p++ = name[i];
    return p;
}

// The civil date of a day counted from 14 October 1582 (day 0), on the
// Gregorian calendar.
void CivilDate(std::int64_t day, int& y, int& m, int& d) {
    std::int64_t z = day - 141428 + 719468;  // days from 0000-03-01
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const auto doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(era * 400 + yoe + (m <= 2 ? 1 : 0));
}

bool IsLeap(int y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DayOfYear(int y, int m, int d) {
    static const int kBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return kBefore[m - 1] + d + (m > 2 && IsLeap(y) ? 1 : 0);
}

// Seconds as whole units of 10^-d seconds, rounded half away from zero; d is
// lowered while the units would not fit 63 bits (the caller pads the
// decimals it lost with zeros).
std::int64_t Units(double v, int& d) {
    while (d > 0 && std::fabs(v) * kPowersOf10[d] >= 9e18) --d;
    const double t = v * kPowersOf10[d];
    return static_cast<std::int64_t>(t < 0 ? t - 0.5 : t + 0.5);
}

// ":SS" and, with decimals, ".fff" of a second count within a minute.
char* Seconds(char* p, std::int64_t units, std::int64_t perSecond, int d, int wanted) {
    *p++ = ':';
    p = Two(p, static_cast<int>(units / perSecond));
    if (wanted > 0) {
        *p++ = '.';
        p = Digits(p, units % perSecond, d);
        for (int i = d; i < wanted; ++i) *p++ = '0';
    }
    return p;
}

// The date and time formats; false when the value is no date of the calendar.
bool DateTime(char* p, char*& end, int type, int w, int dec, double v) {
    if (!std::isfinite(v) || std::fabs(v) > 1e15) return false;
    switch (type) {
        case 26: {  // WKDAY: 1 is Sunday
            if (v < 1 || v >= 8) return false;
            end = Letters(p, kDays[static_cast<int>(v) - 1], w);
            return true;
        }
        case 27: {  // MONTH
            if (v < 1 || v >= 13) return false;
            end = Letters(p, kMonths[static_cast<int>(v) - 1], w);
            return true;
        }
        case 21:    // TIME: [-]H:MM[:SS[.ss]]
        case 25: {  // DTIME: [-]D HH:MM[:SS[.ss]]
            const bool dtime = type == 25;
            const bool seconds = w >= (dtime ? 11 : 8);
            int d = seconds ? dec : 0;
            const int wanted = d;
            std::int64_t u = Units(v, d);
            std::int64_t perSecond = 1;
            for (int i = 0; i < d; ++i) perSecond *= 10;
            if (!seconds) u = (u + (u < 0 ? -30 : 30)) / 60 * 60;  // minutes, rounded
            if (u < 0) {
                *p++ = '-';
                u = -u;
            }
            const std::int64_t perMinute = 60 * perSecond, perHour = 60 * perMinute;
            std::int64_t hours = u / perHour;
            if (dtime) {
                p = Digits(p, hours / 24, 1);
                *p++ = ' ';
                hours %= 24;
            }
            p = Digits(p, hours, 2);
            *p++ = ':';
            p = Two(p, static_cast<int>(u % perHour / perMinute));
            if (seconds) p = Seconds(p, u % perMinute, perSecond, d, wanted);
            end = p;
            return true;
        }
        default: break;
    }
    if (v < 0) return false;  // before 14 October 1582
    int d = type == 22 && w >= 20 ? dec : 0;
    const int wanted = d;
    std::int64_t perSecond = 1;
    std::int64_t u;
    if (type == 22) {
        if (d > 6) d = 6;  // keeps a day of units within 63 bits for any year
        u = Units(v, d);
        for (int i = 0; i < d; ++i) perSecond *= 10;
        if (w < 20) u = (u + 30) / 60 * 60;
    } else {
        u = static_cast<std::int64_t>(std::floor(v / 86400)) * 86400;
    }
    const std::int64_t perDay = 86400 * perSecond;
    const std::int64_t day = u / perDay;
    int y, m, dd;
    CivilDate(day, y, m, dd);
    const bool longYear = [&] {
        switch (type) {
            case 20: return w >= 11;
            case 23: case 38: case 39: case 30: return w >= 10;
            case 24: return w >= 7;
            case 28: case 29: return w >= 8;
            default: return true;
        }
    }();
    auto year = [&](char* q) { return longYear ? Digits(q, y, 4) : Two(q, y % 100); };
    auto month3 = [&](char* q) { return Letters(q, kMonths[m - 1], 3); };
    switch (type) {
        case 20:  // DATE: DD-MMM-YYYY
        case 22:  // DATETIME: DD-MMM-YYYY HH:MM[:SS[.ss]]
            p = Two(p, dd);
            *p++ = '-';
            p = month3(p);
            *p++ = '-';
            p = year(p);
            if (type == 22) {
                const std::int64_t s = u % perDay;
                *p++ = ' ';
                p = Two(p, static_cast<int>(s / (3600 * perSecond)));
                *p++ = ':';
                p = Two(p, static_cast<int>(s / (60 * perSecond) % 60));
                if (w >= 20) p = Seconds(p, s % (60 * perSecond), perSecond, d, wanted);
            }
            break;
        case 23:  // ADATE: MM/DD/YYYY
            p = Two(p, m);
            *p++ = '/';
            p = Two(p, dd);
            *p++ = '/';
            p = year(p);
            break;
        case 38:  // EDATE: DD.MM.YYYY
            p = Two(p, dd);
            *p++ = '.';
            p = Two(p, m);
            *p++ = '.';
            p = year(p);
            break;
        case 39:  // SDATE: YYYY/MM/DD
            p = year(p);
            *p++ = '/';
            p = Two(p, m);
            *p++ = '/';
            p = Two(p, dd);
            break;
        case 24:  // JDATE: YYYYDDD
            p = year(p);
            p = Digits(p, DayOfYear(y, m, dd), 3);
            break;
        case 28:  // MOYR: MMM YYYY
            p = month3(p);
            *p++ = ' ';
            p = year(p);
            break;
        case 29:  // QYR: Q Q YYYY
            *p++ = static_cast<char>('1' + (m - 1) / 3);
            p = static_cast<char*>(std::memcpy(p, " Q ", 3)) + 3;
            p = year(p);
            break;
        case 30:  // WKYR: WW WK YYYY
            p = Two(p, (DayOfYear(y, m, dd) - 1) / 7 + 1);
            p = static_cast<char*>(std::memcpy(p, " WK ", 4)) + 4;
            p = year(p);
            break;
        default: return false;
    }
    end = p;
    return true;
}

}  // namespace

char* WriteFormatted(char* p, const Format& f, double v) {
    const int w = f.width < 1 ? 1 : f.width > 255 ? 255 : f.width;
    const int d = f.decimals < 0 ? 0 : f.decimals > 16 ? 16 : f.decimals;
    if (!std::isfinite(v)) return Stars(p, w);
    switch (f.type) {
        case 17: {  // E: exponent form with d decimals, fewer if it is too wide
            char e[64];
            for (int dd = d; dd >= 0; --dd) {
                const int n = ExpText(e, v, dd);
                if (n > 0 && n <= w) return static_cast<char*>(std::memcpy(p, e, static_cast<std::size_t>(n))) + n;
            }
            return Stars(p, w);
        }
        case 16: {  // N: digits only, zero-filled to the width
            char digits[448];
            bool neg = false;
            const int n = FixedText(digits, v, d, neg);
            if (neg || n < 0 || n > w) return Stars(p, w);
            for (int i = n; i < w; ++i) *p++ = '0';
            return static_cast<char*>(std::memcpy(p, digits, static_cast<std::size_t>(n))) + n;
        }
        case 7: {  // PIBHEX: the whole number in hexadecimal, zero-filled
            if (v < 0 || v >= 18446744073709551616.0 || v != std::floor(v)) return Stars(p, w);
            char hex[24];
            const auto r = std::to_chars(hex, hex + sizeof hex, static_cast<std::uint64_t>(v), 16);
            const int n = static_cast<int>(r.ptr - hex);
            if (n > w) return Stars(p, w);
            for (int i = n; i < w; ++i) *p++ = '0';
            for (int i = 0; i < n; ++i) *p++ = static_cast<char>(std::toupper(static_cast<unsigned char>(hex[i])));
            return p;
        }
        case 12: {  // RBHEX: the 16 hexadecimal digits of the double, most significant first
            std::uint64_t bits;
            std::memcpy(&bits, &v, sizeof bits);
            static const char kHex[] = "0123456789ABCDEF";
            for (int s = 60; s >= 0; s -= 4) *p++ = kHex[(bits >> s) & 15];
            return p;
        }
        case 20: case 21: case 22: case 23: case 24: case 25: case 26:
        case 27: case 28: case 29: case 30: case 38: case 39: {
            char buf[96];
            char* end = buf;
            if (!DateTime(buf, end, f.type, w, d, v) || end - buf > w) return Stars(p, w);
            return static_cast<char*>(std::memcpy(p, buf, static_cast<std::size_t>(end - buf))) + (end - buf);
        }
        default:
            return Number(p, v, w, d, StyleOf(f.type));
    }
}

void AppendFormatted(std::string& out, const Format& f, double v) {
    char buf[kFormattedMax];
    out.append(buf, static_cast<std::size_t>(WriteFormatted(buf, f, v) - buf));
}

char* WriteHex(char* p, std::string_view bytes, int width) {
    static const char kHex[] = "0123456789ABCDEF";
    const std::size_t n = std::min(bytes.size(), static_cast<std::size_t>(width > 0 ? width / 2 : 0));
    for (std::size_t i = 0; i < n; ++i) {
        const auto c = static_cast<unsigned char>(bytes[i]);
        *p++ = kHex[c >> 4];
        *p++ = kHex[c & 15];
    }
    return p;
}

}  // namespace murv
