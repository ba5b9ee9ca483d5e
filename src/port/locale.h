// The process locale as the library's text handling sees it.
#pragma once

namespace murv::port {

// Sets the categories that the library's own text handling reads (character
// classes and collation) to the user's default, leaving every other category
// of the host program as it was.
void UseUserCharacterLocale();

}  // namespace murv::port
