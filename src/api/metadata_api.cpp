// File-level metadata: file label, product string, release numbers, time
// stamp, documents, raw extension records, text information, attributes.
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "api/alloc.h"
#include "api/extdata.h"
#include "api/handles.h"
#include "meta/attributes.h"
#include "model/datetime.h"
#include "text/mbtext.h"

using namespace murv;
using namespace murv::api;

namespace murv::api {

// The extension subtypes that callers may read and write raw; the others the
// library writes and interprets itself.
bool SubtypeOpenToCallers(int subtype) {
    switch (subtype) {
        case 1: case 2: case 5: case 7: case 8: case 10: case 12: case 15:
            return true;
        default:
            return subtype >= 19 && subtype <= 32;
    }
}

// Replaces (or, with no elements or no data, removes) a raw record. A
// negative count, or a record too large to be written, is refused with 73.
int StoreExtensionData(dioDataSource& ds, int subtype, int unitSize, int nElements, const void* data) {
    if (nElements < 0) return MURV_RC_BAD_EXTENSION;
    if (nElements == 0 || !data) {
        ds.SetExtension(subtype, 1, 0, nullptr);
        return MURV_RC_OK;
    }
    const int unit = unitSize < 1 ? 1 : unitSize;
    if (static_cast<long long>(unit) * nElements > std::numeric_limits<std::int32_t>::max())
        return MURV_RC_BAD_EXTENSION;
    ds.SetExtension(subtype, unit, nElements, data);
    // A chunked read in progress starts over on the new record.
    ds.State().extensionCursors[static_cast<std::size_t>(subtype)].reset();
    return MURV_RC_OK;
}

int StoreTextRecord(dioDataSource& ds, int subtype, const char* text) {
    const std::size_t len = text ? std::strlen(text) : 0;
    if (len > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) return MURV_RC_BAD_EXTENSION;
    return StoreExtensionData(ds, subtype, 1, static_cast<int>(len), text);
}

// Delivers the next whole elements of a record into buffer; the cursor
// starts over once the record has been delivered.
int ReadExtensionChunk(dioDataSource& ds, int subtype, int bufferSize, int* nElements, void* buffer) {
    *nElements = 0;
    if (!ds.HasExtension(subtype)) return MURV_RC_OK;
    dioHandleState& st = ds.State();
    auto& cursor = st.extensionCursors[static_cast<std::size_t>(subtype)];
    auto& remaining = st.extensionRemaining[static_cast<std::size_t>(subtype)];
    if (!cursor) {
        cursor = std::make_unique<MURV_Extension>(ds.GetExtension(subtype));
        remaining = static_cast<std::int32_t>(cursor->NElements());
    }
    const int unit = cursor->UnitSize();
    const int fit = bufferSize > 0 && unit > 0 ? bufferSize / unit : 0;
    const int k = std::min(remaining, fit);
    if (k > 0) {
        if (!buffer) throw std::invalid_argument("no buffer");
        cursor->ReadElements(buffer, static_cast<std::size_t>(k) * static_cast<std::size_t>(unit));
    }
    *nElements = k;
    remaining -= k;
    if (remaining <= 0) cursor.reset();
    return MURV_RC_OK;
}

}  // namespace murv::api

namespace {

const char* const kMonthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Reads a set of attributes out as the two parallel arrays of the flat view.
int AttributesOut(const Attributes& attrs, char*** names, char*** values, int* count) {
    const auto flat = attrs.Flatten();
    if (flat.empty()) return MURV_RC_OK;
    if (flat.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return MURV_RC_NO_MEMORY;
    char** n = DupStrings(flat.size(), [&](std::size_t i) { return flat[i].first; });
    char** v = n ? DupStrings(flat.size(), [&](std::size_t i) { return flat[i].second; }) : nullptr;
    if (!v) {
        FreeStrings(n, static_cast<long long>(flat.size()));
        return MURV_RC_NO_MEMORY;
    }
    *names = n;
    *values = v;
    *count = static_cast<int>(flat.size());
    return MURV_RC_OK;
}

// Builds a whole new set from flat (name, value) pairs; all or nothing.
int AttributesIn(Attributes::Owner owner, const char** names, const char** values, int count, Attributes* out) {
    if (count > 0 && (!names || !values)) return MURV_RC_BAD_ATTR_DEF;
    Attributes built;
    for (int i = 0; i < count; ++i) {
        const char* name = names[i];
        const char* value = values[i];
        if (!name || !*name || !value || !*value) continue;
        Attributes::FlatName flat;
        if (!Attributes::ParseFlatName(name, owner, &flat)) return MURV_RC_BAD_ATTR_NAME;
        if (!built.AcceptsFlatValue(flat)) return MURV_RC_BAD_ATTR_DEF;
        built.SetFlatValue(flat, value);
    }
    *out = std::move(built);
    return MURV_RC_OK;
}

// Adds one value to a copy of attrs; the copy replaces attrs on success.
int AddAttribute(Attributes::Owner owner, const char* name, int index, const char* value, Attributes* attrs) {
    if (!name || !*name || !value || !*value || (index != -1 && index < 1)) return MURV_RC_BAD_ATTR_DEF;
    const int check = Attributes::CheckName(name, owner);
    if (check != 1 && check != 2) return MURV_RC_BAD_ATTR_NAME;
    Attributes::FlatName flat;
    flat.name = name;
    flat.position = index == -1 ? 0 : index;
    Attributes copy = *attrs;
    if (!copy.AcceptsFlatValue(flat)) return MURV_RC_BAD_ATTR_DEF;
    copy.SetFlatValue(flat, value);
    *attrs = std::move(copy);
    return MURV_RC_OK;
}

}  // namespace

extern "C" {

MURV_API int MURV_CALL murvSetIdString(int handle, const char* id) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        // The header holds 64 bytes: a longer label is cut on a character boundary.
        if (id)
            ds->SetIdString(text::Truncated(id, 64));
        else
            ds->SetIdString(static_cast<const char*>(nullptr));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetIdString(int handle, char* id) {
    if (id) *id = '\0';
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!id) return MURV_RC_BAD_HANDLE;
        const std::string* label = ds->GetIdString();
        if (!label) return MURV_RC_BAD_HANDLE;
        CopyOut(id, 65, *label);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetSystemString(int handle, char* sysName) {
    if (sysName) *sysName = '\0';
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!sysName) return MURV_RC_BAD_HANDLE;
        // The first 20 bytes are the fixed lead of every product text.
        const std::string& product = ds->Options().product;
        if (product.size() >= 20) CopyOut(sysName, 41, std::string_view(product).substr(20));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetReleaseInfo(int handle, int* relInfo) {
    if (relInfo) relInfo[0] = relInfo[1] = relInfo[2] = 0;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!relInfo) return MURV_RC_BAD_HANDLE;
        const bool seen = ds->GetReleaseInfo(relInfo);
        if (!seen && ds->State().openMode != dioWriteMode) return MURV_RC_NO_RELEASE_INFO;
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetTimeStamp(int handle, char* fileDate, char* fileTime) {
    if (fileDate) *fileDate = '\0';
    if (fileTime) *fileTime = '\0';
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if (!fileDate || !fileTime) return MURV_RC_BAD_HANDLE;
        const double t = ds->GetTimeStamp();
        int day = 0, month = 0, year = 0, d = 0, hour = 0, minute = 0;
        double second = 0;
        rc = ConvertSecondsToDate(std::floor(t / kSecondsPerDay) * kSecondsPerDay, &day, &month, &year);
        if (rc != MURV_RC_OK) return rc;
        rc = ConvertSecondsToTime(std::floor(std::fmod(t, kSecondsPerDay)), &d, &hour, &minute, &second);
        if (rc != MURV_RC_OK) return rc;
        // The conversions give a day 1-31, a month 1-12, hours 0-23 and so on.
        const auto two = [](int v) { return static_cast<unsigned>(v) % 100u; };
        std::snprintf(fileDate, 10, "%02u-%s-%02u", two(day), kMonthNames[two(month - 1) % 12u], two(year));
        std::snprintf(fileTime, 9, "%02u:%02u:%02u", two(hour), two(minute), two(static_cast<int>(second)));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvCopyDocuments(int fromHandle, int toHandle) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        dioDataSource* from = nullptr;
        dioDataSource* to = nullptr;
        int rc = lookupHandle(fromHandle, anyMode, &from);
        if (rc != MURV_RC_OK) return rc;
        rc = lookupHandle(toHandle, dictionaryOpen, &to);
        if (rc != MURV_RC_OK) return rc;
        if (from->HasExtension(0))
            to->StoreExtension(from->GetExtension(0));  // the same block, shared
        else
            to->SetExtension(0, 1, 0, nullptr);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvQueryType7(int handle, int subType, int* bFound) {
    if (bFound) *bFound = 0;
    return WithFileHandle(handle, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (subType < 0 || subType > 32) return MURV_RC_BAD_EXTENSION;
        if (!bFound) return MURV_RC_BAD_HANDLE;
        *bFound = ds->IsSubtypeSeen(subType) ? 1 : 0;
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvSetExtensionData(int handle, int subType, int unitSize, int nElements, const void* data) {
    if (!SubtypeOpenToCallers(subType)) return MURV_RC_BAD_SUBTYPE;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        return StoreExtensionData(*ds, subType, unitSize, nElements, data);
    });
}

MURV_API int MURV_CALL murvGetExtensionDataDesc(int handle, int subType, int* unitSize, int* nElements) {
    if (unitSize) *unitSize = 0;
    if (nElements) *nElements = 0;
    if (!SubtypeOpenToCallers(subType)) return MURV_RC_BAD_SUBTYPE;
    return WithFileHandle(handle, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        if (!unitSize || !nElements) return MURV_RC_FILE_READ;
        if (ds->HasExtension(subType)) {
            const MURV_Extension ext = ds->GetExtension(subType);
            *unitSize = ext.UnitSize();
            *nElements = static_cast<int>(ext.NElements());
        }
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetExtensionData(int handle, int subType, int bufferSize, int* nElements, void* buffer) {
    if (nElements) *nElements = 0;
    if (!SubtypeOpenToCallers(subType)) return MURV_RC_BAD_SUBTYPE;
    return WithHandle(handle, anyMode, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        if (!nElements) return MURV_RC_FILE_READ;
        rc = ReadExtensionChunk(*ds, subType, bufferSize, nElements, buffer);
        if (rc == MURV_RC_OK && ds->State().openMode == dioWriteMode) return MURV_RC_WRITE_MODE;
        return rc;
    });
}

MURV_API int MURV_CALL murvSetTextInfo(int handle, const char* textInfo) {
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE,
                      [&](dioDataSource* ds) { return StoreTextRecord(*ds, 10, textInfo); });
}

MURV_API int MURV_CALL murvGetTextInfo(int handle, char* textInfo) {
    if (textInfo) *textInfo = '\0';
    return WithFileHandle(handle, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        if (!textInfo) return MURV_RC_FILE_READ;
        if (!ds->HasExtension(10)) return MURV_RC_OK;
        const MURV_Extension ext = ds->GetExtension(10);
        // Every call starts at the beginning and delivers at most 255 bytes.
        if (ext.UnitSize() != 1) return MURV_RC_BAD_EXTENSION;
        const std::string& bytes = ext.Contents();
        const std::size_t n = std::min<std::size_t>(bytes.size(), 255);
        std::memcpy(textInfo, bytes.data(), n);
        textInfo[n] = '\0';
        ds->State().extensionCursors[10].reset();
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetFileAttributes(int handle, char*** attribNames, char*** attribText, int* nAttributes) {
    if (attribNames) *attribNames = nullptr;
    if (attribText) *attribText = nullptr;
    if (nAttributes) *nAttributes = 0;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!attribNames || !attribText || !nAttributes) return MURV_RC_BAD_HANDLE;
        return AttributesOut(ds->GetFileAttributes(), attribNames, attribText, nAttributes);
    });
}

MURV_API int MURV_CALL murvGetVarAttributes(int handle, const char* varName, char*** attribNames, char*** attribText,
                                            int* nAttributes) {
    if (attribNames) *attribNames = nullptr;
    if (attribText) *attribText = nullptr;
    if (nAttributes) *nAttributes = 0;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int index = -1;
        if (const int rc = FindVariableOfKind(*ds, varName, VarKind::any, &index)) return rc;
        if (!attribNames || !attribText || !nAttributes) return MURV_RC_BAD_HANDLE;
        return AttributesOut(ds->GetVariable(index).GetAttributes(), attribNames, attribText, nAttributes);
    });
}

MURV_API int MURV_CALL murvSetFileAttributes(int handle, const char** attribNames, const char** attribText,
                                             int nAttributes) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        Attributes built;
        rc = AttributesIn(Attributes::Owner::File, attribNames, attribText, nAttributes, &built);
        if (rc == MURV_RC_OK) ds->SetFileAttributes(built);
        return rc;
    });
}

MURV_API int MURV_CALL murvSetVarAttributes(int handle, const char* varName, const char** attribNames,
                                            const char** attribText, int nAttributes) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int index = -1;
        int rc = FindVariableOfKind(*ds, varName, VarKind::any, &index);
        if (rc != MURV_RC_OK) return rc;
        Attributes built;
        rc = AttributesIn(Attributes::Owner::Variable, attribNames, attribText, nAttributes, &built);
        if (rc == MURV_RC_OK) ds->GetVariable(index).SetAttributes(built);
        return rc;
    });
}

MURV_API int MURV_CALL murvAddFileAttribute(int handle, const char* attribName, int attribSub, const char* attribText) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int rc = MURV_RC_OK;
        Attributes attrs = ds->GetFileAttributes();
        rc = AddAttribute(Attributes::Owner::File, attribName, attribSub, attribText, &attrs);
        if (rc == MURV_RC_OK) ds->SetFileAttributes(attrs);
        return rc;
    });
}

MURV_API int MURV_CALL murvAddVarAttribute(int handle, const char* varName, const char* attribName, int attribSub,
                                           const char* attribText) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        int index = -1;
        int rc = FindVariableOfKind(*ds, varName, VarKind::any, &index);
        if (rc != MURV_RC_OK) return rc;
        Attributes attrs = ds->GetVariable(index).GetAttributes();
        rc = AddAttribute(Attributes::Owner::Variable, attribName, attribSub, attribText, &attrs);
        if (rc == MURV_RC_OK) ds->GetVariable(index).SetAttributes(attrs);
        return rc;
    });
}

MURV_API int MURV_CALL murvFreeAttributes(char** attribNames, char** attribText, int nAttributes) {
    // As murvFreeVarNames: a count below 1 releases nothing.
    if (nAttributes < 1) return MURV_RC_OK;
    FreeStrings(attribNames, nAttributes);
    FreeStrings(attribText, nAttributes);
    return MURV_RC_OK;
}

}  // extern "C"
