/* A client written in C: the header must compile as C and the library must
 * link and answer from a C program. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

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

/* Writes two cases to a temporary file and reads them back, values and whole
 * records. */
static void write_and_read(void) {
    char path[] = "/tmp/murvio-c-client-XXXXXX";
    char text[16], rec[16];
    double x = 0, vx = 0, vs = 0;
    int fd = mkstemp(path), w = -1, r = -1, n = 0;

    CHECK(fd >= 0);
    if (fd < 0) return;
    close(fd);
    CHECK(murvOpenWrite(path, &w) == MURV_RC_OK);
    CHECK(murvSetVarName(w, "x", 0) == MURV_RC_OK);
    CHECK(murvSetVarName(w, "s", 5) == MURV_RC_OK);
    CHECK(murvCommitHeader(w) == MURV_RC_OK);
    CHECK(murvGetVarHandle(w, "x", &vx) == MURV_RC_OK && vx == 1.0);
    CHECK(murvGetVarHandle(w, "s", &vs) == MURV_RC_OK && vs == 2.0);
    CHECK(murvSetValueNumeric(w, vx, 2.5) == MURV_RC_OK);
    CHECK(murvSetValueChar(w, vs, "abc") == MURV_RC_OK);
    CHECK(murvSetValueChar(w, vs, "toolong") == MURV_RC_STRING_TOO_LONG);
    CHECK(murvCommitCaseRecord(w) == MURV_RC_OK);
    CHECK(murvCommitCaseRecord(w) == MURV_RC_OK);
    CHECK(murvCloseWrite(w) == MURV_RC_OK);

    CHECK(murvOpenRead(path, &r) == MURV_RC_OK);
    CHECK(murvGetNumberofCases(r, &n) == MURV_RC_OK && n == 2);
    CHECK(murvGetCaseSize(r, &n) == MURV_RC_OK && n == 16);
    CHECK(murvReadCaseRecord(r) == MURV_RC_OK);
    CHECK(murvGetValueNumeric(r, 1, &x) == MURV_RC_OK && x == 2.5);
    CHECK(murvGetValueChar(r, 2, text, sizeof text) == MURV_RC_OK && strcmp(text, "abc  ") == 0);
    CHECK(murvWholeCaseIn(r, rec) == MURV_RC_OK);
    memcpy(&x, rec, sizeof x);
    CHECK(x == murvSysmisVal() && memcmp(rec + 8, "        ", 8) == 0);
    CHECK(murvReadCaseRecord(r) == MURV_RC_END_OF_FILE);
    CHECK(murvCloseRead(r) == MURV_RC_OK);
    remove(path);
}

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

    write_and_read();

    printf("c_client: %d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
