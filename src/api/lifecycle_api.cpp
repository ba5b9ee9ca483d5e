// Opening, committing and closing files.
#include "api/handles.h"
#include "port/errors.h"
#include "port/file.h"

using namespace murv;
using namespace murv::api;

namespace {

// Closes a handle that failed part-way through its open call.
void Abandon(int& handle) {
    if (handle >= 0) {
        try {
            releaseHandle(handle);
        } catch (...) {
        }
    }
    handle = -1;
}

// Opens for reading (mode 1) or appending (mode 3) and builds the name index.
int OpenExisting(int mode, const char* fileName, int* handleOut) {
    int handle = -1;
    try {
        int rc = allocateHandle(mode, fileName, &handle);
        if (rc != MURV_RC_OK) {
            handle = -1;
            return rc;
        }
        dioDataSource* ds = nullptr;
        rc = lookupHandle(handle, anyMode, &ds);
        // The reader has built the index on its way when the names needed no
        // repair.
        if (rc == MURV_RC_OK && !ds->TakeNameIndex(&ds->State().nameIndex)) rc = BuildNameIndex(*ds, true);
        if (rc != MURV_RC_OK) {
            Abandon(handle);
            return rc;
        }
        *handleOut = handle;
        return MURV_RC_OK;
    } catch (...) {
        Abandon(handle);
        return MURV_RC_BAD_FILE;
    }
}

}  // namespace

extern "C" {

MURV_API int MURV_CALL murvOpenRead(const char* fileName, int* handle) {
    if (!handle) return MURV_RC_BAD_FILE;
    *handle = -1;
    if (!fileName) return MURV_RC_BAD_FILE;  // no file: what a missing file gives
    return OpenExisting(dioReadMode, fileName, handle);
}

MURV_API int MURV_CALL murvOpenAppend(const char* fileName, int* handle) {
    if (!handle) return MURV_RC_BAD_FILE;
    *handle = -1;
    if (!port::ProbeUpdatable(fileName)) return MURV_RC_FILE_OPEN;
    return OpenExisting(dioAppendMode, fileName, handle);
}

MURV_API int MURV_CALL murvOpenWrite(const char* fileName, int* handle) {
    if (!handle) return MURV_RC_BAD_FILE;
    *handle = -1;
    if (!port::ProbeCreatable(fileName)) return MURV_RC_FILE_OPEN;
    int h = -1;
    try {
        if (allocateHandle(dioWriteMode, fileName, &h) != MURV_RC_OK) return MURV_RC_FILE_OPEN;
        dioDataSource* ds = nullptr;
        if (lookupHandle(h, dictionaryOpen, &ds) != MURV_RC_OK) {
            Abandon(h);
            return MURV_RC_FILE_OPEN;
        }
        ds->SetProduct(kInterfaceProduct);
        *handle = h;
        return MURV_RC_OK;
    } catch (...) {
        Abandon(h);
        return MURV_RC_BAD_FILE;
    }
}

MURV_API int MURV_CALL murvOpenWriteCopy(const char* fileName, const char* dictFileName, int* handle) {
    if (!handle) return MURV_RC_FILE_READ;
    *handle = -1;
    int oldHandle = -1, newHandle = -1;
    // The new handle has written nothing yet (its file appears only when
    // its header is committed), so closing it leaves no file behind; a file
    // that already stood under the new name is never touched.
    auto removeNew = [&] { Abandon(newHandle); };
    try {
        if (!port::ProbeReadable(dictFileName)) return MURV_RC_FILE_OPEN;
        int rc = allocateHandle(dioReadMode, dictFileName, &oldHandle);
        if (rc != MURV_RC_OK) {
            oldHandle = -1;
            return rc;
        }
        dioDataSource* oldDs = nullptr;
        rc = lookupHandle(oldHandle, anyMode, &oldDs);
        dioDataSource* newDs = nullptr;
        if (rc == MURV_RC_OK) {
            if (!port::ProbeCreatable(fileName)) {
                rc = MURV_RC_FILE_OPEN;
            } else {
                rc = allocateHandle(dioWriteMode, fileName, &newHandle);
                if (rc != MURV_RC_OK) newHandle = -1;
                if (rc == MURV_RC_OK) rc = lookupHandle(newHandle, dictionaryOpen, &newDs);
            }
        }
        if (rc == MURV_RC_OK) {
            // The whole description of the data, no cases; the new file keeps
            // the writer's own product text.
            newDs->CopyDictionary(*oldDs);
            newDs->SetFileName(fileName);
            rc = BuildNameIndex(*newDs);
        }
        Abandon(oldHandle);
        if (rc != MURV_RC_OK) {
            removeNew();
            return rc;
        }
        *handle = newHandle;
        return MURV_RC_OK;
    } catch (...) {
        Abandon(oldHandle);
        removeNew();
        return MURV_RC_FILE_READ;
    }
}

MURV_API int MURV_CALL murvCommitHeader(int handle) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (ds->ColumnCount() == 0) return MURV_RC_EMPTY_DICT;
        try {
            ds->CommitDictionary();
        } catch (const ErrorText& e) {
            // Two names that would be one in the file (a variable named like
            // a segment of a very long string) are reported as the duplicate
            // name they are; the header is not committed and no file is left.
            if (e.Number() == kErrDuplicateName) return MURV_RC_DUP_VAR;
            throw;
        }
        ds->State().committed = true;
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvCloseRead(int handle) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] { return releaseHandle(handle); });
}

MURV_API int MURV_CALL murvCloseWrite(int handle) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] { return releaseHandle(handle); });
}

MURV_API int MURV_CALL murvCloseAppend(int handle) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] { return releaseHandle(handle); });
}

}  // extern "C"
