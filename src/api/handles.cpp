#include "api/handles.h"

#include <atomic>
#include <cstring>

#include "text/mbtext.h"
#include "text/names.h"

namespace murv::api {

namespace {

std::array<std::atomic<dioDataSource*>, kTableSize>& Table() { return detail::gHandleTable; }

}  // namespace

dioDataSource::dioDataSource(int openMode, std::string fileName)
    : SystemFileDataSource(std::move(fileName)) {
    state_.openMode = openMode;
    state_.committed = true;
}

dioDataSource::dioDataSource(int openMode, std::string fileName, CreateTag tag)
    : SystemFileDataSource(std::move(fileName), tag) {
    state_.openMode = openMode;
    state_.committed = openMode != dioWriteMode;
}

void dioDataSource::Close() {
    // The iterator reads through the dataset: it goes first.
    state_.caseIterator.reset();
    if (state_.openMode == dioWriteMode || state_.openMode == dioAppendMode) FinishWriting();
}

dioDataSource::~dioDataSource() {
    state_.caseIterator.reset();
    try {
        if (state_.openMode == dioWriteMode || state_.openMode == dioAppendMode) FinishWriting();
    } catch (...) {
        // Reported by Close when the handle is closed normally.
    }
}

int allocateHandle(int openMode, const char* fileName, int* handle) {
    if (handle) *handle = -1;
    std::unique_ptr<dioDataSource> ds;
    const std::string name = fileName ? fileName : "";
    if (openMode == dioWriteMode)
        ds = std::make_unique<dioDataSource>(openMode, name, SystemFileDataSource::CreateTag{});
    else
        ds = std::make_unique<dioDataSource>(openMode, name);
    if (!ds) return MURV_RC_FILE_OPEN;
    auto& table = Table();
    for (int i = 0; i < kTableSize; ++i) {
        dioDataSource* expected = nullptr;
        if (table[static_cast<std::size_t>(i)].compare_exchange_strong(expected, ds.get(), std::memory_order_acq_rel)) {
            ds.release();
            if (handle) *handle = i;
            return MURV_RC_OK;
        }
    }
    return MURV_RC_TABLE_FULL;
}

int releaseHandle(int handle) {
    dioDataSource* ds = nullptr;
    const int rc = lookupHandle(handle, anyMode, &ds);
    if (rc != MURV_RC_OK) return rc;
    std::unique_ptr<dioDataSource> owned(Table()[static_cast<std::size_t>(handle)].exchange(nullptr, std::memory_order_acq_rel));
    if (!owned) return MURV_RC_BAD_HANDLE;  // closed by another thread meanwhile
    try {
        owned->Close();
    } catch (...) {
        return MURV_RC_BAD_HANDLE;
    }
    return MURV_RC_OK;
}


int BuildNameIndex(dioDataSource& ds, bool namesJustSet) {
    // A stored name has no trailing blanks and at most 64 bytes: unless it
    // starts with a blank or holds a NUL, its key is the upper-cased name the
    // variable keeps already (when that was made under the current locale),
    // and no copy need be made.
    std::string key;
    const bool unique = ds.State().nameIndex.Assign(ds.ColumnCount(), [&](std::size_t i) -> std::string_view {
        const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        const std::string& name = v.GetName();
        if (namesJustSet && !name.empty() && name.front() != ' ' && name.find('\0') == std::string::npos)
            return v.GetUpperName();
        key = names::NameKey(name);
        return key;
    });
    return unique ? MURV_RC_OK : MURV_RC_BAD_FILE;
}

int FindVariable(dioDataSource& ds, const char* name) {
    if (!name) return -1;
    return ds.State().nameIndex.Find(names::NameKey(names::NamePart(name)));
}

std::size_t RequiredCount(int count) {
    if (count < 0) throw std::invalid_argument("negative count");
    return static_cast<std::size_t>(count);
}

int CheckKind(int type, VarKind kind) {
    switch (kind) {
        case VarKind::numeric:
            return type == 0 ? MURV_RC_OK : MURV_RC_NUMERIC_EXPECTED;
        case VarKind::shortString:
            if (type == 0) return MURV_RC_STRING_EXPECTED;
            return type > 8 ? MURV_RC_SHORT_STRING_EXPECTED : MURV_RC_OK;
        case VarKind::any:
            break;
    }
    return MURV_RC_OK;
}

int FindVariableOfKind(dioDataSource& ds, const char* name, VarKind kind, int* index) {
    *index = FindVariable(ds, name);
    if (*index < 0) return MURV_RC_VAR_NOT_FOUND;
    return CheckKind(ds.GetVariable(*index).GetType(), kind);
}

int lookupFileHandle(int handle, dioDataSource** dataSource) {
    const int rc = lookupHandle(handle, anyMode, dataSource);
    if (rc != MURV_RC_OK) return rc;
    return (*dataSource)->State().openMode == dioWriteMode ? MURV_RC_WRITE_MODE : MURV_RC_OK;
}

}  // namespace murv::api
