// The process-wide table of open files and the per-handle state behind every
// file handle of the interface.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>
#include <unordered_map>

#include "murvio.h"
#include "sysfile/systemfile.h"
#include "text/textindex.h"

namespace murv::api {

enum OpenMode : int { dioReadMode = 1, dioWriteMode = 2, dioAppendMode = 3 };
enum CaseState : int { caseEmpty = 0, caseCurrent = 1, caseAtEnd = 2 };
// What a call needs of its handle.
enum AccessLevel : int { anyMode = 1, dictionaryOpen = 2, readMode = 3, caseWrite = 4 };

inline constexpr int kTableSize = 100;
inline constexpr int kExtensionSubtypes = 33;  // subtypes 0 to 32 reachable through the interface
// The product text of every file created through murvOpenWrite.
inline constexpr char kInterfaceProduct[] = "@(#) MURV DATA FILE MS Windows Release 14.0.1C murvio32.dll";

// Upper-cased, trimmed names (at most 64 bytes each), numbered by their
// position in the dictionary, and a hash lookup over them.
using NameIndex = text::NameIndex;

struct dioHandleState {
    // Chunked extension reads in progress, by subtype.
    std::array<std::unique_ptr<MURV_Extension>, kExtensionSubtypes> extensionCursors;
    std::array<std::int32_t, kExtensionSubtypes> extensionRemaining{};
    NameIndex nameIndex;
    std::unique_ptr<SystemFileDataSource::Iterator> caseIterator;
    // The current case record, in the dictionary's layout.
    std::unique_ptr<std::uint64_t[]> caseBuffer;
    std::size_t caseBufferCells = 0;
    // Per variable, the first cell of its value in caseBuffer and its type
    // (0 numeric, else the string width), taken when the buffer is made (the
    // dictionary is final by then), so that the value calls need not go
    // through the dictionary.
    struct CaseSlot {
        std::uint32_t cell;
        std::int32_t type;
    };
    std::vector<CaseSlot> caseSlots;
    // An empty case (system-missing and blanks) that starts each case
    // written value by value; made on first use.
    std::vector<std::uint64_t> emptyCase;
    // Full name -> short name in the file, built on the first question.
    std::unordered_map<std::string, std::string> shortNames;
    // The current case as the value calls see it, kept by SetCaseState:
    // readyCells while a case read from the file is current (read handles),
    // fillCells while a case being written is started (write and append
    // handles), null otherwise. The common path of those calls tests only
    // these.
    std::uint64_t* readyCells = nullptr;
    std::uint64_t* fillCells = nullptr;
    int openMode = dioReadMode;
    int caseState = caseEmpty;
    bool committed = true;
};

// The dataset behind one handle.
class dioDataSource : public SystemFileDataSource {
public:
    // Read or append: opens the file and reads its dictionary.
    dioDataSource(int openMode, std::string fileName);
    // Write: nothing exists on disk until the header is committed.
    dioDataSource(int openMode, std::string fileName, CreateTag);
    // Finishes a file being written or appended to.
    ~dioDataSource() override;

    dioHandleState& State() { return state_; }
    // Finishes writing so that failures can be reported (the destructor
    // cannot report them).
    void Close();

private:
    dioHandleState state_;
};

// Creates the dataset for a new handle in the lowest free slot: 0, 1 when the
// dataset cannot be created, 4 when the table is full. Exceptions from the
// reader propagate.
int allocateHandle(int openMode, const char* fileName, int* handle);
// Closes the handle: its lookup code (5 for an unknown handle), or 5 when
// finishing a written file failed (the handle is released all the same).
int releaseHandle(int handle);
namespace detail {
// The file table: 100 slots, empty at load (constant-initialised, so that a
// lookup needs no start-up check), never released (files left open at unload
// are neither finished nor closed). Slots are taken and given back
// atomically, so that threads opening and closing different files never
// race; a lookup is one load.
inline constinit std::array<std::atomic<dioDataSource*>, kTableSize> gHandleTable{};
}  // namespace detail

// Finds the dataset of a handle and checks the access level.
inline int lookupHandle(int handle, int level, dioDataSource** dataSource) {
    if (dataSource) *dataSource = nullptr;
    if (handle < 0 || handle >= kTableSize) return MURV_RC_BAD_HANDLE;
    dioDataSource* ds = detail::gHandleTable[static_cast<std::size_t>(handle)].load(std::memory_order_acquire);
    if (!ds) return MURV_RC_BAD_HANDLE;
    if (dataSource) *dataSource = ds;
    const dioHandleState& st = ds->State();
    switch (level) {
        case 0:
        case anyMode:
            return MURV_RC_OK;
        case dictionaryOpen:
            if (st.openMode == dioReadMode) return MURV_RC_READ_MODE;
            if (st.committed) return MURV_RC_DICT_COMMITTED;
            return MURV_RC_OK;
        case readMode:
            return st.openMode != dioReadMode ? MURV_RC_WRITE_MODE : MURV_RC_OK;
        case caseWrite:
            if (st.openMode == dioReadMode) return MURV_RC_READ_MODE;
            if (!st.committed) return MURV_RC_DICT_NOT_COMMITTED;
            return MURV_RC_OK;
        default:
            return MURV_RC_BAD_HANDLE;
    }
}

// Rebuilds the name index from the dictionary; 6 when two variables share a
// key, else 0.
// namesJustSet: every variable was named (or renamed) during the current
// call, so that the upper-cased names the variables keep were made under the
// locale in force now and can serve as keys.
int BuildNameIndex(dioDataSource& ds, bool namesJustSet = false);
// Dictionary position of a variable by name, or -1.
int FindVariable(dioDataSource& ds, const char* name);

// Sets the case state and the case the value calls see.
inline void SetCaseState(dioHandleState& st, int state) {
    st.caseState = state;
    std::uint64_t* const live = state == caseCurrent ? st.caseBuffer.get() : nullptr;
    st.readyCells = st.openMode == dioReadMode ? live : nullptr;
    st.fillCells = st.openMode == dioReadMode ? nullptr : live;
}

// The state of an open handle, or null; no access check.
inline dioHandleState* PeekState(int handle) {
    if (static_cast<unsigned>(handle) >= static_cast<unsigned>(kTableSize)) return nullptr;
    dioDataSource* ds = detail::gHandleTable[static_cast<std::size_t>(handle)].load(std::memory_order_acquire);
    return ds ? &ds->State() : nullptr;
}

// A pointer the client must supply. A null pointer throws, so that the
// call's guard ends the call with its failure code at the point where the
// argument is first needed and the checks before it keep their order.
template <class T>
T* Required(T* pointer) {
    if (!pointer) throw std::invalid_argument("null argument");
    return pointer;
}
// The same for a count: a negative one throws.
std::size_t RequiredCount(int count);

// What a call needs of a variable's type: a short string is one of at most
// 8 bytes (the width of missing values and value-label keys).
enum class VarKind { any, numeric, shortString };
// 0 when a variable of the type is of the kind, else the code a call
// reports: 14 numeric expected, 15 string expected, 16 short string
// expected.
int CheckKind(int type, VarKind kind);
// The named variable's index (a null name finds nothing): 0 with *index
// set, 12 when there is none, else CheckKind's code.
int FindVariableOfKind(dioDataSource& ds, const char* name, VarKind kind, int* index);

// The calls that read what a file on disk holds take a handle in any mode
// but write mode, which they refuse with 9 after the handle's own check.
int lookupFileHandle(int handle, dioDataSource** dataSource);

// Runs f, turning any exception into failCode.
template <class F>
int Guarded(int failCode, F&& f) noexcept {
    try {
        return f();
    } catch (...) {
        return failCode;
    }
}

// Runs f with the dataset of a handle that passes the access level; the
// lookup's code otherwise, and failCode for any exception.
template <class F>
int WithHandle(int handle, int level, int failCode, F&& f) noexcept {
    return Guarded(failCode, [&] {
        dioDataSource* ds = nullptr;
        const int rc = lookupHandle(handle, level, &ds);
        if (rc != MURV_RC_OK) return rc;
        return f(ds);
    });
}

// WithHandle for the calls that read what a file on disk holds.
template <class F>
int WithFileHandle(int handle, int failCode, F&& f) noexcept {
    return WithHandle(handle, anyMode, failCode, [&](dioDataSource* ds) {
        return ds->State().openMode == dioWriteMode ? MURV_RC_WRITE_MODE : f(ds);
    });
}

}  // namespace murv::api
