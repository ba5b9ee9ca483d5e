#include "murvio.h"
#include "text/names.h"

extern "C" MURV_API int MURV_CALL murvValidateVarname(const char* varName) {
    return murv::names::ValidateVarname(varName);
}

#include <cstring>

#include "api/handles.h"
#include "port/errors.h"

using namespace murv;
using namespace murv::api;

namespace {

// The short name under which a variable is (or will be) stored. The writer
// pairs (full name, short name), the reader (short name, long name).
std::string ShortNameOf(dioDataSource& ds, const std::string& fullName) {
    dioHandleState& st = ds.State();
    const auto& pairs = ds.Options().namePairs;
    if (st.shortNames.empty()) {
        const bool writing = st.openMode == dioWriteMode;
        for (const auto& [a, b] : pairs) st.shortNames.emplace(writing ? a : b, writing ? b : a);
    }
    const auto it = st.shortNames.find(fullName);
    if (it == st.shortNames.end())
        ErrorText::Throw(kErrNoShortNameInFile, fullName, ds.FileName());
    return it->second;
}

}  // namespace

extern "C" MURV_API int MURV_CALL murvGetVarCompatName(int handle, const char* longName, char* shortName) {
    if (shortName) *shortName = '\0';
    return WithHandle(handle, anyMode, MURV_RC_BAD_HANDLE, [&](dioDataSource* ds) {
        if (!ds->State().committed) return MURV_RC_DICT_NOT_COMMITTED;
        const int index = FindVariable(*ds, longName);
        if (index < 0) return MURV_RC_VAR_NOT_FOUND;
        if (!shortName) return MURV_RC_BAD_HANDLE;
        const std::string& name = ds->GetVariable(index).GetName();
        std::string result;
        try {
            result = ShortNameOf(*ds, name);
        } catch (const ErrorText&) {
            // No pair for the variable (a file without long names): its name's
            // first 8 bytes.
            result = name.substr(0, 8);
        }
        const std::size_t n = result.size() < 8 ? result.size() : 8;
        std::memcpy(shortName, result.data(), n);
        shortName[n] = '\0';
        return MURV_RC_OK;
    });
}
