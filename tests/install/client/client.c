/* A client of the installed library: writes a file of one variable and one
 * case and reads it back. Exits non-zero on any difference. The measure level
 * travels in an extension record, so it also shows that a static link keeps
 * the record handlers. */
#include <stdio.h>
#include <string.h>

#include <murvio.h>

/* The installed header serves a client as it is: nothing of the library's
 * own build may reach it. */
#ifdef MURVIO_BUILDING
#error "MURVIO_BUILDING reached a client"
#endif

int main(int argc, char **argv) {
    const char *path = argc > 1 ? argv[1] : "client.murv";
    int h = -1, type = -1, measure = -1, rc;
    double vh = 0, value = 0;
    char name[65];
    if (murvOpenWrite(path, &h) || murvSetVarName(h, "answer", 0) || murvSetVarMeasureLevel(h, "answer", 2 /* ordinal */) ||
        murvCommitHeader(h) ||
        murvGetVarHandle(h, "answer", &vh) || murvSetValueNumeric(h, vh, 42.5) || murvCommitCaseRecord(h) ||
        murvCloseWrite(h)) {
        fprintf(stderr, "writing %s failed\n", path);
        return 1;
    }
    if (murvOpenRead(path, &h) || murvGetVarInfo(h, 0, name, &type) || murvGetVarHandle(h, "answer", &vh) ||
        murvGetVarMeasureLevel(h, "answer", &measure) || murvReadCaseRecord(h) || murvGetValueNumeric(h, vh, &value)) {
        fprintf(stderr, "reading %s failed\n", path);
        return 1;
    }
    rc = murvReadCaseRecord(h);
    murvCloseRead(h);
    if (strcmp(name, "answer") != 0 || type != 0 || measure != 2 /* ordinal */ || value != 42.5 || rc != MURV_RC_END_OF_FILE) {
        fprintf(stderr, "read back %s type %d measure %d value %g, end %d\n", name, type, measure, value, rc);
        return 1;
    }
    puts("ok");
    return 0;
}
