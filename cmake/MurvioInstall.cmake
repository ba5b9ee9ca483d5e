# Installation: the header, the shared library with a versioned soname, a
# static library of the same objects, the CMake package (murvio::murvio,
# murvio::murvio_static) and a pkg-config file. murv installs itself.
#
# On Windows the package is the DLL (to bin), its import library (to lib), the
# header, the CMake package and murvio.pc. There is no static library there:
# the header declares every call dllimport to a client, and no static library
# can satisfy those references.
#
# Fuzz builds install nothing: their library is instrumented and built only
# on request.
if(MURVIO_BUILD_FUZZ)
  return()
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(murvio INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set(MURVIO_INSTALL_TARGETS murvio)

if(WIN32)
  set(MURVIO_PC_LIBNAME ${MURVIO_DLL_NAME})
  set(MURVIO_PC_LIBS_PRIVATE "")
else()
  set_target_properties(murvio PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})

  # Same file name as the shared library (libmurvio.a beside libmurvio.so).
  add_library(murvio_static STATIC $<TARGET_OBJECTS:murvio_obj>)
  set_target_properties(murvio_static PROPERTIES OUTPUT_NAME murvio)
  target_include_directories(murvio_static INTERFACE
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  # The library is C++ inside, so a program linking the archive needs what
  # the C++ compiler links beyond what the C compiler does: with GCC,
  # libstdc++ and libm (the date code calls fmod).
  set(MURVIO_STATIC_DEPS ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
  list(REMOVE_ITEM MURVIO_STATIC_DEPS ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
  list(REMOVE_DUPLICATES MURVIO_STATIC_DEPS)
  target_link_libraries(murvio_static INTERFACE ${MURVIO_STATIC_DEPS})
  list(APPEND MURVIO_INSTALL_TARGETS murvio_static)

  set(MURVIO_PC_LIBNAME murvio)
  list(TRANSFORM MURVIO_STATIC_DEPS PREPEND -l)
  list(JOIN MURVIO_STATIC_DEPS " " MURVIO_PC_LIBS_PRIVATE)
endif()

install(TARGETS ${MURVIO_INSTALL_TARGETS} EXPORT murvioTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/murvio.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(MURVIO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/murvio)
install(EXPORT murvioTargets NAMESPACE murvio:: DESTINATION ${MURVIO_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/murvioConfig.cmake.in
  ${CMAKE_BINARY_DIR}/murvioConfig.cmake INSTALL_DESTINATION ${MURVIO_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/murvioConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/murvioConfig.cmake ${CMAKE_BINARY_DIR}/murvioConfigVersion.cmake
  DESTINATION ${MURVIO_CMAKE_DIR})

# pkg-config: with relative install directories the prefix is found from the
# file's own place, so an installed tree may be moved; absolute ones are
# written as they are.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(MURVIO_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH MURVIO_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" MURVIO_PC_PREFIX "\${pcfiledir}/${MURVIO_PC_PREFIX}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(MURVIO_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(MURVIO_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/murvio.pc.in ${CMAKE_BINARY_DIR}/murvio.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/murvio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
