#include "murvio.h"
#include "text/names.h"

extern "C" MURV_API int MURV_CALL murvValidateVarname(const char* varName) {
    return murv::names::ValidateVarname(varName);
}
