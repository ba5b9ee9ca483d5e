// murvMultRespDef crosses the interface by address: with 4-byte pointers it
// must have exactly the 412-byte layout that 32-bit clients compile against.
#include <cstddef>
#include <cstdint>

#include "murvio.h"

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(murvMultRespDef) == 412);
static_assert(offsetof(murvMultRespDef, setLabel) == 65);
static_assert(offsetof(murvMultRespDef, isDichotomy) == 324);
static_assert(offsetof(murvMultRespDef, isNumeric) == 328);
static_assert(offsetof(murvMultRespDef, useCategoryLabels) == 332);
static_assert(offsetof(murvMultRespDef, useFirstVarLabel) == 336);
static_assert(offsetof(murvMultRespDef, reserved) == 340);
static_assert(offsetof(murvMultRespDef, countedValue) == 396);
static_assert(offsetof(murvMultRespDef, countedValueText) == 400);
static_assert(offsetof(murvMultRespDef, varNames) == 404);
static_assert(offsetof(murvMultRespDef, varCount) == 408);
#else
// With native 8-byte pointers the field order stays; only the padding grows.
static_assert(offsetof(murvMultRespDef, countedValue) == 396);
static_assert(offsetof(murvMultRespDef, countedValueText) == 400);
#endif
