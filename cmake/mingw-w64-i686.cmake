# 32-bit Windows: see mingw-w64.cmake.
set(MURVIO_MINGW_ARCH i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
