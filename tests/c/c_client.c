/* A client written in C: the header must compile as C and the library must
 * link and answer from a C program. */
#include <stdio.h>
#include <string.h>

#include "murvio.h"

static int passed, failed;

#define CHECK(cond)                                                       \
    do {                                                                  \
        if (cond) {                                                       \
            ++passed;                                                     \
        } else {                                                          \
            ++failed;                                                     \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
        }                                                                 \
    } while (0)

int main(void) {
    double lowest = 0, highest = 0, date = -1, time = -1, second = 0;
    int d = 0, m = 0, y = 0, h = 0, mi = 0;
    murvMultRespDef def;

    murvLowHighVal(&lowest, &highest);
    CHECK(lowest > murvSysmisVal());
    CHECK(highest > 1e308);
    CHECK(murvConvertDate(1, 1, 1970, &date) == MURV_RC_OK && date == 12219379200.0);
    CHECK(murvConvertMURVDate(&d, &m, &y, date) == MURV_RC_OK && d == 1 && m == 1 && y == 1970);
    CHECK(murvConvertDate(29, 2, 1900, &date) == MURV_RC_BAD_DATE);
    CHECK(murvConvertTime(1, 1, 1, 1.5, &time) == MURV_RC_OK && time == 90061.5);
    CHECK(murvConvertMURVTime(&d, &h, &mi, &second, time) == MURV_RC_OK && d == 1 && h == 1 && mi == 1);
    CHECK(murvValidateVarname("age") == 0);
    CHECK(murvValidateVarname("with") == 5);
    CHECK(murvSetTempDir("/tmp") == MURV_RC_OK);
    CHECK(murvSetLocale(MURV_LC_ALL, "C") != NULL);

    memset(&def, 0, sizeof def);
    CHECK(sizeof def.setName == 65 && sizeof def.setLabel == 257 && sizeof def.reserved == 14 * sizeof(int));

    printf("c_client: %d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
