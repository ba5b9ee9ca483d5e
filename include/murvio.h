/*
 * murvio: reading and writing system files.
 *
 * The whole interface of the library: 111 functions that take and return
 * plain C types. Files are named by small integer handles; every call
 * returns one of the MURV_RC_ codes below (0 success, positive errors,
 * negative warnings or reports that an item is absent). Texts are
 * NUL-terminated byte strings in the process's multibyte code page.
 */
#ifndef MURVIO_H
#define MURVIO_H

#include <stddef.h>

/* Calling convention: the standard one of 32-bit Windows, nothing elsewhere. */
#if defined(_WIN32) && !defined(_WIN64)
#define MURV_CALL __stdcall
#else
#define MURV_CALL
#endif

#if defined(_WIN32)
#if defined(MURVIO_BUILDING)
#define MURV_API __declspec(dllexport)
#else
#define MURV_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define MURV_API __attribute__((visibility("default")))
#else
#define MURV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Return codes ---- */
#define MURV_RC_OK 0
#define MURV_RC_FILE_OPEN 1
#define MURV_RC_FILE_WRITE 2
#define MURV_RC_FILE_READ 3
#define MURV_RC_TABLE_FULL 4
#define MURV_RC_BAD_HANDLE 5
#define MURV_RC_BAD_FILE 6
#define MURV_RC_NO_MEMORY 7
#define MURV_RC_READ_MODE 8
#define MURV_RC_WRITE_MODE 9
#define MURV_RC_BAD_VAR_NAME 10
#define MURV_RC_EMPTY_DICT 11
#define MURV_RC_VAR_NOT_FOUND 12
#define MURV_RC_DUP_VAR 13
#define MURV_RC_NUMERIC_EXPECTED 14
#define MURV_RC_STRING_EXPECTED 15
#define MURV_RC_SHORT_STRING_EXPECTED 16
#define MURV_RC_BAD_VAR_TYPE 17
#define MURV_RC_BAD_MISSING 18
#define MURV_RC_BAD_PRINT_FORMAT 20
#define MURV_RC_BAD_WRITE_FORMAT 21
#define MURV_RC_BAD_DATE 22
#define MURV_RC_BAD_TIME 23
#define MURV_RC_DICT_COMMITTED 30
#define MURV_RC_DICT_NOT_COMMITTED 31
#define MURV_RC_NO_RELEASE_INFO 41
#define MURV_RC_BAD_DATE_INFO 45
#define MURV_RC_STRING_TOO_LONG 47
#define MURV_RC_CANNOT_FREE 48
#define MURV_RC_BUFFER_SHORT 49
#define MURV_RC_NO_CURRENT_CASE 50
#define MURV_RC_BAD_SUBTYPE 57
#define MURV_RC_BAD_VAR_HANDLE 58
#define MURV_RC_BAD_MRSET_DEF 70
#define MURV_RC_BAD_MRSET_NAME 71
#define MURV_RC_DUP_MRSET_NAME 72
#define MURV_RC_BAD_EXTENSION 73
#define MURV_RC_BAD_ATTR_NAME 75
#define MURV_RC_BAD_ATTR_DEF 76
#define MURV_RC_BAD_MRSET_INDEX 77

#define MURV_RC_VAR_LABEL_CUT (-2)
#define MURV_RC_VALUE_LABEL_CUT (-4)
#define MURV_RC_END_OF_FILE (-5)
#define MURV_RC_NO_VARIABLE_SETS (-7)
#define MURV_RC_NO_VALUE_LABELS (-8)
#define MURV_RC_NO_LABEL (-9)
#define MURV_RC_NO_WEIGHT (-10)
#define MURV_RC_NO_DATE_INFO (-11)
#define MURV_RC_NO_MRSETS (-13)
#define MURV_RC_NO_ZOP (-14)

/* Locale categories of murvSetLocale. */
#define MURV_LC_ALL 0
#define MURV_LC_COLLATE 1
#define MURV_LC_CTYPE 2
#define MURV_LC_MONETARY 3
#define MURV_LC_NUMERIC 4
#define MURV_LC_TIME 5

/* A multiple-response set definition as the set calls exchange it. */
typedef struct murvMultRespDef {
    char  setName[65];
    char  setLabel[257];
    int   isDichotomy;
    int   isNumeric;
    int   useCategoryLabels;
    int   useFirstVarLabel;
    int   reserved[14];
    int   countedValue;
    char *countedValueText;
    char **varNames;
    int   varCount;
} murvMultRespDef;

/* A 32-bit program exchanges the definition in this layout: 412 bytes, the
 * flags from byte 324, the counted value at 396, the pointers at 400 and 404
 * and the variable count at 408. A compiler that lays it out otherwise fails
 * here rather than at run time. */
#if defined(_WIN32) && !defined(_WIN64)
typedef char murvMultRespDefLayoutCheck[
    (sizeof(murvMultRespDef) == 412 && offsetof(murvMultRespDef, isDichotomy) == 324 &&
     offsetof(murvMultRespDef, countedValue) == 396 && offsetof(murvMultRespDef, countedValueText) == 400 &&
     offsetof(murvMultRespDef, varNames) == 404 && offsetof(murvMultRespDef, varCount) == 408) ? 1 : -1];
#endif

/* ---- Constants and date/time conversions ---- */

MURV_API double MURV_CALL murvSysmisVal(void);
MURV_API void MURV_CALL murvHostSysmisVal(double *value);
MURV_API void MURV_CALL murvLowHighVal(double *lowest, double *highest);
MURV_API int MURV_CALL murvConvertDate(int day, int month, int year, double *date);
MURV_API int MURV_CALL murvConvertMURVDate(int *day, int *month, int *year, double date);
MURV_API int MURV_CALL murvConvertTime(int day, int hour, int minute, double second, double *time);
MURV_API int MURV_CALL murvConvertMURVTime(int *day, int *hour, int *minute, double *second, double time);

/* ---- File lifecycle and locale ---- */

MURV_API int MURV_CALL murvOpenRead(const char *fileName, int *handle);
MURV_API int MURV_CALL murvOpenWrite(const char *fileName, int *handle);
MURV_API int MURV_CALL murvOpenAppend(const char *fileName, int *handle);
MURV_API int MURV_CALL murvOpenWriteCopy(const char *fileName, const char *dictFileName, int *handle);
MURV_API int MURV_CALL murvCommitHeader(int handle);
MURV_API int MURV_CALL murvCloseRead(int handle);
MURV_API int MURV_CALL murvCloseWrite(int handle);
MURV_API int MURV_CALL murvCloseAppend(int handle);
MURV_API char * MURV_CALL murvSetLocale(int category, const char *locale);
MURV_API int MURV_CALL murvSetTempDir(const char *dirName);

/* ---- Cases ---- */

MURV_API int MURV_CALL murvSetValueNumeric(int handle, double varHandle, double value);
MURV_API int MURV_CALL murvSetValueChar(int handle, double varHandle, const char *value);
MURV_API int MURV_CALL murvCommitCaseRecord(int handle);
MURV_API int MURV_CALL murvWholeCaseOut(int handle, const char *caseRec);
MURV_API int MURV_CALL murvReadCaseRecord(int handle);
MURV_API int MURV_CALL murvSeekNextCase(int handle, int caseNumber);
MURV_API int MURV_CALL murvGetValueNumeric(int handle, double varHandle, double *value);
MURV_API int MURV_CALL murvGetValueChar(int handle, double varHandle, char *value, int valueSize);
MURV_API int MURV_CALL murvWholeCaseIn(int handle, char *caseRec);
MURV_API int MURV_CALL murvGetCaseSize(int handle, int *caseSize);
MURV_API int MURV_CALL murvGetNumberofCases(int handle, int *numofCases);
MURV_API int MURV_CALL murvGetEstimatedNofCases(int handle, int *caseCount);
MURV_API int MURV_CALL murvSetCompression(int handle, int compSwitch);
MURV_API int MURV_CALL murvGetCompression(int handle, int *compSwitch);
MURV_API int MURV_CALL murvSetCaseWeightVar(int handle, const char *varName);
MURV_API int MURV_CALL murvGetCaseWeightVar(int handle, char *varName);

/* ---- Variable dictionary ---- */

MURV_API int MURV_CALL murvSetVarName(int handle, const char *varName, int varType);
MURV_API int MURV_CALL murvGetVarHandle(int handle, const char *varName, double *varHandle);
MURV_API int MURV_CALL murvGetVarInfo(int handle, int iVar, char *varName, int *varType);
MURV_API int MURV_CALL murvGetNumberofVariables(int handle, int *numVars);
MURV_API int MURV_CALL murvGetVarNames(int handle, int *numVars, char ***varNames, int **varTypes);
MURV_API int MURV_CALL murvFreeVarNames(char **varNames, int *varTypes, int numVars);
MURV_API int MURV_CALL murvSetVarLabel(int handle, const char *varName, const char *varLabel);
MURV_API int MURV_CALL murvGetVarLabel(int handle, const char *varName, char *varLabel);
MURV_API int MURV_CALL murvGetVarLabelLong(int handle, const char *varName, char *labelBuff, int lenBuff, int *lenLabel);
MURV_API int MURV_CALL murvSetVarPrintFormat(int handle, const char *varName, int printType, int printDec, int printWid);
MURV_API int MURV_CALL murvSetVarWriteFormat(int handle, const char *varName, int writeType, int writeDec, int writeWid);
MURV_API int MURV_CALL murvGetVarPrintFormat(int handle, const char *varName, int *printType, int *printDec, int *printWid);
MURV_API int MURV_CALL murvGetVarWriteFormat(int handle, const char *varName, int *writeType, int *writeDec, int *writeWid);
MURV_API int MURV_CALL murvSetVarNMissingValues(int handle, const char *varName, int missingFormat, double missingVal1, double missingVal2, double missingVal3);
MURV_API int MURV_CALL murvGetVarNMissingValues(int handle, const char *varName, int *missingFormat, double *missingVal1, double *missingVal2, double *missingVal3);
MURV_API int MURV_CALL murvSetVarCMissingValues(int handle, const char *varName, int missingFormat, const char *missingVal1, const char *missingVal2, const char *missingVal3);
MURV_API int MURV_CALL murvGetVarCMissingValues(int handle, const char *varName, int *missingFormat, char *missingVal1, char *missingVal2, char *missingVal3);
MURV_API int MURV_CALL murvSetVarAlignment(int handle, const char *varName, int alignment);
MURV_API int MURV_CALL murvGetVarAlignment(int handle, const char *varName, int *alignment);
MURV_API int MURV_CALL murvSetVarColumnWidth(int handle, const char *varName, int columnWidth);
MURV_API int MURV_CALL murvGetVarColumnWidth(int handle, const char *varName, int *columnWidth);
MURV_API int MURV_CALL murvSetVarMeasureLevel(int handle, const char *varName, int measureLevel);
MURV_API int MURV_CALL murvGetVarMeasureLevel(int handle, const char *varName, int *measureLevel);

/* ---- Value labels ---- */

MURV_API int MURV_CALL murvSetVarNValueLabel(int handle, const char *varName, double value, const char *label);
MURV_API int MURV_CALL murvSetVarCValueLabel(int handle, const char *varName, const char *value, const char *label);
MURV_API int MURV_CALL murvSetVarNValueLabels(int handle, const char **varNames, int numVars, const double *values, const char **labels, int numLabels);
MURV_API int MURV_CALL murvSetVarCValueLabels(int handle, const char **varNames, int numVars, const char **values, const char **labels, int numLabels);
MURV_API int MURV_CALL murvGetVarNValueLabel(int handle, const char *varName, double value, char *label);
MURV_API int MURV_CALL murvGetVarNValueLabelLong(int handle, const char *varName, double value, char *labelBuff, int lenBuff, int *lenLabel);
MURV_API int MURV_CALL murvGetVarCValueLabel(int handle, const char *varName, const char *value, char *label);
MURV_API int MURV_CALL murvGetVarCValueLabelLong(int handle, const char *varName, const char *value, char *labelBuff, int lenBuff, int *lenLabel);
MURV_API int MURV_CALL murvGetVarNValueLabels(int handle, const char *varName, double **values, char ***labels, int *numLabels);
MURV_API int MURV_CALL murvGetVarCValueLabels(int handle, const char *varName, char ***values, char ***labels, int *numLabels);
MURV_API int MURV_CALL murvFreeVarNValueLabels(double *values, char **labels, int numLabels);
MURV_API int MURV_CALL murvFreeVarCValueLabels(char **values, char **labels, int numLabels);

/* ---- File-level metadata ---- */

MURV_API int MURV_CALL murvSetIdString(int handle, const char *id);
MURV_API int MURV_CALL murvGetIdString(int handle, char *id);
MURV_API int MURV_CALL murvGetSystemString(int handle, char *sysName);
MURV_API int MURV_CALL murvGetReleaseInfo(int handle, int *relInfo);
MURV_API int MURV_CALL murvGetTimeStamp(int handle, char *fileDate, char *fileTime);
MURV_API int MURV_CALL murvCopyDocuments(int fromHandle, int toHandle);
MURV_API int MURV_CALL murvQueryType7(int handle, int subType, int *bFound);
MURV_API int MURV_CALL murvSetExtensionData(int handle, int subType, int unitSize, int nElements, const void *data);
MURV_API int MURV_CALL murvGetExtensionDataDesc(int handle, int subType, int *unitSize, int *nElements);
MURV_API int MURV_CALL murvGetExtensionData(int handle, int subType, int bufferSize, int *nElements, void *buffer);
MURV_API int MURV_CALL murvSetTextInfo(int handle, const char *textInfo);
MURV_API int MURV_CALL murvGetTextInfo(int handle, char *textInfo);
MURV_API int MURV_CALL murvGetFileAttributes(int handle, char ***attribNames, char ***attribText, int *nAttributes);
MURV_API int MURV_CALL murvGetVarAttributes(int handle, const char *varName, char ***attribNames, char ***attribText, int *nAttributes);
MURV_API int MURV_CALL murvSetFileAttributes(int handle, const char **attribNames, const char **attribText, int nAttributes);
MURV_API int MURV_CALL murvSetVarAttributes(int handle, const char *varName, const char **attribNames, const char **attribText, int nAttributes);
MURV_API int MURV_CALL murvAddFileAttribute(int handle, const char *attribName, int attribSub, const char *attribText);
MURV_API int MURV_CALL murvAddVarAttribute(int handle, const char *varName, const char *attribName, int attribSub, const char *attribText);
MURV_API int MURV_CALL murvFreeAttributes(char **attribNames, char **attribText, int nAttributes);

/* ---- Date variables, data-entry block, multiple-response and variable sets ---- */

MURV_API int MURV_CALL murvSetDateVariables(int handle, int numofElements, const int *dateInfo);
MURV_API int MURV_CALL murvGetDateVariables(int handle, int *numofElements, int **dateInfo);
MURV_API int MURV_CALL murvFreeDateVariables(int *dateInfo);
MURV_API int MURV_CALL murvSetZOPGUID(int handle, const char *zopGUID);
MURV_API int MURV_CALL murvGetZOPGUID(int handle, char *zopGUID);
MURV_API int MURV_CALL murvGetZOPInfo(int handle, int *nBytes, int *nSegments);
MURV_API int MURV_CALL murvSetZOPFirst(int handle, const void *data, int nBytes);
MURV_API int MURV_CALL murvSetZOPNext(int handle, const void *data, int nBytes);
MURV_API int MURV_CALL murvGetZOPFirst(int handle, void *buffer, int bufferSize, int *nDelivered);
MURV_API int MURV_CALL murvGetZOPNext(int handle, void *buffer, int bufferSize, int *nDelivered);
MURV_API int MURV_CALL murvSetMultRespDefs(int handle, const char *mrespDefs);
MURV_API int MURV_CALL murvGetMultRespDefs(int handle, char **mrespDefs);
MURV_API int MURV_CALL murvFreeMultRespDefs(char *mrespDefs);
MURV_API int MURV_CALL murvGetMultRespCount(int handle, int *nSets);
MURV_API int MURV_CALL murvGetMultRespDefByIndex(int handle, int iSet, murvMultRespDef **ppSet);
MURV_API int MURV_CALL murvFreeMultRespDefStruct(murvMultRespDef *pSet);
MURV_API int MURV_CALL murvAddMultRespDefExt(int handle, const murvMultRespDef *pSet);
MURV_API int MURV_CALL murvAddMultRespDefC(int handle, const char *mrSetName, const char *mrSetLabel, int isDichotomy, const char *countedValue, const char **varNames, int numVars);
MURV_API int MURV_CALL murvAddMultRespDefN(int handle, const char *mrSetName, const char *mrSetLabel, int isDichotomy, int countedValue, const char **varNames, int numVars);
MURV_API int MURV_CALL murvSetVariableSets(int handle, const char *varSets);
MURV_API int MURV_CALL murvGetVariableSets(int handle, char **varSets);
MURV_API int MURV_CALL murvFreeVariableSets(char *varSets);

/* ---- Name validation and short names ---- */

MURV_API int MURV_CALL murvValidateVarname(const char *varName);
MURV_API int MURV_CALL murvGetVarCompatName(int handle, const char *longName, char *shortName);

#ifdef __cplusplus
}
#endif

#endif /* MURVIO_H */
