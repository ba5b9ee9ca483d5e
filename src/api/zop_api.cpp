// The data-entry block and its identifier: an opaque block of bytes kept as
// extension subtype 8, handed in and out in pieces, and an identifier text
// kept as subtype 12. The library does not interpret the block, except that
// its last four bytes count its segments (a little-endian int32).
#include <cstdint>
#include <cstring>
#include <limits>

#include "api/extdata.h"
#include "api/handles.h"

using namespace murv;
using namespace murv::api;

namespace {

constexpr int kBlockSubtype = 8;
constexpr int kIdentifierSubtype = 12;
// murvGetZOPGUID's buffer: 256 bytes and the NUL.
constexpr int kIdentifierBytes = 256;

// The block is usable when the handle holds one and the file was written in
// this machine's byte order: the block's own integers were written by the
// writing machine and are not ours to reverse.
bool HasUsableBlock(dioDataSource& ds) {
    return ds.HasExtension(kBlockSubtype) && !ds.IsByteSwapped();
}

// Checks shared by the block readers: the lookup's code, 9 for a write
// handle, -14 when there is no usable block; else 0 with *out set.
int LookupBlockReader(int handle, dioDataSource** out) {
    const int rc = lookupFileHandle(handle, out);
    if (rc != MURV_RC_OK) return rc;
    if (!HasUsableBlock(**out)) return MURV_RC_NO_ZOP;
    return MURV_RC_OK;
}

// Delivers the next piece of the block into buffer and reports it in bytes.
int ReadBlockPiece(dioDataSource& ds, void* buffer, int bufferSize, int* nDelivered) {
    int nElements = 0;
    const int rc = ReadExtensionChunk(ds, kBlockSubtype, bufferSize, &nElements, buffer);
    if (rc != MURV_RC_OK) return rc;
    *nDelivered = nElements * ds.GetExtension(kBlockSubtype).UnitSize();
    return MURV_RC_OK;
}

}  // namespace

extern "C" {

MURV_API int MURV_CALL murvSetZOPGUID(int handle, const char* zopGUID) {
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE,
                      [&](dioDataSource* ds) { return StoreTextRecord(*ds, kIdentifierSubtype, zopGUID); });
}

MURV_API int MURV_CALL murvGetZOPGUID(int handle, char* zopGUID) {
    if (zopGUID) *zopGUID = '\0';
    return WithFileHandle(handle, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        if (!zopGUID) return MURV_RC_FILE_READ;
        // Every call returns the start of the identifier, whatever a chunked
        // read of subtype 12 through murvGetExtensionData left behind.
        auto& cursor = ds->State().extensionCursors[kIdentifierSubtype];
        cursor.reset();
        int nElements = 0;
        const int code = ReadExtensionChunk(*ds, kIdentifierSubtype, kIdentifierBytes, &nElements, zopGUID);
        cursor.reset();
        if (code != MURV_RC_OK) return code;
        const int unit = ds->GetExtension(kIdentifierSubtype).UnitSize();
        zopGUID[nElements * (unit > 0 ? unit : 1)] = '\0';
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetZOPInfo(int handle, int* nBytes, int* nSegments) {
    if (nBytes) *nBytes = 0;
    if (nSegments) *nSegments = 0;
    return Guarded(MURV_RC_FILE_READ, [&] {
        dioDataSource* ds = nullptr;
        const int rc = LookupBlockReader(handle, &ds);
        if (rc != MURV_RC_OK) return rc;
        if (!nBytes || !nSegments) return MURV_RC_FILE_READ;
        const MURV_Extension block = ds->GetExtension(kBlockSubtype);
        const std::string& bytes = block.Contents();
        *nBytes = static_cast<int>(bytes.size());
        if (bytes.size() >= 4) {
            const auto* last = reinterpret_cast<const unsigned char*>(bytes.data() + bytes.size() - 4);
            const std::uint32_t v = static_cast<std::uint32_t>(last[0]) | static_cast<std::uint32_t>(last[1]) << 8 |
                                    static_cast<std::uint32_t>(last[2]) << 16 |
                                    static_cast<std::uint32_t>(last[3]) << 24;
            *nSegments = static_cast<int>(v);
        }
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvSetZOPFirst(int handle, const void* data, int nBytes) {
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        // A negative count is refused with 73, as for any raw record.
        return StoreExtensionData(*ds, kBlockSubtype, 1, nBytes, data);
    });
}

MURV_API int MURV_CALL murvSetZOPNext(int handle, const void* data, int nBytes) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        // The interface has no code of its own for a piece that has no first
        // piece to follow, for a negative count, or for missing data: they are
        // bad requests about an extension record, and take its code (73).
        if (!ds->HasExtension(kBlockSubtype)) return MURV_RC_BAD_EXTENSION;
        if (nBytes < 0) return MURV_RC_BAD_EXTENSION;
        if (nBytes == 0) return MURV_RC_OK;
        if (!data) return MURV_RC_BAD_EXTENSION;
        // The piece is counted in bytes. A block stored with wider units (set
        // through the raw extension call) grows only by whole units: a piece
        // that is not one is refused, never read past its end.
        const MURV_Extension block = ds->GetExtension(kBlockSubtype);
        const int unit = block.UnitSize();
        if (unit < 1 || nBytes % unit != 0) return MURV_RC_BAD_EXTENSION;
        const long long total = static_cast<long long>(block.Contents().size()) + nBytes;
        if (total > std::numeric_limits<std::int32_t>::max()) return MURV_RC_BAD_EXTENSION;
        ds->AppendExtension(kBlockSubtype, nBytes / unit, data);
        // A chunked read in progress starts over on the grown block.
        ds->State().extensionCursors[kBlockSubtype].reset();
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetZOPFirst(int handle, void* buffer, int bufferSize, int* nDelivered) {
    if (nDelivered) *nDelivered = 0;
    return Guarded(MURV_RC_FILE_READ, [&] {
        dioDataSource* ds = nullptr;
        const int rc = LookupBlockReader(handle, &ds);
        if (rc != MURV_RC_OK) return rc;
        if (!nDelivered) return MURV_RC_FILE_READ;
        ds->State().extensionCursors[kBlockSubtype].reset();
        return ReadBlockPiece(*ds, buffer, bufferSize, nDelivered);
    });
}

MURV_API int MURV_CALL murvGetZOPNext(int handle, void* buffer, int bufferSize, int* nDelivered) {
    if (nDelivered) *nDelivered = 0;
    return Guarded(MURV_RC_FILE_READ, [&] {
        dioDataSource* ds = nullptr;
        // The same absence tests as murvGetZOPFirst: a block that cannot be
        // used from its start cannot be used from its middle either.
        const int rc = LookupBlockReader(handle, &ds);
        if (rc != MURV_RC_OK) return rc;
        if (!nDelivered) return MURV_RC_FILE_READ;
        return ReadBlockPiece(*ds, buffer, bufferSize, nDelivered);
    });
}

}  // extern "C"
