/* A small client of the library, written as any C program would use it:
 * it writes a file with numeric and string variables, reads it back and
 * prints what it found, then shows the special values, a date conversion
 * and the name rules. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "murvio.h"

#define CHECK(call)                                                          \
    do {                                                                     \
        int rc_ = (call);                                                    \
        if (rc_ != MURV_RC_OK) {                                             \
            fprintf(stderr, "%s failed with code %d\n", #call, rc_);         \
            goto fail;                                                       \
        }                                                                    \
    } while (0)

struct person {
    const char* name;
    const char* city;
    double age;
    double income;
};

static const struct person people[] = {
    {"Ada", "London", 36, 5200.5},
    {"Grace", "New York", 85, 7100},
    {"Alan", "Wilmslow", 41, -1}, /* income unknown: left system-missing */
};

/* Writes the three people above into path. */
static int write_file(const char* path) {
    int h = -1;
    double vName, vCity, vAge, vIncome, born;
    size_t i;

    CHECK(murvOpenWrite(path, &h));
    CHECK(murvSetVarName(h, "name", 8));
    CHECK(murvSetVarName(h, "city", 12));
    CHECK(murvSetVarName(h, "age", 0));
    CHECK(murvSetVarName(h, "income", 0));
    CHECK(murvSetVarName(h, "born", 0));
    CHECK(murvSetCompression(h, 1));
    CHECK(murvCommitHeader(h));

    CHECK(murvGetVarHandle(h, "name", &vName));
    CHECK(murvGetVarHandle(h, "city", &vCity));
    CHECK(murvGetVarHandle(h, "age", &vAge));
    CHECK(murvGetVarHandle(h, "income", &vIncome));
    CHECK(murvGetVarHandle(h, "born", &born));
    for (i = 0; i < sizeof people / sizeof people[0]; ++i) {
        double date;
        CHECK(murvSetValueChar(h, vName, people[i].name));
        CHECK(murvSetValueChar(h, vCity, people[i].city));
        CHECK(murvSetValueNumeric(h, vAge, people[i].age));
        if (people[i].income >= 0) CHECK(murvSetValueNumeric(h, vIncome, people[i].income));
        CHECK(murvConvertDate(1, 1, 2000 - (int)people[i].age, &date));
        CHECK(murvSetValueNumeric(h, born, date));
        CHECK(murvCommitCaseRecord(h));
    }
    return murvCloseWrite(h);
fail:
    if (h >= 0) murvCloseWrite(h);
    return 1;
}

/* Reads path back and prints every case, whatever its variables are. */
static int print_file(const char* path) {
    int h = -1, nVars = 0, nCases = 0, rc, i, c = 0, compressed = 0;
    char names[16][65];
    int types[16];

    CHECK(murvOpenRead(path, &h));
    CHECK(murvGetNumberofVariables(h, &nVars));
    CHECK(murvGetNumberofCases(h, &nCases));
    CHECK(murvGetCompression(h, &compressed));
    printf("%d variables, %d cases, %s\n", nVars, nCases, compressed ? "compressed" : "not compressed");
    if (nVars > 16) nVars = 16;
    for (i = 0; i < nVars; ++i) {
        CHECK(murvGetVarInfo(h, i, names[i], &types[i]));
        printf("  %-8s %s", names[i], types[i] == 0 ? "numeric" : "string");
        if (types[i] > 0) printf(" of %d bytes", types[i]);
        printf("\n");
    }
    while ((rc = murvReadCaseRecord(h)) == MURV_RC_OK) {
        printf("case %d:", ++c);
        for (i = 0; i < nVars; ++i) {
            if (types[i] == 0) {
                double v;
                CHECK(murvGetValueNumeric(h, i + 1, &v));
                int d, m, y;
                if (v == murvSysmisVal())
                    printf(" .");
                else if (strcmp(names[i], "born") == 0 && murvConvertMURVDate(&d, &m, &y, v) == MURV_RC_OK)
                    printf(" %04d-%02d-%02d", y, m, d); /* dates are seconds since 14 Oct 1582 */
                else
                    printf(" %.10g", v);
            } else {
                char text[32768]; /* the widest string and its terminator */
                CHECK(murvGetValueChar(h, i + 1, text, sizeof text));
                printf(" '%s'", text);
            }
        }
        printf("\n");
    }
    if (rc != MURV_RC_END_OF_FILE) {
        fprintf(stderr, "reading stopped with code %d\n", rc);
        goto fail;
    }
    /* A file may end before the count its header states (a copy cut short)
     * or hold more cases than it states (damaged data): either way it is not
     * the file that was written, and saying so is the reader's job. */
    if (nCases >= 0 && c != nCases) {
        fprintf(stderr, "%s: the header states %d cases but the file holds %d\n", path, nCases, c);
        goto fail;
    }
    return murvCloseRead(h);
fail:
    if (h >= 0) murvCloseRead(h);
    return 1;
}

static void special_values(void) {
    double lowest, highest, seconds, second;
    int day, month, year, hour, minute, rc;
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
}

/* Without arguments: writes a sample file, reads it back and shows the
 * special values. With a file name: prints that file. */
int main(int argc, char** argv) {
    const char* tmp = getenv("TMPDIR");
    char path[4096];
    int fd, failed;

    if (argc > 1) return print_file(argv[1]) == MURV_RC_OK ? 0 : 1;

    snprintf(path, sizeof path, "%s/murvio-example-XXXXXX", tmp && *tmp ? tmp : "/tmp");
    fd = mkstemp(path);
    if (fd < 0) {
        perror("mkstemp");
        return 1;
    }
    close(fd);

    failed = write_file(path) != MURV_RC_OK || print_file(path) != MURV_RC_OK;
    remove(path);
    special_values();
    return failed ? 1 : 0;
}
