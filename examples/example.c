/* A small client of the library: the special values, a few date and time
 * conversions and the name rules, all through murvio.h. */
#include <stdio.h>

#include "murvio.h"

int main(void) {
    double lowest, highest, seconds;
    int day, month, year, hour, minute, rc;
    double second;
    const char* names[] = {"age", "1abc", "WITH", "#tmp", "$set", "a b"};
    size_t i;

    murvLowHighVal(&lowest, &highest);
    printf("system-missing %.17g\nlowest         %.17g\nhighest        %.17g\n", murvSysmisVal(),
           lowest, highest);

    rc = murvConvertDate(1, 1, 1970, &seconds);
    printf("1 January 1970 is %.1f seconds after 14 October 1582 (rc %d)\n", seconds, rc);
    rc = murvConvertMURVDate(&day, &month, &year, seconds + 86400.0 * 365);
    printf("one year of days later it is %04d-%02d-%02d (rc %d)\n", year, month, day, rc);
    rc = murvConvertMURVTime(&day, &hour, &minute, &second, 90061.5);
    printf("90061.5 seconds are %d day, %d hour, %d minute, %.1f seconds (rc %d)\n", day, hour, minute,
           second, rc);
    rc = murvConvertDate(29, 2, 1900, &seconds);
    printf("29 February 1900 gives %d\n", rc);

    for (i = 0; i < sizeof names / sizeof names[0]; ++i)
        printf("name %-6s -> verdict %d\n", names[i], murvValidateVarname(names[i]));
    return 0;
}
