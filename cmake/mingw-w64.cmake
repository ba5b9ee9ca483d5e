# Cross-compiling for Windows with Debian's MinGW-w64, the POSIX thread model
# (the standard library's mutexes need it with this compiler release). The
# toolchain files of the two architectures set MURVIO_MINGW_ARCH and include
# this one.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${MURVIO_MINGW_ARCH})
set(prefix ${MURVIO_MINGW_ARCH}-w64-mingw32)
find_program(MURVIO_MINGW_CXX ${prefix}-g++-posix)
if(NOT MURVIO_MINGW_CXX)
  string(REPLACE "_" "-" package g++-mingw-w64-${MURVIO_MINGW_ARCH}-posix)
  message(FATAL_ERROR "${prefix}-g++-posix not found. Install the Debian package ${package} (tools/deps.sh test).")
endif()
set(CMAKE_C_COMPILER ${prefix}-gcc-posix)
set(CMAKE_CXX_COMPILER ${prefix}-g++-posix)
set(CMAKE_RC_COMPILER ${prefix}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${prefix})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Programs and DLLs carry the compiler's runtime inside: nothing but the
# system's own DLLs is needed beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
