// Multiple-response sets and variable sets.
//
// Both live in the file as lines of text in extension records: variable sets
// in subtype 5, multiple-response sets in subtype 7 and, for dichotomy sets
// of the extended form, subtype 19. The raw calls hand the text of subtype 7
// (or 5) in and out as it stands; the structured calls parse the sets,
// describe one set per murvMultRespDef, and add a checked set to the list.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "api/alloc.h"
#include "api/extdata.h"
#include "api/handles.h"
#include "model/setrecords.h"
#include "text/mbtext.h"
#include "text/names.h"

using namespace murv;
using namespace murv::api;

namespace {

constexpr std::size_t kSetNameBytes = sizeof(murvMultRespDef::setName) - 1;    // 64
constexpr std::size_t kSetLabelBytes = sizeof(murvMultRespDef::setLabel) - 1;  // 256

// The whole text of a raw record as a new NUL-terminated string: absent
// gives `absentCode`, a record of units wider than a byte 73.
int CopyText(dioDataSource& ds, int subtype, int absentCode, char** out) {
    if (!ds.HasExtension(subtype)) return absentCode;
    const MURV_Extension ext = ds.GetExtension(subtype);
    if (ext.UnitSize() != 1) return MURV_RC_BAD_EXTENSION;
    char* text = DupString(ext.Contents());
    if (!text) return MURV_RC_NO_MEMORY;
    *out = text;
    return MURV_RC_OK;
}

// Releases a structure handed out by murvGetMultRespDefByIndex.
void FreeDef(murvMultRespDef* def) {
    if (!def) return;
    std::free(def->countedValueText);
    FreeStrings(def->varNames, def->varCount);
    std::free(def);
}

// A fixed-size text field of the structure, up to its first NUL.
std::string_view Field(const char* field, std::size_t size) { return {field, strnlen(field, size)}; }

// At most n bytes of s, cut on a character boundary only when it is longer.
std::string CutTo(std::string_view s, std::size_t n) { return s.size() <= n ? std::string(s) : text::Truncated(s, n); }

// Adds one checked set to the dataset's multiple-response sets. Every check
// comes before the dataset changes, so a refused set leaves the list as it
// was.
int AddSet(dioDataSource& ds, const murvMultRespDef& def) {
    const std::string name(Field(def.setName, sizeof def.setName));
    if (names::ValidateVarname(name.c_str()) != names::kDollar) return MURV_RC_BAD_MRSET_NAME;
    const bool dichotomy = def.isDichotomy != 0;
    if (dichotomy && !def.isNumeric && (!def.countedValueText || !*def.countedValueText))
        return MURV_RC_BAD_MRSET_DEF;

    MURV_VariableSet set(dichotomy ? MURV_VariableSet::eDichotomySet : MURV_VariableSet::eCategorySet);
    set.SetName(CutTo(text::TrimBlanks(name), kSetNameBytes));

    MURV_VariableSetList list = ReadVariableSets(ds, MURV_SetListType::eMultipleResponseSets);
    const std::string upper = set.GetUpperName();
    for (const MURV_VariableSet& other : list)
        if (!other.GetName().empty() && other.GetUpperName() == upper) return MURV_RC_DUP_MRSET_NAME;

    // Members: all of one kind, that of a dichotomy set's counted value, or
    // that of the first member of a category set.
    bool wantNumeric = dichotomy && def.isNumeric != 0;
    for (int i = 0; i < def.varCount; ++i) {
        const char* member = def.varNames ? def.varNames[i] : nullptr;
        if (!member || !*member) return MURV_RC_BAD_MRSET_DEF;
        const int index = FindVariable(ds, member);
        if (index < 0) return MURV_RC_BAD_MRSET_DEF;
        const MURV_Variable& var = ds.GetVariable(index);
        const bool numeric = var.GetType() == 0;
        if (!dichotomy && i == 0) wantNumeric = numeric;
        if (numeric != wantNumeric) return MURV_RC_BAD_MRSET_DEF;
        // The member is listed under the dictionary's spelling of the name.
        if (!set.AddVariable(var.GetName())) return MURV_RC_BAD_MRSET_DEF;
    }

    if (dichotomy ? (def.useFirstVarLabel && !def.useCategoryLabels) : (def.useFirstVarLabel || def.useCategoryLabels))
        return MURV_RC_BAD_MRSET_DEF;
    const std::string_view label = Field(def.setLabel, sizeof def.setLabel);
    if (!label.empty()) set.SetLabel(CutTo(label, kSetLabelBytes));
    if (dichotomy) {
        if (def.isNumeric) {
            char value[16];
            std::snprintf(value, sizeof value, "%ld", static_cast<long>(def.countedValue));
            set.SetValue(value);
        } else {
            set.SetValue(def.countedValueText);
        }
        set.SetFlag(MURV_VariableSet::eExtendedForm, def.useCategoryLabels != 0);
        set.SetFlag(MURV_VariableSet::eLabelFromFirstVar, def.useFirstVarLabel != 0);
    }
    if (set.NVariables() < 2) return MURV_RC_BAD_MRSET_DEF;

    list.push_back(std::move(set));
    // The list is written whole: the records are cleared first so that no
    // set stays behind in a record that no longer receives text (a list of
    // extended sets only leaves nothing for subtype 7).
    ds.SetExtension(eMultRespSetRecord, 1, 0, nullptr);
    ds.SetExtension(eExtendedMultRespSetRecord, 1, 0, nullptr);
    StoreVariableSets(list, ds);
    return MURV_RC_OK;
}

// Fills a zeroed structure from the arguments of murvAddMultRespDefC and
// murvAddMultRespDefN (the counted value aside).
void FillDef(murvMultRespDef& def, const char* name, const char* label, int isDichotomy, const char** varNames,
             int numVars) {
    std::strncpy(def.setName, name, kSetNameBytes);
    if (label) std::strncpy(def.setLabel, label, kSetLabelBytes);
    def.isDichotomy = isDichotomy != 0;
    def.varNames = const_cast<char**>(varNames);
    def.varCount = numVars;
}

// The raw texts of the set records, as the two set families hand them in
// and out.
int SetSetsText(int handle, int subtype, const char* text) {
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        return StoreTextRecord(*ds, subtype, text);
    });
}

int GetSetsText(int handle, int subtype, int absentCode, char** text) {
    if (text) *text = nullptr;
    return WithFileHandle(handle, MURV_RC_FILE_READ, [&](dioDataSource* ds) {
        if (!text) return MURV_RC_FILE_READ;
        return CopyText(*ds, subtype, absentCode, text);
    });
}

int FreeText(char* text) {
    std::free(text);
    return MURV_RC_OK;
}

}  // namespace

extern "C" {

MURV_API int MURV_CALL murvSetMultRespDefs(int handle, const char* mrespDefs) {
    return SetSetsText(handle, eMultRespSetRecord, mrespDefs);
}

MURV_API int MURV_CALL murvGetMultRespDefs(int handle, char** mrespDefs) {
    return GetSetsText(handle, eMultRespSetRecord, MURV_RC_NO_MRSETS, mrespDefs);
}

MURV_API int MURV_CALL murvFreeMultRespDefs(char* mrespDefs) { return FreeText(mrespDefs); }

MURV_API int MURV_CALL murvGetMultRespCount(int handle, int* nSets) {
    if (nSets) *nSets = 0;
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!nSets) return MURV_RC_BAD_HANDLE;
        const std::size_t n = ReadVariableSets(*ds, MURV_SetListType::eMultipleResponseSets).size();
        *nSets = static_cast<int>(std::min<std::size_t>(n, std::numeric_limits<int>::max()));
        return MURV_RC_OK;
    });
}

MURV_API int MURV_CALL murvGetMultRespDefByIndex(int handle, int iSet, murvMultRespDef** ppSet) {
    if (ppSet) *ppSet = nullptr;
    murvMultRespDef* def = nullptr;
    const int rc = Guarded(MURV_RC_BAD_HANDLE, [&] {
        def = static_cast<murvMultRespDef*>(std::calloc(1, sizeof(murvMultRespDef)));
        if (!def) return MURV_RC_NO_MEMORY;
        dioDataSource* ds = nullptr;
        const int code = lookupHandle(handle, anyMode, &ds);
        if (code != MURV_RC_OK) return code;
        if (!ppSet) return MURV_RC_BAD_HANDLE;
        const MURV_VariableSetList list = ReadVariableSets(*ds, MURV_SetListType::eMultipleResponseSets);
        if (iSet < 0 || static_cast<std::size_t>(iSet) >= list.size()) return MURV_RC_BAD_MRSET_INDEX;
        const MURV_VariableSet& set = list[static_cast<std::size_t>(iSet)];

        CopyOut(def->setName, sizeof def->setName, set.GetName());
        CopyOut(def->setLabel, sizeof def->setLabel, MultRespDisplayLabel(set, *ds));
        if (set.GetKind() == MURV_VariableSet::eDichotomySet) {
            def->isDichotomy = 1;
            def->useCategoryLabels = set.GetFlag(MURV_VariableSet::eExtendedForm) ? 1 : 0;
            def->useFirstVarLabel = set.GetFlag(MURV_VariableSet::eLabelFromFirstVar) ? 1 : 0;
            const auto& members = set.GetVariables();
            const int first = members.empty() ? -1 : FindVariable(*ds, members.front().c_str());
            def->isNumeric = first >= 0 && ds->GetVariable(first).GetType() == 0 ? 1 : 0;
            def->countedValueText = DupString(set.GetValue());
            if (!def->countedValueText) return MURV_RC_NO_MEMORY;
            if (def->isNumeric) def->countedValue = static_cast<int>(std::strtol(def->countedValueText, nullptr, 10));
        }
        const auto& members = set.GetVariables();
        if (!members.empty()) {
            if (members.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return MURV_RC_NO_MEMORY;
            def->varNames = DupStrings(members.size(), [&](std::size_t i) { return members[i]; });
            if (!def->varNames) return MURV_RC_NO_MEMORY;
            def->varCount = static_cast<int>(members.size());
        }
        *ppSet = def;
        return MURV_RC_OK;
    });
    if (rc != MURV_RC_OK) {
        FreeDef(def);
        if (ppSet) *ppSet = nullptr;
    }
    return rc;
}

MURV_API int MURV_CALL murvFreeMultRespDefStruct(murvMultRespDef* pSet) {
    FreeDef(pSet);
    return MURV_RC_OK;
}

MURV_API int MURV_CALL murvAddMultRespDefExt(int handle, const murvMultRespDef* pSet) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!pSet) return MURV_RC_BAD_HANDLE;
        return AddSet(*ds, *pSet);
    });
}

MURV_API int MURV_CALL murvAddMultRespDefC(int handle, const char* mrSetName, const char* mrSetLabel, int isDichotomy,
                                           const char* countedValue, const char** varNames, int numVars) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!mrSetName) return MURV_RC_BAD_HANDLE;
        murvMultRespDef def{};
        FillDef(def, mrSetName, mrSetLabel, isDichotomy, varNames, numVars);
        // A string counted value: the set's variables are strings.
        if (def.isDichotomy) def.countedValueText = const_cast<char*>(countedValue);
        return AddSet(*ds, def);
    });
}

MURV_API int MURV_CALL murvAddMultRespDefN(int handle, const char* mrSetName, const char* mrSetLabel, int isDichotomy,
                                           int countedValue, const char** varNames, int numVars) {
    return WithHandle(handle, dictionaryOpen, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!mrSetName) return MURV_RC_BAD_HANDLE;
        murvMultRespDef def{};
        FillDef(def, mrSetName, mrSetLabel, isDichotomy, varNames, numVars);
        char text[16];
        if (def.isDichotomy) {
            std::snprintf(text, sizeof text, "%ld", static_cast<long>(countedValue));
            def.isNumeric = 1;
            def.countedValue = countedValue;
            def.countedValueText = text;
        }
        return AddSet(*ds, def);
    });
}

MURV_API int MURV_CALL murvSetVariableSets(int handle, const char* varSets) {
    return SetSetsText(handle, eVariableSetRecord, varSets);
}

MURV_API int MURV_CALL murvGetVariableSets(int handle, char** varSets) {
    return GetSetsText(handle, eVariableSetRecord, MURV_RC_NO_VARIABLE_SETS, varSets);
}

MURV_API int MURV_CALL murvFreeVariableSets(char* varSets) { return FreeText(varSets); }

}  // extern "C"
