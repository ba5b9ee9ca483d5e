/**
 * @file murvio.h
 * @brief murvio: reading and writing system files.
 *
 * The whole interface of the library: 111 functions that take and return
 * plain C types. Files are named by small integer handles; every call
 * returns one of the MURV_RC_ codes below (0 success, positive errors,
 * negative warnings or reports that an item is absent). Texts are
 * NUL-terminated byte strings in the process's multibyte code page.
 *
 * A handle call checks the handle first: MURV_RC_BAD_HANDLE for one that
 * names no open file. Calls that define the dictionary need a new file before
 * murvCommitHeader (MURV_RC_READ_MODE for a file open for reading,
 * MURV_RC_DICT_COMMITTED afterwards or for an appended file); case output
 * needs it after murvCommitHeader (MURV_RC_DICT_NOT_COMMITTED before); calls
 * that read what only a read file has give MURV_RC_WRITE_MODE on a write
 * handle. No call lets an exception out: a failure inside becomes the call's
 * code. Memory the library hands out is released only by the matching
 * murvFree call. Calls are not safe to make from several threads at once,
 * except that separate handles of files opened for reading may be read on
 * separate threads.
 */
#ifndef MURVIO_H
#define MURVIO_H

#include <stddef.h>

/** Calling convention: the standard one of 32-bit Windows, nothing elsewhere. */
#if defined(_WIN32) && !defined(_WIN64)
#define MURV_CALL __stdcall
#else
#define MURV_CALL
#endif

/** Marks the exported calls: exported from the library, imported by clients. */
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

/** @name Return codes
 * 0 success, positive errors, negative warnings or reports that an item is absent.
 * @{ */
#define MURV_RC_OK 0 /**< success */
#define MURV_RC_FILE_OPEN 1 /**< the file cannot be opened or created */
#define MURV_RC_FILE_WRITE 2 /**< writing cases failed */
#define MURV_RC_FILE_READ 3 /**< reading cases or an extension record failed, or a position cannot be reached */
#define MURV_RC_TABLE_FULL 4 /**< all 100 file handles are in use */
#define MURV_RC_BAD_HANDLE 5 /**< the handle names no open file, or a call failed inside (the code of most calls for an internal failure) */
#define MURV_RC_BAD_FILE 6 /**< the file cannot be read as a system file */
#define MURV_RC_NO_MEMORY 7 /**< an allocation failed */
#define MURV_RC_READ_MODE 8 /**< the call needs a file open for writing, but it is open for reading */
#define MURV_RC_WRITE_MODE 9 /**< the call needs a file open for reading, but it is open for writing or appending */
#define MURV_RC_BAD_VAR_NAME 10 /**< not a valid variable name */
#define MURV_RC_EMPTY_DICT 11 /**< no variables are defined */
#define MURV_RC_VAR_NOT_FOUND 12 /**< no variable of that name (or at that position) */
#define MURV_RC_DUP_VAR 13 /**< a variable of that name exists */
#define MURV_RC_NUMERIC_EXPECTED 14 /**< a string variable where a numeric one is needed */
#define MURV_RC_STRING_EXPECTED 15 /**< a variable of the wrong kind for a string call (or a string variable given to murvSetValueNumeric) */
#define MURV_RC_SHORT_STRING_EXPECTED 16 /**< a string variable wider than 8 bytes where at most 8 are allowed */
#define MURV_RC_BAD_VAR_TYPE 17 /**< a variable type below 0 or above 32767 */
#define MURV_RC_BAD_MISSING 18 /**< missing values that are not allowed (a kind out of range, a range whose low end is above its high end) */
#define MURV_RC_BAD_PRINT_FORMAT 20 /**< an invalid print format */
#define MURV_RC_BAD_WRITE_FORMAT 21 /**< an invalid write format */
#define MURV_RC_BAD_DATE 22 /**< not a date of the calendar */
#define MURV_RC_BAD_TIME 23 /**< a time that is negative or out of range */
#define MURV_RC_DICT_COMMITTED 30 /**< the dictionary is committed: it cannot change */
#define MURV_RC_DICT_NOT_COMMITTED 31 /**< murvCommitHeader has not been called */
#define MURV_RC_NO_RELEASE_INFO 41 /**< the file has no release information */
#define MURV_RC_BAD_DATE_INFO 45 /**< malformed date-variable information */
#define MURV_RC_STRING_TOO_LONG 47 /**< a value longer than the variable (or 8 bytes for value labels) */
#define MURV_RC_CANNOT_FREE 48 /**< releasing memory failed */
#define MURV_RC_BUFFER_SHORT 49 /**< the buffer cannot hold the value and its NUL */
#define MURV_RC_NO_CURRENT_CASE 50 /**< no case has been read */
#define MURV_RC_BAD_SUBTYPE 57 /**< an extension subtype the library keeps to itself */
#define MURV_RC_BAD_VAR_HANDLE 58 /**< a variable handle that names no variable */
#define MURV_RC_BAD_MRSET_DEF 70 /**< an invalid multiple-response set */
#define MURV_RC_BAD_MRSET_NAME 71 /**< an invalid multiple-response set name */
#define MURV_RC_DUP_MRSET_NAME 72 /**< a multiple-response set of that name exists */
#define MURV_RC_BAD_EXTENSION 73 /**< an extension record of the wrong form, or a subtype outside 0 to 32 */
#define MURV_RC_BAD_ATTR_NAME 75 /**< an invalid attribute name */
#define MURV_RC_BAD_ATTR_DEF 76 /**< a missing attribute array, name or value, or a bad index */
#define MURV_RC_BAD_MRSET_INDEX 77 /**< no multiple-response set at that index */

#define MURV_RC_VAR_LABEL_CUT (-2) /**< warning: the variable label was stored cut to 256 bytes */
#define MURV_RC_VALUE_LABEL_CUT (-4) /**< warning: a value label was stored cut to 120 bytes */
#define MURV_RC_END_OF_FILE (-5) /**< no further case */
#define MURV_RC_NO_VARIABLE_SETS (-7) /**< the file has no variable sets */
#define MURV_RC_NO_VALUE_LABELS (-8) /**< the variable has no value labels */
#define MURV_RC_NO_LABEL (-9) /**< no label (of the variable or of the value) */
#define MURV_RC_NO_WEIGHT (-10) /**< the file has no weight variable */
#define MURV_RC_NO_DATE_INFO (-11) /**< the file has no date variables */
#define MURV_RC_NO_MRSETS (-13) /**< the file has no multiple-response sets */
#define MURV_RC_NO_ZOP (-14) /**< the file has no usable data-entry block */

/** @} */

/** @name Locale categories of murvSetLocale
 * @{ */
#define MURV_LC_ALL 0 /**< every category */
#define MURV_LC_COLLATE 1 /**< collation */
#define MURV_LC_CTYPE 2 /**< character classes: the code page of texts */
#define MURV_LC_MONETARY 3 /**< money formats */
#define MURV_LC_NUMERIC 4 /**< number formats */
#define MURV_LC_TIME 5 /**< time formats */
/** @} */

/** A multiple-response set definition as the set calls exchange it. */
typedef struct murvMultRespDef {
    char  setName[65];        /**< the set's name, beginning with $ (at most 64 bytes) */
    char  setLabel[257];      /**< its label (at most 256 bytes) */
    int   isDichotomy;        /**< nonzero: a set of dichotomies; 0: a set of categories */
    int   isNumeric;          /**< dichotomies: the variables and the counted value are numeric */
    int   useCategoryLabels;  /**< dichotomies: label the set by the counted value's category labels */
    int   useFirstVarLabel;   /**< dichotomies with useCategoryLabels: the label comes from the first variable */
    int   reserved[14];       /**< zero */
    int   countedValue;       /**< the counted value of a numeric dichotomy set */
    char *countedValueText;   /**< the counted value as text */
    char **varNames;          /**< the names of the set's variables */
    int   varCount;           /**< how many */
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

/**
 * @brief The system-missing value: the most negative finite double.
 * @return -1.7976931348623157e308, the value that stands for "no value" in numeric variables.
 */
MURV_API double MURV_CALL murvSysmisVal(void);
/**
 * @brief Stores the system-missing value (see murvSysmisVal).
 * @param[out] value receives the system-missing value; may not be null.
 */
MURV_API void MURV_CALL murvHostSysmisVal(double *value);
/**
 * @brief Stores the two values that stand for the open ends of a missing-value range ("lowest" and "highest").
 * @param[out] lowest receives the value for the lowest end.
 * @param[out] highest receives the value for the highest end.
 */
MURV_API void MURV_CALL murvLowHighVal(double *lowest, double *highest);
/**
 * @brief A calendar date as a date value: seconds since 14 October 1582, 00:00.
 * @param[in] day day of the month, 1 to 31
 * @param[in] month 1 to 12
 * @param[in] year four digits, from 1582
 * @param[out] date receives the value (0 on failure)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_DATE not a date of the calendar (before 14 October 1582, month or day out of range)
 */
MURV_API int MURV_CALL murvConvertDate(int day, int month, int year, double *date);
/**
 * @brief A date value (seconds since 14 October 1582) as a calendar date; the time of day is ignored.
 * @param[out] day receives the day of the month
 * @param[out] month receives the month, 1 to 12
 * @param[out] year receives the year
 * @param[in] date the date value
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_DATE the value lies before the start of the calendar or beyond its range
 */
MURV_API int MURV_CALL murvConvertMURVDate(int *day, int *month, int *year, double date);
/**
 * @brief A span of days, hours, minutes and seconds as a time value in seconds.
 * @param[in] day days, 0 or more
 * @param[in] hour hours, 0 to 23
 * @param[in] minute minutes, 0 to 59
 * @param[in] second seconds, 0 to below 60
 * @param[out] time receives the value (0 on failure)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_TIME a part is negative or out of its range
 */
MURV_API int MURV_CALL murvConvertTime(int day, int hour, int minute, double second, double *time);
/**
 * @brief A time value in seconds as days, hours, minutes and seconds.
 * @param[out] day receives the whole days
 * @param[out] hour receives the hours, 0 to 23
 * @param[out] minute receives the minutes, 0 to 59
 * @param[out] second receives the seconds and their fraction
 * @param[in] time the time value, 0 or more
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_TIME the value is negative or too large
 */
MURV_API int MURV_CALL murvConvertMURVTime(int *day, int *hour, int *minute, double *second, double time);

/* ---- File lifecycle and locale ---- */

/**
 * @brief Opens a system file for reading and reads its whole dictionary.
 * @param[in] fileName the file's path in the process's code page
 * @param[out] handle receives the file handle; -1 on failure
 * @retval MURV_RC_OK done; close the handle with murvCloseRead
 * @retval MURV_RC_TABLE_FULL all 100 handles are in use
 * @retval MURV_RC_BAD_FILE the file is missing, unreadable, not a system file or damaged, or two variables share a name
 */
MURV_API int MURV_CALL murvOpenRead(const char *fileName, int *handle);
/**
 * @brief Creates a system file (replacing one of the same name when the new file is complete) and opens it for defining its dictionary.
 * The file is written beside the destination and takes its place only at murvCloseWrite, so an existing file survives any failure.
 * @param[in] fileName the file's path in the process's code page
 * @param[out] handle receives the file handle; -1 on failure
 * @retval MURV_RC_OK done; define variables, call murvCommitHeader, write cases, then murvCloseWrite
 * @retval MURV_RC_FILE_OPEN the file cannot be created there (or an existing one is not writable), or all handles are in use
 * @retval MURV_RC_BAD_FILE the file could not be prepared
 */
MURV_API int MURV_CALL murvOpenWrite(const char *fileName, int *handle);
/**
 * @brief Opens an existing system file for adding cases after its last case. The dictionary is taken as committed.
 * @param[in] fileName the file's path
 * @param[out] handle receives the file handle; -1 on failure
 * @retval MURV_RC_OK done; write cases, then murvCloseAppend
 * @retval MURV_RC_FILE_OPEN the file cannot be opened for update
 * @retval MURV_RC_TABLE_FULL all handles are in use
 * @retval MURV_RC_BAD_FILE the file is not a readable system file
 */
MURV_API int MURV_CALL murvOpenAppend(const char *fileName, int *handle);
/**
 * @brief Creates a system file whose dictionary is a copy of another file's: variables and their properties, value labels, documents, extension records, attributes, sets, date variables, weight and file label. No cases are copied.
 * @param[in] fileName the new file's path
 * @param[in] dictFileName the file whose dictionary is copied
 * @param[out] handle receives a write handle with the dictionary still open; -1 on failure
 * @retval MURV_RC_OK done; the dictionary may still be changed before murvCommitHeader
 * @retval MURV_RC_FILE_OPEN either file cannot be opened or created, or the handles are used up
 * @retval MURV_RC_FILE_READ reading the old file's dictionary failed; the new file is removed
 */
MURV_API int MURV_CALL murvOpenWriteCopy(const char *fileName, const char *dictFileName, int *handle);
/**
 * @brief Ends the dictionary of a new file and writes it; after this the cases are written and the dictionary calls give MURV_RC_DICT_COMMITTED.
 * @param[in] handle a write handle
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file, or writing failed
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary was committed already
 * @retval MURV_RC_EMPTY_DICT no variable is defined
 */
MURV_API int MURV_CALL murvCommitHeader(int handle);
/**
 * @brief Closes a file and frees its handle. The three close calls are the same call; for a write or append handle it finishes the file and moves it into place.
 * @param[in] handle the file's handle
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file of that handle, or finishing the file failed (a new file then does not replace an old one)
 */
MURV_API int MURV_CALL murvCloseRead(int handle);
/**
 * @brief Closes a file written from the start and frees its handle. The three close calls are the same call; for a write or append handle it finishes the file and moves it into place.
 * @param[in] handle the file's handle
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file of that handle, or finishing the file failed (a new file then does not replace an old one)
 */
MURV_API int MURV_CALL murvCloseWrite(int handle);
/**
 * @brief Closes a file opened for appending and frees its handle. The three close calls are the same call; for a write or append handle it finishes the file and moves it into place.
 * @param[in] handle the file's handle
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file of that handle, or finishing the file failed (a new file then does not replace an old one)
 */
MURV_API int MURV_CALL murvCloseAppend(int handle);
/**
 * @brief Sets the process's locale, which decides the code page of every text (names, labels, values).
 * @param[in] category MURV_LC_ALL or another MURV_LC_ category
 * @param[in] locale the locale's name ("" for the user's default)
 * @return the name of the locale now in force, or null when the request was refused; the text belongs to the runtime library and is not freed
 */
MURV_API char * MURV_CALL murvSetLocale(int category, const char *locale);
/**
 * @brief Accepted for programs that call it; the library keeps no temporary files of its own.
 * @param[in] dirName ignored; may be null
 * @retval MURV_RC_OK always
 */
MURV_API int MURV_CALL murvSetTempDir(const char *dirName);

/* ---- Cases ---- */

/**
 * @brief Sets a numeric value of the case being built.
 * @param[in] handle a write or append handle, dictionary committed
 * @param[in] varHandle the variable's handle from murvGetVarHandle
 * @param[in] value the value (murvSysmisVal for none)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_NOT_COMMITTED murvCommitHeader has not been called
 * @retval MURV_RC_NO_MEMORY no memory for the case
 * @retval MURV_RC_BAD_VAR_HANDLE the variable handle names no variable
 * @retval MURV_RC_STRING_EXPECTED the variable is a string variable
 * @retval MURV_RC_FILE_WRITE the call failed inside
 */
MURV_API int MURV_CALL murvSetValueNumeric(int handle, double varHandle, double value);
/**
 * @brief Sets a string value of the case being built; the value is padded with blanks to the variable's width.
 * @param[in] handle a write or append handle, dictionary committed
 * @param[in] varHandle the variable's handle from murvGetVarHandle
 * @param[in] value the text, at most as long as the variable's width
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_NOT_COMMITTED murvCommitHeader has not been called
 * @retval MURV_RC_NO_MEMORY no memory for the case
 * @retval MURV_RC_BAD_VAR_HANDLE the variable handle names no variable
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_STRING_TOO_LONG the text is longer than the variable's width; nothing is stored
 * @retval MURV_RC_FILE_WRITE the call failed inside
 */
MURV_API int MURV_CALL murvSetValueChar(int handle, double varHandle, const char *value);
/**
 * @brief Writes the case being built. Values not set are system-missing or blank; the next case starts empty again.
 * @param[in] handle a write or append handle, dictionary committed
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_NOT_COMMITTED murvCommitHeader has not been called
 * @retval MURV_RC_NO_MEMORY no memory for the case
 * @retval MURV_RC_FILE_WRITE writing failed
 */
MURV_API int MURV_CALL murvCommitCaseRecord(int handle);
/**
 * @brief Writes one case from a whole case record: murvGetCaseSize bytes, the variables in dictionary order, each numeric value a double in the host's byte order (8 bytes), each string of width w in (w + 7) / 8 * 8 bytes padded with blanks. The bytes are not checked.
 * @param[in] handle a write or append handle, dictionary committed
 * @param[in] caseRec the case record
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_NOT_COMMITTED murvCommitHeader has not been called
 * @retval MURV_RC_FILE_WRITE writing failed
 */
MURV_API int MURV_CALL murvWholeCaseOut(int handle, const char *caseRec);
/**
 * @brief Reads the next case; its values are then read with murvGetValueNumeric and murvGetValueChar.
 * @param[in] handle a read handle
 * @retval MURV_RC_OK a case was read
 * @retval MURV_RC_END_OF_FILE no case is left (call murvSeekNextCase to read again)
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_NO_MEMORY no memory for the case
 * @retval MURV_RC_FILE_READ the case cannot be read (the file is damaged or ends inside the cases it states)
 */
MURV_API int MURV_CALL murvReadCaseRecord(int handle);
/**
 * @brief Makes the next read deliver the given case. Positioning is fast: the library keeps an index of case positions.
 * @param[in] handle a read handle
 * @param[in] caseNumber the case, counted from 0; beyond the last case the next read gives MURV_RC_END_OF_FILE
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_NO_MEMORY no memory for the case
 * @retval MURV_RC_FILE_READ the position cannot be reached
 */
MURV_API int MURV_CALL murvSeekNextCase(int handle, int caseNumber);
/**
 * @brief A numeric value of the case last read by murvReadCaseRecord.
 * @param[in] handle a read handle
 * @param[in] varHandle the variable's handle from murvGetVarHandle
 * @param[out] value receives the value (system-missing is murvSysmisVal); 0 on failure
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_NO_CURRENT_CASE no case has been read (or murvWholeCaseIn took it)
 * @retval MURV_RC_BAD_VAR_HANDLE the variable handle names no variable
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 * @retval MURV_RC_FILE_READ the call failed inside
 */
MURV_API int MURV_CALL murvGetValueNumeric(int handle, double varHandle, double *value);
/**
 * @brief A string value of the case last read, as wide as the variable (trailing blanks kept) and NUL-terminated.
 * @param[in] handle a read handle
 * @param[in] varHandle the variable's handle from murvGetVarHandle
 * @param[out] value the buffer for the text
 * @param[in] valueSize the buffer's size in bytes: at least the variable's width plus 1
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_NO_CURRENT_CASE no case has been read
 * @retval MURV_RC_BAD_VAR_HANDLE the variable handle names no variable
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_BUFFER_SHORT the buffer cannot hold the value and its NUL; nothing is copied
 * @retval MURV_RC_FILE_READ the call failed inside
 */
MURV_API int MURV_CALL murvGetValueChar(int handle, double varHandle, char *value, int valueSize);
/**
 * @brief Reads the next case into a whole case record (the layout of murvWholeCaseOut).
 * @param[in] handle a read handle
 * @param[out] caseRec a buffer of murvGetCaseSize bytes
 * @retval MURV_RC_OK a case was read
 * @retval MURV_RC_END_OF_FILE no case is left
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_NO_MEMORY no memory for the case
 * @retval MURV_RC_BAD_HANDLE no open file, or the case cannot be read
 */
MURV_API int MURV_CALL murvWholeCaseIn(int handle, char *caseRec);
/**
 * @brief The size in bytes of a whole case record.
 * @param[in] handle a file handle
 * @param[out] caseSize receives the size; 0 when it would not fit an int
 * @retval MURV_RC_OK done
 * @retval MURV_RC_DICT_NOT_COMMITTED a new file before murvCommitHeader
 * @retval MURV_RC_BAD_HANDLE no open file
 */
MURV_API int MURV_CALL murvGetCaseSize(int handle, int *caseSize);
/**
 * @brief The number of cases the file states.
 * @param[in] handle a read handle
 * @param[out] numofCases receives the count; -1 when the file does not state it or it is above 2147483647
 * @retval MURV_RC_OK done
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_BAD_HANDLE no open file
 */
MURV_API int MURV_CALL murvGetNumberofCases(int handle, int *numofCases);
/**
 * @brief The same as murvGetNumberofCases.
 * @param[in] handle a read handle
 * @param[out] caseCount receives the count, or -1
 * @retval MURV_RC_OK done
 * @retval MURV_RC_WRITE_MODE the file is open for writing
 * @retval MURV_RC_BAD_HANDLE no open file
 */
MURV_API int MURV_CALL murvGetEstimatedNofCases(int handle, int *caseCount);
/**
 * @brief Chooses whether the cases of a new file are stored compressed.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] compSwitch nonzero: compressed; 0: plain
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_OK done
 */
MURV_API int MURV_CALL murvSetCompression(int handle, int compSwitch);
/**
 * @brief Whether the file's cases are stored compressed.
 * @param[in] handle a file handle
 * @param[out] compSwitch receives 1 (compressed) or 0
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetCompression(int handle, int *compSwitch);
/**
 * @brief Makes a numeric variable the file's case weight.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvSetCaseWeightVar(int handle, const char *varName);
/**
 * @brief The name of the file's case-weight variable.
 * @param[in] handle a file handle
 * @param[out] varName a buffer of at least 65 bytes; receives the name, or "" when there is none
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_WEIGHT the file has no weight variable
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetCaseWeightVar(int handle, char *varName);

/* ---- Variable dictionary ---- */

/**
 * @brief Adds a variable to the dictionary of a new file.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the name: what murvValidateVarname calls an ordinary name (at most 64 bytes)
 * @param[in] varType 0 for numeric, else the string width in bytes, 1 to 32767
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_BAD_VAR_NAME the name is not a valid ordinary name
 * @retval MURV_RC_BAD_VAR_TYPE the type is below 0 or above 32767
 * @retval MURV_RC_DUP_VAR a variable of that name exists (without regard to case)
 */
MURV_API int MURV_CALL murvSetVarName(int handle, const char *varName, int varType);
/**
 * @brief The handle of a variable for the value calls: its 1-based position in the dictionary, as a double.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] varHandle receives the variable handle; 0 on failure
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarHandle(int handle, const char *varName, double *varHandle);
/**
 * @brief The name and type of the variable at a position of the dictionary.
 * @param[in] handle a file handle
 * @param[in] iVar the position, from 0
 * @param[out] varName a buffer of at least 65 bytes for the name
 * @param[out] varType receives 0 (numeric) or the string width
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND the position is outside the dictionary
 */
MURV_API int MURV_CALL murvGetVarInfo(int handle, int iVar, char *varName, int *varType);
/**
 * @brief The number of variables in the dictionary.
 * @param[in] handle a file handle
 * @param[out] numVars receives the count
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetNumberofVariables(int handle, int *numVars);
/**
 * @brief The names and types of all variables, in dictionary order, in arrays the library allocates.
 * @param[in] handle a file handle
 * @param[out] numVars receives the number of variables
 * @param[out] varNames receives an array of numVars names
 * @param[out] varTypes receives an array of numVars types (0 numeric, else the string width)
 * Release both arrays with murvFreeVarNames (never with free()).
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_FILE the dictionary has no variables
 * @retval MURV_RC_NO_MEMORY the arrays cannot be allocated; the outputs are null
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetVarNames(int handle, int *numVars, char ***varNames, int **varTypes);
/**
 * @brief Releases the arrays of murvGetVarNames.
 * @param[in] varNames the name array (may be null)
 * @param[in] varTypes the type array (may be null)
 * @param[in] numVars the count murvGetVarNames gave; below 1 releases nothing
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeVarNames(char **varNames, int *varTypes, int numVars);
/**
 * @brief Sets a variable's label.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] varLabel the label; longer than 256 bytes it is cut at a character boundary
 * @retval MURV_RC_OK done
 * @retval MURV_RC_VAR_LABEL_CUT the label was stored cut to 256 bytes
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvSetVarLabel(int handle, const char *varName, const char *varLabel);
/**
 * @brief A variable's label, at most 120 bytes of it (murvGetVarLabelLong gives all of it).
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] varLabel a buffer of at least 121 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_LABEL the variable has no label
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarLabel(int handle, const char *varName, char *varLabel);
/**
 * @brief A variable's label into a buffer of the caller's size, cut at a character boundary if it does not fit.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] labelBuff the buffer
 * @param[in] lenBuff its size in bytes, at least 1 (labels are at most 256 bytes, so 257 always suffices)
 * @param[out] lenLabel receives the length of the text copied; may be null
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_LABEL the variable has no label
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarLabelLong(int handle, const char *varName, char *labelBuff, int lenBuff, int *lenLabel);
/**
 * @brief Sets a variable's print format: a format type, decimals and width.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] printType the format type: 1 to 12, 15 to 17 or 20 to 39 (1 is the string format, 5 the plain number format)
 * @param[in] printDec the number of decimals
 * @param[in] printWid the width
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_BAD_PRINT_FORMAT an unknown type, or a format not valid for the variable (its type, width or decimals)
 */
MURV_API int MURV_CALL murvSetVarPrintFormat(int handle, const char *varName, int printType, int printDec, int printWid);
/**
 * @brief Sets a variable's write format: a format type, decimals and width.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] writeType the format type: 1 to 12, 15 to 17 or 20 to 39 (1 is the string format, 5 the plain number format)
 * @param[in] writeDec the number of decimals
 * @param[in] writeWid the width
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_BAD_WRITE_FORMAT an unknown type, or a format not valid for the variable (its type, width or decimals)
 */
MURV_API int MURV_CALL murvSetVarWriteFormat(int handle, const char *varName, int writeType, int writeDec, int writeWid);
/**
 * @brief A variable's print format.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] printType receives the format type
 * @param[out] printDec receives the decimals
 * @param[out] printWid receives the width
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarPrintFormat(int handle, const char *varName, int *printType, int *printDec, int *printWid);
/**
 * @brief A variable's write format.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] writeType receives the format type
 * @param[out] writeDec receives the decimals
 * @param[out] writeWid receives the width
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarWriteFormat(int handle, const char *varName, int *writeType, int *writeDec, int *writeWid);
/**
 * @brief Sets the user-missing values of a numeric variable.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] missingFormat 0 none; 1, 2 or 3 discrete values; -2 a range (first value low, second high); -3 a range and one discrete value (third)
 * @param[in] missingVal1 first value (or low end)
 * @param[in] missingVal2 second value (or high end)
 * @param[in] missingVal3 third value
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_BAD_MISSING another kind, or a range whose low end is above its high end
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvSetVarNMissingValues(int handle, const char *varName, int missingFormat, double missingVal1, double missingVal2, double missingVal3);
/**
 * @brief The user-missing values of a numeric variable.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] missingFormat receives the kind (see murvSetVarNMissingValues)
 * @param[out] missingVal1 receives the first value or low end
 * @param[out] missingVal2 receives the second value or high end
 * @param[out] missingVal3 receives the third value
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvGetVarNMissingValues(int handle, const char *varName, int *missingFormat, double *missingVal1, double *missingVal2, double *missingVal3);
/**
 * @brief Sets the user-missing values of a string variable of at most 8 bytes.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] missingFormat 0 none, or 1, 2 or 3 values (no ranges for strings)
 * @param[in] missingVal1 first value, at most 8 bytes are used
 * @param[in] missingVal2 second value
 * @param[in] missingVal3 third value
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_BAD_MISSING another kind
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvSetVarCMissingValues(int handle, const char *varName, int missingFormat, const char *missingVal1, const char *missingVal2, const char *missingVal3);
/**
 * @brief The user-missing values of a string variable of at most 8 bytes, each as wide as the variable.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] missingFormat receives the number of values
 * @param[out] missingVal1 a buffer of at least 9 bytes
 * @param[out] missingVal2 a buffer of at least 9 bytes
 * @param[out] missingVal3 a buffer of at least 9 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvGetVarCMissingValues(int handle, const char *varName, int *missingFormat, char *missingVal1, char *missingVal2, char *missingVal3);
/**
 * @brief Sets a variable's alignment in displays.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] alignment 0 left, 1 right, 2 center; other values are ignored
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvSetVarAlignment(int handle, const char *varName, int alignment);
/**
 * @brief A variable's alignment in displays.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] alignment receives it (0 left, 1 right, 2 center)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarAlignment(int handle, const char *varName, int *alignment);
/**
 * @brief Sets a variable's column width in displays.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] columnWidth in characters; below 1 is ignored
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvSetVarColumnWidth(int handle, const char *varName, int columnWidth);
/**
 * @brief A variable's column width in displays.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] columnWidth receives it (in characters)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarColumnWidth(int handle, const char *varName, int *columnWidth);
/**
 * @brief Sets a variable's measurement level.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] measureLevel 0 unknown, 1 nominal, 2 ordinal, 3 scale; other values are ignored
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvSetVarMeasureLevel(int handle, const char *varName, int measureLevel);
/**
 * @brief A variable's measurement level.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] measureLevel receives it (0 unknown, 1 nominal, 2 ordinal, 3 scale)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarMeasureLevel(int handle, const char *varName, int *measureLevel);

/* ---- Value labels ---- */

/**
 * @brief Adds or replaces the label of one value of a numeric variable.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] value the value
 * @param[in] label its label; longer than 120 bytes it is cut at a character boundary
 * @retval MURV_RC_OK done
 * @retval MURV_RC_VALUE_LABEL_CUT the label was stored cut to 120 bytes
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvSetVarNValueLabel(int handle, const char *varName, double value, const char *label);
/**
 * @brief Adds or replaces the label of one value of a string variable of at most 8 bytes.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] value the value, at most 8 bytes
 * @param[in] label its label; longer than 120 bytes it is cut
 * @retval MURV_RC_OK done
 * @retval MURV_RC_VALUE_LABEL_CUT the label was stored cut to 120 bytes
 * @retval MURV_RC_STRING_TOO_LONG the value is longer than 8 bytes (checked before the handle)
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvSetVarCValueLabel(int handle, const char *varName, const char *value, const char *label);
/**
 * @brief Gives several numeric variables one set of value labels, replacing their labels. Nothing changes unless every variable qualifies.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varNames the variables' names
 * @param[in] numVars how many
 * @param[in] values the values
 * @param[in] labels their labels, one per value
 * @param[in] numLabels how many values and labels
 * @retval MURV_RC_OK done
 * @retval MURV_RC_VALUE_LABEL_CUT a label was stored cut to 120 bytes
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvSetVarNValueLabels(int handle, const char **varNames, int numVars, const double *values, const char **labels, int numLabels);
/**
 * @brief Gives several short string variables one set of value labels, replacing their labels.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varNames the variables' names
 * @param[in] numVars how many
 * @param[in] values the values, at most 8 bytes each
 * @param[in] labels their labels
 * @param[in] numLabels how many values and labels
 * @retval MURV_RC_OK done
 * @retval MURV_RC_VALUE_LABEL_CUT a label was stored cut to 120 bytes
 * @retval MURV_RC_STRING_TOO_LONG a value is longer than 8 bytes
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvSetVarCValueLabels(int handle, const char **varNames, int numVars, const char **values, const char **labels, int numLabels);
/**
 * @brief The label of one value of a numeric variable, at most 60 bytes of it.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] value the value
 * @param[out] label a buffer of at least 61 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VALUE_LABELS the variable has no value labels
 * @retval MURV_RC_NO_LABEL the value has no label
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvGetVarNValueLabel(int handle, const char *varName, double value, char *label);
/**
 * @brief The label of one value of a numeric variable into a buffer of the caller's size (121 bytes hold any label).
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] value the value
 * @param[out] labelBuff the buffer
 * @param[in] lenBuff its size, at least 1
 * @param[out] lenLabel receives the length copied; may be null
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VALUE_LABELS the variable has no value labels
 * @retval MURV_RC_NO_LABEL the value has no label
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvGetVarNValueLabelLong(int handle, const char *varName, double value, char *labelBuff, int lenBuff, int *lenLabel);
/**
 * @brief The label of one value of a short string variable, at most 60 bytes of it.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] value the value (longer than 8 bytes is cut)
 * @param[out] label a buffer of at least 61 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VALUE_LABELS the variable has no value labels
 * @retval MURV_RC_NO_LABEL the value has no label
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvGetVarCValueLabel(int handle, const char *varName, const char *value, char *label);
/**
 * @brief The label of one value of a short string variable into a buffer of the caller's size (121 bytes hold any label).
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] value the value (longer than 8 bytes is cut)
 * @param[out] labelBuff the buffer
 * @param[in] lenBuff its size, at least 1
 * @param[out] lenLabel receives the length copied; may be null
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VALUE_LABELS the variable has no value labels
 * @retval MURV_RC_NO_LABEL the value has no label
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvGetVarCValueLabelLong(int handle, const char *varName, const char *value, char *labelBuff, int lenBuff, int *lenLabel);
/**
 * @brief All value labels of a numeric variable, in arrays the library allocates; release them with murvFreeVarNValueLabels.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] values receives the array of values
 * @param[out] labels receives the array of labels
 * @param[out] numLabels receives how many
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VALUE_LABELS the variable has no value labels; the outputs are null
 * @retval MURV_RC_NO_MEMORY the arrays cannot be allocated
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_NUMERIC_EXPECTED the variable is a string variable
 */
MURV_API int MURV_CALL murvGetVarNValueLabels(int handle, const char *varName, double **values, char ***labels, int *numLabels);
/**
 * @brief All value labels of a short string variable, in arrays the library allocates; release them with murvFreeVarCValueLabels.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] values receives the array of values (texts as wide as the variable)
 * @param[out] labels receives the array of labels
 * @param[out] numLabels receives how many
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VALUE_LABELS the variable has no value labels; the outputs are null
 * @retval MURV_RC_NO_MEMORY the arrays cannot be allocated
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_STRING_EXPECTED the variable is numeric
 * @retval MURV_RC_SHORT_STRING_EXPECTED the variable is wider than 8 bytes
 */
MURV_API int MURV_CALL murvGetVarCValueLabels(int handle, const char *varName, char ***values, char ***labels, int *numLabels);
/**
 * @brief Releases the arrays of murvGetVarNValueLabels.
 * @param[in] values the value array (may be null)
 * @param[in] labels the label array (may be null)
 * @param[in] numLabels the count it gave
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeVarNValueLabels(double *values, char **labels, int numLabels);
/**
 * @brief Releases the arrays of murvGetVarCValueLabels.
 * @param[in] values the value array (may be null)
 * @param[in] labels the label array (may be null)
 * @param[in] numLabels the count it gave
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeVarCValueLabels(char **values, char **labels, int numLabels);

/* ---- File-level metadata ---- */

/**
 * @brief Sets the file label (at most 64 bytes are stored).
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] id the label; null removes it
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 */
MURV_API int MURV_CALL murvSetIdString(int handle, const char *id);
/**
 * @brief The file label.
 * @param[in] handle a file handle
 * @param[out] id a buffer of at least 65 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE no open file, or the file has no label (the output is "")
 */
MURV_API int MURV_CALL murvGetIdString(int handle, char *id);
/**
 * @brief The product text of the program that wrote the file, less its fixed 20-byte lead.
 * @param[in] handle a file handle
 * @param[out] sysName a buffer of at least 41 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetSystemString(int handle, char *sysName);
/**
 * @brief The release numbers the file's source-parameter record states.
 * @param[in] handle a file handle
 * @param[out] relInfo an array of at least 3 ints: major release, minor release, revision
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_RELEASE_INFO the file has no such record
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetReleaseInfo(int handle, int *relInfo);
/**
 * @brief The file's creation date and time.
 * @param[in] handle a file handle
 * @param[out] fileDate a buffer of at least 10 bytes: dd-Mon-yy
 * @param[out] fileTime a buffer of at least 9 bytes: hh:mm:ss
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_DATE the stored time is not a date of the calendar
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetTimeStamp(int handle, char *fileDate, char *fileTime);
/**
 * @brief Copies the documents (lines of free text) of one file to a new file; a file without documents removes the target's.
 * @param[in] fromHandle the file whose documents are copied
 * @param[in] toHandle a write handle, dictionary not committed
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 */
MURV_API int MURV_CALL murvCopyDocuments(int fromHandle, int toHandle);
/**
 * @brief Whether the file read holds an extension record of a subtype.
 * @param[in] handle a read handle
 * @param[in] subType 0 to 32
 * @param[out] bFound receives 1 if it does, else 0
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_EXTENSION the subtype is outside 0 to 32
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvQueryType7(int handle, int subType, int *bFound);
/**
 * @brief Replaces (or with no elements removes) an extension record that the library keeps as it is.
 * @param[in] handle a file handle (it reaches the file only for a write handle before murvCommitHeader)
 * @param[in] subType 1, 2, 5, 7, 8, 10, 12, 15 or 19 to 32
 * @param[in] unitSize bytes per element (below 1 counts as 1)
 * @param[in] nElements the number of elements; 0 removes the record
 * @param[in] data nElements * unitSize bytes; null removes the record
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_SUBTYPE the library writes or reads that subtype itself (checked before the handle)
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvSetExtensionData(int handle, int subType, int unitSize, int nElements, const void *data);
/**
 * @brief The unit size and element count of an extension record.
 * @param[in] handle a read handle
 * @param[in] subType an open subtype (see murvSetExtensionData)
 * @param[out] unitSize receives the unit size (0 when absent)
 * @param[out] nElements receives the element count (0 when absent)
 * @retval MURV_RC_OK done, also when the record is absent
 * @retval MURV_RC_BAD_SUBTYPE the subtype is not open to callers
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetExtensionDataDesc(int handle, int subType, int *unitSize, int *nElements);
/**
 * @brief Reads an extension record piece by piece: each call delivers as many whole elements as fit, until the record is delivered; the next call starts again.
 * @param[in] handle a read handle
 * @param[in] subType an open subtype
 * @param[in] bufferSize the buffer's size in bytes
 * @param[out] nElements receives the number of elements delivered
 * @param[out] buffer the buffer
 * @retval MURV_RC_OK done (0 elements when absent)
 * @retval MURV_RC_BAD_SUBTYPE the subtype is not open to callers
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetExtensionData(int handle, int subType, int bufferSize, int *nElements, void *buffer);
/**
 * @brief Sets the free-text information record (extension subtype 10).
 * @param[in] handle a file handle
 * @param[in] textInfo the text; null removes it
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvSetTextInfo(int handle, const char *textInfo);
/**
 * @brief The free-text information, its first 255 bytes.
 * @param[in] handle a read handle
 * @param[out] textInfo a buffer of at least 256 bytes
 * @retval MURV_RC_OK done ("" when absent)
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetTextInfo(int handle, char *textInfo);
/**
 * @brief The file's custom attributes, one name and value per value.
 * @param[in] handle a file handle
 * @param[out] attribNames receives an array of names: a single-valued attribute under its name, each value of a list as Name[01], Name[02] ...
 * @param[out] attribText receives the array of values
 * @param[out] nAttributes receives how many; release the arrays with murvFreeAttributes
 * @retval MURV_RC_OK done (count 0 and null arrays when there are none)
 * @retval MURV_RC_NO_MEMORY the arrays cannot be allocated
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetFileAttributes(int handle, char ***attribNames, char ***attribText, int *nAttributes);
/**
 * @brief A variable's custom attributes, in the form of murvGetFileAttributes.
 * @param[in] handle a file handle
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] attribNames receives an array of names: a single-valued attribute under its name, each value of a list as Name[01], Name[02] ...
 * @param[out] attribText receives the array of values
 * @param[out] nAttributes receives how many; release the arrays with murvFreeAttributes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_MEMORY the arrays cannot be allocated
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarAttributes(int handle, const char *varName, char ***attribNames, char ***attribText, int *nAttributes);
/**
 * @brief Replaces all custom attributes of the file.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] attribNames names, plain or with a position in brackets (Name[2])
 * @param[in] attribText the values; pairs with a null or empty name or value are skipped
 * @param[in] nAttributes how many
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_BAD_ATTR_NAME a name is invalid or its bracket is malformed; nothing changes
 * @retval MURV_RC_BAD_ATTR_DEF a count above 0 with a null array
 */
MURV_API int MURV_CALL murvSetFileAttributes(int handle, const char **attribNames, const char **attribText, int nAttributes);
/**
 * @brief Replaces all custom attributes of a variable.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] attribNames names, plain or with a position in brackets (Name[2])
 * @param[in] attribText the values; pairs with a null or empty name or value are skipped
 * @param[in] nAttributes how many
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_BAD_ATTR_NAME a name is invalid or its bracket is malformed; nothing changes
 * @retval MURV_RC_BAD_ATTR_DEF a count above 0 with a null array
 */
MURV_API int MURV_CALL murvSetVarAttributes(int handle, const char *varName, const char **attribNames, const char **attribText, int nAttributes);
/**
 * @brief Sets one value of a file attribute, keeping the others.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] attribName the attribute's name, without brackets
 * @param[in] attribSub -1 for a single value, else the 1-based position in the attribute's list
 * @param[in] attribText the value
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_BAD_ATTR_DEF a null or empty name or value, or an index of 0 or below -1
 * @retval MURV_RC_BAD_ATTR_NAME the name is invalid
 */
MURV_API int MURV_CALL murvAddFileAttribute(int handle, const char *attribName, int attribSub, const char *attribText);
/**
 * @brief Sets one value of a variable's attribute, keeping the others.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] varName the variable's name (compared without regard to case and surrounding blanks)
 * @param[in] attribName the attribute's name, without brackets
 * @param[in] attribSub -1 for a single value, else the 1-based position
 * @param[in] attribText the value
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 * @retval MURV_RC_BAD_ATTR_DEF a null or empty name or value, or an index of 0 or below -1
 * @retval MURV_RC_BAD_ATTR_NAME the name is invalid
 */
MURV_API int MURV_CALL murvAddVarAttribute(int handle, const char *varName, const char *attribName, int attribSub, const char *attribText);
/**
 * @brief Releases the arrays of murvGetFileAttributes and murvGetVarAttributes.
 * @param[in] attribNames the name array (may be null)
 * @param[in] attribText the value array (may be null)
 * @param[in] nAttributes the count given; below 1 releases nothing
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeAttributes(char **attribNames, char **attribText, int nAttributes);

/* ---- Date variables, data-entry block, multiple-response and variable sets ---- */

/**
 * @brief Sets the date-variable information from its flat array: elements 0 to 5 the series settings (element 2 the number n of date variables, at most 10), then one triple per entry: the variable's case position plus 1, its kind, an extra integer.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] numofElements 6 + 3n or 6 + 3(n + 1)
 * @param[in] dateInfo the array
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_DATE_INFO the count does not fit n, a triple names no variable, or the entries are not consistent; nothing is kept
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 */
MURV_API int MURV_CALL murvSetDateVariables(int handle, int numofElements, const int *dateInfo);
/**
 * @brief The date-variable information as the flat array of murvSetDateVariables (always 6 + 3(n + 1) elements).
 * @param[in] handle a read handle
 * @param[out] numofElements receives the element count
 * @param[out] dateInfo receives the array; release it with murvFreeDateVariables
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_DATE_INFO the file has no date variables
 * @retval MURV_RC_NO_MEMORY the array cannot be allocated
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetDateVariables(int handle, int *numofElements, int **dateInfo);
/**
 * @brief Releases the array of murvGetDateVariables.
 * @param[in] dateInfo the array (null: nothing to do)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeDateVariables(int *dateInfo);
/**
 * @brief Sets the identifier text of the data-entry block (extension subtype 12).
 * @param[in] handle a file handle
 * @param[in] zopGUID the text; null removes it
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvSetZOPGUID(int handle, const char *zopGUID);
/**
 * @brief The identifier text of the data-entry block, its first 256 bytes.
 * @param[in] handle a read handle
 * @param[out] zopGUID a buffer of at least 257 bytes
 * @retval MURV_RC_OK done ("" when absent)
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetZOPGUID(int handle, char *zopGUID);
/**
 * @brief The size of the data-entry block and the segment count stored at its end.
 * @param[in] handle a read handle
 * @param[out] nBytes receives the block's size in bytes
 * @param[out] nSegments receives the segment count
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_ZOP no block, or the file has the other byte order
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetZOPInfo(int handle, int *nBytes, int *nSegments);
/**
 * @brief Replaces the data-entry block (extension subtype 8) with a first piece of bytes.
 * @param[in] handle a file handle
 * @param[in] data the bytes; null removes the block
 * @param[in] nBytes how many; 0 removes the block
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvSetZOPFirst(int handle, const void *data, int nBytes);
/**
 * @brief Appends bytes to the data-entry block begun with murvSetZOPFirst.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] data the bytes
 * @param[in] nBytes how many
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 */
MURV_API int MURV_CALL murvSetZOPNext(int handle, const void *data, int nBytes);
/**
 * @brief The first piece of the data-entry block: up to bufferSize bytes.
 * @param[in] handle a read handle
 * @param[out] buffer the buffer
 * @param[in] bufferSize its size
 * @param[out] nDelivered receives the bytes delivered
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_ZOP no block, or the file has the other byte order
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetZOPFirst(int handle, void *buffer, int bufferSize, int *nDelivered);
/**
 * @brief The next piece of the data-entry block; after the last piece the next call starts again at the beginning.
 * @param[in] handle a read handle
 * @param[out] buffer the buffer
 * @param[in] bufferSize its size
 * @param[out] nDelivered receives the bytes delivered
 * @retval MURV_RC_OK done
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetZOPNext(int handle, void *buffer, int bufferSize, int *nDelivered);
/**
 * @brief Replaces all multiple-response set definitions with their raw text (extension subtype 7); the text is not checked.
 * @param[in] handle a file handle
 * @param[in] mrespDefs the text; null removes the definitions
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvSetMultRespDefs(int handle, const char *mrespDefs);
/**
 * @brief The raw text of the multiple-response set definitions, allocated by the library; release it with murvFreeMultRespDefs.
 * @param[in] handle a read handle
 * @param[out] mrespDefs receives the text
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_MRSETS the file has none
 * @retval MURV_RC_BAD_EXTENSION the record's unit size is not 1
 * @retval MURV_RC_NO_MEMORY the text cannot be allocated
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetMultRespDefs(int handle, char **mrespDefs);
/**
 * @brief Releases the text of murvGetMultRespDefs.
 * @param[in] mrespDefs the text (null: nothing to do)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeMultRespDefs(char *mrespDefs);
/**
 * @brief The number of multiple-response sets.
 * @param[in] handle a file handle
 * @param[out] nSets receives the count
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetMultRespCount(int handle, int *nSets);
/**
 * @brief One multiple-response set as a structure the library allocates; release it with murvFreeMultRespDefStruct.
 * @param[in] handle a file handle
 * @param[in] iSet the set's index, from 0 to murvGetMultRespCount - 1
 * @param[out] ppSet receives the structure (null on failure)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_MRSET_INDEX no set at that index
 * @retval MURV_RC_NO_MEMORY the structure cannot be allocated
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvGetMultRespDefByIndex(int handle, int iSet, murvMultRespDef **ppSet);
/**
 * @brief Releases a structure of murvGetMultRespDefByIndex with its texts and name array.
 * @param[in] pSet the structure (null: nothing to do)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeMultRespDefStruct(murvMultRespDef *pSet);
/**
 * @brief Adds a multiple-response set given as a structure (all its flags and the counted value text).
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] pSet the definition; the caller keeps it
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_BAD_MRSET_NAME the name does not begin with $ or is otherwise invalid
 * @retval MURV_RC_DUP_MRSET_NAME a set of that name exists
 * @retval MURV_RC_BAD_MRSET_DEF the definition is invalid (fewer than two variables, a variable missing or of the wrong kind, a bad counted value)
 */
MURV_API int MURV_CALL murvAddMultRespDefExt(int handle, const murvMultRespDef *pSet);
/**
 * @brief Adds a multiple-response set of string variables.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] mrSetName the set's name, beginning with $
 * @param[in] mrSetLabel its label (may be null)
 * @param[in] isDichotomy nonzero: a set of dichotomies; 0: a set of categories
 * @param[in] countedValue the counted value of a dichotomy set, as text (string variables)
 * @param[in] varNames the variables' names
 * @param[in] numVars how many, at least 2
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_BAD_MRSET_NAME the name does not begin with $ or is otherwise invalid
 * @retval MURV_RC_DUP_MRSET_NAME a set of that name exists
 * @retval MURV_RC_BAD_MRSET_DEF the definition is invalid (fewer than two variables, a variable missing or of the wrong kind, a bad counted value)
 */
MURV_API int MURV_CALL murvAddMultRespDefC(int handle, const char *mrSetName, const char *mrSetLabel, int isDichotomy, const char *countedValue, const char **varNames, int numVars);
/**
 * @brief Adds a multiple-response set of numeric variables.
 * @param[in] handle a write handle, dictionary not committed
 * @param[in] mrSetName the set's name, beginning with $
 * @param[in] mrSetLabel its label (may be null)
 * @param[in] isDichotomy nonzero: a set of dichotomies; 0: a set of categories
 * @param[in] countedValue the counted value of a dichotomy set (numeric variables)
 * @param[in] varNames the variables' names
 * @param[in] numVars how many, at least 2
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_READ_MODE the file is open for reading
 * @retval MURV_RC_DICT_COMMITTED the dictionary is committed (after murvCommitHeader, or an appended file)
 * @retval MURV_RC_BAD_MRSET_NAME the name does not begin with $ or is otherwise invalid
 * @retval MURV_RC_DUP_MRSET_NAME a set of that name exists
 * @retval MURV_RC_BAD_MRSET_DEF the definition is invalid (fewer than two variables, a variable missing or of the wrong kind, a bad counted value)
 */
MURV_API int MURV_CALL murvAddMultRespDefN(int handle, const char *mrSetName, const char *mrSetLabel, int isDichotomy, int countedValue, const char **varNames, int numVars);
/**
 * @brief Replaces all variable-set definitions with their raw text (extension subtype 5): one set per line, "NAME= VAR VAR ...".
 * @param[in] handle a file handle
 * @param[in] varSets the text; null removes them
 * @retval MURV_RC_OK done
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 */
MURV_API int MURV_CALL murvSetVariableSets(int handle, const char *varSets);
/**
 * @brief The raw text of the variable-set definitions, allocated by the library; release it with murvFreeVariableSets.
 * @param[in] handle a read handle
 * @param[out] varSets receives the text
 * @retval MURV_RC_OK done
 * @retval MURV_RC_NO_VARIABLE_SETS the file has none
 * @retval MURV_RC_BAD_EXTENSION the record's unit size is not 1
 * @retval MURV_RC_NO_MEMORY the text cannot be allocated
 * @retval MURV_RC_FILE_READ the call failed inside
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_WRITE_MODE the file is open for writing or appending
 */
MURV_API int MURV_CALL murvGetVariableSets(int handle, char **varSets);
/**
 * @brief Releases the text of murvGetVariableSets.
 * @param[in] varSets the text (null: nothing to do)
 * @retval MURV_RC_OK done
 * @retval MURV_RC_CANNOT_FREE releasing failed
 */
MURV_API int MURV_CALL murvFreeVariableSets(char *varSets);

/* ---- Name validation and short names ---- */

/**
 * @brief Judges a text as a name of a variable, a set or an attribute under the current locale (at most 64 bytes, surrounding blanks ignored).
 * @param[in] varName the text
 * @return 0 a valid ordinary name; 1 valid, starting with # (a scratch name); 2 valid, starting with $ (a set name); 3 empty or only blanks; 4 a character that is not allowed; 5 a reserved word (ALL AND BY EQ GE GT LE LT NE NOT OR TO WITH); 6 starts with a digit, _ or .
 */
MURV_API int MURV_CALL murvValidateVarname(const char *varName);
/**
 * @brief The short name (at most 8 bytes) under which a variable is stored in the file.
 * @param[in] handle a file handle (for a new file, after murvCommitHeader)
 * @param[in] longName the variable's name (compared without regard to case and surrounding blanks)
 * @param[out] shortName a buffer of at least 9 bytes
 * @retval MURV_RC_OK done
 * @retval MURV_RC_DICT_NOT_COMMITTED a new file before murvCommitHeader
 * @retval MURV_RC_BAD_HANDLE the handle names no open file, or the call failed inside
 * @retval MURV_RC_VAR_NOT_FOUND no variable of that name
 */
MURV_API int MURV_CALL murvGetVarCompatName(int handle, const char *longName, char *shortName);

#ifdef __cplusplus
}
#endif

#endif /* MURVIO_H */
