// Case calls: values set and read one at a time through the handle's current
// case, whole case records in the file's layout, case counts and sizes,
// compression and the case-weight variable.
//
// The current case lives in the handle state: a buffer of 8-byte cells in the
// dictionary's layout (made on first use, once the dictionary is final), the
// reading iterator over that buffer, and caseState telling whether the buffer
// holds a case (caseCurrent), nothing (caseEmpty) or whether the end of the
// file was met (caseAtEnd).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

#include "api/alloc.h"
#include "api/handles.h"

using namespace murv;
using namespace murv::api;

namespace {

// A case size in cells beyond which the size in bytes does not fit an int32.
constexpr std::uint32_t kMaxCaseCells = 0x0FFFFFFF;

// Makes the case buffer (and, for reading, the iterator over it) when the
// handle has none yet: 0, or 7 when memory is short.
int MakeBuffer(dioDataSource& ds, bool forReading) {
    dioHandleState& st = ds.State();
    if (!st.caseBuffer) {
        try {
            const std::size_t nVars = ds.ColumnCount();
            std::vector<dioHandleState::CaseSlot> slots(nVars);
            const ObsLayout& layout = ds.GetObsLayout();
            for (std::size_t i = 0; i < nVars; ++i) {
                slots[i].cell = static_cast<std::uint32_t>(layout.StartCell(static_cast<long>(i)));
                slots[i].type = ds.GetVariable(static_cast<int>(i)).GetType();
            }
            // At least one cell, so that a buffer exists even for an empty
            // layout.
            const std::size_t cells = std::max<std::size_t>(ds.CaseSize(), 1);
            st.caseBuffer.reset(new std::uint64_t[cells]);
            st.caseBufferCells = cells;
            st.caseSlots = std::move(slots);
        } catch (const std::bad_alloc&) {
            return MURV_RC_NO_MEMORY;
        }
        SetCaseState(st, caseEmpty);
    }
    if (forReading && !st.caseIterator) {
        try {
            st.caseIterator = ds.NewInputCaseIterator(st.caseBuffer.get());
        } catch (const std::bad_alloc&) {
            return MURV_RC_NO_MEMORY;
        }
        if (!st.caseIterator) return MURV_RC_NO_MEMORY;
    }
    return MURV_RC_OK;
}

// Every value call passes here: the common case, everything made already,
// stays inline.
inline int PrepareBuffer(dioDataSource& ds, bool forReading) {
    const dioHandleState& st = ds.State();
    if (st.caseBuffer && (!forReading || st.caseIterator)) return MURV_RC_OK;
    return MakeBuffer(ds, forReading);
}

// Starts a new case to be written: system-missing in every numeric variable,
// blanks over every string.
void StartCase(dioDataSource& ds) {
    dioHandleState& st = ds.State();
    if (st.emptyCase.empty()) {
        std::vector<std::uint64_t> empty(st.caseBufferCells);
        ds.FillWithMissing(empty.data(), 0, static_cast<int>(ds.ColumnCount()));
        st.emptyCase = std::move(empty);
    }
    std::memcpy(st.caseBuffer.get(), st.emptyCase.data(), st.caseBufferCells * sizeof(std::uint64_t));
    SetCaseState(st, caseCurrent);
}

inline void StartCaseIfNeeded(dioDataSource& ds) {
    if (ds.State().caseState != caseCurrent) StartCase(ds);
}

// The slot of the variable named by a variable handle (the 1-based
// position as a double, truncated toward zero), or null. The range is
// checked on the double so that NaN and huge values never reach an integer
// conversion.
inline const dioHandleState::CaseSlot* ResolveVarHandle(const dioHandleState& st, double varHandle) {
    if (!(varHandle >= 1.0 && varHandle < 2147483648.0)) return nullptr;  // NaN too
    const auto index = static_cast<std::size_t>(static_cast<std::uint32_t>(static_cast<std::int32_t>(varHandle)) - 1u);
    return index < st.caseSlots.size() ? &st.caseSlots[index] : nullptr;
}

char* ValuePtr(dioHandleState& st, const dioHandleState::CaseSlot& slot) {
    return reinterpret_cast<char*>(st.caseBuffer.get() + slot.cell);
}

// Reads the next case into the handle's buffer: 0, -5 at the end, 7.
int ReadNextCase(dioDataSource& ds) {
    const int rc = PrepareBuffer(ds, true);
    if (rc != MURV_RC_OK) return rc;
    dioHandleState& st = ds.State();
    if (st.caseState == caseAtEnd) return MURV_RC_END_OF_FILE;
    if (st.caseIterator->ReadNext()) {
        SetCaseState(st, caseCurrent);
        return MURV_RC_OK;
    }
    SetCaseState(st, caseAtEnd);
    return MURV_RC_END_OF_FILE;
}

// The case size in bytes as murvGetCaseSize gives it (0 when it would not
// fit an int32).
int CaseBytes(const dioDataSource& ds) {
    const std::uint32_t units = ds.CaseSize();
    return units > kMaxCaseCells ? 0 : static_cast<int>(units * 8);
}

}  // namespace

extern "C" {

// ---- writing ----

namespace {

// The full way of murvSetValueNumeric, with every check and code.
[[gnu::noinline]] int SetValueNumeric(int handle, double varHandle, double value) {
    return WithHandle(handle, caseWrite, MURV_RC_FILE_WRITE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if ((rc = PrepareBuffer(*ds, false)) != MURV_RC_OK) return rc;
        StartCaseIfNeeded(*ds);
        dioHandleState& st = ds->State();
        const auto* slot = ResolveVarHandle(st, varHandle);
        if (!slot) return MURV_RC_BAD_VAR_HANDLE;
        if (slot->type != 0) return MURV_RC_STRING_EXPECTED;
        std::memcpy(ValuePtr(st, *slot), &value, sizeof value);
        return MURV_RC_OK;
    });
}

}  // namespace

MURV_API int MURV_CALL murvSetValueNumeric(int handle, double varHandle, double value) {
    // The common path: a case started, a numeric variable.
    if (const dioHandleState* st = PeekState(handle); st && st->fillCells) {
        const auto* slot = ResolveVarHandle(*st, varHandle);
        if (slot && slot->type == 0) {
            std::memcpy(st->fillCells + slot->cell, &value, sizeof value);
            return MURV_RC_OK;
        }
    }
    return SetValueNumeric(handle, varHandle, value);
}

MURV_API int MURV_CALL murvSetValueChar(int handle, double varHandle, const char* value) {
    return WithHandle(handle, caseWrite, MURV_RC_FILE_WRITE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if ((rc = PrepareBuffer(*ds, false)) != MURV_RC_OK) return rc;
        StartCaseIfNeeded(*ds);
        dioHandleState& st = ds->State();
        const auto* slot = ResolveVarHandle(st, varHandle);
        if (!slot) return MURV_RC_BAD_VAR_HANDLE;
        const int width = slot->type;
        if (width == 0) return MURV_RC_STRING_EXPECTED;
        if (!value) return MURV_RC_FILE_WRITE;
        const std::size_t n = std::strlen(value);
        const auto w = static_cast<std::size_t>(width);
        if (n > w) return MURV_RC_STRING_TOO_LONG;
        // The value's bytes and blanks up to the width; the rest of the last
        // cell keeps the blanks of the empty-case fill.
        char* cell = ValuePtr(st, *slot);
        std::memcpy(cell, value, n);
        std::memset(cell + n, ' ', w - n);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvCommitCaseRecord(int handle) {
    return WithHandle(handle, caseWrite, MURV_RC_FILE_WRITE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if ((rc = PrepareBuffer(*ds, false)) != MURV_RC_OK) return rc;
        // A commit with no value set writes an all-missing case.
        StartCaseIfNeeded(*ds);
        ds->WriteCase(ds->State().caseBuffer.get());
        SetCaseState(ds->State(), caseEmpty);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvWholeCaseOut(int handle, const char* caseRec) {
    return WithHandle(handle, caseWrite, MURV_RC_FILE_WRITE, [&](dioDataSource* ds) {
        if (!caseRec) return MURV_RC_FILE_WRITE;
        // The caller's record goes out as it is: blank padding and missing
        // values are the caller's business.
        ds->WriteCase(caseRec);
        SetCaseState(ds->State(), caseEmpty);
        return MURV_RC_OK;
    });
}

// ---- reading ----

MURV_API int MURV_CALL murvReadCaseRecord(int handle) {
    return WithHandle(handle, readMode, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        return ReadNextCase(*ds);
    });
}

MURV_API int MURV_CALL murvSeekNextCase(int handle, int caseNumber) {
    return WithHandle(handle, readMode, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if ((rc = PrepareBuffer(*ds, true)) != MURV_RC_OK) return rc;
        dioHandleState& st = ds->State();
        if (!st.caseIterator->CanSeek()) return MURV_RC_FILE_READ;
        // Not compared with the case count: a read beyond the last case
        // reports the end of the file.
        if (!st.caseIterator->Seek(static_cast<std::int64_t>(caseNumber))) return MURV_RC_FILE_READ;
        SetCaseState(st, caseEmpty);
        return MURV_RC_OK;
    });
}

namespace {

// The full way of murvGetValueNumeric, with every check and code.
[[gnu::noinline]] int GetValueNumeric(int handle, double varHandle, double* value) {
    if (value) *value = 0.0;
    return WithHandle(handle, readMode, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if ((rc = PrepareBuffer(*ds, true)) != MURV_RC_OK) return rc;
        dioHandleState& st = ds->State();
        if (st.caseState != caseCurrent) return MURV_RC_NO_CURRENT_CASE;
        const auto* slot = ResolveVarHandle(st, varHandle);
        if (!slot) return MURV_RC_BAD_VAR_HANDLE;
        if (slot->type != 0) return MURV_RC_NUMERIC_EXPECTED;
        if (!value) return MURV_RC_FILE_READ;
        std::memcpy(value, ValuePtr(st, *slot), sizeof *value);
        return MURV_RC_OK;
    });
}

}  // namespace

MURV_API int MURV_CALL murvGetValueNumeric(int handle, double varHandle, double* value) {
    // The common path: a current case, a numeric variable, somewhere to put
    // the value. Anything else goes the full way, which gives the codes.
    if (const dioHandleState* st = PeekState(handle); st && st->readyCells && value) {
        const auto* slot = ResolveVarHandle(*st, varHandle);
        if (slot && slot->type == 0) {
            std::memcpy(value, st->readyCells + slot->cell, sizeof *value);
            return MURV_RC_OK;
        }
    }
    return GetValueNumeric(handle, varHandle, value);
}

MURV_API int MURV_CALL murvGetValueChar(int handle, double varHandle, char* value, int valueSize) {
    if (value && valueSize > 0) value[0] = '\0';
    return WithHandle(handle, readMode, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if ((rc = PrepareBuffer(*ds, true)) != MURV_RC_OK) return rc;
        dioHandleState& st = ds->State();
        if (st.caseState != caseCurrent) return MURV_RC_NO_CURRENT_CASE;
        const auto* slot = ResolveVarHandle(st, varHandle);
        if (!slot) return MURV_RC_BAD_VAR_HANDLE;
        const int width = slot->type;
        if (width == 0) return MURV_RC_STRING_EXPECTED;
        // The whole width, trailing blanks included, and a NUL after it.
        if (width >= valueSize) return MURV_RC_BUFFER_SHORT;
        if (!value) return MURV_RC_FILE_READ;
        std::memcpy(value, ValuePtr(st, *slot), static_cast<std::size_t>(width));
        value[width] = '\0';
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvWholeCaseIn(int handle, char* caseRec) {
    return WithHandle(handle, readMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        // Checked before reading, so that a null record does not use up a case.
        if (!caseRec) return MURV_RC_BAD_HANDLE;
        if ((rc = PrepareBuffer(*ds, true)) != MURV_RC_OK) return rc;
        dioHandleState& st = ds->State();
        if (st.caseState == caseAtEnd) return MURV_RC_END_OF_FILE;
        // The case goes straight into the caller's record; the value calls
        // see no case afterwards.
        if (st.caseIterator->ReadNextInto(caseRec)) {
            SetCaseState(st, caseEmpty);
            return MURV_RC_OK;
        }
        SetCaseState(st, caseAtEnd);
        return MURV_RC_END_OF_FILE;
    });
}

// ---- sizes and counts ----

MURV_API int MURV_CALL murvGetCaseSize(int handle, int* caseSize) {
    if (caseSize) *caseSize = 0;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!ds->State().committed) return MURV_RC_DICT_NOT_COMMITTED;
        if (!caseSize) return MURV_RC_BAD_HANDLE;
        *caseSize = CaseBytes(*ds);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetNumberofCases(int handle, int* numofCases) {
    if (numofCases) *numofCases = -1;
    return WithFileHandle(handle, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!numofCases) return MURV_RC_BAD_HANDLE;
        // Counts beyond the int32 range read as unknown.
        const std::int64_t n = ds->NumberOfCases();
        *numofCases = n <= std::numeric_limits<std::int32_t>::max() ? static_cast<int>(n) : -1;
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetEstimatedNofCases(int handle, int* caseCount) {
    return murvGetNumberofCases(handle, caseCount);
}

// ---- compression and weight ----

MURV_API int MURV_CALL murvSetCompression(int handle, int compSwitch) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        ds->SetCompression(compSwitch != 0);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetCompression(int handle, int* compSwitch) {
    if (compSwitch) *compSwitch = 1;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!compSwitch) return MURV_RC_BAD_HANDLE;
        *compSwitch = ds->IsCompressed() ? 1 : 0;
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvSetCaseWeightVar(int handle, const char* varName) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int index = -1;
        if (const int rc = FindVariableOfKind(*ds, Required(varName), VarKind::numeric, &index)) return rc;
        ds->SetWeightVar(index);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetCaseWeightVar(int handle, char* varName) {
    if (varName) varName[0] = '\0';
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!varName) return MURV_RC_BAD_HANDLE;
        const int index = ds->GetWeightVarIndex();
        if (index < 0) return MURV_RC_NO_WEIGHT;
        // The caller's buffer holds at least 65 bytes: a name of up to 64.
        CopyOut(varName, 65, ds->GetVariable(index).GetName());
        return MURV_RC_OK;
    });
}

}  // extern "C"
