// Library start-up and the two handle-free settings calls.
#include <clocale>

#include "murvio.h"
#include "port/locale.h"

namespace {

// When the library is loaded, the character classes and collation become
// the user's default, so that names and labels are cut and compared in the
// user's character set until the client chooses another locale. Number and
// time formatting stay the host program's.
struct LibraryStart {
    LibraryStart() { murv::port::UseUserCharacterLocale(); }
};
const LibraryStart gLibraryStart;

// The interface numbers locale categories as 0 all, 1 collation, 2 character
// classes, 3 monetary, 4 numeric, 5 time; the host's numbers differ.
int HostCategory(int category) {
    switch (category) {
        case MURV_LC_ALL: return LC_ALL;
        case MURV_LC_COLLATE: return LC_COLLATE;
        case MURV_LC_CTYPE: return LC_CTYPE;
        case MURV_LC_MONETARY: return LC_MONETARY;
        case MURV_LC_NUMERIC: return LC_NUMERIC;
        case MURV_LC_TIME: return LC_TIME;
        default: return -1;
    }
}

}  // namespace

extern "C" {

MURV_API char* MURV_CALL murvSetLocale(int category, const char* locale) {
    const int host = HostCategory(category);
    if (host < 0) return nullptr;  // an unknown category is refused, as the runtime would
    return std::setlocale(host, locale);
}

// The library keeps no temporary files; the directory is accepted and unused.
MURV_API int MURV_CALL murvSetTempDir(const char*) { return MURV_RC_OK; }

}  // extern "C"
