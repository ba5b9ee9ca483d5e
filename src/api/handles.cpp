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


std::string NameKey(const char* name) {
    if (!name) return std::string();
    std::size_t n = 0;
    while (n < names::kMaxNameBytes && name[n] != '\0') ++n;
    std::size_t begin = 0, end = n;
    while (begin < end && name[begin] == ' ') ++begin;
    while (end > begin && name[end - 1] == ' ') --end;
    return text::UpperCopy(std::string_view(name + begin, end - begin));
}

bool NameIndex::Append(std::string_view key) {
    if (table_.Find(key) != Table::kNone) return false;
    keys_.Add(key);
    try {
        table_.Insert(static_cast<std::uint32_t>(keys_.Size() - 1));
    } catch (...) {
        keys_.PopBack();
        throw;
    }
    return true;
}

void NameIndex::PopBack() {
    if (keys_.Size() == 0) return;
    table_.Erase(static_cast<std::uint32_t>(keys_.Size() - 1));
    keys_.PopBack();
}

void NameIndex::Clear() {
    table_.Clear();
    keys_.Clear();
}

int BuildNameIndex(dioDataSource& ds) {
    const bool unique = ds.State().nameIndex.Assign(
        ds.ColumnCount(), [&ds](std::size_t i) { return NameKey(ds.GetVariable(static_cast<int>(i)).GetName().c_str()); });
    return unique ? MURV_RC_OK : MURV_RC_BAD_FILE;
}

int FindVariable(dioDataSource& ds, const char* name) {
    if (!name) return -1;
    return ds.State().nameIndex.Find(NameKey(name));
}

}  // namespace murv::api
