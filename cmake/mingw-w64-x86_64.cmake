# 64-bit Windows: see mingw-w64.cmake.
set(MURVIO_MINGW_ARCH x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
