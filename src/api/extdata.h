// Raw extension records as the interface exposes them, shared by the
// metadata calls and the data-entry, set and text calls built on them.
#pragma once

#include "api/handles.h"

namespace murv::api {

// Subtypes that callers may read and write raw.
bool SubtypeOpenToCallers(int subtype);
// Replaces or (no elements, no data) removes a record; 73 for a negative
// count or a record too large for a file.
int StoreExtensionData(dioDataSource& ds, int subtype, int unitSize, int nElements, const void* data);
// Replaces or (a null or empty text) removes a record of bytes with the
// text's bytes; 73 for a text too large for a file.
int StoreTextRecord(dioDataSource& ds, int subtype, const char* text);
// Delivers the next whole elements that fit in bufferSize bytes; starts over
// once the whole record has been delivered.
int ReadExtensionChunk(dioDataSource& ds, int subtype, int bufferSize, int* nElements, void* buffer);

}  // namespace murv::api
