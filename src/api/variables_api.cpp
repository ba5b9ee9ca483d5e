// Variable dictionary calls: defining the variables of a new file and
// reporting the variables of any open file.
//
// Every call that names a variable finds it through the handle's name index,
// so lookups ignore case and surrounding blanks. Outputs are reset before
// anything else; a null pointer where a call needs a text or an output makes
// the call fail with its exception code (5) instead of writing through it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "api/alloc.h"
#include "api/handles.h"
#include "model/variable.h"
#include "text/mbtext.h"
#include "text/names.h"

using namespace murv;
using namespace murv::api;

namespace {

// A variable label is kept to this many bytes; a longer one is cut.
constexpr std::size_t kMaxLabelBytes = 256;
// murvGetVarLabel's buffer: 120 bytes of label and the NUL.
constexpr int kShortLabelBuffer = 121;
// A variable's name with its NUL: murvGetVarInfo's buffer.
constexpr std::size_t kNameBuffer = MURV_Variable::eMaxNameLength + 1;
// String missing values: 8 bytes each, and only for strings this narrow.
constexpr std::size_t kMissingBytes = MURV_Variable::eMissingSlotSize;

// Defaults reported when a format cannot be read: code 5, width 8, 2 decimals.
constexpr int kDefaultFormatType = MURV_Variable::eDefaultNumericFormat;
constexpr int kDefaultFormatWidth = 8;
constexpr int kDefaultFormatDecimals = 2;
constexpr int kDefaultAlignment = 1;

// A handle's dataset and one of its variables.
struct Target {
    dioDataSource* ds = nullptr;
    MURV_Variable* var = nullptr;
};

// The named variable of the dataset; null when there is none. A null name
// is a caller error, not an unknown name.
MURV_Variable* FindNamed(dioDataSource& ds, const char* name) {
    int index = -1;
    return FindVariableOfKind(ds, Required(name), VarKind::any, &index) == MURV_RC_OK ? &ds.GetVariable(index)
                                                                                       : nullptr;
}

// Looks up the handle at the level and then the variable: the handle's code,
// 12 when there is no such variable, else 0 with target filled.
int Resolve(int handle, int level, const char* name, Target& target) {
    const int rc = lookupHandle(handle, level, &target.ds);
    if (rc != MURV_RC_OK) return rc;
    target.var = FindNamed(*target.ds, name);
    return target.var ? MURV_RC_OK : MURV_RC_VAR_NOT_FOUND;
}

// The format type codes the interface knows; anything else is refused before
// the variable is even looked up.
bool IsKnownFormatType(int type) {
    return (type >= 1 && type <= 12) || (type >= 15 && type <= 17) || (type >= 20 && type <= 39);
}

enum class FormatKind { print, write };

int SetFormat(FormatKind kind, int handle, const char* varName, int type, int decimals, int width) {
    const bool isPrint = kind == FormatKind::print;
    const int badFormat = isPrint ? MURV_RC_BAD_PRINT_FORMAT : MURV_RC_BAD_WRITE_FORMAT;
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!IsKnownFormatType(type)) return badFormat;
        MURV_Variable* var = FindNamed(*ds, varName);
        if (!var) return MURV_RC_VAR_NOT_FOUND;
        if (!FormatIsAcceptable(isPrint, var->GetType(), type, width, decimals)) return badFormat;
        if (isPrint)
            var->SetPrintFormat(type, width, decimals);
        else
            var->SetWriteFormat(type, width, decimals);
        return MURV_RC_OK;
    });
}

int GetFormat(FormatKind kind, int handle, const char* varName, int* type, int* decimals, int* width) {
    if (type) *type = kDefaultFormatType;
    if (decimals) *decimals = kDefaultFormatDecimals;
    if (width) *width = kDefaultFormatWidth;
    if (!type || !decimals || !width) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        const MURV_Format format = kind == FormatKind::print ? t.var->GetPrintFormat() : t.var->GetWriteFormat();
        // A code read from a file that the interface does not know is
        // reported as the default numeric code.
        *type = IsKnownFormatType(format.type) ? format.type : kDefaultFormatType;
        *decimals = format.decimals;
        *width = format.width;
        return MURV_RC_OK;
    });
}

bool IsNumericMissingKind(int kind) { return kind >= -3 && kind <= 3 && kind != -1; }

}  // namespace

extern "C" {

// ---- names, handles and types ----

MURV_API int MURV_CALL murvSetVarName(int handle, const char* varName, int varType) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        auto& index = ds->State().nameIndex;
        const std::string key = names::NameKey(names::NamePart(Required(varName)));
        // (The checks below take about as long as fetching the key's slot of
        // a large index from memory: they overlap.)
        index.Prefetch(key);
        // Only ordinary names: scratch ("#") and system ("$") names are not
        // names of variables in a file.
        if (names::ValidateVarname(varName) != names::kOrdinary) return MURV_RC_BAD_VAR_NAME;
        if (varType < 0 || varType > MURV_Variable::MAX_STRING_TYPE) return MURV_RC_BAD_VAR_TYPE;
        if (index.Find(key) >= 0) return MURV_RC_DUP_VAR;

        MURV_Variable var(varType);
        var.SetName(names::NamePart(varName));
        // The index entry goes in first and comes out again if the
        // dictionary cannot take the variable, so the two never disagree.
        index.Append(key);
        try {
            ds->AppendVariable(var);
        } catch (...) {
            index.PopBack();
            throw;
        }
        return MURV_RC_OK;
    });
}

// No exception guard of its own: nothing here throws on client input. The
// only step that can throw is the allocation of the lookup key, and that is
// still kept from crossing into the caller (code 5).
MURV_API int MURV_CALL murvGetVarHandle(int handle, const char* varName, double* varHandle) {
    if (varHandle) *varHandle = 0.0;
    if (!varHandle || !varName) return MURV_RC_BAD_HANDLE;
    dioDataSource* ds = nullptr;
    const int rc = lookupHandle(handle, anyMode, &ds);
    if (rc != MURV_RC_OK) return rc;
    int index = -1;
    try {
        index = FindVariable(*ds, varName);
    } catch (...) {
        return MURV_RC_BAD_HANDLE;
    }
    if (index < 0) return MURV_RC_VAR_NOT_FOUND;
    *varHandle = static_cast<double>(index) + 1.0;
    return MURV_RC_OK;
}

MURV_API int MURV_CALL murvGetVarInfo(int handle, int iVar, char* varName, int* varType) {
    if (varName) varName[0] = '\0';
    if (varType) *varType = 0;
    if (!varName || !varType) return MURV_RC_BAD_HANDLE;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (iVar < 0 || static_cast<std::size_t>(iVar) >= ds->ColumnCount()) return MURV_RC_VAR_NOT_FOUND;
        const MURV_Variable& var = ds->GetVariable(iVar);
        CopyOut(varName, kNameBuffer, var.GetName());
        *varType = var.GetType();
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetNumberofVariables(int handle, int* numVars) {
    if (numVars) *numVars = 0;
    if (!numVars) return MURV_RC_BAD_HANDLE;
    return WithHandle(handle, 0, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        const std::size_t count = ds->ColumnCount();
        // A count the output cannot hold leaves it at 0.
        if (count < static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
            *numVars = static_cast<int>(count);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarNames(int handle, int* numVars, char*** varNames, int** varTypes) {
    if (numVars) *numVars = 0;
    if (varNames) *varNames = nullptr;
    if (varTypes) *varTypes = nullptr;
    if (!numVars || !varNames || !varTypes) return MURV_RC_BAD_HANDLE;

    // What has been allocated so far; released again on any failure, so the
    // caller owns either everything or nothing.
    char** names = nullptr;
    int* types = nullptr;
    int count = 0;
    const int rc = Guarded(MURV_RC_BAD_HANDLE, [&] {
        dioDataSource* ds = nullptr;
        int code = lookupHandle(handle, anyMode, &ds);
        if (code != MURV_RC_OK) return code;
        int n = 0;
        code = murvGetNumberofVariables(handle, &n);
        if (code != MURV_RC_OK) return code;
        if (n == 0) return MURV_RC_BAD_FILE;
        names = DupStrings(static_cast<std::size_t>(n), [&](std::size_t i) {
            return ds->GetVariable(static_cast<int>(i)).GetName();
        });
        types = AllocArray<int>(static_cast<std::size_t>(n));
        count = n;
        if (!names || !types) return MURV_RC_NO_MEMORY;
        for (int i = 0; i < n; ++i) types[i] = ds->GetVariable(i).GetType();
        return code;
    });
    if (rc != MURV_RC_OK) {
        murvFreeVarNames(names, types, count);
        return rc;
    }
    *numVars = count;
    *varNames = names;
    *varTypes = types;
    return MURV_RC_OK;
}

MURV_API int MURV_CALL murvFreeVarNames(char** varNames, int* varTypes, int numVars) {
    // A count below 1 releases nothing: a client may call this with 0 and
    // later again with the real count, and must not have its arrays freed twice.
    if (numVars < 1) return MURV_RC_OK;
    FreeStrings(varNames, numVars);
    std::free(varTypes);
    return MURV_RC_OK;
}

// ---- labels ----

MURV_API int MURV_CALL murvSetVarLabel(int handle, const char* varName, const char* varLabel) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, dictionaryOpen, varName, t);
        if (rc != MURV_RC_OK) return rc;
        const std::string_view label(Required(varLabel));
        if (label.size() <= kMaxLabelBytes) {
            t.var->SetLabel(label.data(), label.size());
            return MURV_RC_OK;
        }
        const std::string cut = text::Truncated(label, kMaxLabelBytes);
        t.var->SetLabel(cut.data(), cut.size());
        return MURV_RC_VAR_LABEL_CUT;
    });
}

// A buffer length below 1 leaves no room even for the NUL; such a buffer is
// treated like a missing one (code 5, nothing written).
MURV_API int MURV_CALL murvGetVarLabelLong(int handle, const char* varName, char* labelBuff, int lenBuff,
                                           int* lenLabel) {
    const bool bufferUsable = labelBuff && lenBuff >= 1;
    if (bufferUsable) labelBuff[0] = '\0';
    if (lenLabel) *lenLabel = 0;
    if (!bufferUsable) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        const std::string* label = t.var->GetLabel();
        if (!label) return MURV_RC_NO_LABEL;
        CopyOut(labelBuff, static_cast<std::size_t>(lenBuff), *label);
        if (lenLabel) *lenLabel = static_cast<int>(std::strlen(labelBuff));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarLabel(int handle, const char* varName, char* varLabel) {
    return murvGetVarLabelLong(handle, varName, varLabel, kShortLabelBuffer, nullptr);
}

// ---- print and write formats ----

MURV_API int MURV_CALL murvSetVarPrintFormat(int handle, const char* varName, int printType, int printDec,
                                             int printWid) {
    return SetFormat(FormatKind::print, handle, varName, printType, printDec, printWid);
}

MURV_API int MURV_CALL murvSetVarWriteFormat(int handle, const char* varName, int writeType, int writeDec,
                                             int writeWid) {
    return SetFormat(FormatKind::write, handle, varName, writeType, writeDec, writeWid);
}

MURV_API int MURV_CALL murvGetVarPrintFormat(int handle, const char* varName, int* printType, int* printDec,
                                             int* printWid) {
    return GetFormat(FormatKind::print, handle, varName, printType, printDec, printWid);
}

MURV_API int MURV_CALL murvGetVarWriteFormat(int handle, const char* varName, int* writeType, int* writeDec,
                                             int* writeWid) {
    return GetFormat(FormatKind::write, handle, varName, writeType, writeDec, writeWid);
}

// ---- missing values ----

MURV_API int MURV_CALL murvSetVarNMissingValues(int handle, const char* varName, int missingFormat,
                                                double missingVal1, double missingVal2, double missingVal3) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, dictionaryOpen, varName, t);
        if (rc != MURV_RC_OK) return rc;
        if (!IsNumericMissingKind(missingFormat)) return MURV_RC_BAD_MISSING;
        const bool isRange = missingFormat < 0;
        if (isRange && missingVal1 > missingVal2) return MURV_RC_BAD_MISSING;
        if (const int kind = CheckKind(t.var->GetType(), VarKind::numeric)) return kind;
        // The slots the kind does not use are cleared.
        double values[3] = {missingVal1, missingVal2, missingVal3};
        const int used = isRange ? -missingFormat : missingFormat;
        for (int i = used; i < 3; ++i) values[i] = 0.0;
        t.var->SetMissingValues(missingFormat, &values[0], &values[1], &values[2]);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarNMissingValues(int handle, const char* varName, int* missingFormat,
                                                double* missingVal1, double* missingVal2, double* missingVal3) {
    double* out[3] = {missingVal1, missingVal2, missingVal3};
    if (missingFormat) *missingFormat = 0;
    for (double* p : out)
        if (p) *p = 0.0;
    if (!missingFormat || !missingVal1 || !missingVal2 || !missingVal3) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        if (const int kind = CheckKind(t.var->GetType(), VarKind::numeric)) return kind;
        const char* slots[3] = {};
        *missingFormat = t.var->GetMissingValues(&slots[0], &slots[1], &slots[2]);
        for (int i = 0; i < 3; ++i)
            if (slots[i]) std::memcpy(out[i], slots[i], sizeof(double));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvSetVarCMissingValues(int handle, const char* varName, int missingFormat,
                                                const char* missingVal1, const char* missingVal2,
                                                const char* missingVal3) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, dictionaryOpen, varName, t);
        if (rc != MURV_RC_OK) return rc;
        // Strings have discrete missing values only, no ranges.
        if (missingFormat < 0 || missingFormat > 3) return MURV_RC_BAD_MISSING;
        if (const int kind = CheckKind(t.var->GetType(), VarKind::shortString)) return kind;
        // Each value used: up to 8 bytes, to its NUL, blank-padded to 8.
        // Values the kind does not use may be null and are not read.
        const char* in[3] = {missingVal1, missingVal2, missingVal3};
        char slots[3][kMissingBytes];
        std::memset(slots, ' ', sizeof slots);
        for (int i = 0; i < missingFormat; ++i) {
            const char* value = Required(in[i]);
            std::memcpy(slots[i], value, strnlen(value, kMissingBytes));
        }
        t.var->SetMissingValues(missingFormat, slots[0], slots[1], slots[2]);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarCMissingValues(int handle, const char* varName, int* missingFormat,
                                                char* missingVal1, char* missingVal2, char* missingVal3) {
    char* out[3] = {missingVal1, missingVal2, missingVal3};
    if (missingFormat) *missingFormat = 0;
    for (char* p : out)
        if (p) p[0] = '\0';
    if (!missingFormat || !missingVal1 || !missingVal2 || !missingVal3) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        const int type = t.var->GetType();
        if (const int kind = CheckKind(type, VarKind::shortString)) return kind;
        const char* slots[3] = {};
        *missingFormat = t.var->GetMissingValues(&slots[0], &slots[1], &slots[2]);
        // Each value comes back as wide as the variable, blanks included.
        const auto width = static_cast<std::size_t>(type);
        for (int i = 0; i < 3; ++i) {
            if (!slots[i]) continue;
            std::memcpy(out[i], slots[i], width);
            out[i][width] = '\0';
        }
        return MURV_RC_OK;
    });
}

// ---- display properties ----
// Values the variable cannot carry are ignored without a code.

MURV_API int MURV_CALL murvSetVarAlignment(int handle, const char* varName, int alignment) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, dictionaryOpen, varName, t);
        if (rc != MURV_RC_OK) return rc;
        if (alignment >= 0 && alignment <= MURV_Variable::eMaxAlignment) t.var->SetAlignment(alignment);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarAlignment(int handle, const char* varName, int* alignment) {
    if (alignment) *alignment = kDefaultAlignment;
    if (!alignment) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        const int stored = t.var->GetAlignment();
        if (stored >= 0 && stored <= MURV_Variable::eMaxAlignment) *alignment = stored;
        return MURV_RC_OK;
    });
}

// The variable carries column widths of 1 to 65535; a width outside that is
// ignored like any other value it cannot carry, rather than stored narrowed.
MURV_API int MURV_CALL murvSetVarColumnWidth(int handle, const char* varName, int columnWidth) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, dictionaryOpen, varName, t);
        if (rc != MURV_RC_OK) return rc;
        if (columnWidth >= 1 && columnWidth <= std::numeric_limits<std::uint16_t>::max())
            t.var->SetColumnWidth(static_cast<std::uint16_t>(columnWidth));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarColumnWidth(int handle, const char* varName, int* columnWidth) {
    if (columnWidth) *columnWidth = 0;
    if (!columnWidth) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        *columnWidth = t.var->GetColumnWidth();
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvSetVarMeasureLevel(int handle, const char* varName, int measureLevel) {
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, dictionaryOpen, varName, t);
        if (rc != MURV_RC_OK) return rc;
        if (measureLevel >= 0 && measureLevel <= MURV_Variable::eMaxMeasureLevel)
            t.var->SetMeasureLevel(measureLevel);
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetVarMeasureLevel(int handle, const char* varName, int* measureLevel) {
    if (measureLevel) *measureLevel = 0;
    if (!measureLevel) return MURV_RC_BAD_HANDLE;
    return Guarded(MURV_RC_BAD_HANDLE, [&] {
        Target t;
        const int rc = Resolve(handle, anyMode, varName, t);
        if (rc != MURV_RC_OK) return rc;
        const int stored = t.var->GetMeasureLevel();
        if (stored >= 0 && stored <= MURV_Variable::eMaxMeasureLevel) *measureLevel = stored;
        return MURV_RC_OK;
    });
}

}  // extern "C"
