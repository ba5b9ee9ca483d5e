#include "port/locale.h"

#include <clocale>

namespace murv::port {

void UseUserCharacterLocale() {
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_COLLATE, "");
}

}  // namespace murv::port
