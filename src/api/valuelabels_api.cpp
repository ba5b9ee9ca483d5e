// Value labels: texts attached to single values of a numeric variable or of a
// string variable at most 8 bytes wide.
//
// A variable's labels are a value-label map shared copy-on-write. The
// multi-variable setters give every named variable the very same map, which
// the writer then stores once for all of them; a later change through one
// variable copies the map for that variable only.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/alloc.h"
#include "api/handles.h"
#include "model/valuelabelmap.h"
#include "model/variable.h"
#include "text/mbtext.h"

using namespace murv;
using namespace murv::api;

namespace {

// Labels longer than this are stored cut (on a character boundary).
constexpr std::size_t kMaxValueLabel = 120;
// A string value is labelled by its first 8 bytes; wider variables carry no
// value labels.
constexpr std::size_t kValueBytes = 8;
// The buffer the fixed-size getters assume: 60 bytes of label and the NUL.
constexpr int kShortLabelBuffer = 61;

// The variable check that all value-label calls share: 0 with the
// dictionary index, or the code of the first failure. A null name is a
// caller error.
int CheckVariable(dioDataSource& ds, const char* name, VarKind kind, int* index) {
    return FindVariableOfKind(ds, Required(name), kind, index);
}

// The key of a string value given to a setter; false when the text is
// longer than 8 bytes (refused, not cut: it would label other values).
bool SetterKey(const char* value, ValueLabelKey* key) {
    const std::size_t length = strnlen(Required(value), kValueBytes + 1);
    if (length > kValueBytes) return false;
    *key = StringKey(std::string_view(value, length));
    return true;
}

// The key of a string value to look up: its first 8 bytes, whatever follows.
ValueLabelKey LookupKey(const char* value) {
    Required(value);
    return StringKey(std::string_view(value, strnlen(value, kValueBytes)));
}

// The label as the interface stores it; *cut is set when it had to be cut.
std::string StoredLabel(const char* label, bool* cut) {
    const std::string_view text(Required(label));
    if (text.size() <= kMaxValueLabel) return std::string(text);
    *cut = true;
    return text::Truncated(text, kMaxValueLabel);
}

int SetOneLabel(int handle, const char* varName, VarKind kind, const ValueLabelKey& key, const char* label) {
    dioDataSource* ds = nullptr;
    int rc = lookupHandle(handle, dictionaryOpen, &ds);
    if (rc != MURV_RC_OK) return rc;
    int index = -1;
    rc = CheckVariable(*ds, varName, kind, &index);
    if (rc != MURV_RC_OK) return rc;
    bool cut = false;
    const std::string text = StoredLabel(label, &cut);

    // The variable lets go of its map while we change it: a map that no other
    // variable shares is then changed in place, so that adding labels one by
    // one costs a search each, not a copy of the whole set each. A shared map
    // is copied, and the other variables keep theirs.
    MURV_Variable& variable = ds->GetVariable(index);
    MURV_ValueLabelMap labels = variable.GetValueLabels();
    variable.SetValueLabels(MURV_ValueLabelMap(nullptr));
    try {
        labels.SetLabel(key, text);
    } catch (...) {
        variable.SetValueLabels(labels);  // unchanged: the set operation failed as a whole
        throw;
    }
    variable.SetValueLabels(labels);
    return cut ? MURV_RC_VALUE_LABEL_CUT : MURV_RC_OK;
}

// One new label set for all the named variables. keyAt(i) gives the key of
// label i; it is called only once every variable has passed its check.
template <class KeyAt>
int SetSharedLabels(int handle, const char** varNames, int numVars, VarKind kind, KeyAt&& keyAt,
                    const char** labels, int numLabels) {
    dioDataSource* ds = nullptr;
    int rc = lookupHandle(handle, dictionaryOpen, &ds);
    if (rc != MURV_RC_OK) return rc;

    const std::size_t nVars = RequiredCount(numVars);
    if (nVars > 0) Required(varNames);
    std::vector<int> indexes;
    for (std::size_t i = 0; i < nVars; ++i) {
        int index = -1;
        rc = CheckVariable(*ds, varNames[i], kind, &index);
        if (rc != MURV_RC_OK) return rc;
        indexes.push_back(index);
    }

    const std::size_t nLabels = RequiredCount(numLabels);
    if (nLabels > 0) Required(labels);
    bool cut = false;
    MURV_ValueLabelMap shared;
    for (std::size_t i = 0; i < nLabels; ++i) shared.SetLabel(keyAt(i), StoredLabel(labels[i], &cut));

    // Either every variable gets the set or none does: what was replaced is
    // put back if a replacement fails part-way.
    std::vector<MURV_ValueLabelMap> previous;
    previous.reserve(indexes.size());
    try {
        for (int index : indexes) {
            MURV_Variable& variable = ds->GetVariable(index);
            previous.push_back(variable.GetValueLabels());
            variable.SetValueLabels(shared);
        }
    } catch (...) {
        for (std::size_t i = previous.size(); i-- > 0;) ds->GetVariable(indexes[i]).SetValueLabels(previous[i]);
        throw;
    }
    return cut ? MURV_RC_VALUE_LABEL_CUT : MURV_RC_OK;
}

int GetOneLabel(int handle, const char* varName, VarKind kind, const ValueLabelKey& key, char* buffer,
                int bufferLength, int* labelLength) {
    dioDataSource* ds = nullptr;
    int rc = lookupHandle(handle, anyMode, &ds);
    if (rc != MURV_RC_OK) return rc;
    int index = -1;
    rc = CheckVariable(*ds, varName, kind, &index);
    if (rc != MURV_RC_OK) return rc;
    const MURV_ValueLabelMap labels = ds->GetVariable(index).GetValueLabels();
    if (labels.Count() == 0) return MURV_RC_NO_VALUE_LABELS;
    const std::string* label = labels.GetLabel(key);
    if (!label) return MURV_RC_NO_LABEL;
    CopyOut(buffer, static_cast<std::size_t>(bufferLength), *label);
    if (labelLength) *labelLength = static_cast<int>(std::strlen(buffer));
    return MURV_RC_OK;
}

// The getters' outputs before anything else: an empty label and length.
// A buffer of length 0 (or below) has no room even for the NUL, which a
// caller cannot tell from a label: it is refused like a missing buffer.
bool ResetLabelOutputs(char* buffer, int bufferLength, int* labelLength) {
    if (labelLength) *labelLength = 0;
    if (!buffer || bufferLength < 1) return false;
    buffer[0] = '\0';
    return true;
}

// The values of a label set as the getters hand them out: the numeric keys,
// or each string key as the variable holds it (its bytes up to the width or
// a NUL, blank-padded to the width). Null when memory is short.
double* ValuesOut(const MURV_ValueLabelMap::Pairs& pairs, std::size_t, double) {
    double* values = AllocArray<double>(pairs.size());
    if (!values) return nullptr;
    std::size_t i = 0;
    for (const auto& [key, label] : pairs) std::memcpy(&values[i++], key.data(), sizeof(double));
    return values;
}

char** ValuesOut(const MURV_ValueLabelMap::Pairs& pairs, std::size_t width, char*) {
    auto entry = pairs.begin();
    return DupStrings(pairs.size(), [&](std::size_t) {
        std::string value((entry++)->first.data(), width);
        value.resize(strnlen(value.data(), width));
        value.resize(width, ' ');
        return value;
    });
}

void FreeValues(double* values, std::size_t) { std::free(values); }
void FreeValues(char** values, std::size_t n) { FreeStrings(values, static_cast<long long>(n)); }

template <class Value>
int GetLabelSet(int handle, const char* varName, VarKind kind, Value** valuesOut, char*** labelsOut,
                int* countOut) {
    dioDataSource* ds = nullptr;
    int rc = lookupHandle(handle, anyMode, &ds);
    if (rc != MURV_RC_OK) return rc;
    int index = -1;
    rc = CheckVariable(*ds, varName, kind, &index);
    if (rc != MURV_RC_OK) return rc;
    const MURV_Variable& variable = ds->GetVariable(index);
    const MURV_ValueLabelMap labels = variable.GetValueLabels();
    const std::size_t n = labels.Count();
    if (n == 0) return MURV_RC_NO_VALUE_LABELS;
    if (n > static_cast<std::size_t>(INT_MAX)) return MURV_RC_NO_MEMORY;

    auto entry = labels.Entries().begin();
    char** labelArray = DupStrings(n, [&](std::size_t) { return (entry++)->second; });
    Value* values = ValuesOut(labels.Entries(), static_cast<std::size_t>(variable.GetType()), Value{});
    if (!labelArray || !values) {
        FreeStrings(labelArray, static_cast<long long>(n));
        FreeValues(values, n);
        return MURV_RC_NO_MEMORY;
    }
    *valuesOut = values;
    *labelsOut = labelArray;
    *countOut = static_cast<int>(n);
    return MURV_RC_OK;
}

}  // namespace

extern "C" {

MURV_API int MURV_CALL murvSetVarNValueLabel(int handle, const char* varName, double value, const char* label) {
    return Guarded(MURV_RC_BAD_HANDLE,
                   [&] { return SetOneLabel(handle, varName, VarKind::numeric, NumericKey(value), label); });
}

MURV_API int MURV_CALL murvSetVarCValueLabel(int handle, const char* varName, const char* value,
                                              const char* label) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        ValueLabelKey key;
        if (!SetterKey(value, &key)) return MURV_RC_STRING_TOO_LONG;
        return SetOneLabel(handle, varName, VarKind::shortString, key, label);
    });
}

MURV_API int MURV_CALL murvSetVarNValueLabels(int handle, const char** varNames, int numVars,
                                               const double* values, const char** labels, int numLabels) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        return SetSharedLabels(
            handle, varNames, numVars, VarKind::numeric,
            [&](std::size_t i) { return NumericKey(Required(values)[i]); }, labels, numLabels);
    });
}

MURV_API int MURV_CALL murvSetVarCValueLabels(int handle, const char** varNames, int numVars,
                                               const char** values, const char** labels, int numLabels) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        // The values are formed before the handle is even looked up, so that
        // a value too long is reported whatever else is wrong.
        const std::size_t nLabels = RequiredCount(numLabels);
        if (nLabels > 0) Required(values);
        std::vector<ValueLabelKey> keys;
        for (std::size_t i = 0; i < nLabels; ++i) {
            ValueLabelKey key;
            if (!SetterKey(values[i], &key)) return MURV_RC_STRING_TOO_LONG;
            keys.push_back(key);
        }
        return SetSharedLabels(
            handle, varNames, numVars, VarKind::shortString, [&](std::size_t i) { return keys[i]; }, labels, numLabels);
    });
}

MURV_API int MURV_CALL murvGetVarNValueLabelLong(int handle, const char* varName, double value, char* labelBuff,
                                                  int lenBuff, int* lenLabel) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        if (!ResetLabelOutputs(labelBuff, lenBuff, lenLabel)) return MURV_RC_BAD_HANDLE;
        return GetOneLabel(handle, varName, VarKind::numeric, NumericKey(value), labelBuff, lenBuff, lenLabel);
    });
}

MURV_API int MURV_CALL murvGetVarNValueLabel(int handle, const char* varName, double value, char* label) {
    return murvGetVarNValueLabelLong(handle, varName, value, label, kShortLabelBuffer, nullptr);
}

MURV_API int MURV_CALL murvGetVarCValueLabelLong(int handle, const char* varName, const char* value,
                                                  char* labelBuff, int lenBuff, int* lenLabel) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        if (!ResetLabelOutputs(labelBuff, lenBuff, lenLabel)) return MURV_RC_BAD_HANDLE;
        return GetOneLabel(handle, varName, VarKind::shortString, LookupKey(value), labelBuff, lenBuff, lenLabel);
    });
}

MURV_API int MURV_CALL murvGetVarCValueLabel(int handle, const char* varName, const char* value, char* label) {
    return murvGetVarCValueLabelLong(handle, varName, value, label, kShortLabelBuffer, nullptr);
}

MURV_API int MURV_CALL murvGetVarNValueLabels(int handle, const char* varName, double** values, char*** labels,
                                               int* numLabels) {
    if (values) *values = nullptr;
    if (labels) *labels = nullptr;
    if (numLabels) *numLabels = 0;
    if (!values || !labels || !numLabels) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE,
                   [&] { return GetLabelSet(handle, varName, VarKind::numeric, values, labels, numLabels); });
}

MURV_API int MURV_CALL murvGetVarCValueLabels(int handle, const char* varName, char*** values, char*** labels,
                                               int* numLabels) {
    if (values) *values = nullptr;
    if (labels) *labels = nullptr;
    if (numLabels) *numLabels = 0;
    if (!values || !labels || !numLabels) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE,
                   [&] { return GetLabelSet(handle, varName, VarKind::shortString, values, labels, numLabels); });
}

// The free calls release whatever they are given, arrays included even when
// the count is below 1; the strings of a null array are not reachable.
MURV_API int MURV_CALL murvFreeVarNValueLabels(double* values, char** labels, int numLabels) {
    FreeStrings(labels, numLabels);
    std::free(values);
    return MURV_RC_OK;
}

MURV_API int MURV_CALL murvFreeVarCValueLabels(char** values, char** labels, int numLabels) {
    FreeStrings(labels, numLabels);
    FreeStrings(values, numLabels);
    return MURV_RC_OK;
}

}  // extern "C"
