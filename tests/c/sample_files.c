/* Writes the same two files (plain and compressed) through the same calls on
 * every platform, or checks files written so, value by value:
 *
 *   murvio_sample_files write DIR      writes DIR/plain.murv and DIR/compressed.murv
 *   murvio_sample_files check DIR      reads them back and checks every value
 *
 * Builds for different systems must write the same bytes (apart from the
 * creation time in the header) and read each other's files. Being C, it also
 * shows that the header compiles as C and that its structure has the sizes
 * callers lay out. */
#include <stdio.h>
#include <string.h>

#include "murvio.h"

#define NCASES 250
#define OK(call)                                                                  \
    do {                                                                          \
        int rc_ = (call);                                                         \
        if (rc_ != MURV_RC_OK) {                                                  \
            fprintf(stderr, "%s:%d: %s gave %d\n", path, __LINE__, #call, rc_);   \
            return 1;                                                             \
        }                                                                         \
    } while (0)
#define EXPECT(cond)                                                              \
    do {                                                                          \
        if (!(cond)) {                                                            \
            fprintf(stderr, "%s, case %d: %s does not hold\n", path, i, #cond);   \
            return 1;                                                             \
        }                                                                         \
    } while (0)

static const char* const kNames[] = {"id", "score", "name", "comment", "essay", "IncomeOfTheHousehold", "born"};
static const int kTypes[] = {0, 0, 8, 40, 300, 0, 0};
static const char* const kFirst[] = {"Ada", "Grace", "Alan", "Edsger", "Barbara", "Donald", "Frances"};

static double score(int i) { return i % 17 == 0 ? murvSysmisVal() : i * 0.25 - 10.0; }
static double income(int i) { return i % 5 == 0 ? -1.0 : (double)i * 1234567.5; }

static void essay(int i, char* out) { /* 300 bytes, then cut at a length that varies */
    int k;
    for (k = 0; k < 300; ++k) out[k] = (char)('a' + (i + k) % 26);
    out[(i * 7) % 301] = '\0';
    out[300] = '\0';
}

static int write_file(const char* path, int compressed) {
    const char* labelled[] = {"score"};
    const double values[] = {-10.0, 0.0, 52.25};
    const char* valueLabels[] = {"lowest", "zero", "highest"};
    const char* mrVars[] = {"id", "score"};
    char text[301];
    double v[7], born;
    int h, i, k;
    OK(murvOpenWrite(path, &h));
    OK(murvSetCompression(h, compressed));
    for (k = 0; k < 7; ++k) OK(murvSetVarName(h, kNames[k], kTypes[k]));
    OK(murvSetVarLabel(h, "score", "A score with a label"));
    OK(murvSetVarPrintFormat(h, "score", 5, 2, 8));
    OK(murvSetVarWriteFormat(h, "score", 5, 2, 8));
    OK(murvSetVarPrintFormat(h, "born", 20, 0, 11));
    OK(murvSetVarNMissingValues(h, "score", 3, -1.0, -2.0, -3.0));
    OK(murvSetVarCMissingValues(h, "name", 1, "none", NULL, NULL));
    OK(murvSetVarNValueLabels(h, labelled, 1, values, valueLabels, 3));
    OK(murvSetVarCValueLabel(h, "name", "Ada", "first of all"));
    OK(murvSetVarMeasureLevel(h, "name", 1));
    OK(murvSetVarAlignment(h, "comment", 1));
    OK(murvSetVarColumnWidth(h, "essay", 30));
    OK(murvSetCaseWeightVar(h, "id"));
    OK(murvSetIdString(h, "Written by the same calls on every platform"));
    OK(murvSetTextInfo(h, "Text information kept with the file"));
    OK(murvAddFileAttribute(h, "Origin", 1, "sample"));
    OK(murvAddFileAttribute(h, "Origin", 2, "test"));
    OK(murvAddVarAttribute(h, "score", "Unit", 1, "points"));
    OK(murvAddMultRespDefN(h, "$pair", "Two numbers", 1, 1, mrVars, 2));
    OK(murvSetVariableSets(h, "Everything= id score name comment essay\n"));
    OK(murvCommitHeader(h));
    for (k = 0; k < 7; ++k) OK(murvGetVarHandle(h, kNames[k], &v[k]));
    for (i = 1; i <= NCASES; ++i) {
        OK(murvSetValueNumeric(h, v[0], i));
        OK(murvSetValueNumeric(h, v[1], score(i)));
        OK(murvSetValueChar(h, v[2], kFirst[i % 7]));
        sprintf(text, "case %d of %d", i, NCASES);
        OK(murvSetValueChar(h, v[3], text));
        essay(i, text);
        OK(murvSetValueChar(h, v[4], text));
        OK(murvSetValueNumeric(h, v[5], income(i)));
        OK(murvConvertDate(1 + i % 28, 1 + i % 12, 1900 + i, &born));
        OK(murvSetValueNumeric(h, v[6], born));
        OK(murvCommitCaseRecord(h));
    }
    return murvCloseWrite(h) != MURV_RC_OK;
}

static int check_file(const char* path, int compressed) {
    char label[300], text[301], want[301];
    double v[7], x, born;
    int h, n = 0, c = -1, i = 0, k;
    OK(murvOpenRead(path, &h));
    OK(murvGetNumberofCases(h, &n));
    OK(murvGetCompression(h, &c));
    OK(murvGetIdString(h, label));
    EXPECT(n == NCASES && c == compressed);
    EXPECT(strcmp(label, "Written by the same calls on every platform") == 0);
    OK(murvGetVarLabel(h, "score", label));
    EXPECT(strcmp(label, "A score with a label") == 0);
    OK(murvGetVarNValueLabel(h, "score", 52.25, label));
    EXPECT(strcmp(label, "highest") == 0);
    for (k = 0; k < 7; ++k) OK(murvGetVarHandle(h, kNames[k], &v[k]));
    for (i = 1; i <= NCASES; ++i) {
        OK(murvReadCaseRecord(h));
        OK(murvGetValueNumeric(h, v[0], &x));
        EXPECT(x == i);
        OK(murvGetValueNumeric(h, v[1], &x));
        EXPECT(x == score(i));
        OK(murvGetValueChar(h, v[2], text, sizeof text));
        EXPECT(strncmp(text, kFirst[i % 7], strlen(kFirst[i % 7])) == 0);
        OK(murvGetValueChar(h, v[4], text, sizeof text));
        essay(i, want);
        EXPECT(strncmp(text, want, strlen(want)) == 0);
        OK(murvGetValueNumeric(h, v[5], &x));
        EXPECT(x == income(i));
        OK(murvGetValueNumeric(h, v[6], &x));
        OK(murvConvertDate(1 + i % 28, 1 + i % 12, 1900 + i, &born));
        EXPECT(x == born);
    }
    EXPECT(murvReadCaseRecord(h) == MURV_RC_END_OF_FILE);
    return murvCloseRead(h) != MURV_RC_OK;
}

int main(int argc, char** argv) {
    char path[1024];
    int compressed, failed = 0;
    murvMultRespDef def;
    if (sizeof def.setName != 65 || sizeof def.setLabel != 257 || sizeof def.reserved != 14 * sizeof(int)) {
        fprintf(stderr, "murvMultRespDef is not laid out as the header documents\n");
        return 1;
    }
    if (argc != 3 || (strcmp(argv[1], "write") != 0 && strcmp(argv[1], "check") != 0)) {
        fprintf(stderr, "usage: %s write|check DIR\n", argv[0]);
        return 2;
    }
    for (compressed = 0; compressed <= 1; ++compressed) {
        snprintf(path, sizeof path, "%s/%s.murv", argv[2], compressed ? "compressed" : "plain");
        failed |= argv[1][0] == 'w' ? write_file(path, compressed) : check_file(path, compressed);
    }
    if (!failed) printf("%s: %s\n", argv[1], argv[2]);
    return failed;
}
